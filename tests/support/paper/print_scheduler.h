#pragma once

#include "tests/support/paper/paper_place.h"

#include <filesystem>
#include <memory>
#include <string>
#include <vector>

namespace tests {

// A print scheduler (cupsd) of one test on a free port of the loopback address, which this process's CUPS_SERVER names
// while it lives. Gone with the object, and so are its jobs.
class PrintScheduler {
 public:
  explicit PrintScheduler(const PaperPlace& place);
  ~PrintScheduler();
  PrintScheduler(const PrintScheduler&) = delete;
  PrintScheduler& operator=(const PrintScheduler&) = delete;

  int port() const { return m_port; }
  std::string address() const { return "127.0.0.1:" + std::to_string(m_port); }
  // Adds a queue, by default one whose driver is made of what the printer says of itself.
  void addQueue(const std::string& name, const std::string& deviceUri,
                const std::vector<std::string>& options = {"-m", "everywhere"}) const;
  // lpadmin, cupsdisable and the like, at this scheduler.
  std::string administer(std::vector<std::string> command) const;
  ChildProcess& process() const { return *m_process; }

 private:
  int m_port;
  std::filesystem::path m_folder;
  std::unique_ptr<ChildProcess> m_process;
};

}  // namespace tests
