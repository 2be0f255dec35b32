#include "corvane/trust/key.h"

#include "corvane/base/text.h"
#include "corvane/records/exception.h"
#include "corvane/records/messages.h"
#include "corvane/trust/crypto.h"

#include <filesystem>
#include <limits>
#include <system_error>

namespace corvane {
namespace {

constexpr std::wstring_view kMonitor = L"monitor";
constexpr std::wstring_view kSession = L"session-";
constexpr std::wstring_view kInvitation = L"invitation-";

constexpr std::size_t kDigits = 64;

// Digits and line end, with room to see that there is more.
struct Text {
  std::array<unsigned char, kDigits + 3> bytes;
  ~Text() { wipe(bytes); }
};

// The value of one digit, or -1.
int hexValue(unsigned character) {
  if (character >= '0' && character <= '9') return static_cast<int>(character - '0');
  if (character >= 'a' && character <= 'f') return static_cast<int>(character - 'a') + 10;
  if (character >= 'A' && character <= 'F') return static_cast<int>(character - 'A') + 10;
  return -1;
}

std::filesystem::path pathOf(const std::string& utf8) {
  return {std::u8string(utf8.begin(), utf8.end())};
}

void write(const std::string& file, const Key& key) {
  constexpr char kCharacters[] = "0123456789abcdef";
  Text text;
  for (std::size_t i = 0; i < key.bytes().size(); ++i) {
    text.bytes[2 * i] = static_cast<unsigned char>(kCharacters[key.bytes()[i] >> 4]);
    text.bytes[2 * i + 1] = static_cast<unsigned char>(kCharacters[key.bytes()[i] & 15]);
  }
  text.bytes[kDigits] = '\n';
  createKeyFile(file, std::span(text.bytes).first(kDigits + 1));
}

bool isLineEnd(std::span<const unsigned char> rest) {
  if (rest.empty()) return true;
  if (rest.front() == '\r') rest = rest.subspan(1);
  return rest.size() == 1 && rest.front() == '\n';
}

}  // namespace

std::wstring toHex(const Bytes32& bytes) {
  constexpr wchar_t kHexDigits[] = L"0123456789abcdef";
  std::wstring text;
  text.reserve(2 * bytes.size());
  for (const unsigned char byte : bytes) {
    text.push_back(kHexDigits[byte >> 4]);
    text.push_back(kHexDigits[byte & 15]);
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

std::optional<Identity> Identity::parse(std::wstring_view name) {
  if (name == kMonitor) return monitor();
  const bool isSession = name.starts_with(kSession);
  if (!isSession && !name.starts_with(kInvitation)) return std::nullopt;
  const std::wstring_view digits = name.substr((isSession ? kSession : kInvitation).size());
  if (digits.empty() || digits.size() > 10 || digits.front() == L'0') return std::nullopt;
  long long number = 0;
  for (const wchar_t c : digits) {
    if (c < L'0' || c > L'9') return std::nullopt;
    number = number * 10 + (c - L'0');
  }
  if (number > std::numeric_limits<int>::max()) return std::nullopt;
  return isSession ? session(static_cast<int>(number)) : invitation(static_cast<int>(number));
}

std::wstring Identity::name() const {
  if (isMonitor()) return std::wstring(kMonitor);
  return std::wstring(isSession() ? kSession : kInvitation) + std::to_wstring(m_session);
}

Key Key::read(const std::string& file) {
  Text text;
  const std::size_t size = readKeyFile(file, text.bytes);
  Key key{Bytes32()};
  bool valid = size >= kDigits && isLineEnd(std::span(text.bytes).subspan(kDigits, size - kDigits));
  for (std::size_t i = 0; valid && i < key.m_bytes.size(); ++i) {
    const int high = hexValue(text.bytes[2 * i]);
    const int low = hexValue(text.bytes[2 * i + 1]);
    valid = high >= 0 && low >= 0;
    key.m_bytes[i] = static_cast<unsigned char>(high << 4 | low);
  }
  if (!valid) {
    throw CS_Exception(kKeyNeeded, L"a key file holds 64 hexadecimal digits and nothing else, not so %s",
                       fromUtf8(file).c_str());
  }
  return key;
}

void Key::writeNew(const std::string& file) {
  write(file, fresh());
}

Key Key::fresh() {
  Key key{Bytes32()};
  fillWithRandom(key.m_bytes);
  return key;
}

void Key::replace(const std::string& file) const {
  Bytes32 random;
  fillWithRandom(random);
  const std::string made = file + ".new-" + toUtf8(toHex(random).substr(0, 16));
  write(made, *this);
  std::error_code failure;
  std::filesystem::rename(pathOf(made), pathOf(file), failure);
  if (!failure) return;
  std::error_code ignored;
  std::filesystem::remove(pathOf(made), ignored);
  throw CS_Exception(kKeyNeeded, L"the key file cannot be replaced (%s): %s", fromUtf8(failure.message()).c_str(),
                     fromUtf8(file).c_str());
}

Bytes32 Key::mark() const {
  constexpr std::string_view kPurpose = "which key this is";
  return hmacSha256(m_bytes, std::span(reinterpret_cast<const unsigned char*>(kPurpose.data()), kPurpose.size()));
}

std::string KeyFolder::file(const Identity& identity) const {
  return m_folder + "/" + toUtf8(identity.name()) + ".key";
}

Key KeyFolder::read(const Identity& identity) const {
  return Key::read(file(identity));
}

bool KeyFolder::isStill(const Identity& identity, const Bytes32& mark) const {
  try {
    return equalInConstantTime(read(identity).mark(), mark);
  } catch (const CS_Exception&) {
    return false;
  }
}

std::wstring KeyFolder::refusal() const {
  return keyFolderRefusal(m_folder);
}

}  // namespace corvane
