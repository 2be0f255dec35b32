#include "client/page/page_guard.h"

#include <cstddef>
#include <fmt/format.h>

namespace printclient {
namespace {

constexpr std::size_t kSecretDigits = 2 * sizeof(corvane::Bytes32);
constexpr std::string_view kScheme = "http://";

corvane::Bytes32 newSecret() {
  corvane::Bytes32 secret;
  corvane::fillWithRandom(secret);
  return secret;
}

std::string hexOf(const corvane::Bytes32& secret) {
  return fmt::format("{:02x}", fmt::join(secret, ""));
}

int valueOf(char digit) {
  if (digit >= '0' && digit <= '9') return digit - '0';
  if (digit >= 'a' && digit <= 'f') return digit - 'a' + 10;
  return -1;
}

// False when the digits are none; they take as long as others.
bool readHex(std::string_view digits, corvane::Bytes32& bytes) {
  int wrong = 0;
  for (std::size_t i = 0; i < bytes.size(); ++i) {
    const int high = valueOf(digits[2 * i]);
    const int low = valueOf(digits[2 * i + 1]);
    wrong |= high | low;
    bytes[i] = static_cast<unsigned char>((high << 4) | (low & 15));
  }
  return wrong >= 0;
}

}  // namespace

PageGuard::PageGuard() : PageGuard(newSecret()) {}
PageGuard::PageGuard(const corvane::Bytes32& secret) : m_secret(secret) {}

std::string PageGuard::address() const {
  return fmt::format("{}127.0.0.1:{}/{}/", kScheme, m_port, hexOf(m_secret));
}

bool PageGuard::isOwnHost(std::string_view host) const {
  return host == fmt::format("127.0.0.1:{}", m_port) || host == fmt::format("localhost:{}", m_port);
}

bool PageGuard::hasSecret(std::string_view target) const {
  if (target.size() < kSecretDigits + 2 || target.front() != '/' || target[kSecretDigits + 1] != '/') return false;
  corvane::Bytes32 given = {};
  const bool isHex = readHex(target.substr(1, kSecretDigits), given);
  return corvane::equalInConstantTime(given, m_secret) && isHex;
}

std::optional<PageGuard::Refusal> PageGuard::refusalOf(const PageRequest& request) const {
  static constexpr Refusal kElsewhere{403, "This is not an address of the print client's page.\n"};
  static constexpr Refusal kNothing{404, "There is nothing here. Open the page with \"printclient --show\".\n"};
  static constexpr Refusal kForeign{403, "The print client takes requests from its own page only.\n"};
  static constexpr Refusal kMethod{405, "The print client's page knows GET and POST only.\n"};
  if (!isOwnHost(request.host)) return kElsewhere;
  if (!hasSecret(request.target)) return kNothing;
  const bool isAction = request.method == "POST";
  if (!isAction && request.method != "GET") return kMethod;
  const bool isOwnOrigin = request.origin == std::string(kScheme) + request.host;
  if (isAction ? !isOwnOrigin : !request.origin.empty() && !isOwnOrigin) return kForeign;
  const bool isOpened = !isAction && request.mode == "navigate" && pathOf(request).empty();
  const bool isOwnSite = request.site.empty() || request.site == "same-origin" || request.site == "none";
  if (!isOwnSite && !isOpened) return kForeign;
  return std::nullopt;
}

std::string_view PageGuard::pathOf(const PageRequest& request) {
  const std::string_view path = std::string_view(request.target).substr(kSecretDigits + 2);
  return path.substr(0, path.find('?'));
}

}  // namespace printclient
