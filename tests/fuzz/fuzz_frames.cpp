// Receives arbitrary bytes as frames, cut into receives of varying length: the frames that come out are the bytes that
// went in, a header written again is the one that was read, and anything else is a CS_Exception.
//
// The first byte says how the rest is cut: 0 not at all; 255 not at all, and a last frame that is too short gets the
// bytes that it lacks; every other number is the length of each receive, where that makes few of them.

#include "corvane/records/exception.h"
#include "corvane/wire/frame.h"

#include <algorithm>
#include <cstddef>
#include <cstdint>
#include <cstdlib>
#include <cstring>
#include <linux/sockios.h>
#include <sys/ioctl.h>
#include <sys/socket.h>
#include <unistd.h>
#include <vector>

namespace {

using corvane::FrameReader;

constexpr std::size_t kShort = 4096;

// Two ends: what is sent at one is received at the other.
struct Line {
  Line() {
    int ends[2];
    if (::socketpair(AF_UNIX, SOCK_STREAM, 0, ends) != 0) std::abort();
    near = corvane::Socket(ends[0]);
    far = ends[1];
  }
  ~Line() { ::close(far); }
  Line(const Line&) = delete;
  Line& operator=(const Line&) = delete;

  corvane::Socket near;
  int far = -1;
};

void require(bool condition) {
  if (!condition) std::abort();
}

// Sends the bytes, receives them and takes every frame that is complete with them. `whole` is everything that was sent
// until then, `taken` how much of it came out in frames; returns the new number.
std::size_t take(Line& line, FrameReader& reader, std::span<const unsigned char> bytes,
                 std::span<const unsigned char> whole, std::size_t taken) {
  require(::send(line.far, bytes.data(), bytes.size(), 0) == static_cast<ssize_t>(bytes.size()));
  int waiting = 1;
  while (waiting > 0) {
    require(reader.fill(line.near, std::nullopt) == FrameReader::Fill::kData);
    waiting = 0;
    // A receive takes as much as the reader has room for, and that is more than any short input.
    if (whole.size() > kShort) require(::ioctl(line.far, SIOCOUTQ, &waiting) == 0);
    while (const auto frame = reader.next()) {
      require(frame->payload().size() == frame->header.length);
      require(taken + frame->bytes.size() <= whole.size());
      require(std::memcmp(whole.data() + taken, frame->bytes.data(), frame->bytes.size()) == 0);
      const corvane::EncodedHeader again = corvane::encodeHeader(frame->header);
      require(std::equal(again.begin(), again.end(), frame->bytes.begin()));
      taken += frame->bytes.size();
    }
  }
  require(reader.isBetweenFrames() == (taken == whole.size()));
  return taken;
}

// The bytes with those that their last frame lacks.
std::vector<unsigned char> completed(std::span<const unsigned char> bytes) {
  std::vector<unsigned char> all(bytes.begin(), bytes.end());
  std::size_t at = 0;
  while (all.size() - at >= corvane::kFrameHeaderSize) {
    const std::size_t length = corvane::loadLittleEndian32(all.data() + at);
    if (length > corvane::kMaxFramePayload) break;
    at += corvane::kFrameHeaderSize + length;
    if (at >= all.size()) all.resize(at, 0x5A);
  }
  return all;
}

void receiveAll(Line& line, std::span<const unsigned char> bytes, std::size_t step) {
  FrameReader reader;
  try {
    std::size_t taken = 0;
    for (std::size_t at = 0; at < bytes.size(); at += step) {
      const auto whole = bytes.first(std::min(at + step, bytes.size()));
      taken = take(line, reader, whole.subspan(at), whole, taken);
    }
  } catch (const CS_Exception&) {
  }
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
  if (size < 2) return 0;
  const std::span<const unsigned char> bytes(data + 1, size - 1);
  // No more than a few receives, which cost more than everything else here.
  const std::size_t step = data[0] == 0 ? bytes.size() : std::max<std::size_t>(data[0], bytes.size() / 6 + 1);
  if (data[0] != 255 && size <= kShort) {
    static Line line;  // one for all: a short input leaves nothing behind in it
    receiveAll(line, bytes, step);
  } else {
    Line line;
    const std::vector<unsigned char> longer = completed(bytes);
    receiveAll(line, longer, std::min<std::size_t>(longer.size(), 100000));
  }
  return 0;
}
