#include "client/jobs_at_printers.h"

#include <gtest/gtest.h>

namespace printclient {
namespace {

FollowedJob jobAt(std::uint64_t listed, int server, const wchar_t* name, bool isAgain = false) {
  FollowedJob job;
  job.origin.server = server;
  job.origin.isAgain = isAgain;
  job.name = name;
  job.printer = L"Desk";
  job.listed = listed;
  return job;
}

TEST(JobsAtPrinters, AreFoundByServerPrinterAndNameAndTheLatestOfEqualOnes) {
  JobsAtPrinters jobs;
  jobs.add(jobAt(1, 0, L"Desk - Job #17"));
  jobs.add(jobAt(2, 0, L"Desk - Job #17"));
  jobs.add(jobAt(3, 1, L"Desk - Job #17"));
  jobs.add(jobAt(4, 0, L"Desk - Job #17", true));
  ASSERT_TRUE(jobs.find(0, L"Desk", L"Desk - Job #17"));
  EXPECT_EQ(jobs.find(0, L"Desk", L"Desk - Job #17")->listed, 2u);
  EXPECT_EQ(jobs.find(1, L"Desk", L"Desk - Job #17")->listed, 3u);
  EXPECT_FALSE(jobs.find(0, L"Attic", L"Desk - Job #17"));
  EXPECT_FALSE(jobs.find(0, L"Desk", L"Desk - Job #18"));
  jobs.remove(2);
  EXPECT_EQ(jobs.find(0, L"Desk", L"Desk - Job #17")->listed, 1u);
}

TEST(JobsAtPrinters, OneIsTakenAsWantedOnceAndOnlyWhenItWas) {
  JobsAtPrinters jobs;
  jobs.add(jobAt(1, 0, L"Desk - Job #17"));
  EXPECT_FALSE(jobs.takeWanted(1));
  jobs.wantEnd(1);
  jobs.wantEnd(2);
  EXPECT_TRUE(jobs.takeWanted(1));
  EXPECT_FALSE(jobs.takeWanted(1));
  EXPECT_FALSE(jobs.takeWanted(2));
}

TEST(JobsAtPrinters, TheOldestMakesRoom) {
  JobsAtPrinters jobs;
  for (std::uint64_t listed = 1; listed <= JobsAtPrinters::kMost + 1; ++listed)
    jobs.add(jobAt(listed, 0, std::to_wstring(listed).c_str()));
  EXPECT_FALSE(jobs.find(0, L"Desk", L"1"));
  EXPECT_TRUE(jobs.find(0, L"Desk", L"2"));
}

}  // namespace
}  // namespace printclient
