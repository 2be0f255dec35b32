#pragma once

#include "protocol/print_job.h"

#include <cstddef>
#include <cstdint>
#include <filesystem>
#include <map>
#include <memory>
#include <mutex>
#include <optional>
#include <string>

namespace printclient {

// What this person's print clients on this machine have taken of the jobs that a server has held for them, remembered
// however they end, so that a job that is delivered again is not printed again. A small file for each job in a folder
// of the person's own: "ID.begun" before its sink gets the job, "ID.taken" when that has it. At most kMost, and
// kBetweenForgetting more; the oldest go.
//
// Safe from any thread; several processes may use one folder.
class TakenJobs {
 public:
  static constexpr std::size_t kMost = 10000;
  static constexpr std::uint64_t kBetweenForgetting = 500;  // deliveries; and with the first one

  explicit TakenJobs(std::filesystem::path folder, std::size_t most = kMost)
      : m_folder(std::move(folder)), m_most(most) {}
  TakenJobs(const TakenJobs&) = delete;
  TakenJobs& operator=(const TakenJobs&) = delete;

  // That of the person who runs this program: printclient/held in $XDG_STATE_HOME, else in ~/.local/state; on Windows
  // in %LOCALAPPDATA%. Throws std::runtime_error when there is none.
  static std::filesystem::path ownFolder();

  // One delivery of a job, for as long as it is the latest one. When it goes before begin(), nothing is remembered.
  class Delivery {
   public:
    Delivery(TakenJobs& jobs, std::string id, std::uint64_t number)
        : m_jobs(jobs), m_id(std::move(id)), m_number(number) {}
    Delivery(const Delivery&) = delete;
    Delivery& operator=(const Delivery&) = delete;
    ~Delivery();
    // The sink is about to get the job, as the file of that path where it only gives it another name in the same
    // folder. Throws std::runtime_error when that cannot be remembered, or a later delivery of the same job has begun:
    // then the sink must not get it.
    void begin(const std::optional<std::filesystem::path>& file);
    // What came of it, behind begin().
    void end(bool isTaken) noexcept;

   private:
    TakenJobs& m_jobs;
    const std::string m_id;
    const std::uint64_t m_number;
    bool m_hasBegun = false;
  };
  struct Answer {
    protocol::HeldJobState state = protocol::HeldJobState::kNew;
    std::unique_ptr<Delivery> delivery;  // of a job that may come
  };
  // A server is about to deliver that job. Throws std::runtime_error when nothing can be remembered.
  Answer ask(const std::wstring& id);
  // A name for what is remembered here; another folder has another one. Throws as above.
  std::wstring device();
  // Finds out about the jobs that a process which was killed has begun, as far as their files tell: before what it has
  // left behind is removed.
  void lookAtBegun() noexcept;

 private:
  struct Running {
    std::uint64_t number = 0;
    bool hasBegun = false;
  };

  void prepareLocked();
  void forgetOldest() const;
  std::filesystem::path begunFile(const std::string& id) const;
  std::filesystem::path takenFile(const std::string& id) const;
  // What is known of a job that no thread of this process has.
  protocol::HeldJobState stateOf(const std::string& id) const;
  void resolve(const std::string& id) const;
  void write(const std::filesystem::path& path, const std::string& text) const;

  const std::filesystem::path m_folder;
  const std::size_t m_most;
  std::mutex m_lock;  // guards what follows, and the files
  std::map<std::string, Running> m_running;
  std::uint64_t m_latest = 0;
  bool m_isPrepared = false;
};

}  // namespace printclient
