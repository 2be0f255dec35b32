#pragma once

#include "converter/private_folder.h"
#include "converter/runner.h"

#include <string>

namespace mg::converter {

// The program to run: the configured one, else the newest installed one (under Wine the host's `gs`). Nothing found is
// a ConversionError (kGhostscriptMissing).
std::wstring findGhostscript(const Limits& limits);

// What Ghostscript is asked to do with `input`. When the document has run to its end, Ghostscript writes one last line,
// the text `marker` and the number of pages that the document printed; a document that quits on its own writes it too.
RunRequest pdfWriteRequest(const std::wstring& program, const std::wstring& input, const std::string& marker);

// The number of pages after the last `marker` at the end of what was said; -1 when there is none.
int printedPages(const std::string& said, const std::string& marker);

// Ghostscript's own line about an error ("Error: /undefined in foo"), or its last line, or an empty text.
std::string errorLine(const std::string& said);

}  // namespace mg::converter
