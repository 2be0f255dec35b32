#include "util/ansi_text.h"

#include "util/text_buffer.h"

#include <windows.h>

#include <climits>

namespace {

// Windows counts text in int.
int checkedLength(std::size_t length) {
  if (length > INT_MAX) throw UTL_Exception(mg::status::kConversion);
  return static_cast<int>(length);
}

}  // namespace

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
