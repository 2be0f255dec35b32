#pragma once

#include "client/job_output.h"

#include <cstdint>
#include <map>
#include <mutex>
#include <optional>
#include <string>

namespace printclient {

// The jobs that printers have at the moment, as their servers name them, so that a server can speak of one of them. At
// most kMost; the oldest makes room. Safe from any thread.
class JobsAtPrinters {
 public:
  static constexpr std::size_t kMost = 2000;

  void add(const FollowedJob& job);
  void remove(std::uint64_t listed) noexcept;
  // The latest job that came from that server for that printer under that name.
  std::optional<FollowedJob> find(int server, const std::wstring& printer, const std::wstring& name) const;

  // The server wants the job to end, and is told when that cannot be.
  void wantEnd(std::uint64_t listed);
  // The job, if the server wants it to end; it is not wanted any more then.
  std::optional<FollowedJob> takeWanted(std::uint64_t listed);

 private:
  struct Entry {
    FollowedJob job;
    bool isWanted = false;
  };

  mutable std::mutex m_lock;              // guards what follows
  std::map<std::uint64_t, Entry> m_jobs;  // by their numbers on the board, which rise
};

}  // namespace printclient
