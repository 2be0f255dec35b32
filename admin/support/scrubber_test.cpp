#include "admin/support/scrubber.h"

#include <gtest/gtest.h>

namespace admin {
namespace {

TEST(Scrubber, LeavesKnownNamesOutAsWordsInAnyCase) {
  Scrubber scrubber;
  scrubber.know(L"EXAMPLE\\Anna");
  scrubber.know(L"J\u00fcrgen");
  scrubber.know(L"x");
  EXPECT_EQ(scrubber.text("anna, ANNA: example\\anna; Annabel and Joanna stay, x"),
            "(left out), (left out): (left out); Annabel and Joanna stay, x");
  EXPECT_EQ(scrubber.text("of J\xC3\xBCrgen."), "of (left out).");
  EXPECT_EQ(scrubber.text("anna"), "(left out)");
}

TEST(Scrubber, KnowsNamesAsJsonWritesThemAndBeyondAscii) {
  Scrubber scrubber;
  scrubber.know(L"EXAMPLE\\J\u00fcrgen");
  scrubber.know(L"a \"strange\" title");
  EXPECT_EQ(scrubber.text("\"j\\u00fcrgen\", \"EXAMPLE\\\\J\\u00fcrgen\""), "\"(left out)\", \"(left out)\"");
  EXPECT_EQ(scrubber.text("J\xC3\x9CRGEN"), "(left out)");
  EXPECT_EQ(scrubber.text("\"A \\\"strange\\\" title\""), "\"(left out)\"");
}

TEST(Scrubber, OfANameWithinAnotherNothingIsLeft) {
  Scrubber scrubber;
  scrubber.know(L"tax");
  scrubber.know(L"tax of Anna 2026");
  EXPECT_EQ(scrubber.text("tax of Anna 2026; tax"), "(left out); (left out)");
}

TEST(Scrubber, LeavesKeysAndInvitationsOutAndShorterNumbersIn) {
  const Scrubber scrubber;
  const std::string invitation = "0123456789abcdef0123456789ABCDEF";
  EXPECT_EQ(scrubber.text("mgprint://a:1/session-5/" + invitation), "mgprint://a:1/session-5/(left out)");
  EXPECT_EQ(scrubber.text(invitation + invitation + "\r\n"), "(left out)\r\n");
  EXPECT_EQ(scrubber.text(invitation.substr(1)), invitation.substr(1));
}

TEST(Scrubber, LeavesFoldersOfUsersOutAndWhoMayUseOthers) {
  const Scrubber scrubber;
  EXPECT_EQ(scrubber.text("C:\\Users\\someone\\Temp and c:\\users\\other"),
            "C:\\Users\\(left out)\\Temp and c:\\users\\(left out)");
  EXPECT_EQ(scrubber.text("\"C:\\\\Users\\\\someone\\\\Temp\""), "\"C:\\\\Users\\\\(left out)\\\\Temp\"");
  EXPECT_EQ(scrubber.text("is open to others: EXAMPLE\\someone, Everyone\nRun"), "is open to others: (left out)\nRun");
  EXPECT_EQ(scrubber.text("\"It was canceled by EXAMPLE\\\\some.one.\""), "\"It was canceled by (left out)\"");
  EXPECT_EQ(scrubber.text("and belongs to someone, who can"), "and belongs to (left out), who can");
}

TEST(Scrubber, OfALogLineTakesAllBetweenTheFirstAndTheLastQuotationMark) {
  const Scrubber scrubber;
  EXPECT_EQ(scrubber.logLine("Job 17 \"a \"strange\" title\" on \"Laser\" was delivered: 7 bytes"),
            "Job 17 (left out) was delivered: 7 bytes");
  EXPECT_EQ(scrubber.logLine("no quotation"), "no quotation");
}

TEST(Scrubber, LeavesOutLinesThatTellOfDocumentsOrAreCutOrNoText) {
  const Scrubber scrubber;
  for (const std::string line :
       {"12:00 Deleted print job a title", "normalizer log: Error: /undefined in a-secret",
        "The conversion failed: a secret", "Failed to launch notepad: notepad.exe C:\\a title.txt",
        "Job 17 \"a title that was c"})
    EXPECT_EQ(scrubber.logLine(line), "") << line;
  EXPECT_EQ(scrubber.logLine(std::string("a\0b", 3)), "");
  EXPECT_EQ(scrubber.logLine("\xFF\xFE"), "");
}

TEST(Scrubber, SaysHowManyLinesOfALogAreMissing) {
  const Scrubber scrubber;
  EXPECT_EQ(scrubber.log("one\r\nDeleted print job x\n\ntwo\nJob 1 \"cut"),
            "one\r\ntwo\r\n2 lines are left out: documents may stand in them.\r\n");
  EXPECT_EQ(scrubber.log(""), "");
}

}  // namespace
}  // namespace admin
