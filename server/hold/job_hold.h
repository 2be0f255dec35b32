#pragma once

#include "corvane/components/connection.h"
#include "protocol/job_record.h"
#include "server/client_news.h"
#include "server/hold/held_delivery.h"
#include "server/hold/hold_store.h"
#include "server/jobs/job_book.h"
#include "server/log.h"
#include "server/notice_list.h"
#include "server/session_table.h"
#include "server/stand_in.h"

#include <atomic>
#include <chrono>
#include <condition_variable>
#include <cstdint>
#include <filesystem>
#include <list>
#include <map>
#include <memory>
#include <mutex>
#include <optional>
#include <set>
#include <string>
#include <thread>
#include <utility>
#include <vector>

namespace aps {

// Jobs for print clients that are away: this server takes them in the client's place, keeps them in files (HoldStore),
// and delivers them in their order when a client with the same key is back (HeldDelivery). While a session has held
// jobs, later ones are held as well, so that none overtakes another.
//
// A job comes over a connection within this process, of which there is one, with a thread at each of its ends; it is
// made with the first job. Jobs are delivered on at most kMostDeliveries threads, one for each session that has some,
// which end when nothing is left to deliver. One more thread, the caretaker, tries again what is to be tried again, and
// ends what has been held for too long. Safe from any thread; no lock is held while a client is waited for.
class JobHold : public StandIn {
 public:
  struct Settings {
    std::filesystem::path folder;
    HoldStore::Limits limits;
    bool hasTitles = true;                      // whether the names of documents are told
    std::chrono::milliseconds carePause{5000};  // between two looks at what waits
  };
  // The parts of the server that it works with, which outlive it.
  struct Context {
    Log& log;
    SessionTable& sessions;
    ClientNews& clientNews;
    JobBook& book;
    NoticeList& notices;
    const corvane::KeyFolder& keys;
  };
  static constexpr std::size_t kMostDeliveries = 16;

  // Throws std::runtime_error with the cause and what to do when jobs cannot be held there.
  JobHold(Settings settings, Context context);
  ~JobHold() override { endAll(); }
  JobHold(const JobHold&) = delete;
  JobHold& operator=(const JobHold&) = delete;

  // The session of the printer is known with a key that is still the session's, and has no print client, or jobs that
  // were held before.
  bool wants(const SessionTable::Found& found) const override;
  std::unique_ptr<Place> prepare(int number, const SessionTable::Found& found, const std::wstring& printer,
                                 int process) override;
  bool ended(int number, std::uint32_t bridge, bool isAnswered) override;

  // The job that comes over the bridge of that identifier, once, for the component that takes it; null when none is
  // expected there.
  std::unique_ptr<HoldStore::Coming> expected(const CS_Connection* connection, std::uint32_t bridge);
  // It was not held, in the middle of it.
  void refused(const HeldJob& job, const HoldRefusal& refusal);

  // The numbers of the jobs that are held now.
  std::set<int> held() const;
  // How much that is for each session.
  std::vector<protocol::HeldForSession> bySession() const { return m_store.bySession(); }

  // The session's print client has registered its printers.
  void clientCame(int session) noexcept;
  // Nothing when the job is not held, or just being delivered. Throws std::bad_alloc; then nothing is canceled.
  std::optional<protocol::CancelJob::Answer> cancel(const protocol::CancelJob& wanted);
  // Delivers nothing any more, and waits for the threads. The connections of print clients have ended before.
  void endAll() noexcept;

 private:
  using Owner = HoldStore::Owner;
  using Clock = std::chrono::steady_clock;

  // The connection within this process over which jobs come to be held.
  class Line;
  // Of a job that is about to come.
  class HeldPlace;
  // A thread that delivers.
  struct Worker {
    std::thread thread;
    bool isDone = false;
  };

  std::shared_ptr<Line> line();
  void tellAll();
  void wake(const Owner& owner);
  void startWorkersLocked();
  bool startWorkerLocked() noexcept;
  void work(Worker& worker) noexcept;
  // Who is delivered to from now on; the end of m_busy when there is nothing to deliver for now.
  std::set<Owner>::iterator nextLocked() noexcept;
  void deliverAll(const Owner& owner) noexcept;
  // False when nothing more is to be delivered to that owner for now.
  bool deliverNext(const Owner& owner);
  bool finish(const HeldJob& job, const HeldDelivery::Outcome& outcome);
  void tellEnd(const HeldJob& job, protocol::JobState state, const std::string& line);
  void setAside(const HeldJob& job, const HeldDelivery::Outcome& outcome);
  void end(const HeldJob& job, protocol::JobState state, const std::string& cause, const std::string& remedy);
  void care() noexcept;
  void wakeAll();
  void endExpired();
  void tell(const HeldJob& job, protocol::JobState state, const std::string& cause = "",
            const std::string& remedy = "");
  protocol::JobRecord recordOf(const HeldJob& job) const;
  std::wstring titleOf(const HeldJob& job) const;

  const Settings m_settings;
  const Context m_context;
  HoldStore m_store;
  std::atomic<bool> m_hasMissedOne{false};  // a print client came when there was no memory for it

  std::mutex m_lock;  // guards what follows
  std::condition_variable m_changed;
  std::shared_ptr<Line> m_line;
  std::map<std::uint32_t, std::unique_ptr<HoldStore::Coming>> m_expected;
  std::set<Owner> m_ready;  // who may have jobs to be delivered
  std::set<Owner> m_busy;   // to whom a thread delivers
  std::list<Worker> m_workers;
  bool m_isStopping = false;
  std::thread m_caretaker;
};

}  // namespace aps
