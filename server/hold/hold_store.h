#pragma once

#include "protocol/administration.h"
#include "server/hold/held_file.h"
#include "server/hold/private_file.h"
#include "server/log.h"
#include "server/stand_in.h"

#include <chrono>
#include <cstddef>
#include <cstdint>
#include <filesystem>
#include <map>
#include <memory>
#include <mutex>
#include <optional>
#include <span>
#include <string>
#include <utility>
#include <vector>

namespace aps {

// The held jobs, each a file in a folder of their own, in the order in which they began. A job is there when its file
// has its final name; what a killed process has left unfinished is removed at the start, and a file that is damaged is
// set aside under another name, with a line in the log. Whose a job is says its session together with the key of it
// (HeldJob::key). Safe from any thread; no other part of the server is called with the lock held but the log.
class HoldStore {
 public:
  // What one owner has never takes the room of the others: his limits are half of those in all at most.
  struct Limits {
    int megabytes = 200;        // of one session
    int jobs = 100;             // of one session
    int totalMegabytes = 2000;  // of all together
    int totalJobs = 2000;
    int days = 7;  // that a job is held
  };
  using Owner = std::pair<int, std::wstring>;  // session and key
  static constexpr std::size_t kMostListed = 10000;

  // How a held job is. The cause and what to do are of one that is set aside.
  struct Known {
    HeldJob job;
    std::string cause, remedy;
  };

  // One job while it comes. When the object goes before complete(), nothing of it stays. Used by one thread; it does
  // not outlive the store.
  class Coming {
   public:
    Coming(const Coming&) = delete;
    Coming& operator=(const Coming&) = delete;
    ~Coming();
    void start(protocol::JobStart start) { m_job.start = std::move(start); }
    // Both throw HoldRefusal; then the job cannot be completed.
    void append(std::span<const unsigned char> bytes);
    // Returns when the job is on the disk. It is not delivered before settle(). One that was to be removed meanwhile
    // is.
    void complete();
    const HeldJob& job() const { return m_job; }

   private:
    friend class HoldStore;
    Coming(HoldStore& store, HeldJob job, std::uint64_t sequence);
    HoldStore& m_store;
    HeldJob m_job;
    const std::uint64_t m_sequence;
    std::optional<HeldFileWriter> m_file;
    bool m_isComplete = false;
  };

  // Finds what an earlier process has held. Throws std::runtime_error with the cause and what to do when the folder
  // cannot be used.
  HoldStore(std::filesystem::path folder, const Limits& limits, Log& log);

  // A job that is about to come. Throws HoldRefusal.
  std::unique_ptr<Coming> begin(HeldJob job);
  // Who brought the job knows that it is held, and it may be delivered. False when it is not there.
  bool settle(int number);
  // Whether a later job of that owner would overtake one that is held or comes to be held.
  bool isInLine(const Owner& owner) const;

  // The next job of that owner for delivery, which is then being delivered; nothing while one is, and when none waits.
  std::optional<HeldJob> take(const Owner& owner);
  // The same for one job that is whole, whoever's it is and settled or not: nothing else becomes of it until remove()
  // or putBack(). False when it is not there, or just being delivered.
  bool claim(int number);
  // It was not delivered, and is where it was before.
  void putBack(int number);
  // It was not delivered, and does not hold up those behind it, until retry().
  void setAside(int number, std::string cause, std::string remedy);
  void retry(const Owner& owner);
  // Its end. False when it is not there; one that comes still is removed once it is whole, unless it is not. Takes no
  // memory unless its file cannot be removed; that is tried again by removeLeft().
  bool remove(int number);
  void removeLeft();
  // Its file is not as it was written: it stays under another name, whose path is returned.
  std::filesystem::path setDamagedAside(int number);
  std::filesystem::path pathOf(int number) const;

  // The device that the job is sent to may have taken it from now on: to be known before its end is sent, also by the
  // next server. Throws std::system_error.
  void markSent(int number, const std::wstring& device);
  // It has not taken it. Throws as above.
  void unmarkSent(int number);
  // The device of the last markSent(); nothing when there was none.
  std::optional<std::wstring> sentTo(int number) const;

  std::optional<Known> find(int number) const;
  std::vector<Known> all() const;
  std::vector<Owner> owners() const;
  // How much is held for each session, under whichever keys; of the first kMostListed that have some.
  std::vector<protocol::HeldForSession> bySession() const;
  // Those that are older than Limits::days and not being delivered.
  std::vector<HeldJob> expired(std::chrono::system_clock::time_point now) const;
  const Limits& limits() const { return m_limits; }

 private:
  enum class Place { kComing, kComplete, kWaiting, kDelivering, kAside };
  struct Entry {
    HeldJob job;
    Place place = Place::kComing;
    Place before = Place::kWaiting;  // of one that is being delivered
    bool isGivenUp = false;          // who brings it has left
    std::int64_t bytes = 0;
    std::filesystem::path file, sent;  // their names, so that removing them takes no memory
    std::optional<std::wstring> sentTo;
    std::string cause, remedy;
  };
  using Entries = std::map<std::uint64_t, Entry>;  // by their sequence

  void readFolder();
  Entry entryOf(HeldJob job, std::uint64_t sequence) const;
  void readFile(const std::filesystem::path& path, std::uint64_t sequence);
  void tellUnread(const std::filesystem::path& path, const std::exception& failure);
  // Why they stay; empty when they are gone.
  static std::string removeFiles(const Entry& entry);
  void drop(std::uint64_t sequence) noexcept;
  void addBytes(std::uint64_t sequence, std::int64_t bytes);
  void refuseFullLocked(const Owner& owner) const;
  Entries::iterator findLocked(int number);
  Entries::const_iterator findLocked(int number) const;
  std::filesystem::path fileOf(std::uint64_t sequence, const char* extension) const;

  const PrivateFolder m_folder;
  const Limits m_limits;
  Log& m_log;
  mutable std::mutex m_lock;  // guards what follows
  Entries m_entries;
  std::vector<Entries::node_type> m_left;  // whose files could not be removed
  std::uint64_t m_latest = 0;
};

}  // namespace aps
