#include "protocol/administration.h"

#include "corvane/records/exception.h"
#include "corvane/records/messages.h"
#include "tests/support/protocol/wire_bytes.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

namespace protocol {
namespace {

using testing::ElementsAre;
using testing::Pair;
using testing::SizeIs;

StatusPage::Answer page() {
  ListedPrinter printer;
  printer.localName = L"N";
  printer.texts = {L"L", std::nullopt, std::nullopt, L"HP", std::nullopt, std::nullopt, std::nullopt, L""};
  printer.isDefault = true;
  printer.format = DataFormat::kPdf;
  printer.resolution = 600;
  return {{L"4", 77, L"s", {{5, true, L"u", {printer}}}}, StatusPage{6, 2}};
}

TEST(AdministrationRequest, EachHasItsNumber) {
  EXPECT_EQ(static_cast<int>(AdministrationRequest::kStatus), 30);
  EXPECT_EQ(static_cast<int>(Records::kNumber), 31);
  EXPECT_EQ(static_cast<int>(Notices::kNumber), 32);
  EXPECT_EQ(static_cast<int>(StatusPage::kNumber), 33);
  EXPECT_EQ(static_cast<int>(Invite::kNumber), 34);
}

TEST(StatusPage, AndItsAnswerHaveTheirBytesOnTheWire) {
  EXPECT_EQ(tests::hexOf(StatusPage{6, 2}), tests::hex("69 06000000 69 02000000"));
  EXPECT_EQ(tests::hexOf(page()),
            tests::hex("74 01000000 3400 69 4d000000 74 01000000 7300 69 01000000 69 05000000 62 01 "
                       "74 01000000 7500 69 01000000 74 01000000 4e00 62 01 74 01000000 4c00 62 00 "
                       "62 00 62 01 74 02000000 48005000 62 00 62 00 62 00 62 01 74 00000000 62 01 "
                       "69 03000000 69 58020000 62 01 69 06000000 69 02000000 62 00"));
}

TEST(StatusPage, TheLastOneTellsBehindItWhatIsHeld) {
  StatusPage::Answer last = page();
  last.status.sessions.clear();
  last.next.reset();
  last.status.held.emplace().list = {{5, 2, 5000000001, L"t"}};
  EXPECT_EQ(tests::hexOf(last), tests::hex("74 01000000 3400 69 4d000000 74 01000000 7300 69 00000000 62 00 "
                                           "62 01 69 01000000 69 05000000 69 02000000 69 01f2052a 69 01000000 "
                                           "74 01000000 7400"));
  EXPECT_THAT(tests::readBack(last).status.held->list, ElementsAre(HeldForSession{5, 2, 5000000001, L"t"}));
}

TEST(StatusPage, OfAnEarlierVersionDoesNotTellWhatIsHeld) {
  StatusPage::Answer last = page();
  last.next.reset();
  std::vector<unsigned char> bytes = tests::bytesOf(last);
  bytes.resize(bytes.size() - 2);
  corvane::ValueReader reader = tests::readerOf(bytes);
  EXPECT_FALSE(read<StatusPage::Answer>(reader).status.held);
}

TEST(StatusPage, AndItsAnswerComeBack) {
  EXPECT_EQ(tests::readBack(StatusPage{6, 2}), (StatusPage{6, 2}));
  const StatusPage::Answer back = tests::readBack(page());
  EXPECT_EQ(back.next, (StatusPage{6, 2}));
  EXPECT_EQ(back.status.version, L"4");
  EXPECT_EQ(back.status.process, 77);
  EXPECT_EQ(back.status.since, L"s");
  EXPECT_EQ(back.status.session(6), nullptr);
  const ListedSession* const session = back.status.session(5);
  ASSERT_NE(session, nullptr);
  EXPECT_TRUE(session->isConnected);
  EXPECT_EQ(session->since, L"u");
  ASSERT_THAT(session->printers, SizeIs(1));
  EXPECT_EQ(session->printers[0].localName, L"N");
  EXPECT_EQ(session->printers[0].driver(), L"HP");
  EXPECT_EQ(session->printers[0].resolution, 600);
  StatusPage::Answer last = page();
  last.next.reset();
  EXPECT_FALSE(tests::readBack(last).next);
}

TEST(StatusPage, PlacesAreInTheOrderOfSessionsAndTheirPrinters) {
  EXPECT_LT((StatusPage{5, 9}), (StatusPage{6, 0}));
  EXPECT_LT((StatusPage{6, 0}), (StatusPage{6, 1}));
}

TEST(ServerStatus, WithMoreThanAnyServerHasIsNotRead) {
  for (const unsigned char high : std::initializer_list<unsigned char>{0x7f, 0xff}) {
    corvane::ValueReader reader = tests::readerOf({'t', 0, 0, 0, 0,   'i', 7, 0, 0, 0, 't', 0, 0, 0, 0,  //
                                                   'i', 0, 0, 0, high});
    try {
      read<ServerStatus>(reader);
      ADD_FAILURE();
    } catch (const CS_Exception& failure) {
      EXPECT_EQ(failure.number(), corvane::kProtocolViolation);
    }
  }
}

TEST(Records, AndItsAnswerHaveTheirBytesOnTheWireAndComeBack) {
  EXPECT_EQ(tests::hexOf(Records{10}), tests::hex("69 0a000000"));
  EXPECT_EQ(tests::readBack(Records{10}).most, 10);
  const Records::Answer answer{{L"A"}};
  EXPECT_EQ(tests::hexOf(answer), tests::hex("62 01 74 01000000 4100 62 00"));
  EXPECT_THAT(tests::readBack(Records::Answer{{L"A", L"B"}}).lines, ElementsAre(L"A", L"B"));
}

TEST(Invite, AndItsAnswerHaveTheirBytesOnTheWireAndComeBack) {
  EXPECT_EQ(tests::hexOf(Invite{5, true, L"H"}), tests::hex("69 05000000 62 01 74 01000000 4800"));
  EXPECT_EQ(tests::readBack(Invite{5, true, L"H"}).address, L"H");
  EXPECT_TRUE(tests::readBack(Invite{5, true, L"H"}).isSameUser);
  EXPECT_EQ(tests::hexOf(Invite::Answer{true, L"L"}), tests::hex("62 01 74 01000000 4c00"));
  EXPECT_EQ(tests::readBack(Invite::Answer{false, L"W"}).text, L"W");
}

TEST(Notices, AndItsAnswerHaveTheirBytesOnTheWireAndComeBack) {
  const Notices notices{-1, 250};
  EXPECT_EQ(tests::hexOf(notices), tests::hex("69 ffffffff 69 fa000000"));
  EXPECT_EQ(tests::readBack(notices).after, -1);
  EXPECT_EQ(tests::readBack(notices).milliseconds, 250);
  const Notices::Answer answer{12, {{12, L"u", L"k", L"l", {{L"n", L"v"}}}}};
  EXPECT_EQ(tests::hexOf(answer), tests::hex("69 0c000000 62 01 69 0c000000 74 01000000 7500 74 01000000 6b00 "
                                             "74 01000000 6c00 69 01000000 74 01000000 6e00 74 01000000 7600 62 00"));
  const Notices::Answer back = tests::readBack(answer);
  EXPECT_EQ(back.latest, 12);
  ASSERT_THAT(back.notices, SizeIs(1));
  EXPECT_EQ(back.notices[0].number, 12);
  EXPECT_EQ(back.notices[0].time, L"u");
  EXPECT_EQ(back.notices[0].kind, L"k");
  EXPECT_EQ(back.notices[0].line, L"l");
  EXPECT_THAT(back.notices[0].values, ElementsAre(Pair(L"n", L"v")));
}

TEST(Notice, TheLastValueOfANameCounts) {
  const Notice notice{1, L"", L"", L"", {{L"a", L"1"}, {L"b", L"2"}, {L"a", L"3"}}};
  EXPECT_EQ(notice.value(L"a"), L"3");
  EXPECT_EQ(notice.value(L"b"), L"2");
  EXPECT_EQ(notice.value(L"c"), L"");
}

}  // namespace
}  // namespace protocol
