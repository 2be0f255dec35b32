#include "protocol/values.h"

#include "corvane/records/exception.h"

namespace protocol {

void Writer::ifAny(const wchar_t* text) {
  const bool isAny = text != nullptr && *text != L'\0';
  put(isAny);
  if (isAny) m_to.writeText(text);
}

void Reader::ifAny(std::wstring& text) {
  text.clear();
  if (m_from.readBoolean()) take(text);
}

void Reader::take(std::wstring& text) {
  text = m_from.readText();
  if (const auto end = text.find(L'\0'); end != std::wstring::npos) text.resize(end);
}

int Reader::takeCount(const Limit& limit) {
  const int count = m_from.readInt();
  if (count < 0 || count > limit.most) throw CS_Exception(limit.number, limit.text, count);
  return count;
}

}  // namespace protocol
