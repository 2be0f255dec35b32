#include "admin/base/places.h"
#include "admin/commands/invocation.h"
#include "corvane/base/text.h"

#include <gmock/gmock.h>
#include <nlohmann/json.hpp>
#include <sstream>

namespace admin {
namespace {

std::string said(std::vector<std::string> words) {
  const auto parsed = parseCommandLine(std::move(words));
  std::ostringstream out;
  Output output(out, out, parsed->invocation.json);
  EXPECT_EQ(runInvocation(parsed->invocation, output), ExitCode::kDone);
  return out.str();
}

// The prefix of the tests has no installation, and nobody listens on port 1.
TEST(Status, OfAMachineWithoutAnInstallationSaysSoFirst) {
  const std::string module = corvane::toUtf8(Places::ofThisMachine().module());
  EXPECT_THAT(said({"status", "--server-port", "1"}),
              ::testing::StartsWith("module:  " + module + ", not installed\nmonitor: not registered\n"));
  const Json facts = Json::parse(said({"status", "--server-port", "1", "--json"}));
  EXPECT_EQ(facts["module"],
            (Json{{"path", module}, {"installed", false}, {"version", nullptr}, {"registered", false}}));
  EXPECT_EQ(facts["server"]["reachable"], false);
}

}  // namespace
}  // namespace admin
