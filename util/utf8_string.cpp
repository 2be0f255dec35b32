#include "util/utf8_string.h"

#include <windows.h>

#include <climits>
#include <cstring>
#include <cwchar>
#include <new>

UTF8String::UTF8String(const char* bytes, std::size_t size) {
  if (size == 0) return;
  if (size > INT_MAX || std::memchr(bytes, '\0', size) != nullptr) throw UTL_Exception(mg::status::kConversion);
  const int source = static_cast<int>(size);
  const int length = MultiByteToWideChar(CP_UTF8, MB_ERR_INVALID_CHARS, bytes, source, nullptr, 0);
  if (length <= 0) throw UTL_Exception(mg::status::kConversion);
  auto text = makeTextBuffer<wchar_t>(static_cast<std::size_t>(length) + 1);
  MultiByteToWideChar(CP_UTF8, MB_ERR_INVALID_CHARS, bytes, source, text.get(), length);
  text[static_cast<std::size_t>(length)] = L'\0';
  adopt(std::move(text), static_cast<std::size_t>(length));
}

std::string UTF8String::bytes() const {
  if (isEmpty()) return {};
  const wchar_t* text = wide();
  const std::size_t length = std::wcslen(text);
  if (length > INT_MAX) throw UTL_Exception(mg::status::kConversion);
  const int source = static_cast<int>(length);
  const int size = WideCharToMultiByte(CP_UTF8, WC_ERR_INVALID_CHARS, text, source, nullptr, 0, nullptr, nullptr);
  if (size <= 0) throw UTL_Exception(mg::status::kConversion);
  try {
    std::string result(static_cast<std::size_t>(size), '\0');
    WideCharToMultiByte(CP_UTF8, WC_ERR_INVALID_CHARS, text, source, result.data(), size, nullptr, nullptr);
    return result;
  } catch (const std::bad_alloc&) {
    throw UTL_Exception(mg::status::kNoMemory);
  }
}
