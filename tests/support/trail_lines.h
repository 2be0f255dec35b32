#pragma once

#include "session/job_report.h"
#include "tests/support/local_log.h"

#include <string>
#include <vector>

// The lines of the trail in a job's report, oldest first, without their times. Not while a test has a LocalLog of its
// own.
inline std::vector<std::string> trailLines(const JobReport& report) {
  constexpr std::size_t kKindAndTime = sizeof "trail 12:30:05.123";
  const LocalLog log;
  report.write(L"trail");
  std::vector<std::string> lines = log.lines();
  for (std::string& line : lines)
    line.erase(0, kKindAndTime);
  return lines;
}
