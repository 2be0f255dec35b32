// Reads arbitrary bytes as values, cut into frames of varying length: every way out is an end or a CS_Exception, and
// what was read, written again, is what came.

#include "corvane/records/exception.h"
#include "corvane/wire/value_reader.h"
#include "corvane/wire/value_writer.h"

#include <algorithm>
#include <cstddef>
#include <cstdint>
#include <cstdlib>
#include <cstring>
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

// Whether the values are the first bytes of the input. A text with a zero in it cannot be written again.
class Copy {
 public:
  explicit Copy(std::span<const unsigned char> input) : m_input(input) {}

  void add(std::int32_t value) { m_values.writeInt(value); }
  void add(bool value) { m_values.writeBoolean(value); }
  void add(const std::wstring& text) {
    m_comparable = m_comparable && text.find(L'\0') == std::wstring::npos;
    if (m_comparable) m_values.writeText(text.c_str());
  }
  // A block came in pieces that may be gone: it is compared with where it stood.
  void addBlock(std::size_t size) {
    if (!m_comparable) return;
    constexpr std::size_t kTagAndCount = 5;
    m_values.writeBytes(m_input.data() + m_values.size() + kTagAndCount, static_cast<int>(size));
  }
  void compare() const {
    if (!m_comparable) return;
    std::size_t at = 0;
    m_values.forEachPiece([&](auto piece) {
      if (at + piece.size() > m_input.size() || std::memcmp(m_input.data() + at, piece.data(), piece.size()) != 0) {
        std::abort();
      }
      at += piece.size();
    });
  }

 private:
  std::span<const unsigned char> m_input;
  corvane::ValueWriter m_values;
  bool m_comparable = true;
};

void read(corvane::ValueReader& reader, Copy& copy) {
  for (;;) {
    switch (reader.nextTag()) {
      case 'b':
        copy.add(reader.readBoolean());
        break;
      case 't':
        copy.add(reader.readText());
        break;
      case 'd': {
        std::size_t size = 0;
        for (auto piece = reader.readPiece(); !piece.empty(); piece = reader.readPiece())
          size += piece.size();
        copy.addBlock(size);
        break;
      }
      case '\0':
        if (reader.atEnd()) return;
        [[fallthrough]];
      default:
        copy.add(reader.readInt());
    }
  }
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
  corvane::ValueReader reader(std::make_unique<Slices>(std::span(data, size)));
  Copy copy(std::span(data, size));
  try {
    read(reader, copy);
  } catch (const CS_Exception&) {
  }
  copy.compare();
  return 0;
}
