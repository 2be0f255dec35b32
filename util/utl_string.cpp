#include "util/utl_string.h"

#include "util/ansi_text.h"
#include "util/text_buffer.h"

#include <algorithm>
#include <cstring>
#include <cwchar>
#include <utility>

namespace {

template <typename Char>
std::unique_ptr<Char[]> duplicate(const Char* text, std::size_t length) {
  auto buffer = makeTextBuffer<Char>(length + 1);
  std::copy_n(text, length, buffer.get());
  buffer[length] = Char{};
  return buffer;
}

}  // namespace

UTL_String::UTL_String(const wchar_t* text) {
  *this = text;
}

UTL_String UTL_String::fromNarrow(const char* text) {
  UTL_String result;
  if (text != nullptr && *text != '\0') {
    const std::size_t length = std::strlen(text);
    result.adopt(duplicate(text, length), length);
  }
  return result;
}

UTL_String::UTL_String(const UTL_String& other) : m_length(other.m_length), m_primary(other.m_primary) {
  if (other.isEmpty()) return;
  if (m_primary == Form::kWide) {
    m_wide = duplicate(other.m_wide.get(), m_length);
  } else {
    m_narrow = duplicate(other.m_narrow.get(), m_length);
  }
}

UTL_String::UTL_String(UTL_String&& other) noexcept
    : m_wide(std::move(other.m_wide)),
      m_narrow(std::move(other.m_narrow)),
      m_length(std::exchange(other.m_length, 0)),
      m_primary(std::exchange(other.m_primary, Form::kWide)) {}

UTL_String& UTL_String::operator=(const UTL_String& other) {
  if (this != &other) *this = UTL_String(other);
  return *this;
}

UTL_String& UTL_String::operator=(UTL_String&& other) noexcept {
  if (this == &other) return *this;
  m_wide = std::move(other.m_wide);
  m_narrow = std::move(other.m_narrow);
  m_length = std::exchange(other.m_length, 0);
  m_primary = std::exchange(other.m_primary, Form::kWide);
  return *this;
}

UTL_String& UTL_String::operator=(const wchar_t* text) {
  const std::size_t length = text == nullptr ? 0 : std::wcslen(text);
  adopt(length == 0 ? nullptr : duplicate(text, length), length);
  return *this;
}

const wchar_t* UTL_String::wide() const {
  if (isEmpty()) return L"";
  if (m_wide == nullptr) m_wide = wideFromAnsi(m_narrow.get(), m_length);
  return m_wide.get();
}

const char* UTL_String::narrow() const {
  if (isEmpty()) return "";
  if (m_narrow == nullptr) m_narrow = ansiFromWide(m_wide.get(), m_length);
  return m_narrow.get();
}

void UTL_String::append(const wchar_t* text) {
  const std::size_t added = text == nullptr ? 0 : std::wcslen(text);
  if (added == 0) return;
  const wchar_t* present = wide();
  const std::size_t kept = std::wcslen(present);
  auto buffer = makeTextBuffer<wchar_t>(kept + added + 1);
  std::copy_n(present, kept, buffer.get());
  std::copy_n(text, added, buffer.get() + kept);
  buffer[kept + added] = L'\0';
  adopt(std::move(buffer), kept + added);
}

void UTL_String::adopt(std::unique_ptr<wchar_t[]> text, std::size_t length) noexcept {
  m_wide = std::move(text);
  m_narrow.reset();
  m_length = length;
  m_primary = Form::kWide;
}

void UTL_String::adopt(std::unique_ptr<char[]> text, std::size_t length) noexcept {
  m_narrow = std::move(text);
  m_wide.reset();
  m_length = length;
  m_primary = Form::kNarrow;
}

bool operator==(const UTL_String& left, const UTL_String& right) {
  if (left.isEmpty() && right.isEmpty()) return true;
  return left.length() == right.length() && std::strcmp(left.narrow(), right.narrow()) == 0;
}

bool operator<(const UTL_String& left, const UTL_String& right) {
  return std::wcscmp(left.wide(), right.wide()) < 0;
}
