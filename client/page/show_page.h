#pragma once

#include <filesystem>
#include <functional>
#include <string>

namespace printclient {

// What to say, and the exit code of the program.
struct ShownPage {
  int exitCode = 0;
  std::string message;
};

// Opens a document in the person's browser; the result is empty, or why that cannot be. Per platform: xdg-open, or what
// the shell of Windows does with such a document.
std::string openInBrowser(const std::filesystem::path& document);

// Opens the page of the print client that this person runs, found by its document in the folder. Where there is none,
// or no browser, the message says what to do.
ShownPage showPage(const std::filesystem::path& folder,
                   const std::function<std::string(const std::filesystem::path&)>& open = openInBrowser);

}  // namespace printclient
