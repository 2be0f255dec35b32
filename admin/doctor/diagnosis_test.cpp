#include "admin/doctor/diagnosis.h"

#include <gtest/gtest.h>
#include <nlohmann/json.hpp>
#include <sstream>

namespace admin {
namespace {

std::string examined(bool isJson, bool hasMarks) {
  std::ostringstream out;
  Output output(out, out, isJson);
  Diagnosis diagnosis(output, hasMarks);
  EXPECT_TRUE(diagnosis.examine("module", [] { return std::string("it is there"); }));
  EXPECT_FALSE(diagnosis.examine(
      "server", []() -> std::string { throw Failure(ExitCode::kServerAway, "it is away", "Start it."); }));
  diagnosis.skip("test page", "it needs the server");
  EXPECT_FALSE(diagnosis.isWell());
  diagnosis.conclude();
  return out.str();
}

TEST(Diagnosis, SaysWhatItFoundOrCauseAndRemedyInWords) {
  EXPECT_EQ(examined(false, false),
            "ok      module: it is there\n"
            "FAILED  server: it is away\n"
            "        Start it.\n"
            "FAILED  test page: not checked: it needs the server\n"
            "        Correct that and run this again.\n"
            "2 of 3 checks failed\n");
}

TEST(Diagnosis, SaysItWithMarksOnATerminalThatHasThem) {
  EXPECT_EQ(examined(false, true),
            "\xE2\x9C\x93 module: it is there\n"
            "\xE2\x9C\x97 server: it is away\n"
            "  Start it.\n"
            "\xE2\x9C\x97 test page: not checked: it needs the server\n"
            "  Correct that and run this again.\n"
            "2 of 3 checks failed\n");
}

TEST(Diagnosis, OfWhatIsLeftOutIsWell) {
  std::ostringstream out;
  Output output(out, out, false);
  Diagnosis diagnosis(output, false);
  diagnosis.leaveOut("test page", "it needs a key");
  EXPECT_TRUE(diagnosis.isWell());
  diagnosis.conclude();
  EXPECT_EQ(out.str(), "left    test page: skipped: it needs a key\nnothing is wrong\n");
}

TEST(Diagnosis, IsOneDocumentForAMachine) {
  const Json facts = Json::parse(examined(true, true));
  EXPECT_EQ(facts["ok"], false);
  ASSERT_EQ(facts["checks"].size(), 3u);
  EXPECT_EQ(facts["checks"][0], (Json{{"name", "module"}, {"ok", true}, {"found", "it is there"}}));
  EXPECT_EQ(facts["checks"][1],
            (Json{{"name", "server"}, {"ok", false}, {"cause", "it is away"}, {"remedy", "Start it."}}));
}

}  // namespace
}  // namespace admin
