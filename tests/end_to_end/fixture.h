#pragma once

#include "tests/end_to_end/spooler.h"
#include "tests/processes/scene.h"

#include <filesystem>
#include <gtest/gtest.h>
#include <string>
#include <vector>

namespace tests {

// The printer of the session that these tests print to.
inline constexpr char kPrinter[] = "Laser-2 (session 5)";

// One test with an application server, the module pointed at it, and a folder for its files. At its end it checks that
// printing left no file behind.
class EndToEnd : public testing::Test {
 protected:
  explicit EndToEnd(const std::vector<std::string>& serverOptions = {});
  void TearDown() override;

  // A file in the test's folder.
  std::filesystem::path file(const std::string& name, const std::string& content) const;
  // One page with a line of text.
  static std::string page(const std::string& text);
  // The module's log so far.
  std::string moduleLog() const;
  // Waits until the module's log holds the text; the log is written by processes of the spooler.
  void waitForModuleLog(const std::string& text) const;
  // What a program prints, as the tests' view of a PDF.
  static std::string outputOf(const std::vector<std::string>& command);
  // Expects that the print command failed, saying this, and that the session's client has no file.
  void expectNotPrinted(ChildProcess& print, const std::string& saying, int session);

  Spooler& spooler;
  Scene scene;
  std::filesystem::path root;
};

}  // namespace tests
