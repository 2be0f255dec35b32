// Reads arbitrary bytes as values, cut into frames of varying length: every way out is an end or a CS_Exception.

#include "corvane/exception.h"
#include "corvane/value_reader.h"

#include <algorithm>
#include <cstddef>
#include <cstdint>
#include <memory>

namespace {

class Slices : public corvane::FrameSource {
 public:
  explicit Slices(std::span<const unsigned char> bytes) : m_bytes(bytes) {}
  bool next(std::span<const unsigned char>& payload) override {
    if (m_bytes.empty()) return false;
    payload = m_bytes.first(std::min<std::size_t>(m_bytes.size(), 1 + m_bytes.front() % 16));
    m_bytes = m_bytes.subspan(payload.size());
    return true;
  }

 private:
  std::span<const unsigned char> m_bytes;
};

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
  corvane::ValueReader reader(std::make_unique<Slices>(std::span(data, size)));
  try {
    for (;;) {
      switch (reader.nextTag()) {
        case 'i':
          reader.readInt();
          break;
        case 'b':
          reader.readBoolean();
          break;
        case 't':
          reader.readText();
          break;
        case 'd':
          while (!reader.readPiece().empty()) {
          }
          break;
        case '\0':
          return 0;
        default:
          reader.readInt();
      }
    }
  } catch (const CS_Exception&) {
  }
  return 0;
}
