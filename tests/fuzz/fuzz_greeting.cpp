// Plays a peer that sends arbitrary bytes instead of a hello, or instead of what follows its first frame, to either
// side of a handshake with keys: nobody without the key is ever let in, and nothing else happens.

#include "corvane/components/component_server.h"
#include "corvane/net/socket.h"
#include "corvane/records/exception.h"
#include "corvane/trust/crypto.h"
#include "corvane/trust/handshake.h"
#include "tests/fuzz/scratch_folder.h"

#include <cstddef>
#include <cstdint>
#include <cstdlib>
#include <fstream>
#include <string>
#include <sys/socket.h>
#include <sys/stat.h>
#include <unistd.h>

namespace {

const corvane::KeyFolder& keys() {
  static const fuzz::ScratchFolder scratch;
  static const corvane::KeyFolder folder = [] {
    const std::string file = scratch.path() / "session-5.key";
    std::ofstream(file) << std::string(64, '5');
    ::chmod(file.c_str(), 0600);
    return corvane::KeyFolder(scratch.path());
  }();
  return folder;
}

std::vector<unsigned char> frame(corvane::FrameKind kind, const corvane::HelloValues& values) {
  corvane::ValueWriter writer;
  writer.writeText(L"corvane");
  writer.writeInt(static_cast<int>(values.size()));
  for (const auto& [name, value] : values) {
    writer.writeText(name.c_str());
    writer.writeText(value.c_str());
  }
  corvane::FrameHeader header;
  header.kind = kind;
  header.number = corvane::kProtocolVersion;
  header.length = static_cast<std::uint32_t>(writer.size());
  const corvane::EncodedHeader encoded = corvane::encodeHeader(header);
  std::vector<unsigned char> bytes(encoded.begin(), encoded.end());
  writer.forEachPiece([&](auto piece) { bytes.insert(bytes.end(), piece.begin(), piece.end()); });
  return bytes;
}

// What the peer says before the arbitrary bytes.
std::vector<unsigned char> opening(unsigned choice) {
  const std::wstring some = corvane::toHex({1, 2, 3});
  if (choice == 1) {
    return frame(corvane::FrameKind::kHello, {{L"identity", L"session-5"}, {L"nonce", some}, {L"process", L"1"}});
  }
  if (choice == 3) return frame(corvane::FrameKind::kWelcome, {{L"nonce", some}, {L"proof", some}});
  return {};
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
  static const bool prepared = CS_ComponentServer::initialize(0, 0);
  // What does not fit into the socket at once would need a second thread.
  if (!prepared || size == 0 || size > 65536) return 0;
  const unsigned choice = data[0] % 4;
  int ends[2];
  if (::socketpair(AF_UNIX, SOCK_STREAM, 0, ends) != 0) return 0;
  corvane::Socket peer(ends[0]);
  corvane::Link link{corvane::Socket(ends[1])};
  try {
    const std::vector<unsigned char> first = opening(choice);
    const corvane::Socket::Piece pieces[] = {first, {data + 1, size - 1}};
    peer.send(pieces);
    ::shutdown(ends[0], SHUT_WR);
    if (choice < 2) {
      corvane::acceptHandshake(link, {}, &keys(), corvane::after(20000));
    } else {
      const corvane::Identity identity = corvane::Identity::session(5);
      const corvane::Credentials credentials{identity, keys().read(identity)};
      corvane::offerHandshake(link, {}, &credentials, corvane::after(20000));
    }
    std::abort();  // the peer has no key
  } catch (const CS_Exception&) {
  }
  return 0;
}
