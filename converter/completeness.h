#pragma once

#include "converter/announcement.h"
#include "converter/document_program.h"

#include <string>

namespace mg::converter {

// What a PDF holds.
struct PdfPages {
  int count = 0;
  // Pages that were begun but never shown: content that is in no page of the PDF.
  int unshown = 0;
};

// Throws a ConversionError (kPostScript, kMemoryLimit or kIncomplete) unless everything that the document wanted to
// print is in the PDF, as far as that can be known: it ran to its end without an error that it did not get over; the
// file is not cut; nothing was drawn that no page shows; and as many pages came as were announced, where the
// announcement can be believed. Each text says in one line what was announced and what came.
//
// The first looks at how the run ended, before there is a PDF to look at.
void checkEnding(const Announcement& announced, const RunReport& report);
void checkComplete(const Announcement& announced, const RunReport& report, const PdfPages& pages);

// The pages of a PDF file, counted as a reader finds them: through the trailer, the catalog and the root of the page
// tree; and those that stand in the file but in no tree, which pdfwrite leaves of a page that was begun and never
// shown. A file that is cut, empty or otherwise not whole is a ConversionError (kIncomplete) that says what is missing.
// Text inside the pages is never taken for structure.
PdfPages countPdfPages(const std::wstring& path);

}  // namespace mg::converter
