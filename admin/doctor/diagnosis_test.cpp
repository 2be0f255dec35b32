#include "admin/doctor/diagnosis.h"

#include <gtest/gtest.h>
#include <nlohmann/json.hpp>
#include <optional>
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

// A service that is started by its repair, or stays as it is.
struct Service {
  bool runs = false;
  bool starts = true;
  int repairs = 0;

  std::string check() const {
    if (!runs) throw Failure(ExitCode::kFailed, "it is stopped", "Start it.");
    return "it runs";
  }
  std::optional<Repair> find() {
    return Repair{"start it", [this] {
                    ++repairs;
                    runs = starts;
                  }};
  }
};

// What a doctor says of it who asks like this; the last line is the conclusion.
std::string mended(Service& service, const AskRepair& ask, bool isJson = false) {
  std::ostringstream out;
  Output output(out, out, isJson);
  Diagnosis diagnosis(output, false, ask);
  EXPECT_EQ(diagnosis.examine(
                "service", [&] { return service.check(); }, [&] { return service.find(); }),
            service.runs);
  diagnosis.conclude();
  return out.str();
}

bool yes(const std::string&) {
  return true;
}

bool no(const std::string&) {
  return false;
}

TEST(Repairs, AreMadeAndTheCheckIsMadeAgain) {
  Service service;
  EXPECT_EQ(mended(service, yes),
            "FAILED  service: it is stopped\n"
            "        Start it.\n"
            "        done: start it\n"
            "ok      service: it runs\n"
            "nothing is wrong\n");
  Service again;
  EXPECT_EQ(
      Json::parse(mended(again, yes, true)),
      (Json{{"ok", true},
            {"checks", Json::array({{{"name", "service"},
                                     {"ok", true},
                                     {"found", "it runs"},
                                     {"repairs", Json::array({{{"what", "start it"}, {"outcome", "done"}}})}}})}}));
}

TEST(Repairs, AreLookedForOnlyByWhoMayMakeThem) {
  Service service;
  EXPECT_EQ(mended(service, {}),
            "FAILED  service: it is stopped\n"
            "        Start it.\n"
            "1 of 1 checks failed\n");
  EXPECT_EQ(service.repairs, 0);
}

TEST(Repairs, AreNotMadeWhenTheAnswerIsNo) {
  Service service;
  EXPECT_EQ(mended(service, no),
            "FAILED  service: it is stopped\n"
            "        Start it.\n"
            "        left as it is, not done: start it\n"
            "1 of 1 checks failed\n");
  EXPECT_EQ(service.repairs, 0);
  EXPECT_EQ(Json::parse(mended(service, no, true))["checks"][0]["repairs"],
            Json::array({{{"what", "start it"}, {"outcome", "declined"}}}));
}

TEST(Repairs, ThatChangeNothingAreMadeOnce) {
  Service service;
  service.starts = false;
  EXPECT_EQ(mended(service, yes),
            "FAILED  service: it is stopped\n"
            "        Start it.\n"
            "        done: start it\n"
            "FAILED  service: it is stopped\n"
            "        Start it.\n"
            "1 of 1 checks failed\n");
  EXPECT_EQ(service.repairs, 1);
}

TEST(Repairs, ThatFailSayWhyAndWhatToDo) {
  std::ostringstream out;
  Output output(out, out, false);
  Diagnosis diagnosis(output, false, yes);
  const auto check = []() -> std::string { throw Failure(ExitCode::kFailed, "it is stopped", ""); };
  diagnosis.examine("service", check, [] {
    return Repair{"start it", [] { throw Failure(ExitCode::kAccessDenied, "it may not", "Ask for it."); }};
  });
  EXPECT_EQ(out.str(),
            "FAILED  service: it is stopped\n"
            "        could not start it: it may not\n"
            "        Ask for it.\n");
  EXPECT_FALSE(diagnosis.isWell());
}

TEST(Diagnosis, ARemarkStandsAtItsEnd) {
  std::ostringstream out;
  Output output(out, out, false);
  Diagnosis diagnosis(output, false);
  diagnosis.conclude("nobody was asked");
  EXPECT_EQ(out.str(), "nothing is wrong\nnobody was asked\n");
}

}  // namespace
}  // namespace admin
