#pragma once

#include <string>

namespace mg::converter {

// The number of pages of a PDF file with a plain reference table, found as a reader finds them: "%PDF-" at the head,
// "%%EOF" at the tail, startxref, the reference table, the catalog, the root of the page tree and its count. A file
// that is cut, empty or otherwise not whole is a ConversionError (kIncomplete) that says what is missing. Text inside
// the pages is never taken for structure.
int countPdfPages(const std::wstring& path);

}  // namespace mg::converter
