#pragma once

#include "client/disk_file.h"
#include "client/job_output.h"
#include "protocol/print_job.h"

#include <atomic>
#include <chrono>
#include <cstddef>
#include <cstdint>
#include <filesystem>
#include <functional>
#include <list>
#include <memory>
#include <mutex>
#include <string>

namespace printclient {

// The document of one job, kept for the person to look at and to print again: a file for this user only, which goes
// with the last reference to it. A descriptor is open only while it is read.
struct KeptDocument {
  KeptDocument() = default;
  ~KeptDocument();
  KeptDocument(const KeptDocument&) = delete;
  KeptDocument& operator=(const KeptDocument&) = delete;

  JobOrigin origin;
  protocol::JobStart ticket;
  std::string extension;  // ".pdf"
  std::uint64_t size = 0;
  std::filesystem::path path;
};

// The documents of the latest jobs of this process, in the person's private folder. Bounded in number, size and age;
// all of them go with the object, and those of a process that was killed with the next object: what a process keeps has
// the name of a mark of its own, a file that is in use as long as the process lives (client/disk_file.h). Any thread.
class KeptDocuments {
 public:
  using Clock = std::chrono::steady_clock;
  struct Bounds {
    std::size_t most = 20;
    std::uint64_t bytes = 64 * 1024 * 1024;  // of all together; a larger document is not kept
    std::chrono::minutes age = std::chrono::hours(8);
    // Nor is one larger than this: it would drive out the others, and its copy would cost as much as its journey.
    std::uint64_t largest = 16 * 1024 * 1024;
  };
  // Called, without the lock, with the number of a job whose document is not kept any more.
  using OnGone = std::function<void(std::uint64_t number)>;

  // Throws std::exception when there is no place for them; what is left in the folder is removed.
  KeptDocuments(std::filesystem::path folder, const Bounds& bounds, OnGone onGone);

  // Keeps a copy of the unfinished file of that job. False when it is too large, none are kept, or there is no room for
  // it: nothing of the job depends on that.
  bool keep(const WholeDocument& whole) noexcept;
  // Null when it is not kept (any more).
  std::shared_ptr<const KeptDocument> find(std::uint64_t number) const;
  // Lets go of those that are older than they may be.
  void dropOld(Clock::time_point now = Clock::now()) noexcept;

  const Bounds& bounds() const { return m_bounds; }

 private:
  struct Entry {
    std::uint64_t number;
    Clock::time_point since;
    std::shared_ptr<const KeptDocument> document;
  };

  std::shared_ptr<KeptDocument> copyOf(JobFile& file, const std::string& extension);
  void removeAbandonedDocuments() const noexcept;
  void dropOldest(std::list<Entry>& gone);
  void tellGone(const std::list<Entry>& gone) noexcept;

  const std::filesystem::path m_folder;
  const Bounds m_bounds;
  const OnGone m_onGone;
  const std::string m_markName;
  const DiskFile m_mark;
  std::atomic<unsigned> m_last{0};
  mutable std::mutex m_lock;  // guards what follows
  std::list<Entry> m_entries;
  std::uint64_t m_bytes = 0;
};

}  // namespace printclient
