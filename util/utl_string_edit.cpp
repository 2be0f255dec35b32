#include "util/text_buffer.h"
#include "util/utl_string.h"

#include <algorithm>
#include <cctype>
#include <cstdlib>
#include <cstring>
#include <cwchar>
#include <cwctype>

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
