#include "corvane/wire/value_reader.h"

#include "corvane/base/limits.h"
#include "corvane/base/text.h"
#include "corvane/records/exception.h"
#include "corvane/records/messages.h"
#include "corvane/wire/frame.h"
#include "corvane/wire/value_writer.h"

#include <algorithm>
#include <array>
#include <bit>
#include <cstring>
#include <memory>
#include <vector>

namespace corvane {
namespace {

const wchar_t* tagName(unsigned char tag) {
  switch (static_cast<ValueTag>(tag)) {
    case ValueTag::kInt:
      return L"an integer";
    case ValueTag::kBoolean:
      return L"a boolean";
    case ValueTag::kText:
      return L"a text";
    case ValueTag::kBytes:
      return L"a block of bytes";
  }
  return L"an unknown value";
}

}  // namespace

bool ValueReader::refill() {
  while (m_frame.empty()) {
    if (m_source == nullptr || !m_source->next(m_frame)) return false;
  }
  return true;
}

void ValueReader::take(void* to, std::size_t count) {
  auto* out = static_cast<unsigned char*>(to);
  while (count > 0) {
    if (!refill()) throw CS_Exception(kWrongValueType, L"read past the end of the request");
    const std::size_t now = std::min(count, m_frame.size());
    std::memcpy(out, m_frame.data(), now);
    m_frame = m_frame.subspan(now);
    out += now;
    count -= now;
  }
}

template <std::size_t kCount>
std::array<unsigned char, kCount> ValueReader::take() {
  std::array<unsigned char, kCount> bytes;
  if (m_frame.size() < kCount) {
    take(bytes.data(), kCount);
  } else {
    std::memcpy(bytes.data(), m_frame.data(), kCount);
    m_frame = m_frame.subspan(kCount);
  }
  return bytes;
}

void ValueReader::expect(unsigned char tag, const wchar_t* name) {
  if (m_inBytes) throw CS_Exception(kWrongValueType, L"read %s inside a block of bytes", name);
  const unsigned char found = take<1>()[0];
  if (found != tag) throw CS_Exception(kWrongValueType, L"read %s where %s stands", name, tagName(found));
}

std::uint32_t ValueReader::takeCount() {
  return loadLittleEndian32(take<4>().data());
}

std::int32_t ValueReader::readInt() {
  expect(static_cast<unsigned char>(ValueTag::kInt), L"an integer");
  return static_cast<std::int32_t>(takeCount());
}

bool ValueReader::readBoolean() {
  expect(static_cast<unsigned char>(ValueTag::kBoolean), L"a boolean");
  const unsigned char value = take<1>()[0];
  if (value > 1) throw CS_Exception(kWrongValueType, L"a boolean with the value %d", static_cast<int>(value));
  return value == 1;
}

std::wstring ValueReader::readText() {
  expect(static_cast<unsigned char>(ValueTag::kText), L"a text");
  const std::uint32_t count = takeCount();
  if (count > kMaxTextUnits) {
    throw CS_Exception(kLimitExceeded, L"a text of %u characters, the limit is %u", count,
                       static_cast<unsigned>(kMaxTextUnits));
  }
  static_assert(std::endian::native == std::endian::little, "the units are taken as they come");
  std::array<std::uint16_t, 128> few;
  std::vector<std::uint16_t> many(count > few.size() ? count : 0);
  std::uint16_t* const units = many.empty() ? few.data() : many.data();
  take(units, sizeof *units * count);
  return fromUtf16(units, count);
}

std::span<const unsigned char> ValueReader::readPiece() {
  if (!m_inBytes) {
    expect(static_cast<unsigned char>(ValueTag::kBytes), L"a block of bytes");
    m_bytesLeft = takeCount();
    m_inBytes = true;
  }
  if (m_bytesLeft == 0) {
    m_inBytes = false;
    return {};
  }
  if (!refill()) throw CS_Exception(kWrongValueType, L"a block of bytes ends early");
  const auto piece = m_frame.first(std::min(m_bytesLeft, m_frame.size()));
  m_frame = m_frame.subspan(piece.size());
  m_bytesLeft -= piece.size();
  return piece;
}

bool ValueReader::atEnd() {
  return !m_inBytes && !refill();
}

char ValueReader::nextTag() {
  return atEnd() ? '\0' : static_cast<char>(m_frame.front());
}

void ValueReader::skipRest() {
  m_inBytes = false;
  do {
    m_frame = {};
  } while (refill());
}

std::wstring readText(std::span<const unsigned char> bytes) {
  try {
    return ValueReader(bytes).readText();
  } catch (const CS_Exception&) {
    return L"the other side gave no readable reason";
  }
}

std::wstring readReason(std::span<const unsigned char> bytes) {
  std::wstring reason = readText(bytes);
  if (reason.size() <= kMaxReasonCharacters) return reason;
  return reason.substr(0, kMaxReasonCharacters) + L"...";
}

}  // namespace corvane
