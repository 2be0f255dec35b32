#pragma once

#include <array>
#include <cstdint>
#include <memory>
#include <span>
#include <string>
#include <utility>
#include <vector>

namespace corvane {

// Where the bytes of one request or reply come from, frame by frame.
class FrameSource {
 public:
  virtual ~FrameSource() = default;
  // The payload of the next frame, valid until the next call; false when the request has no further frame. Throws
  // CS_Exception (3102) when the connection ended before the request did.
  virtual bool next(std::span<const unsigned char>& payload) = 0;
};

// Reads values in the order in which a ValueWriter wrote them, across the borders of frames. Reading another type than
// was written, a malformed value, or past the end throws CS_Exception (3106). Used by one thread.
class ValueReader {
 public:
  ValueReader() = default;
  explicit ValueReader(std::unique_ptr<FrameSource> source) : m_source(std::move(source)) {}
  // Of a request or reply that has arrived whole: its bytes, or where they lie, which outlives the reader.
  explicit ValueReader(std::vector<unsigned char>&& bytes) : m_bytes(std::move(bytes)), m_frame(m_bytes) {}
  explicit ValueReader(std::span<const unsigned char> bytes) : m_frame(bytes) {}

  std::int32_t readInt();
  bool readBoolean();
  std::wstring readText();
  // The next piece of a block of bytes, empty once at its end; see CS_InRequest::readPiece.
  std::span<const unsigned char> readPiece();
  // True when every value has been read.
  bool atEnd();
  // Takes in the frames that were not read.
  void skipRest();
  // What kind of value comes next, as its tag character; 0 at the end.
  char nextTag();

 private:
  bool refill();
  void take(void* to, std::size_t count);
  // The same for the few bytes that most values are made of.
  template <std::size_t kCount>
  std::array<unsigned char, kCount> take();
  void expect(unsigned char tag, const wchar_t* name);
  std::uint32_t takeCount();

  std::unique_ptr<FrameSource> m_source;  // null where everything is in m_frame
  std::vector<unsigned char> m_bytes;
  std::span<const unsigned char> m_frame;  // what was not read of it
  bool m_inBytes = false;
  std::size_t m_bytesLeft = 0;
};

// The one text that a frame carries; as much as can be read when the payload is not a text.
std::wstring readText(std::span<const unsigned char> bytes);
// The same for the reason in a release or failure, which may be kept: its first kMaxReasonCharacters.
std::wstring readReason(std::span<const unsigned char> bytes);

}  // namespace corvane
