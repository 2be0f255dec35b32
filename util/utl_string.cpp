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

UTL_String::UTL_String(const UTL_String& other) : length_(other.length_), primary_(other.primary_) {
  if (other.isEmpty()) return;
  if (primary_ == Form::kWide) {
    wide_ = duplicate(other.wide_.get(), length_);
  } else {
    narrow_ = duplicate(other.narrow_.get(), length_);
  }
}

UTL_String::UTL_String(UTL_String&& other) noexcept
    : wide_(std::move(other.wide_)),
      narrow_(std::move(other.narrow_)),
      length_(std::exchange(other.length_, 0)),
      primary_(std::exchange(other.primary_, Form::kWide)) {}

UTL_String& UTL_String::operator=(const UTL_String& other) {
  if (this != &other) *this = UTL_String(other);
  return *this;
}

UTL_String& UTL_String::operator=(UTL_String&& other) noexcept {
  if (this == &other) return *this;
  wide_ = std::move(other.wide_);
  narrow_ = std::move(other.narrow_);
  length_ = std::exchange(other.length_, 0);
  primary_ = std::exchange(other.primary_, Form::kWide);
  return *this;
}

UTL_String& UTL_String::operator=(const wchar_t* text) {
  const std::size_t length = text == nullptr ? 0 : std::wcslen(text);
  adopt(length == 0 ? nullptr : duplicate(text, length), length);
  return *this;
}

const wchar_t* UTL_String::wide() const {
  if (isEmpty()) return L"";
  if (wide_ == nullptr) wide_ = wideFromAnsi(narrow_.get(), length_);
  return wide_.get();
}

const char* UTL_String::narrow() const {
  if (isEmpty()) return "";
  if (narrow_ == nullptr) narrow_ = ansiFromWide(wide_.get(), length_);
  return narrow_.get();
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
  wide_ = std::move(text);
  narrow_.reset();
  length_ = length;
  primary_ = Form::kWide;
}

void UTL_String::adopt(std::unique_ptr<char[]> text, std::size_t length) noexcept {
  narrow_ = std::move(text);
  wide_.reset();
  length_ = length;
  primary_ = Form::kNarrow;
}

bool operator==(const UTL_String& left, const UTL_String& right) {
  if (left.isEmpty() && right.isEmpty()) return true;
  return left.length() == right.length() && std::strcmp(left.narrow(), right.narrow()) == 0;
}

bool operator<(const UTL_String& left, const UTL_String& right) {
  return std::wcscmp(left.wide(), right.wide()) < 0;
}
