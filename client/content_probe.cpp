#include "client/content_probe.h"

#include <algorithm>

namespace printclient {
namespace {

bool isTextByte(unsigned char byte) {
  return byte >= 0x20 ? byte != 0x7F : byte >= '\t' && byte <= '\r';
}

}  // namespace

void ContentProbe::see(std::span<const unsigned char> bytes) {
  for (std::size_t i = 0; m_size + i < m_head.size() && i < bytes.size(); ++i) {
    m_head[static_cast<std::size_t>(m_size) + i] = static_cast<char>(bytes[i]);
  }
  if (m_isText && m_size < kTextBytes) {
    const auto looked = bytes.first(std::min<std::size_t>(bytes.size(), kTextBytes - static_cast<std::size_t>(m_size)));
    m_isText = std::all_of(looked.begin(), looked.end(), isTextByte);
  }
  const auto last = bytes.last(std::min(bytes.size(), kTailBytes));
  m_tail.append(last.begin(), last.end());
  if (m_tail.size() > 2 * kTailBytes) m_tail.erase(0, m_tail.size() - kTailBytes);
  m_size += bytes.size();
}

bool ContentProbe::beginsWith(const std::string& text) const {
  return m_size >= text.size() && std::equal(text.begin(), text.end(), m_head.begin());
}

std::string ContentProbe::extension() const {
  if (isPdf()) return ".pdf";
  if (beginsWith("%!") || beginsWith("\x04%!")) return ".ps";
  return m_isText && m_size > 0 ? ".txt" : ".prn";
}

bool ContentProbe::hasPdfEnd() const {
  const std::size_t from = m_tail.size() > kTailBytes ? m_tail.size() - kTailBytes : 0;
  return m_tail.find("%%EOF", from) != std::string::npos;
}

}  // namespace printclient
