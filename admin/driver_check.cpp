#include "admin/driver_check.h"

#include "admin/failure.h"
#include "programs/one_line.h"

#include <cwctype>

namespace admin {
namespace {

constexpr char kAdvice[] =
    "a document is converted only when it begins with %!, so the driver has to send PostScript without PJL or Ctrl-D "
    "in "
    "front";

std::string quoted(const std::wstring& name) {
  return "\"" + programs::oneLine(name) + "\"";
}

// The words of a name in lower case, between blanks: " hp laserjet pcl 6 ".
std::wstring wordsOf(const std::wstring& name) {
  std::wstring words = L" ";
  for (const wchar_t c : name) {
    const bool isPart = std::iswalnum(static_cast<wint_t>(c)) || c == L'/';
    if (isPart) words.push_back(static_cast<wchar_t>(std::towlower(static_cast<wint_t>(c))));
    if (!isPart && words.back() != L' ') words.push_back(L' ');
  }
  return words + L" ";
}

}  // namespace

std::string otherLanguageOf(const std::wstring& driver) {
  const std::wstring words = wordsOf(driver);
  static constexpr struct {
    const wchar_t* word;
    const char* language;
  } kLanguages[] = {{L" pcl", "PCL"},         {L" xps ", "XPS"}, {L" esc/p", "ESC/P"}, {L" ufr", "UFR"},
                    {L" text only ", "text"}, {L" gdi ", "GDI"}, {L" zpl ", "ZPL"}};
  for (const auto& [word, language] : kLanguages) {
    if (words.find(word) != std::wstring::npos) return language;
  }
  return {};
}

std::string checkDrivers(const std::vector<SessionFacts>& sessions, const std::vector<SpoolerPrinter>& present) {
  std::string wrong;
  int count = 0;
  for (const SessionFacts& session : sessions) {
    for (const ClientPrinterFacts& printer : session.printers) {
      for (const SpoolerPrinter& here : present) {
        if (printer.format != protocol::DataFormat::kPdf || here.name != printer.localName) continue;
        ++count;
        const std::string language = otherLanguageOf(here.driver);
        if (language.empty()) continue;
        wrong +=
            (wrong.empty() ? "" : ", ") + quoted(here.name) + " has " + quoted(here.driver) + " (" + language + ")";
      }
    }
  }
  if (!wrong.empty()) {
    throw Failure(
        ExitCode::kFailed,
        "by their names these drivers send no PostScript, and their documents arrive "
        "unconverted: " +
            wrong,
        "Name a PostScript driver with --driver or at the client, or bring the printer along with format=raw.");
  }
  if (count == 0) return "no printer here wants PDF";
  return std::to_string(count) + (count == 1 ? " printer wants PDF: " : " printers want PDF: ") + kAdvice;
}

}  // namespace admin
