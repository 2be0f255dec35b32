#include "client/page/show_page.h"
#include "programs/child_program.h"
#include "programs/text.h"

#include <array>
#include <chrono>
#include <cstdlib>
#include <fmt/format.h>
#include <optional>
#include <sstream>
#include <system_error>
#include <unistd.h>

namespace printclient {
namespace {

constexpr const char* kOpener = "xdg-open";
// It ends at once with most desktops; with some it stays as long as the browser does.
constexpr std::chrono::seconds kPatience{10};

std::string pathOf(const std::string& program) {
  const char* const path = std::getenv("PATH");
  std::istringstream folders(path != nullptr ? path : "");
  for (std::string folder; std::getline(folders, folder, ':');) {
    const std::string candidate = folder + "/" + program;
    if (!folder.empty() && access(candidate.c_str(), X_OK) == 0) return candidate;
  }
  return "";
}

bool hasDesktop() {
  constexpr std::array<const char*, 3> kSigns = {"DISPLAY", "WAYLAND_DISPLAY", "BROWSER"};
  for (const char* const sign : kSigns) {
    const char* const value = std::getenv(sign);
    if (value != nullptr && value[0] != '\0') return true;
  }
  return false;
}

}  // namespace

std::string openInBrowser(const std::filesystem::path& document) try {
  if (!hasDesktop()) return "there is no desktop here";
  programs::ChildCommand command;
  command.program = pathOf(kOpener);
  if (command.program.empty()) return fmt::format("{} is not installed", kOpener);
  command.arguments = {programs::fromPath(document)};
  command.keepsErrors = true;
  const auto program = programs::ChildProgram::start(command);
  const std::optional<int> code = program->wait(std::chrono::steady_clock::now() + kPatience);
  if (!code || *code == 0) return "";
  const std::string said = program->lastErrorLine();
  return fmt::format("{} ended with {}{}{}", kOpener, *code, said.empty() ? "" : ": ", said);
} catch (const std::system_error& failure) {
  return failure.code().message();
}

}  // namespace printclient
