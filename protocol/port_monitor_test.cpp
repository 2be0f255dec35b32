#include "protocol/port_monitor.h"

#include "corvane/records/exception.h"
#include "tests/support/protocol/wire_bytes.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

namespace protocol {
namespace {

using testing::ElementsAre;
using testing::IsEmpty;

CS_ClassVersionMap someVersions() {
  CS_ClassVersionMap versions;
  versions.set(L"C", CS_Version(4, 0, 1, 0));
  return versions;
}

Printer laser() {
  Printer printer;
  printer.texts = {L"L", std::nullopt, std::nullopt, L"HP", std::nullopt, std::nullopt, std::nullopt, L""};
  printer.isDefault = true;
  printer.format = DataFormat::kPdf;
  printer.resolution = 600;
  return printer;
}

TEST(PortMonitorRequest, EachHasItsNumber) {
  EXPECT_EQ(static_cast<int>(AttachJob::kNumber), 4);
  EXPECT_EQ(static_cast<int>(PrinterInfo::kNumber), 5);
  EXPECT_EQ(static_cast<int>(PrinterList::kNumber), 6);
  EXPECT_EQ(static_cast<int>(LaunchProgram::kNumber), 7);
}

TEST(AttachJob, HasItsBytesOnTheWireAndComesBack) {
  const AttachJob job{L"L", 77, 258, someVersions()};
  EXPECT_EQ(tests::hexOf(job), tests::hex("74 01000000 4c00 69 4d000000 69 02010000 69 01000000 74 01000000 4300 "
                                          "69 04000000 69 00000000 69 01000000 69 00000000"));
  const AttachJob back = tests::readBack(job);
  EXPECT_EQ(back.printer, L"L");
  EXPECT_EQ(back.processId, 77);
  EXPECT_EQ(back.bridge, 258);
  EXPECT_EQ(back.versions.find(L"C"), CS_Version(4, 0, 1, 0));
}

TEST(AttachJob, ItsAnswerHasVersionsOnlyWhenTheJobIsAttached) {
  const AttachJob::Answer attached{someVersions()};
  EXPECT_EQ(tests::hexOf(attached), tests::hex("62 01 69 01000000 74 01000000 4300 69 04000000 69 00000000 69 01000000 "
                                               "69 00000000"));
  EXPECT_EQ(tests::readBack(attached).versions->entries(), someVersions().entries());
  EXPECT_EQ(tests::hexOf(AttachJob::Answer{}), "6200");
  EXPECT_FALSE(tests::readBack(AttachJob::Answer{}).versions);
}

TEST(PrinterInfo, AndItsAnswerHaveTheirBytesOnTheWireAndComeBack) {
  EXPECT_EQ(tests::hexOf(PrinterInfo{L"L"}), tests::hex("74 01000000 4c00"));
  EXPECT_EQ(tests::readBack(PrinterInfo{L"L"}).printer, L"L");
  const PrinterInfo::Answer found{laser()};
  EXPECT_EQ(tests::hexOf(found),
            tests::hex("62 01 62 01 74 01000000 4c00 62 00 62 00 62 01 74 02000000 48005000 62 00 62 00 "
                       "62 00 62 01 74 00000000 62 01 69 03000000 69 58020000"));
  EXPECT_EQ(tests::readBack(found).printer->texts, laser().texts);
  EXPECT_EQ(tests::hexOf(PrinterInfo::Answer{}), "6200");
  EXPECT_FALSE(tests::readBack(PrinterInfo::Answer{}).printer);
}

TEST(PrinterList, AndItsAnswerHaveTheirBytesOnTheWireAndComeBack) {
  EXPECT_EQ(tests::hexOf(PrinterList{5}), tests::hex("69 05000000"));
  EXPECT_EQ(tests::readBack(PrinterList{5}).session, 5);
  const PrinterList::Answer answer{true, {L"A", L"B"}};
  EXPECT_EQ(tests::hexOf(answer), tests::hex("62 01 62 01 74 01000000 4100 62 01 74 01000000 4200 62 00"));
  EXPECT_TRUE(tests::readBack(answer).isGiven);
  EXPECT_THAT(tests::readBack(answer).names, ElementsAre(L"A", L"B"));
}

TEST(PrinterList, ThatIsRefusedHasNoNames) {
  const PrinterList::Answer refused{false, {}};
  EXPECT_EQ(tests::hexOf(refused), "6200");
  EXPECT_FALSE(tests::readBack(refused).isGiven);
  EXPECT_THAT(tests::readBack(refused).names, IsEmpty());
}

TEST(PrinterList, ThatBreaksOffHasTheNamesBefore) {
  corvane::ValueReader reader = tests::readerOf({'b', 1, 'b', 1, 't', 1, 0, 0, 0, 'A', 0, 'b', 1});
  PrinterList::Answer answer;
  EXPECT_THROW(read(reader, answer), CS_Exception);
  EXPECT_TRUE(answer.isGiven);
  EXPECT_THAT(answer.names, ElementsAre(L"A", L""));
}

TEST(LaunchProgram, AndItsAnswerHaveTheirBytesOnTheWireAndComeBack) {
  const LaunchProgram launch{L"n", L"a", L"L"};
  EXPECT_EQ(tests::hexOf(launch), tests::hex("74 01000000 6e00 74 01000000 6100 62 01 74 01000000 4c00"));
  const LaunchProgram back = tests::readBack(launch);
  EXPECT_EQ(back.program, L"n");
  EXPECT_EQ(back.arguments, L"a");
  EXPECT_EQ(back.printer, L"L");
  EXPECT_EQ(tests::readBack(LaunchProgram{L"n", L"a", std::nullopt}).printer, std::nullopt);
  EXPECT_EQ(tests::hexOf(LaunchProgram::Answer{true}), tests::hex("62 01"));
  EXPECT_TRUE(tests::readBack(LaunchProgram::Answer{true}).isLaunched);
  EXPECT_FALSE(tests::readBack(LaunchProgram::Answer{false}).isLaunched);
}

}  // namespace
}  // namespace protocol
