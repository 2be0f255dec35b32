#pragma once

#include "tests/end_to_end/machine.h"
#include "tests/processes/scene.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <string>
#include <vector>

namespace tests {

// What a print client is told of its printer.
inline constexpr char kLaser[] = "Laser-2,driver=Generic PostScript,format=raw,default=yes";
// A document of one page.
inline const std::string kLetter = MG_SOURCE_DIR "/examples/letter.ps";

// One test with a machine on which nothing is installed, and an application server.
class Administration : public testing::Test {
 protected:
  explicit Administration(const std::vector<std::string>& serverOptions = {}) : scene(serverOptions) {
    machine.clean();
  }
  void TearDown() override { machine.clean(); }

  Machine::Result run(const std::vector<std::string>& arguments) { return machine.administer(arguments); }
  // Runs a command that is to succeed, and gives what it said.
  std::string succeed(const std::vector<std::string>& arguments) {
    const Machine::Result result = run(arguments);
    EXPECT_EQ(result.code, 0) << result.output;
    return result.output;
  }
  void expect(const std::vector<std::string>& arguments, int code, const std::string& saying) {
    const Machine::Result result = run(arguments);
    EXPECT_EQ(result.code, code) << result.output;
    EXPECT_THAT(result.output, testing::HasSubstr(saying));
  }
  // For the server of the scene, which runs without keys.
  void install() { succeed({"install", "--no-services", "--no-keys", "--port", std::to_string(scene.port())}); }
  void up(const std::string& session) {
    succeed({"session", "up", session, "--processor", "mgtestproc", "--driver", "Generic PostScript"});
  }

  Machine& machine = Machine::get();
  Scene scene;
};

// The lines that are in one listing only.
inline std::string difference(const std::set<std::string>& before, const std::set<std::string>& after) {
  std::string text;
  for (const std::string& line : before)
    text += after.count(line) == 0 ? "- " + line + "\n" : "";
  for (const std::string& line : after)
    text += before.count(line) == 0 ? "+ " + line + "\n" : "";
  return text;
}

}  // namespace tests
