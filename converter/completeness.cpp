#include "converter/completeness.h"

#include "converter/conversion_error.h"
#include "converter/pdf_file.h"
#include "converter/pdf_tokens.h"
#include "corvane/base/text.h"

#include <fmt/format.h>
#include <fmt/xchar.h>
#include <initializer_list>
#include <string>

namespace mg::converter {
namespace {

std::wstring counted(int pages) {
  return fmt::format(L"{} {}", pages, pages == 1 ? L"page" : L"pages");
}

// "17 pages announced, 8 came; the first error was undefined in foo"
std::wstring comparison(const Announcement& announced, const RunReport& report, int came) {
  const int expected = announced.expectedPages();
  const int most = announced.isMixed || expected > announced.pages ? expected : announced.pages;
  return fmt::format(
      L"{}{} came{}", most >= 0 ? fmt::format(L"{} announced, ", counted(most)) : L"", counted(came),
      report.error.empty() ? L"" : fmt::format(L"; the first error was {}", corvane::fromUtf8(report.error)));
}

// Several pages of the document on one sheet: 2, 3, 4, ... each, or folded as a booklet of sheets with two on each
// side.
bool canBeSeveralOnASheet(int announced, int came) {
  for (const int each : {2, 3, 4, 6, 8, 9, 12, 15, 16}) {
    if (came == (announced + each - 1) / each) return true;
  }
  return came == (announced + 3) / 4 * 2;
}

class Judge {
 public:
  Judge(const Announcement& announced, const RunReport& report, const PdfPages& pages)
      : m_announced(announced), m_report(report), m_pages(pages), m_expected(announced.expectedPages()) {}

  void judge() const {
    const bool isShort = m_pages.count < m_expected;
    if (m_report.isReported) refuse(L"the document met an error and gave up");
    if (m_report.hasFurtherPage && !m_announced.isMixed) refuse(L"the document quit before its last page");
    // A document that quits after an error may have drawn a page about it in place of its own.
    const bool gaveUp = m_report.ending == RunReport::Ending::kQuit && m_report.hasRest && !m_report.error.empty();
    if (gaveUp) refuse(L"the document quit after an error");
    if (!m_announced.isWhole() && (isShort || m_pages.count < m_announced.pages || m_announced.isPromised)) {
      refuse(L"the file ends before the document does");
    }
    if (m_pages.unshown > 0 && (isShort || m_expected < 0)) {
      refuse(L"what was drawn last is on no page, because \"showpage\" is missing");
    }
    if (isShort && (!m_report.error.empty() || !isExplained())) refuse(L"pages are missing");
  }

 private:
  // Fewer pages than announced, in a file that is whole and ran to its end without an error.
  bool isExplained() const {
    // A number in the header without any page comment is a wrong number: nothing can have been lost.
    if (m_announced.pageComments == 0) return true;
    if (m_announced.pages >= 0 && m_announced.pages != m_announced.pageComments) return true;
    return canBeSeveralOnASheet(m_expected, m_pages.count);
  }

  [[noreturn]] void refuse(const wchar_t* what) const {
    throw ConversionError(
        ExitCode::kIncomplete,
        fmt::format(L"The PDF would not be complete: {}. {}. Print the document again from its application.", what,
                    comparison(m_announced, m_report, m_pages.count)));
  }

  const Announcement& m_announced;
  const RunReport& m_report;
  const PdfPages& m_pages;
  const int m_expected;
};

}  // namespace

void checkEnding(const Announcement& announced, const RunReport& report) {
  switch (report.ending) {
    case RunReport::Ending::kUnknown:
      throw ConversionError(ExitCode::kIncomplete, L"Ghostscript ended before the end of the document was reached.");
    case RunReport::Ending::kError: {
      RunReport counts = report;
      counts.error.clear();
      throw ConversionError(ExitCode::kPostScript,
                            fmt::format(L"Ghostscript: {}. The PostScript of this document is in error: {}.",
                                        corvane::fromUtf8(report.error), comparison(announced, counts, report.pages)));
    }
    case RunReport::Ending::kStop:
      throw ConversionError(
          ExitCode::kPostScript,
          fmt::format(L"The document gave up (\"stop\"): {}. The PostScript of this document is in error.",
                      comparison(announced, report, report.pages)));
    case RunReport::Ending::kQuit:
    case RunReport::Ending::kEndOfDocument:
      // Ghostscript writes a blank page into a PDF that has none, so its file alone proves nothing.
      if (report.pages == 0) throw ConversionError(ExitCode::kIncomplete, L"The document has no page.");
  }
}

void checkComplete(const Announcement& announced, const RunReport& report, const PdfPages& pages) {
  if (pages.count < 1) throw ConversionError(ExitCode::kIncomplete, L"The PDF has no page.");
  Judge(announced, report, pages).judge();
}

namespace {

// "<</Type/Page ..." in any order of the keys, but not in a dictionary inside.
bool isPage(const std::string& object) {
  PdfTokens tokens(object);
  int depth = 0;
  for (PdfToken token = tokens.next(); token.kind != PdfTokenKind::kEnd; token = tokens.next()) {
    if (token.kind == PdfTokenKind::kDictBegin) ++depth;
    if (token.kind == PdfTokenKind::kDictEnd) --depth;
    if (depth != 1 || token.kind != PdfTokenKind::kName || token.text != "Type") continue;
    const PdfToken value = tokens.next();
    return value.kind == PdfTokenKind::kName && value.text == "Page";
  }
  return false;
}

}  // namespace

PdfPages countPdfPages(const std::wstring& path) {
  PdfFile file(path);
  const std::string catalog = file.object(numberOf(file.trailer(), "Root", L"it has no catalog"));
  const std::string tree = file.object(numberOf(catalog, "Pages", L"it has no page tree"));
  PdfPages pages;
  pages.count = static_cast<int>(numberOf(tree, "Count", L"it has no page count"));
  int found = 0;
  for (const unsigned long long number : file.objects()) {
    if (isPage(file.object(number))) ++found;
  }
  pages.unshown = found > pages.count ? found - pages.count : 0;
  return pages;
}

}  // namespace mg::converter
