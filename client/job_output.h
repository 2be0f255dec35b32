#pragma once

#include "client/reporter.h"

#include <atomic>
#include <filesystem>
#include <string>

namespace printclient {

// Where the jobs of this process go. Shared by all of them, from any thread; outlives them.
class JobOutput {
 public:
  JobOutput(std::filesystem::path folder, int session, unsigned long processId, Reporter& reporter);

  const std::filesystem::path& folder() const { return m_folder; }
  Reporter& reporter() const { return m_reporter; }
  int session() const { return m_session; }

  // A name that no other job of this machine uses; begins with a dot, so that it is hidden from a person.
  std::string nextTemporaryName();
  // Removes what an earlier client of the same session left behind when it was killed in the middle of a job. Only
  // while this process is the session's client and has no job yet. Returns how many files there were.
  int removeLeftovers() const;

 private:
  const std::filesystem::path m_folder;
  const int m_session;
  const std::string m_prefix;   // of the session
  const std::string m_process;  // of this process
  Reporter& m_reporter;
  std::atomic<unsigned> m_last{0};
};

}  // namespace printclient
