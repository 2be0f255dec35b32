// Plays a peer that says hello and then sends arbitrary bytes to a served connection with a component, a bridge that
// serves and a router: the connection ends, and nothing else happens.

#include "corvane/components/bridge.h"
#include "corvane/components/bridge_router.h"
#include "corvane/components/component_server.h"
#include "corvane/components/connection.h"
#include "corvane/components/in_request.h"
#include "corvane/net/socket.h"
#include "corvane/records/exception.h"
#include "corvane/records/program_monitor.h"
#include "corvane/wire/frame.h"
#include "corvane/wire/value_writer.h"

#include <cstddef>
#include <cstdint>
#include <memory>
#include <sys/socket.h>
#include <thread>

namespace {

class Quiet : public corvane::LogSink {
 public:
  void write(std::string_view) noexcept override {}
};

class Echo : public CS_Component {
 public:
  bool processRequest(CS_InRequest& request) override {
    CS_ClassVersionMap map;
    if (request.number() == 1) map << request.getChannel();
    if (request.number() == 2) request.reply().writeText(request.readUTF());
    while (request.number() == 3 && !request.readPiece().empty()) {
    }
    request.sendReply();
    return request.number() < 4;
  }
};

void append(std::vector<unsigned char>& bytes, corvane::FrameHeader header, const corvane::ValueWriter& values) {
  header.length = static_cast<std::uint32_t>(values.size());
  const corvane::EncodedHeader encoded = corvane::encodeHeader(header);
  bytes.insert(bytes.end(), encoded.begin(), encoded.end());
  values.forEachPiece([&](auto piece) { bytes.insert(bytes.end(), piece.begin(), piece.end()); });
}

void appendCreate(std::vector<unsigned char>& bytes, std::uint32_t component, const wchar_t* name) {
  corvane::FrameHeader header;
  header.kind = corvane::FrameKind::kCreate;
  header.component = component;
  corvane::ValueWriter values;
  values.writeText(name);
  append(bytes, header, values);
}

std::vector<unsigned char> opening() {
  std::vector<unsigned char> bytes;
  corvane::FrameHeader hello;
  hello.kind = corvane::FrameKind::kHello;
  hello.number = corvane::kProtocolVersion;
  corvane::ValueWriter values;
  values.writeText(L"corvane");
  values.writeInt(0);
  append(bytes, hello, values);
  appendCreate(bytes, 1, L"Echo");
  appendCreate(bytes, 3, CS_Bridge::m_className);
  appendCreate(bytes, 5, CS_BridgeRouter::getClassName());
  return bytes;
}

bool prepare() {
  corvane::LocalMonitor::instance().setSink(std::make_unique<Quiet>());
  CS_ComponentServer::initialize(0, 0);
  CS_ComponentServer* server = CS_ComponentServer::getServer();
  server->registerClass(L"Echo", new corvane::ComponentClass<Echo>(CS_Version(1, 0, 0, 0)));
  server->offerClass(L"Echo");
  server->offerClass(CS_Bridge::m_className);
  return server->offerClass(CS_BridgeRouter::getClassName());
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
  static const bool prepared = prepare();
  if (!prepared) return 0;
  int ends[2];
  if (::socketpair(AF_UNIX, SOCK_STREAM, 0, ends) != 0) return 0;
  corvane::Socket peer(ends[0]);
  std::jthread sender([&] {
    try {
      const std::vector<unsigned char> first = opening();
      const corvane::Socket::Piece pieces[] = {first, {data, size}};
      peer.send(pieces);
    } catch (const CS_Exception&) {
    }
    ::shutdown(ends[0], SHUT_WR);
    // Takes the answers in until the other end closes, so that it never waits for room.
    std::vector<unsigned char> answers(65536);
    try {
      while (*peer.receive(answers, std::nullopt) > 0) {
      }
    } catch (const CS_Exception&) {
    }
  });
  try {
    const CS_RCPtr<CS_Connection> connection = CS_Connection::accept(corvane::Socket(ends[1]));
    connection->serve();
    CS_Connection::destroy(connection, true);
  } catch (const CS_Exception&) {
    ::shutdown(ends[1], SHUT_RDWR);
  }
  sender.join();
  CS_Bridge::waitForThreads(60000);
  return 0;
}
