#pragma once

#include "tests/processes/wine_server.h"

#include <filesystem>
#include <memory>
#include <string>
#include <vector>

namespace tests {

// A private Wine prefix in the build tree, made once and alive while the object lives. One in a process: programs find
// it through the environment.
class WinePrefix {
 public:
  // Throws std::runtime_error when the Windows programs are not built, or with the output of what failed.
  explicit WinePrefix(const std::string& name);
  WinePrefix(const WinePrefix&) = delete;
  WinePrefix& operator=(const WinePrefix&) = delete;

  const std::filesystem::path& path() const { return m_path; }
  // The command line of a program in the prefix.
  static std::vector<std::string> command(const std::string& program, const std::vector<std::string>& arguments);
  // Runs a program to its end; throws std::runtime_error with its output when it fails.
  void run(const std::string& program, const std::vector<std::string>& arguments) const;

 private:
  std::filesystem::path m_path;
  std::unique_ptr<WineServer> m_server;
};

// The path of one of our Windows programs.
std::string windowsProgram(const std::string& name);
// The path as a program in the prefix writes it.
std::string windowsPath(const std::filesystem::path& path);
// Ghostscript's description of a PostScript printer, as such a path.
std::string windowsPathOfPpd();

}  // namespace tests
