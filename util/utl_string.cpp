#include "util/utl_string.h"

#include <windows.h>

#include <algorithm>
#include <cctype>
#include <climits>
#include <cstdarg>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <cwchar>
#include <cwctype>
#include <utility>

namespace {

// Windows counts text in int.
int checkedLength(std::size_t length) {
  if (length > INT_MAX) throw UTL_Exception(mg::status::kConversion);
  return static_cast<int>(length);
}

// The result is terminated; the text is not empty.
std::unique_ptr<char[]> ansiFromWide(const wchar_t* text, std::size_t length) {
  const int source = checkedLength(length);
  const int size = WideCharToMultiByte(CP_ACP, 0, text, source, nullptr, 0, nullptr, nullptr);
  if (size <= 0) throw UTL_Exception(mg::status::kConversion);
  auto buffer = makeTextBuffer<char>(static_cast<std::size_t>(size) + 1);
  const int written = WideCharToMultiByte(CP_ACP, 0, text, source, buffer.get(), size, nullptr, nullptr);
  if (written <= 0) throw UTL_Exception(mg::status::kConversion);
  buffer[static_cast<std::size_t>(written)] = '\0';
  return buffer;
}

std::unique_ptr<wchar_t[]> wideFromAnsi(const char* text, std::size_t length) {
  const int source = checkedLength(length);
  const int size = MultiByteToWideChar(CP_ACP, 0, text, source, nullptr, 0);
  if (size <= 0) throw UTL_Exception(mg::status::kConversion);
  auto buffer = makeTextBuffer<wchar_t>(static_cast<std::size_t>(size) + 1);
  const int written = MultiByteToWideChar(CP_ACP, 0, text, source, buffer.get(), size);
  if (written <= 0) throw UTL_Exception(mg::status::kConversion);
  buffer[static_cast<std::size_t>(written)] = L'\0';
  return buffer;
}

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

namespace {

template <typename Char, typename Change>
std::unique_ptr<Char[]> changed(const Char* text, std::size_t length, Change change) {
  auto buffer = makeTextBuffer<Char>(length + 1);
  std::transform(text, text + length, buffer.get(), change);
  buffer[length] = Char{};
  return buffer;
}

// The C functions take the value of an unsigned character.
char lowerNarrow(char character) {
  return static_cast<char>(std::tolower(static_cast<unsigned char>(character)));
}
char upperNarrow(char character) {
  return static_cast<char>(std::toupper(static_cast<unsigned char>(character)));
}
wchar_t lowerWide(wchar_t character) {
  return static_cast<wchar_t>(std::towlower(character));
}
wchar_t upperWide(wchar_t character) {
  return static_cast<wchar_t>(std::towupper(character));
}

}  // namespace

void UTL_String::toLower() {
  if (isEmpty()) return;
  if (primaryForm() == Form::kNarrow) {
    adopt(changed(narrow(), length(), lowerNarrow), length());
  } else {
    adopt(changed(wide(), length(), lowerWide), length());
  }
}

void UTL_String::toUpper() {
  if (isEmpty()) return;
  if (primaryForm() == Form::kNarrow) {
    adopt(changed(narrow(), length(), upperNarrow), length());
  } else {
    adopt(changed(wide(), length(), upperWide), length());
  }
}

int UTL_String::toInteger() const {
  return std::atoi(narrow());
}

const wchar_t* UTL_String::findAnyOf(const wchar_t* set) const {
  return std::wcspbrk(wide(), set);
}

const char* UTL_String::findAnyOf(const char* set) const {
  return std::strpbrk(narrow(), set);
}

namespace {

// va_end on every way out, the exceptions included.
class Arguments {
 public:
  Arguments() = default;
  ~Arguments() { va_end(list); }
  Arguments(const Arguments&) = delete;
  Arguments& operator=(const Arguments&) = delete;

  va_list list;
};

// The run time ends the process when a bounded format finds no room for its terminator, so the room is checked before.
std::size_t checkedFit(int needed, std::size_t size) {
  if (needed < 0 || static_cast<std::size_t>(needed) >= size) throw UTL_Exception(mg::status::kFailure);
  return static_cast<std::size_t>(needed);
}

}  // namespace

void UTL_String::formatNarrow(std::size_t size, const char* format, ...) {
  if (format == nullptr) throw UTL_Exception(mg::status::kFailure);
  Arguments arguments;
  va_start(arguments.list, format);
  Arguments measured;
  va_copy(measured.list, arguments.list);
  checkedFit(_vscprintf(format, measured.list), size);
  auto buffer = makeTextBuffer<char>(size);
  const int written = _vsnprintf_s(buffer.get(), size, size, format, arguments.list);
  const std::size_t length = checkedFit(written, size);
  adopt(std::move(buffer), length);
}

void UTL_String::formatWide(std::size_t size, const wchar_t* format, ...) {
  if (format == nullptr) throw UTL_Exception(mg::status::kFailure);
  Arguments arguments;
  va_start(arguments.list, format);
  Arguments measured;
  va_copy(measured.list, arguments.list);
  checkedFit(_vscwprintf(format, measured.list), size);
  auto buffer = makeTextBuffer<wchar_t>(size);
  const int written = _vsnwprintf_s(buffer.get(), size, size, format, arguments.list);
  const std::size_t length = checkedFit(written, size);
  adopt(std::move(buffer), length);
}
