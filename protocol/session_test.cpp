#include "protocol/session.h"

#include "corvane/records/exception.h"
#include "corvane/records/messages.h"
#include "tests/support/protocol/wire_bytes.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

namespace protocol {
namespace {

using testing::ElementsAre;
using testing::SizeIs;

Registration registration() {
  Printer printer;
  printer.texts = {L"L", std::nullopt, std::nullopt, L"HP", std::nullopt, std::nullopt, std::nullopt, L""};
  printer.isDefault = true;
  printer.format = DataFormat::kPdf;
  printer.resolution = 600;
  Registration registration{5, {printer}, {}};
  registration.versions.set(L"C", CS_Version(4, 0, 1, 0));
  return registration;
}

TEST(SessionRequest, EachHasItsNumber) {
  EXPECT_EQ(static_cast<int>(Registration::kNumber), 20);
  EXPECT_EQ(static_cast<int>(JobFailed::kNumber), 21);
  EXPECT_EQ(static_cast<int>(PrinterRefused::kNumber), 22);
}

TEST(Registration, HasItsBytesOnTheWireAndComesBack) {
  EXPECT_EQ(tests::hexOf(registration()),
            tests::hex("69 05000000 69 01000000 62 01 74 01000000 4c00 62 00 62 00 62 01 "
                       "74 02000000 48005000 62 00 62 00 62 00 62 01 74 00000000 62 01 69 03000000 "
                       "69 58020000 69 01000000 74 01000000 4300 69 04000000 69 00000000 69 01000000 "
                       "69 00000000"));
  const Registration back = tests::readBack(registration());
  EXPECT_EQ(back.session, 5);
  ASSERT_THAT(back.printers, SizeIs(1));
  EXPECT_EQ(back.printers[0].driver(), L"HP");
  EXPECT_EQ(back.versions.find(L"C"), CS_Version(4, 0, 1, 0));
}

TEST(Registration, OfNoPrinterAndOfAsManyAsAnyServerAllowsComesBack) {
  for (const std::size_t count : {std::size_t{0}, static_cast<std::size_t>(Registration::kPrinters.most)}) {
    Registration registration;
    registration.printers.resize(count);
    EXPECT_THAT(tests::readBack(registration).printers, SizeIs(count));
  }
}

TEST(Registration, OfMorePrintersThanAnyServerAllowsIsNotRead) {
  for (const int count : {-1, Registration::kPrinters.most + 1}) {
    corvane::ValueWriter writer;
    writer.writeInt(5);
    writer.writeInt(count);
    std::vector<unsigned char> bytes;
    writer.forEachPiece(
        [&](corvane::ValueWriter::Piece piece) { bytes.insert(bytes.end(), piece.begin(), piece.end()); });
    corvane::ValueReader reader = tests::readerOf(bytes);
    try {
      read<Registration>(reader);
      ADD_FAILURE() << count;
    } catch (const CS_Exception& failure) {
      EXPECT_EQ(failure.number(), corvane::kLimitExceeded);
      EXPECT_EQ(failure.detail(), std::to_wstring(count) + L" printers of one session");
    }
  }
}

TEST(Registration, ItsAnswerHasANameForEachPrinterOrTheReason) {
  const Registration::Answer accepted{true, L"", {L"A", L"B"}};
  EXPECT_EQ(tests::hexOf(accepted), tests::hex("62 01 74 01000000 4100 74 01000000 4200"));
  const auto back = tests::readBack(accepted, {false, L"", {L"", L""}});
  EXPECT_TRUE(back.isAccepted);
  EXPECT_THAT(back.localNames, ElementsAre(L"A", L"B"));
  const Registration::Answer refused{false, L"no", {L"A", L"B"}};
  EXPECT_EQ(tests::hexOf(refused), tests::hex("62 00 74 02000000 6e006f00"));
  EXPECT_FALSE(tests::readBack(refused).isAccepted);
  EXPECT_EQ(tests::readBack(refused).refusal, L"no");
}

TEST(JobFailed, HasItsBytesOnTheWireAndComesBack) {
  const JobFailed failed{L"L", L"D", L"c", L"r"};
  EXPECT_EQ(tests::hexOf(failed), tests::hex("74 01000000 4c00 74 01000000 4400 74 01000000 6300 74 01000000 7200"));
  const JobFailed back = tests::readBack(failed);
  EXPECT_EQ(back.printer, L"L");
  EXPECT_EQ(back.document, L"D");
  EXPECT_EQ(back.cause, L"c");
  EXPECT_EQ(back.remedy, L"r");
}

TEST(PrinterRefused, HasItsBytesOnTheWireAndComesBack) {
  const PrinterRefused refused{L"L", L"c", L"r"};
  EXPECT_EQ(tests::hexOf(refused), tests::hex("74 01000000 4c00 74 01000000 6300 74 01000000 7200"));
  const PrinterRefused back = tests::readBack(refused);
  EXPECT_EQ(back.printer, L"L");
  EXPECT_EQ(back.cause, L"c");
  EXPECT_EQ(back.remedy, L"r");
}

TEST(PaperNews, HasItsNumberAndItsBytesOnTheWireAndComesBack) {
  EXPECT_EQ(static_cast<int>(PaperNews::kNumber), 23);
  const PaperNews news{L"L", L"J", L"", PaperState::kStopped, L"C", L"R"};
  EXPECT_EQ(tests::hexOf(news), tests::hex("74 01000000 4c00 74 01000000 4a00 74 00000000 69 03000000 "
                                           "74 01000000 4300 74 01000000 5200"));
  const PaperNews back = tests::readBack(news);
  EXPECT_EQ(back.printer, L"L");
  EXPECT_EQ(back.job, L"J");
  EXPECT_EQ(back.document, L"");
  EXPECT_EQ(back.state, PaperState::kStopped);
  EXPECT_EQ(back.cause, L"C");
  EXPECT_EQ(back.remedy, L"R");
}

TEST(PaperState, EachHasItsWordAndOthersAreUnknown) {
  const wchar_t* const words[] = {L"waiting", L"printing", L"stopped",   L"canceled",
                                  L"aborted", L"printed",  L"handed on", L"unknown"};
  int number = 0;
  for (const wchar_t* word : words) {
    EXPECT_STREQ(wordOf(static_cast<PaperState>(++number)), word);
    EXPECT_EQ(paperStateOf(word), static_cast<PaperState>(number));
    EXPECT_EQ(isFinal(static_cast<PaperState>(number)), number > 3);
  }
  for (const int other : {0, 9, -1})
    EXPECT_STREQ(wordOf(static_cast<PaperState>(other)), L"unknown");
  EXPECT_EQ(paperStateOf(L""), PaperState::kUnknown);
}

}  // namespace
}  // namespace protocol
