#pragma once

#include "session/job_trail.h"
#include "tests/support/local_log.h"

#include <string>
#include <vector>

// The lines of a job's trail, oldest first, without their times. Not while a test has a LocalLog of its own.
inline std::vector<std::string> trailLines(const JobTrail& trail) {
  constexpr std::size_t kKindAndTime = sizeof "trail 12:30:05.123";
  const LocalLog log;
  trail.write(L"trail");
  std::vector<std::string> lines = log.lines();
  for (std::string& line : lines)
    line.erase(0, kKindAndTime);
  return lines;
}
