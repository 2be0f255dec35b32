#include "server/session_keeper.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <stdexcept>

namespace aps {
namespace {

using std::chrono::seconds;
using std::chrono::system_clock;
using ::testing::HasSubstr;
using ::testing::SizeIs;

const system_clock::time_point kNow{seconds(2000000000)};

Printer printer(const std::wstring& name) {
  Printer printer;
  printer.texts[0] = name;
  printer.format = protocol::DataFormat::kRaw;
  return printer;
}

SessionTable::Status session(int number, bool connected, std::vector<Printer> printers) {
  return {number, connected, kNow - seconds(100), std::move(printers)};
}

std::string troubleWith(const std::string& text) {
  try {
    fromStateText(text, kNow);
  } catch (const std::runtime_error& failure) {
    return failure.what();
  }
  return "";
}

// The text with one place exchanged.
std::string with(std::string text, const std::string& what, const std::string& instead) {
  const std::size_t at = text.find(what);
  EXPECT_NE(at, std::string::npos) << what;
  return text.replace(at, what.size(), instead);
}

TEST(SessionMemory, EveryValueOfAPrinterComesBackInItsOrder) {
  Printer full;
  for (std::size_t i = 0; i < full.texts.size(); ++i) {
    if (i != 4) full.texts[i] = L"text \u00e4\u20ac\"\\\n" + std::to_wstring(i);
  }
  full.texts[0] = L"Laser \"2\" \u00c4";
  full.texts[5] = L"";
  full.isDefault = true;
  full.format = protocol::DataFormat::kPdf;
  full.resolution = -600;
  const auto back =
      fromStateText(toStateText({session(7, false, {full, printer(L"Ink")}), session(2, false, {full})}), kNow);
  ASSERT_THAT(back, SizeIs(2));
  EXPECT_EQ(back[0].number, 7);
  EXPECT_EQ(back[1].number, 2);
  EXPECT_EQ(back[0].since, kNow - seconds(100));
  ASSERT_THAT(back[0].printers, SizeIs(2));
  EXPECT_EQ(back[0].printers[0].texts, full.texts);
  EXPECT_TRUE(back[0].printers[0].isDefault);
  EXPECT_EQ(back[0].printers[0].format, protocol::DataFormat::kPdf);
  EXPECT_EQ(back[0].printers[0].resolution, -600);
  EXPECT_EQ(back[0].printers[1].name(), L"Ink");
  EXPECT_FALSE(back[0].printers[1].isDefault);
}

TEST(SessionMemory, ASessionThatHadAClientIsWithoutOneSinceNow) {
  const auto back = fromStateText(toStateText({session(7, true, {printer(L"A")})}), kNow);
  ASSERT_THAT(back, SizeIs(1));
  EXPECT_FALSE(back[0].connected);
  EXPECT_EQ(back[0].since, kNow);
}

TEST(SessionMemory, ATimeThatCannotBeIsTheNearestThatCan) {
  const std::string text = toStateText({session(7, false, {printer(L"A")})});
  EXPECT_EQ(fromStateText(with(text, "1999999900", "2000000001"), kNow)[0].since, kNow);
  EXPECT_EQ(fromStateText(with(text, "1999999900", "9223372036854775807"), kNow)[0].since, kNow);
  EXPECT_EQ(fromStateText(with(text, "1999999900", "-1"), kNow)[0].since, system_clock::time_point());
}

TEST(SessionMemory, NoSessionsAreNoSessions) {
  EXPECT_THAT(fromStateText(toStateText({}), kNow), SizeIs(0));
}

#ifndef _WIN32
TEST(SessionMemory, ASessionWhoseTextsHaveNoUtf8FormIsLeftOut) {
  const auto back = fromStateText(toStateText({session(1, true, {printer(L"A"), printer(std::wstring(1, 0xD800))}),
                                               session(2, true, {printer(L"A")})}),
                                  kNow);
  ASSERT_THAT(back, SizeIs(1));
  EXPECT_EQ(back[0].number, 2);
}
#endif

TEST(SessionMemory, ASessionWithTooMuchToSayKeepsNamesAndDriversOnlyOrNothing) {
  std::vector<Printer> printers;
  for (int i = 0; i < 64; ++i) {
    printers.push_back(printer(L"Laser " + std::to_wstring(i)));
    printers.back().texts[1] = std::wstring(1024, L'c');
    printers.back().texts[3] = L"driver";
    printers.back().texts[7] = std::wstring(1000, L'x');
  }
  auto wordy = printers;
  for (Printer& each : wordy)
    each.texts[3] = std::wstring(1024, L'\u20ac');
  const auto back = fromStateText(toStateText({session(1, true, wordy), session(2, true, printers),
                                               session(3, true, {printers[0], printer(L"A")})}),
                                  kNow);
  ASSERT_THAT(back, SizeIs(2));
  EXPECT_EQ(back[0].number, 2);
  ASSERT_THAT(back[0].printers, SizeIs(64));
  EXPECT_EQ(back[0].printers[63].name(), L"Laser 63");
  EXPECT_EQ(back[0].printers[63].texts[3], L"driver");
  EXPECT_FALSE(back[0].printers[63].texts[1]);
  EXPECT_FALSE(back[0].printers[63].texts[7]);
  EXPECT_EQ(back[1].printers[0].texts[1], std::wstring(1024, L'c'));
}

TEST(SessionMemory, ATextThatIsCutAnywhereIsNoMemory) {
  const std::string text = toStateText({session(7, true, {printer(L"A")})});
  for (std::size_t length = 0; length + 2 < text.size(); ++length) {
    EXPECT_NE(troubleWith(text.substr(0, length)), "") << length;
  }
}

TEST(SessionMemory, SaysWhatIsWrong) {
  const std::string text = toStateText({session(7, true, {printer(L"A"), printer(L"B")})});
  EXPECT_EQ(troubleWith(with(text, "version 1", "version 2")), "it is of another version");
  EXPECT_EQ(troubleWith(with(text, "\"session\": 7", "\"session\": 0")), "a session without number or printers");
  EXPECT_EQ(troubleWith(with(text, "\"B\"", "\"a\"")),
            "the printer \"a\" is listed twice; give each printer its own name");
  EXPECT_EQ(troubleWith(with(text, "\"A\",", "\"A\",null,")), "a printer without its texts");
  EXPECT_EQ(troubleWith(with(text, "\"value\": 1", "\"value\": 4")),
            "the printer \"A\" has the format value 4; 1 (raw), 2 (PostScript) and 3 (PDF) exist");
  EXPECT_THAT(troubleWith(with(text, "\"flag\"", "\"flog\"")), HasSubstr("key 'flag' not found"));
  EXPECT_THAT(troubleWith(with(text, "\"session\": 7", "\"session\": \"7\"")), HasSubstr("type must be number"));
  EXPECT_NE(troubleWith("[]"), "");
  const auto one = session(7, true, {printer(L"A")});
  EXPECT_EQ(troubleWith(toStateText({one, one})), "a session is listed twice");
}

}  // namespace
}  // namespace aps
