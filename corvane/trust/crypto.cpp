#include "corvane/trust/crypto.h"

namespace corvane {

int hexValue(unsigned character) {
  if (character >= '0' && character <= '9') return static_cast<int>(character - '0');
  if (character >= 'a' && character <= 'f') return static_cast<int>(character - 'a') + 10;
  if (character >= 'A' && character <= 'F') return static_cast<int>(character - 'A') + 10;
  return -1;
}

std::wstring toHex(const Bytes32& bytes) {
  constexpr wchar_t kDigits[] = L"0123456789abcdef";
  std::wstring text;
  text.reserve(2 * bytes.size());
  for (const unsigned char byte : bytes) {
    text.push_back(kDigits[byte >> 4]);
    text.push_back(kDigits[byte & 15]);
  }
  return text;
}

std::optional<Bytes32> fromHex(std::wstring_view digits) {
  Bytes32 bytes;
  if (digits.size() != 2 * bytes.size()) return std::nullopt;
  for (std::size_t i = 0; i < bytes.size(); ++i) {
    const int high = hexValue(static_cast<unsigned>(digits[2 * i]));
    const int low = hexValue(static_cast<unsigned>(digits[2 * i + 1]));
    if (high < 0 || low < 0) return std::nullopt;
    bytes[i] = static_cast<unsigned char>(high << 4 | low);
  }
  return bytes;
}

}  // namespace corvane
