#pragma once

#include "converter/runner.h"

#include <string>

namespace mg::converter {

// The program to run: the configured one, else the newest installed one (under Wine the host's `gs`). Nothing found is
// a ConversionError (kGhostscriptMissing).
std::wstring findGhostscript(const Limits& limits);

// What Ghostscript is asked to do: to run the file `script` of its working directory, which runs what stands on the
// standard input, and to write a PDF under the name that PrivateFolder gives its output.
RunRequest pdfWriteRequest(const std::wstring& program, const std::wstring& script, const std::wstring& input);

}  // namespace mg::converter
