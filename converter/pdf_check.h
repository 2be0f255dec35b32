#pragma once

#include "converter/completeness.h"

#include <string>

namespace mg::converter {

// The pages of a PDF file, counted as a reader finds them: through the trailer, the catalog and the root of the page
// tree; and those that stand in the file but in no tree, which pdfwrite leaves of a page that was begun and never
// shown. A file that is cut, empty or otherwise not whole is a ConversionError (kIncomplete) that says what is missing.
// Text inside the pages is never taken for structure.
PdfPages countPdfPages(const std::wstring& path);

}  // namespace mg::converter
