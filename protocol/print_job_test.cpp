#include "protocol/print_job.h"

#include "tests/support/protocol/wire_bytes.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

namespace protocol {
namespace {

using testing::ElementsAre;

JobStart start() {
  return {L"J", L"", L"D", L"R", {1, 2, 3, 2}, 5};
}

TEST(JobStart, HasItsBytesOnTheWireAndNoTextForAnEmptyOne) {
  EXPECT_EQ(tests::hexOf(start()),
            tests::hex("62 01 74 01000000 4a00 62 00 62 01 74 01000000 4400 62 01 74 01000000 5200 "
                       "69 01000000 69 02000000 69 03000000 69 02000000 69 05000000"));
}

TEST(JobStart, IsSentWithTextsOfTheCallerAsWithItsOwn) {
  EXPECT_EQ(tests::hexOf(JobStartToSend{L"J", L"", L"D", L"R", {1, 2, 3, 2}, 5}), tests::hexOf(start()));
  EXPECT_EQ(tests::hexOf(JobStartToSend{L"J", nullptr, L"D", L"R", {1, 2, 3, 2}, 5}), tests::hexOf(start()));
}

TEST(JobStart, ComesBack) {
  const JobStart back = tests::readBack(start());
  EXPECT_EQ(back.jobName, L"J");
  EXPECT_EQ(back.printerName, L"");
  EXPECT_EQ(back.documentName, L"D");
  EXPECT_EQ(back.dataType, L"R");
  EXPECT_THAT(back.settings, ElementsAre(1, 2, 3, 2));
  EXPECT_EQ(back.copies, 5);
}

TEST(JobStart, AMissingTextReplacesTheOneThatWasThere) {
  JobStart before = start();
  before.printerName = L"Laser";
  EXPECT_EQ(tests::readBack(start(), before).printerName, L"");
}

TEST(JobData, HasItsBytesOnTheWire) {
  const unsigned char data[] = {'%', 'P', 'D'};
  EXPECT_EQ(tests::hexOf(JobDataToSend{{L"J", 3}, data}),
            tests::hex("62 01 74 01000000 4a00 69 03000000 64 03000000 255044"));
  EXPECT_EQ(tests::hexOf(JobDataToSend{{L"J", 1}, data}),
            tests::hex("62 01 74 01000000 4a00 69 01000000 64 01000000 25"));
  EXPECT_EQ(tests::hexOf(JobDataToSend{}), tests::hex("62 00 69 00000000"));
  EXPECT_EQ(tests::hexOf(JobDataToSend{{L"", 0}, nullptr}), tests::hex("62 00 69 00000000"));
}

TEST(JobData, ComesBackInFrontOfItsBlock) {
  const unsigned char data[] = {'%', 'P', 'D'};
  corvane::ValueReader reader = tests::readerOf(tests::bytesOf(JobDataToSend{{L"J", 3}, data}));
  const auto head = read<JobData>(reader);
  EXPECT_EQ(head.jobName, L"J");
  EXPECT_EQ(head.length, 3);
  EXPECT_THAT(reader.readPiece(), ElementsAre('%', 'P', 'D'));
  EXPECT_TRUE(reader.readPiece().empty());
  EXPECT_TRUE(reader.atEnd());
}

TEST(JobData, IsNotCopied) {
  const std::vector<unsigned char> block(100000, 1);
  corvane::ValueWriter writer;
  write(writer, JobDataToSend{{L"J", 100000}, block.data()});
  bool isReferred = false;
  writer.forEachPiece([&](corvane::ValueWriter::Piece piece) { isReferred |= piece.data() == block.data(); });
  EXPECT_TRUE(isReferred);
}

TEST(JobEnd, AndItsAnswerHaveTheirBytesOnTheWireAndComeBack) {
  EXPECT_EQ(tests::hexOf(JobEnd{L"J"}), tests::hex("62 01 74 01000000 4a00"));
  EXPECT_EQ(tests::readBack(JobEnd{L"J"}).jobName, L"J");
  const JobEnd::Answer answer{PrintResult::kDiskFailure};
  EXPECT_EQ(tests::hexOf(answer), tests::hex("69 feffffff"));
  EXPECT_EQ(tests::readBack(answer).result, PrintResult::kDiskFailure);
  EXPECT_EQ(static_cast<int>(tests::readBack(JobEnd::Answer{static_cast<PrintResult>(17)}).result), 17);
}

TEST(PrintRequest, EachHasItsNumber) {
  EXPECT_EQ(static_cast<int>(JobStart::kNumber), 1);
  EXPECT_EQ(static_cast<int>(JobData::kNumber), 2);
  EXPECT_EQ(static_cast<int>(JobEnd::kNumber), 3);
}

TEST(DeliveryMode, OneAndThreeAreDirectAndTwoIsCollected) {
  for (const int number : {1, 3}) {
    EXPECT_TRUE(isDirect({2, 3, 2, number})) << number;
    EXPECT_FALSE(isCollected({2, 3, 2, number})) << number;
  }
  EXPECT_TRUE(isCollected({1, 1, 1, 2}));
  EXPECT_FALSE(isDirect({1, 1, 1, 2}));
}

TEST(JobSettings, OnlyPostScriptThatBecomesPdfIsConverted) {
  for (const int source : {0, 1, 2, 3}) {
    for (const int target : {0, 1, 2, 3, 4})
      EXPECT_EQ(isPdfOfPostScript({2, source, target, 2}), source == 2 && target == 3) << source << ' ' << target;
  }
}

TEST(DeliveryMode, AnyOtherNumberIsNeither) {
  for (const int number : {0, 4, -1, 258, -2147483647}) {
    EXPECT_FALSE(isDirect({1, 1, 1, number})) << number;
    EXPECT_FALSE(isCollected({2, 2, 2, number})) << number;
    EXPECT_EQ(tests::readBack(JobStart{L"", L"", L"", L"", {0, 0, 0, number}, 0}).settings[3], number);
  }
}

TEST(JobEnd, AnAnswerThatNobodyHasReadDoesNotSayPrinted) {
  EXPECT_EQ(JobEnd::Answer().result, PrintResult::kNoJob);
}

TEST(PrintResult, EveryAnswerHasItsNumberAndItsWords) {
  const auto words = [](int number) { return textOf(static_cast<PrintResult>(number)); };
  EXPECT_STREQ(words(1), L"The print client has the whole document.");
  EXPECT_STREQ(words(-1), L"The print client got no data.");
  EXPECT_STREQ(words(-2), L"The print client could not write the document.");
  EXPECT_STREQ(words(-3), L"The print client got a PDF without its end.");
  EXPECT_STREQ(words(-4), L"The print client does not know the job.");
  EXPECT_STREQ(words(-5), L"The print client got a piece of data that was not as long as it said.");
  // The words of a monitor that does not know the number.
  EXPECT_STREQ(words(-6), L"The print client did not take the document.");
  EXPECT_STREQ(words(0), L"The print client did not take the document.");
}

TEST(HeldJob, HasItsBytesOnTheWireAndComesBack) {
  EXPECT_EQ(static_cast<int>(HeldJob::kNumber), 4);
  EXPECT_EQ(tests::hexOf(HeldJob{L"a1"}), tests::hex("74 02000000 6100 3100"));
  const HeldJob::Answer answer{HeldJobState::kUnclear, L"d"};
  EXPECT_EQ(tests::hexOf(answer), tests::hex("69 03000000 74 01000000 6400"));
  EXPECT_EQ(tests::readBack(answer).state, HeldJobState::kUnclear);
  EXPECT_EQ(tests::readBack(answer).device, L"d");
  for (const auto& [state, number] :
       {std::pair(HeldJobState::kNew, 1), {HeldJobState::kTaken, 2}, {HeldJobState::kBusy, 4}})
    EXPECT_EQ(static_cast<int>(state), number);
}

}  // namespace
}  // namespace protocol
