#pragma once

#include <string>

namespace mg::converter {

// The PostScript that Ghostscript is given on its command line. It runs the document that stands on the standard input
// and watches how that ends: at its end, by `quit`, by an error that the document did not catch, or by a `stop` without
// one. It notes the first error that was met, also when the document handles it, and whether it was reported through
// `handleerror`. Then it writes one last line (see RunReport) that begins with `marker`. No error handler of the
// document is called for what the document did not catch, so no page of an error handler takes the place of its own.
std::string documentProgram(const std::string& marker);

}  // namespace mg::converter
