#pragma once

#include <filesystem>
#include <string>

namespace mg::converter {

// The PostScript that Ghostscript is given on its command line. It runs the document that stands on the standard input
// and watches how that ends: at its end, by `quit`, by an error that the document did not catch, or by a `stop` without
// one. It notes the first error that was met, also when the document handles it, and whether it was reported through
// `handleerror`. Then it writes one last line (see RunReport) that begins with `marker`. No error handler of the
// document is called for what the document did not catch, so no page of an error handler takes the place of its own.
std::string documentProgram(const std::string& marker);

// How the run of a document ended, as the program that ran it says in its last line.
struct RunReport {
  enum class Ending {
    // There is no such line: Ghostscript ended before the document did, or the document got around the program.
    kUnknown,
    kEndOfDocument,
    kQuit,
    // An error, or a `stop`, that the document did not catch.
    kError,
    kStop,
  };

  Ending ending = Ending::kUnknown;
  // Pages that were printed.
  int pages = 0;
  // What a document that quit had left unread: more than a few bytes; a further page.
  bool hasRest = false;
  bool hasFurtherPage = false;
  // The error was told through `handleerror`, as a document does that gives up.
  bool isReported = false;
  // The error that ended the document, otherwise the first one that was met and caught, as in "undefined in foo".
  // Empty when there was none.
  std::string error;
};

// Bytes. Ghostscript's error and our marker are its last words; a job can say gigabytes before.
inline constexpr int kLastWords = 64 * 1024;

// The end of what was said, at most kLastWords; empty when there is no such file.
std::string readLastWords(const std::filesystem::path& path);

// Reads the report after the last `marker` at the begin of a line of what was said.
RunReport readReport(const std::string& said, const std::string& marker);

// Ghostscript's own line about an error ("Error: /undefined in foo"), or its last line, or an empty text.
std::string errorLine(const std::string& said);

}  // namespace mg::converter
