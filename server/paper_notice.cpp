#include "server/paper_notice.h"

#include "protocol/names.h"

#include <fmt/format.h>
#include <fmt/xchar.h>

namespace aps {
namespace {

constexpr std::size_t kMostDigits = 10;  // of a number of 32 bits

std::wstring paperText(const std::wstring& text) {
  return text.substr(0, kMaxPaperText);
}

const wchar_t* phraseOf(protocol::PaperState state) {
  switch (state) {
    case protocol::PaperState::kWaiting:
      return L"waits in the printer's queue";
    case protocol::PaperState::kPrinting:
      return L"is being printed";
    case protocol::PaperState::kStopped:
      return L"is held up at the printer";
    case protocol::PaperState::kCanceled:
      return L"was canceled at the printer";
    case protocol::PaperState::kAborted:
      return L"was not printed";
    case protocol::PaperState::kPrinted:
      return L"was printed";
    case protocol::PaperState::kHandedOn:
      return L"is where the print client puts it";
    case protocol::PaperState::kUnknown:
      break;
  }
  return L"is not followed any more";
}

// ": Cause. Remedy." or ".".
std::wstring whyText(const std::wstring& cause, const std::wstring& remedy) {
  if (cause.empty()) return L".";
  return fmt::format(L": {}{}{}", cause, remedy.empty() ? L"" : L" ", remedy);
}

}  // namespace

std::wstring jobNumberOf(const std::wstring& jobName) {
  const std::size_t sign = jobName.rfind(L'#');
  if (sign == std::wstring::npos) return L"";
  std::wstring number = jobName.substr(sign + 1);
  const bool isNumber =
      !number.empty() && number.size() <= kMostDigits && number.find_first_not_of(L"0123456789") == std::wstring::npos;
  return isNumber ? number : L"";
}

CS_Notice paperNotice(const protocol::PaperNews& news, int session, const std::wstring& localName) {
  const std::wstring number = jobNumberOf(news.job), document = paperText(news.document);
  const std::wstring cause = paperText(news.cause), remedy = paperText(news.remedy);
  CS_Notice notice;
  notice.kind = protocol::kPaperNotice;
  notice.line = fmt::format(L"Job {} \"{}\" on \"{}\" (session {}) {}{}", number.empty() ? L"?" : number, document,
                            localName, session, phraseOf(news.state), whyText(cause, remedy));
  notice.values = {{L"job", number},
                   {L"printer", localName},
                   {L"document", document},
                   {L"session", std::to_wstring(session)},
                   {L"state", protocol::wordOf(news.state)}};
  if (!cause.empty()) notice.values.emplace_back(L"cause", cause);
  if (!remedy.empty()) notice.values.emplace_back(L"remedy", remedy);
  return notice;
}

}  // namespace aps
