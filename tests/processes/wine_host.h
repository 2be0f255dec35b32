#pragma once

#include "tests/processes/child_process.h"
#include "tests/processes/scene.h"
#include "tests/processes/wine_server.h"

#include <cstdlib>
#include <filesystem>
#include <memory>
#include <string>
#include <vector>

namespace tests {

// The print monitor in a Wine prefix of these tests' own, which is made when it does not exist. The Windows programs
// come from the build of the preset windows-x64.
class WineHost {
 public:
  // Keeps the prefix alive while the object lives, and points the monitor to the scene's server.
  explicit WineHost(Scene& scene);
  WineHost(const WineHost&) = delete;
  WineHost& operator=(const WineHost&) = delete;

  // Points the monitor to an application server on that port; without a key file it has no key.
  void useServer(int port, const std::filesystem::path& keyFile = {});
  // Another Ghostscript for the converter, until the object dies; seconds is the longest time of one conversion.
  void useGhostscript(const std::filesystem::path& program, int seconds);

  // Why the Windows programs cannot be run; empty when they can.
  static std::string missing();

  // Starts a Windows program with its arguments. The records of the module in it go to a file of their own, because
  // under Wine two processes that append to one file at the same time overwrite what the other has written.
  std::unique_ptr<ChildProcess> start(const std::string& program, const std::vector<std::string>& arguments,
                                      ChildProcess::Input input = ChildProcess::Input::kNone);
  // Prints on port CPP5 as a spooler does. The result is true when every call succeeded.
  bool print(const std::string& printer, const std::string& document, const std::vector<std::string>& data);

  // What lies in the folders for temporary files of the prefix's users: names, and whole paths.
  std::vector<std::string> temporaryFiles() const;
  std::vector<std::filesystem::path> temporaryPaths() const;

  // Wine's server of the prefix.
  pid_t server() const { return m_wineServer->id(); }
  bool serverHasFallen() const { return m_wineServer->hasFallen(); }

  // The bytes that the Windows programs send for a pattern of that size.
  static std::string pattern(std::size_t size);
  // A path of this machine as Windows programs write it.
  static std::string windowsPath(const std::filesystem::path& path);
  // The records of the monitor, of all processes.
  std::string log() const;
  // What the last print() wrote, and the records of the monitor.
  std::string diagnosis() const;

 private:
  void changeSettings(const std::vector<std::string>& options);

  Scene& m_scene;
  std::unique_ptr<WineServer> m_wineServer;
  int m_started = 0;
  std::string m_lastOutput;
};

}  // namespace tests

// First in SetUp(): a tree where only the Linux programs are built skips the test and says why; with
// MG_REQUIRE_WINDOWS set, as in scripts/test, that is a failure.
#define MG_SKIP_WITHOUT_WINDOWS_PROGRAMS()                                          \
  if (const std::string missing = ::tests::WineHost::missing(); !missing.empty()) { \
    if (std::getenv("MG_REQUIRE_WINDOWS") != nullptr) FAIL() << missing;            \
    GTEST_SKIP() << missing;                                                        \
  }                                                                                 \
  static_assert(true)
