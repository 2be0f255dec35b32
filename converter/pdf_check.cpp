#include "converter/pdf_check.h"

#include "converter/pdf_file.h"
#include "converter/pdf_tokens.h"

namespace mg::converter {
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
