#include "protocol/job_record.h"

#include "tests/support/protocol/wire_bytes.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

namespace protocol {
namespace {

JobRecord record() {
  JobRecord job;
  job.number = 7;
  job.state = JobState::kFailed;
  job.server = L"s";
  job.user = L"u";
  job.session = 5;
  job.printer = L"p";
  job.document = L"d";
  job.spoolerJob = L"9";
  job.process = 77;
  job.copies = 2;
  job.bytes = 0x1234567890;
  job.began = L"b";
  job.ended = L"e";
  job.milliseconds = {1, 2, 3, JobRecord::kNotReached};
  job.cause = L"c";
  job.remedy = L"r";
  return job;
}

TEST(JobRecord, HasItsBytesOnTheWireAndComesBack) {
  EXPECT_EQ(tests::hexOf(record()),
            tests::hex("69 07000000 69 06000000 74 01000000 7300 74 01000000 7500 69 05000000 74 01000000 7000 "
                       "74 01000000 6400 74 01000000 3900 69 4d000000 69 02000000 69 90785634 69 12000000 "
                       "74 01000000 6200 74 01000000 6500 69 01000000 69 02000000 69 03000000 69 ffffffff "
                       "74 01000000 6300 74 01000000 7200"));
  EXPECT_EQ(tests::readBack(record()), record());
}

TEST(JobRecord, BytesOfEverySizeComeBack) {
  for (const std::int64_t bytes : {std::int64_t{0}, std::int64_t{0x7fffffff}, std::int64_t{0x80000000},
                                   std::int64_t{0xffffffff}, std::int64_t{1} << 62, std::int64_t{-1}}) {
    JobRecord job;
    job.bytes = bytes;
    EXPECT_EQ(tests::readBack(job).bytes, bytes);
  }
}

TEST(JobRequests, HaveTheirNumbersAndBytes) {
  EXPECT_EQ(static_cast<int>(Jobs::kNumber), 35);
  EXPECT_EQ(static_cast<int>(CancelJob::kNumber), 36);
  EXPECT_EQ(tests::hexOf(Jobs{1, 2, 3, 4, L"u", L"s", L"t", true}),
            tests::hex("69 01000000 69 02000000 69 03000000 69 04000000 74 01000000 7500 74 01000000 7300 "
                       "74 01000000 7400 62 01"));
  EXPECT_EQ(tests::hexOf(CancelJob{3, L"b"}), tests::hex("69 03000000 74 01000000 6200"));
  EXPECT_EQ(tests::hexOf(CancelJob::Answer{true, L"t"}), tests::hex("62 01 74 01000000 7400"));
  EXPECT_EQ(tests::hexOf(Jobs::Answer{{}, L"t"}), tests::hex("62 00 74 01000000 7400"));
}

TEST(JobState, EachHasItsWordAndWhatIsUnknownHasFailed) {
  const wchar_t* const words[] = {L"running", L"printing", L"printed",  L"delivered",
                                  L"shown",   L"failed",   L"canceled", L"held"};
  for (int number = 1; number <= 8; ++number) {
    const auto state = static_cast<JobState>(number);
    EXPECT_EQ(std::wstring(wordOf(state)), words[number - 1]);
    EXPECT_EQ(jobStateOf(words[number - 1]), state);
    EXPECT_EQ(isFinal(state), number > 2 && state != JobState::kHeld);
  }
  EXPECT_EQ(std::wstring(wordOf(static_cast<JobState>(9))), L"failed");
  EXPECT_EQ(jobStateOf(L"gone"), JobState::kFailed);
}

}  // namespace
}  // namespace protocol
