#pragma once

#include "client/reporter.h"
#include "client/sinks/sink_table.h"

#include <atomic>
#include <filesystem>
#include <memory>
#include <string>

namespace printclient {

// Where the jobs of this process go: the folder of their temporary files, and the sinks. Shared by all of them, from
// any thread; outlives them.
class JobOutput {
 public:
  // A print client of several servers, each with its own session, has the number 0. Without sinks each job stays in the
  // folder.
  JobOutput(std::filesystem::path folder, int session, unsigned long processId, Reporter& reporter,
            std::shared_ptr<SinkTable> sinks = nullptr);

  const std::filesystem::path& folder() const { return m_folder; }
  Reporter& reporter() const { return m_reporter; }
  // Whose jobs they are, for a line: "session 5".
  std::string sessionText() const;
  SinkTable& sinks() const { return *m_sinks; }

  // A name that no other job uses, of whatever process and machine; begins with a dot, so that it is hidden from a
  // person.
  std::string nextTemporaryName();
  // Removes what earlier print clients of any session left behind here when they were killed in the middle of a job,
  // and nothing that a print client still writes. Returns how many files there were.
  int removeLeftovers() const noexcept;

 private:
  const std::filesystem::path m_folder;
  const int m_session;
  const std::string m_prefix;  // of this process's temporary names
  Reporter& m_reporter;
  const std::shared_ptr<SinkTable> m_sinks;
  std::atomic<unsigned> m_last{0};
};

}  // namespace printclient
