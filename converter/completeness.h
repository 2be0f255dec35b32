#pragma once

#include "converter/announcement.h"
#include "converter/document_program.h"

#include <string>

namespace mg::converter {

// The pages of a PDF.
struct PdfPages {
  int count = 0;
  // Pages that were begun but never shown: content that no page of the PDF shows.
  int unshown = 0;
};

// Throws a ConversionError (kPostScript, kMemoryLimit or kIncomplete) unless everything that the document wanted to
// print is in the PDF, as far as that can be determined: it ran to its end without an unhandled error; the file is not
// truncated; nothing was drawn that no page shows; and as many pages were printed as announced, where the announcement
// is credible. Each text states in one line what was announced and what was printed.
//
// checkEnding examines how the run ended, before there is a PDF to examine.
void checkEnding(const Announcement& announced, const RunReport& report);
void checkComplete(const Announcement& announced, const RunReport& report, const PdfPages& pages);

// The pages of a PDF file, counted as a reader finds them: through the trailer, the catalog and the root of the page
// tree; and those that are in the file but in no tree: pdfwrite leaves them when a page was begun and never shown. A
// truncated, empty or otherwise incomplete file is a ConversionError (kIncomplete) that names what is missing. Text
// inside the pages is never mistaken for structure.
PdfPages countPdfPages(const std::wstring& path);

}  // namespace mg::converter
