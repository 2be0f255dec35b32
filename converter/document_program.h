#pragma once

#include <filesystem>
#include <string>

namespace mg::converter {

// The PostScript that Ghostscript is given on its command line. It runs the document from standard input and observes
// how that ends: at its end, by `quit`, by an error that the document did not catch, or by a `stop` without one. It
// notes the first error, also when the document handles it, and whether it was reported through `handleerror`. Then it
// writes one last line (see RunReport) that begins with `marker`. For an error that the document did not catch no error
// handler of the document is called, so no error page can replace a page of the document.
std::string documentProgram(const std::string& marker);

// How the run of a document ended, as reported by the last line of the program that ran it.
struct RunReport {
  enum class Ending {
    // There is no such line: Ghostscript ended before the document did, or the document bypassed the program.
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
  // What a document that quit left unread: more than a few bytes; a further page.
  bool hasRest = false;
  bool hasFurtherPage = false;
  // The error was reported through `handleerror`, as a document does before it gives up.
  bool isReported = false;
  // The error that ended the document, otherwise the first one that was caught, as in "undefined in foo". Empty when
  // there was none.
  std::string error;
};

// Bytes. Ghostscript's error and our marker are its last output; a job can print gigabytes before that.
inline constexpr int kLastWords = 64 * 1024;

// The last kLastWords bytes of the output, or less; empty when there is no such file.
std::string readLastWords(const std::filesystem::path& path);

// Reads the report after the last `marker` at the beginning of a line of the output.
RunReport readReport(const std::string& said, const std::string& marker);

// Ghostscript's own line about an error ("Error: /undefined in foo"), or its last line, or an empty text.
std::string errorLine(const std::string& said);

}  // namespace mg::converter
