// How somebody on another machine becomes a print client of a server that mgprintmon administers.

#include "tests/end_to_end/machine.h"
#include "tests/processes/keys.h"
#include "tests/processes/scene.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <optional>

namespace tests {
namespace {

using ::testing::AllOf;
using ::testing::HasSubstr;
using ::testing::MatchesRegex;

class AdministrationOfInvitations : public testing::Test {
 protected:
  AdministrationOfInvitations() {
    machine.clean();
    keys.make("monitor");
  }
  void TearDown() override { machine.clean(); }

  // A server that print clients of other machines reach at an address of its own, or not at all; and the module that
  // has the monitor's key.
  void serve(const std::vector<std::string>& more) {
    std::vector<std::string> options = keys.serverOptions();
    options.insert(options.end(), more.begin(), more.end());
    scene.emplace(options);
    const Machine::Result result =
        machine.administer({"install", "--no-services", "--port", std::to_string(scene->port()), "--key",
                            windowsPath(keys.path("monitor"))});
    EXPECT_EQ(result.code, 0) << result.output;
  }
  std::string addressForClients() const {
    const std::string line = scene->server().waitForLine("aps listens for print clients on ");
    return line.substr(line.rfind(' ') + 1);
  }
  // The line that the command prints, without its end.
  std::string invite(const std::vector<std::string>& options) const {
    std::vector<std::string> command = {"invite", "5"};
    command.insert(command.end(), options.begin(), options.end());
    const Machine::Result result = machine.administer(command);
    EXPECT_EQ(result.code, 0) << result.output;
    return result.output.substr(0, result.output.find('\n'));
  }
  // A print client of somebody with a home of that name.
  std::vector<std::string> clientCommand(const std::string& home, const std::string& invitation) const {
    return {"/usr/bin/env",
            "XDG_CONFIG_HOME=" + (scene->folder() / home).string(),
            Scene::program("printclient"),
            "--printer",
            "Laser-2",
            "--output",
            scene->output(5).string(),
            "--invitation",
            invitation};
  }

  Machine& machine = Machine::get();
  Keys keys;
  std::optional<Scene> scene;
};

TEST_F(AdministrationOfInvitations, TheLineThatIsPrintedMakesSomebodyTheSessionsPrintClientOnce) {
  serve({"--listen-clients", "127.0.0.1:0"});
  const std::string address = addressForClients();
  const std::string line = invite({});
  EXPECT_THAT(line, MatchesRegex("mgprint://" + address + "/session-5/[0-9a-f]{32}"));
  ChildProcess anna(clientCommand("anna", line));
  anna.waitForLine("the invitation is redeemed: printclient knows session 5 of " + address);
  anna.waitForLine("ready: the server knows \"Laser-2 (session 5)\"");
  EXPECT_THAT(machine.administer({"session", "list"}).output,
              AllOf(HasSubstr("session 5: print client connected"), HasSubstr("\"Laser-2 (session 5)\"")));
  ChildProcess bert(clientCommand("bert", line));
  EXPECT_EQ(bert.wait(), 1);
  EXPECT_THAT(bert.output(), HasSubstr("does not take the invitation"));
}

TEST_F(AdministrationOfInvitations, TheSameUserGoesOnAndAnotherOneTakesTheSessionOver) {
  serve({"--listen-clients", "127.0.0.1:0"});
  ChildProcess first(clientCommand("anna", invite({})));
  first.waitForLine("ready: the server knows");
  const std::string further = invite({"--same-user", "--json"});
  EXPECT_EQ(further, "{");
  EXPECT_THAT(machine.administer({"session", "list"}).output, HasSubstr("session 5: print client connected"));
  // A new key: what the first one has opens nothing any more.
  const std::string line = invite({});
  first.waitForLine("the connection to the server is lost");
  ChildProcess second(clientCommand("bert", line));
  second.waitForLine("ready: the server knows");
}

TEST_F(AdministrationOfInvitations, TheAddressIsTheOneThatIsNamedOrThatTheServerWasGiven) {
  serve({"--listen-clients", "127.0.0.1:0", "--public-address", "print.example:4712"});
  EXPECT_THAT(invite({}), MatchesRegex("mgprint://print.example:4712/session-5/[0-9a-f]{32}"));
  EXPECT_THAT(invite({"--address", "other.example:4713"}),
              MatchesRegex("mgprint://other.example:4713/session-5/[0-9a-f]{32}"));
}

TEST_F(AdministrationOfInvitations, AServerThatNobodyOutsideReachesMakesNone) {
  serve({});
  const Machine::Result result = machine.administer({"invite", "5"});
  EXPECT_EQ(result.code, 1) << result.output;
  EXPECT_EQ(result.output,
            "mgprintmon: nobody is invited: aps does not know where print clients of other machines reach it: say so "
            "with --address, or start it with --public-address\n");
  EXPECT_EQ(machine.administer({"invite", "0"}).code, 2);
}

}  // namespace
}  // namespace tests
