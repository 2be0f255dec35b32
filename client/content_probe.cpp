#include "client/content_probe.h"

#include <algorithm>

namespace printclient {
namespace {

constexpr std::string_view kPostScript = "%!";

bool isTextByte(unsigned char byte) {
  return byte >= 0x20 ? byte != 0x7F : byte >= '\t' && byte <= '\r';
}

}  // namespace

void ContentProbe::feed(std::span<const unsigned char> bytes) {
  const std::string_view text(reinterpret_cast<const char*>(bytes.data()), bytes.size());
  const std::string_view head = text.substr(0, kHeadBytes - m_head.size());
  m_head.append(head);
  m_isText = m_isText && std::all_of(head.begin(), head.end(), isTextByte);
  m_tail.append(text.substr(text.size() - std::min(text.size(), kTailBytes)));
  if (m_tail.size() > 2 * kTailBytes) m_tail.erase(0, m_tail.size() - kTailBytes);
  m_size += bytes.size();
}

bool ContentProbe::beginsWith(std::string_view text) const {
  return std::string_view(m_head).substr(0, text.size()) == text;
}

bool ContentProbe::isWrappedPostScript() const {
  constexpr std::string_view kExitLanguage = "\x1b%-12345X";
  std::string_view rest = m_head;
  while (!rest.empty()) {
    if (rest.starts_with(kPostScript)) return rest.size() < m_head.size();
    if (rest.starts_with(kExitLanguage)) {
      rest.remove_prefix(kExitLanguage.size());
    } else if (rest.starts_with("@PJL")) {
      const std::size_t end = rest.find('\n');
      rest.remove_prefix(end == std::string_view::npos ? rest.size() : end + 1);
    } else if (std::string_view("\x04 \t\r\n").find(rest.front()) != std::string_view::npos) {
      rest.remove_prefix(1);
    } else {
      return false;
    }
  }
  return false;
}

std::string ContentProbe::extension() const {
  if (isPdf()) return ".pdf";
  if (beginsWith(kPostScript) || isWrappedPostScript()) return ".ps";
  return m_isText && m_size > 0 ? ".txt" : ".prn";
}

bool ContentProbe::hasPdfEnd() const {
  const std::size_t from = m_tail.size() > kTailBytes ? m_tail.size() - kTailBytes : 0;
  return m_tail.find("%%EOF", from) != std::string::npos;
}

}  // namespace printclient
