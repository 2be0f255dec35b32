#include "tests/end_to_end/machine.h"
#include "tests/processes/keys.h"
#include "tests/processes/scene.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

namespace tests {
namespace {

using ::testing::AllOf;
using ::testing::HasSubstr;
using ::testing::Not;

// A server that serves only who proves himself.
class AdministrationWithKeys : public testing::Test {
 protected:
  AdministrationWithKeys() {
    machine.clean();
    for (const char* name : {"monitor", "session-5", "session-900000001"})
      keys.make(name);
  }
  void TearDown() override { machine.clean(); }

  void install(const std::vector<std::string>& options) {
    std::vector<std::string> command = {"install", "--no-services", "--port", std::to_string(scene.port())};
    if (options.empty()) command.push_back("--no-keys");
    command.insert(command.end(), options.begin(), options.end());
    EXPECT_EQ(machine.administer(command).code, 0);
  }
  std::string keyFile(const std::string& name) const { return windowsPath(keys.path(name)); }

  Machine& machine = Machine::get();
  Keys keys;
  Scene scene{keys.serverOptions()};
};

TEST_F(AdministrationWithKeys, WithoutTheMonitorsKeyTheServerIsNotAsked) {
  install({});
  const Machine::Result result = machine.administer({"session", "list"});
  EXPECT_EQ(result.code, 6);
  EXPECT_THAT(result.output, AllOf(HasSubstr("is not queried: "), HasSubstr("mgprintmon uses the monitor's key")));
}

// The key is one, but another one than the server has: neither starting the server nor another account helps.
TEST_F(AdministrationWithKeys, AnotherKeyThanTheServersIsSaidWithWhatToDo) {
  const Keys others;
  install({"--key", windowsPath(others.make("monitor"))});
  for (const std::vector<std::string>& command :
       {std::vector<std::string>{"session", "list"}, {"status"}, {"doctor"}}) {
    const std::string said = machine.administer(command).output;
    EXPECT_THAT(said, AllOf(HasSubstr("is not queried: "), HasSubstr("has another key of "),
                            HasSubstr("mgprintmon uses the monitor's key"), HasSubstr("give aps the same key")));
    EXPECT_THAT(said, Not(HasSubstr("Start aps")));
  }
}

// The spooler has a current folder of its own.
TEST_F(AdministrationWithKeys, AKeyFileIsKeptByItsWholePath) {
  install({"--key", "here\\monitor.key"});
  EXPECT_THAT(machine.administer({"status"}).output,
              testing::ContainsRegex("the monitor's is in [A-Z]:[^\n]+[^\n]here.monitor.key"));
}

TEST_F(AdministrationWithKeys, AKeyFileThatIsNoneIsAFaultOfItsOwn) {
  install({"--key", windowsPath(MG_SOURCE_DIR "/examples/letter.ps")});
  EXPECT_THAT(machine.administer({"doctor"}).output, HasSubstr("FAILED  key file: the monitor's key cannot be used: "));
}

TEST_F(AdministrationWithKeys, TheDoctorNeedsAKeyForItsTestPageAndIsWellWithoutThePage) {
  install({"--key", keyFile("monitor")});
  const Machine::Result without = machine.administer({"doctor"});
  EXPECT_EQ(without.code, 0) << without.output;
  EXPECT_THAT(without.output, AllOf(HasSubstr("ok      key file: the monitor authenticates with the key in "),
                                    HasSubstr("left    test page: skipped: aps wants keys; make one for session "
                                              "900000001 and name it with --key")));
  const Machine::Result with = machine.administer(
      {"doctor", "--key", keyFile("session-900000001"), "--processor", "mgtestproc", "--driver", "Generic PostScript"});
  EXPECT_EQ(with.code, 0) << with.output;
  EXPECT_THAT(with.output, HasSubstr("ok      test page: 107 bytes"));
}

}  // namespace
}  // namespace tests
