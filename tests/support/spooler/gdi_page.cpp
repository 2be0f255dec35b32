// An application as the spooler knows them: draws pages with text and a picture through GDI and the printer's driver.
// Ends with 0 only when the monitor took the job to its end.
#include "tests/support/spooler/gdi_drawing.h"
#include "tests/support/spooler/job_outcome.h"
#include "tests/support/spooler/system_failure.h"

#include <windows.h>

#include <CLI/CLI.hpp>
#include <cstdio>
#include <stdexcept>
#include <string>
#include <vector>

namespace {

using mg::support::utf8;
using mg::support::wide;

void print(const std::wstring& printer, const mg::support::Drawing& drawing, short copies) {
  const DWORD job = mg::support::printDrawing(printer, drawing, copies);
  const std::string outcome = mg::support::takeOutcome(job);
  if (outcome != mg::support::kPrinted) throw std::runtime_error("job " + std::to_string(job) + ": " + outcome);
}

}  // namespace

int wmain(int count, wchar_t** words) {
  CLI::App app("Draws pages through GDI and a printer's driver.", "gdi_page");
  std::string printer, title;
  std::vector<std::string> pages;
  short copies = 1;
  app.add_option("printer", printer)->required();
  app.add_option("title", title)->required();
  app.add_option("text", pages, "one page for each text")->required();
  app.add_option("--copies", copies)->check(CLI::Range(1, 9999));
  // CLI11 takes the words last first.
  std::vector<std::string> reversed;
  for (int i = count - 1; i > 0; --i)
    reversed.push_back(utf8(words[i]));
  try {
    app.parse(reversed);
    mg::support::Drawing drawing = {wide(title), {}};
    for (const std::string& page : pages)
      drawing.pages.push_back(wide(page));
    print(wide(printer), drawing, copies);
    return 0;
  } catch (const CLI::ParseError& error) {
    return app.exit(error);
  } catch (const std::exception& error) {
    std::fprintf(stderr, "gdi_page: %s\n", error.what());
    return 1;
  }
}
