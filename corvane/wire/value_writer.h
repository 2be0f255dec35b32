#pragma once

#include "corvane/base/limits.h"

#include <array>
#include <cstdint>
#include <span>
#include <vector>

namespace corvane {

// Type tags of the values inside a request; each value is its tag, then its bytes, little-endian.
enum class ValueTag : unsigned char {
  kInt = 'i',      // 4 bytes, signed
  kBoolean = 'b',  // 1 byte, 0 or 1
  kText = 't',     // 4 bytes count of UTF-16 units, then the units
  kBytes = 'd',    // 4 bytes count, then the bytes
};

// Collects the values of one request or reply as a list of pieces to be sent in one gathered send. Small values are
// copied into the writer; blocks of bytes are referred to and must stay until the send. No allocation happens for
// values of up to kInlineBytes. Used by one thread; throws CS_Exception past a bound, std::bad_alloc without memory.
class ValueWriter {
 public:
  using Piece = std::span<const unsigned char>;

  void writeInt(std::int32_t value);
  void writeBoolean(bool value);
  void writeText(const wchar_t* text);
  // Throws CS_Exception (3015) for a negative length, or a null block that is not empty.
  void writeBytes(const unsigned char* data, int length);

  std::size_t size() const { return m_used + m_referenced; }
  // Calls use(piece) for each piece in order. The pieces are valid until the writer changes.
  template <class Use>
  void forEachPiece(Use&& use) const {
    std::size_t from = 0;
    for (std::size_t i = 0; i < m_references; ++i) {
      const Reference& reference = m_referenceList[i];
      if (reference.at > from) use(Piece(data() + from, reference.at - from));
      use(reference.bytes);
      from = reference.at;
    }
    if (m_used > from) use(Piece(data() + from, m_used - from));
  }

  static constexpr std::size_t kInlineBytes = 1024;
  // Blocks that are referred to; further ones are copied.
  static constexpr std::size_t kMaxReferences = 4;

 private:
  struct Reference {
    std::size_t at;  // how many copied bytes go before it
    Piece bytes;
  };

  const unsigned char* data() const { return m_large.empty() ? m_small.data() : m_large.data(); }
  // Room for that many more copied bytes.
  unsigned char* extend(std::size_t count);

  std::array<unsigned char, kInlineBytes> m_small;
  std::vector<unsigned char> m_large;  // takes over from m_small when that is full
  std::size_t m_used = 0;
  std::size_t m_referenced = 0;
  std::size_t m_references = 0;
  std::array<Reference, kMaxReferences> m_referenceList;
};

}  // namespace corvane
