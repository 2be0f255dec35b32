#include "corvane/wire/value_writer.h"

#include "corvane/base/text.h"
#include "corvane/records/exception.h"
#include "corvane/records/messages.h"
#include "corvane/wire/frame.h"

#include <cstring>
#include <string_view>

namespace corvane {

unsigned char* ValueWriter::extend(std::size_t count) {
  const std::size_t used = m_used;
  if (m_large.empty() && used + count > kInlineBytes) {
    m_large.reserve(used + count + kInlineBytes);
    m_large.assign(m_small.data(), m_small.data() + used);
  }
  m_used = used + count;
  if (m_large.empty() && m_used <= kInlineBytes) return m_small.data() + used;
  m_large.resize(m_used);
  return m_large.data() + used;
}

void ValueWriter::writeInt(std::int32_t value) {
  unsigned char* at = extend(5);
  at[0] = static_cast<unsigned char>(ValueTag::kInt);
  storeLittleEndian32(at + 1, static_cast<std::uint32_t>(value));
}

void ValueWriter::writeBoolean(bool value) {
  unsigned char* at = extend(2);
  at[0] = static_cast<unsigned char>(ValueTag::kBoolean);
  at[1] = value ? 1 : 0;
}

void ValueWriter::writeText(const wchar_t* text) {
  const std::wstring_view view(text != nullptr ? text : L"");
  std::size_t count = 0;
  forEachUtf16Unit(view, [&](std::uint16_t) { ++count; });
  if (count > kMaxTextUnits) {
    throw CS_Exception(kLimitExceeded, L"a text of %u characters, the limit is %u", static_cast<unsigned>(count),
                       static_cast<unsigned>(kMaxTextUnits));
  }
  unsigned char* at = extend(5 + 2 * count);
  at[0] = static_cast<unsigned char>(ValueTag::kText);
  storeLittleEndian32(at + 1, static_cast<std::uint32_t>(count));
  at += 5;
  forEachUtf16Unit(view, [&](std::uint16_t unit) {
    *at++ = static_cast<unsigned char>(unit);
    *at++ = static_cast<unsigned char>(unit >> 8);
  });
}

void ValueWriter::writeBytes(const unsigned char* data, int length) {
  if (length < 0 || (data == nullptr && length > 0)) throw CS_Exception(kBadArgument, nullptr);
  unsigned char* at = extend(5);
  at[0] = static_cast<unsigned char>(ValueTag::kBytes);
  storeLittleEndian32(at + 1, static_cast<std::uint32_t>(length));
  if (length == 0) return;
  const auto count = static_cast<std::size_t>(length);
  if (m_references < kMaxReferences) {
    m_referenceList[m_references++] = {m_used, Piece(data, count)};
    m_referenced += count;
  } else {
    std::memcpy(extend(count), data, count);
  }
}

}  // namespace corvane
