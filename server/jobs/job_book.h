#pragma once

#include "corvane/records/program_monitor.h"
#include "protocol/job_record.h"
#include "protocol/session.h"
#include "server/jobs/job_history.h"
#include "server/jobs_in_progress.h"
#include "server/metrics/job_metrics.h"

#include <chrono>
#include <condition_variable>
#include <cstddef>
#include <map>
#include <mutex>
#include <optional>
#include <string>

namespace aps {

// Makes one record of everything that this server comes to know about a job: from the port monitor that wants to print
// it, from what passes through its bridge, from how the bridge ends, from the port monitor's notice of the end, and
// from what the print client tells later. The record goes to the history whenever it has changed for somebody who
// looks.
//
// A job is known here from its beginning until nothing more is to be expected: the latest kMostEnded of those that have
// ended, and of those that are at their printers kMostAtPrinters at the most. Safe from any thread. Nothing but the
// history is called with the lock held, and that waits for nothing.
class JobBook : public JobWatch {
 public:
  struct Settings {
    std::wstring server;    // the name of this machine
    bool hasTitles = true;  // whether the names of documents are kept
  };
  static constexpr std::size_t kMostEnded = 200;
  static constexpr std::size_t kMostAtPrinters = 2000;
  static constexpr std::size_t kMaxText = 300;  // characters of each text; the rest is cut

  JobBook(JobHistory& history, Settings settings) : m_history(history), m_settings(std::move(settings)) {}

  int begin(const std::wstring& printer, int session, int process) override;
  void routed(int job, CS_RCPtr<CS_BridgeRouter> router) override;
  // Waits for the record of a job that is answered, so that who has the answer may count on it (JobHistory).
  void passed(int job, const CS_BridgeRouter::Passing& passing) noexcept override;
  bool ended(int job, const CS_BridgeRouter::Ending& ending, bool isShown) noexcept override;
  void refused(int job, std::wstring_view cause) noexcept override;

  // An answer to the end of such a job means no more than that this server has it.
  void hold(int job) override;
  // A job that is held is delivered from now on; what passes until its end is told as of any other one. Where it is not
  // delivered, it is held again. What is known of it from the time before this server, where nothing else is.
  void redeliver(const protocol::JobRecord& known);
  // What becomes of a held job that nothing passes for; known as above.
  void tellHeld(const protocol::JobRecord& known, protocol::JobState state, const std::wstring& cause = L"",
                const std::wstring& remedy = L"");
  // What the print client has said of a job that it refuses, behind its answer: the state, cause and remedy.
  std::optional<protocol::JobRecord> refusalOf(int job);
  const std::wstring& server() const { return m_settings.server; }
  // As passed() does for an answer.
  void awaitWritten(int job) noexcept { m_history.awaitWritten(job); }

  // The port monitor says how a job ended (protocol::kJobNotice), of which nothing may be known yet.
  void noticed(const CS_Notice& notice);
  // A print client says what has become of a job of its printer, which has that name on this server.
  void paperNews(const protocol::PaperNews& news, int session, const std::wstring& printer);

  const JobMetrics& metrics() const { return m_metrics; }
  // Of jobs that have not ended.
  std::size_t runningCount();

  protocol::Jobs::Answer find(const protocol::Jobs& wanted);
  protocol::CancelJob::Answer cancel(const protocol::CancelJob& wanted);

  // A job that its print client has and whose printer is at it.
  struct AtPrinter {
    std::wstring what;            // the job, for a line
    std::wstring printer;         // its name on this server
    std::wstring clientsPrinter;  // the client's own name of it
    std::wstring name;            // under which the job travels
    int session = 0;
    int news = 0;  // that the client has told of it so far
  };
  // Nothing when the job is elsewhere, or has ended.
  std::optional<AtPrinter> findAtPrinter(int job);
  // Whoever wants it canceled at its printer, for its record when it is; empty when that did not begin.
  void cancelsAtPrinter(int job, const std::wstring& by);
  // The job's record once it has ended at its printer, or there is news of it with a cause behind so many; as it is
  // after that time. Nothing when the job is not known any more.
  std::optional<protocol::JobRecord> awaitPaper(int job, int news, std::chrono::milliseconds time);

 private:
  using Clock = std::chrono::steady_clock;

  enum class Hold {
    kNone,
    kComing,   // this server takes it in its client's place
    kDelivery  // it was held, and goes to the client
  };
  struct Entry {
    protocol::JobRecord record;
    Clock::time_point stageBegan = Clock::now();
    CS_RCPtr<CS_BridgeRouter> router;  // while it has a route
    std::wstring canceledBy;
    std::wstring name, clientsPrinter;  // as its start says
    int news = 0;                       // of the print client
    bool isAnswered = false;
    bool isRefused =
        false;  // its record says why: the print client has said it before it answered, or who was to hold it
    Hold hold = Hold::kNone;
    bool hasEnded = false;   // for the port monitor
    bool isNoticed = false;  // the port monitor has said how
    bool hasPaper = false;   // the print client has told of it
    bool isSettled = false;  // it ended while it was held: no print client has it
    bool isCounted = false, isPaperCounted = false;
    FailureClass failure = FailureClass::kNone;  // the first that is known
  };

  Entry& beginLocked(const std::wstring& printer, int session, int process);
  void startLocked(Entry& entry, const CS_BridgeRouter::Passing& passing) const;
  void answeredLocked(Entry& entry, const CS_BridgeRouter::Passing& passing) const;
  void stageEndsLocked(Entry& entry, protocol::JobStage stage) const;
  void endLocked(Entry& entry);
  void decideLocked(Entry& entry, const CS_BridgeRouter::Ending& ending, bool isShown) const;
  // It has ended for good; counted once.
  void countLocked(Entry& entry);
  void countPaperLocked(Entry& entry);
  // The record of a held job as it is known here, or else in the history, or else to who asks.
  protocol::JobRecord recordOf(const protocol::JobRecord& known);
  void failLocked(Entry& entry, FailureClass failure, const std::wstring& cause, const std::wstring& remedy) const;
  // The job that a notice is about; null when it is not known here.
  Entry* unnoticedLocked(const std::wstring& printer, int process, const std::wstring& number);
  // The same in the history. Called without the lock.
  std::optional<protocol::JobRecord> ofEarlierServer(const std::wstring& printer, int process, int session,
                                                     const std::wstring& number);
  // A job that has ended, and of which nothing or its record from an earlier process is known.
  Entry& addEndedLocked(const std::optional<protocol::JobRecord>& earlier, const std::wstring& printer, int session,
                        int process, const std::wstring& result);
  // The latest job of that printer that matches; the end when there is none.
  template <class Matches>
  std::map<int, Entry>::iterator latestLocked(const std::wstring& printer, const Matches& matches);
  void forgetLocked();
  // The oldest job that has ended and is at its printer, or is not.
  std::map<int, Entry>::iterator oldestLocked(bool isAtPrinter);

  JobHistory& m_history;
  const Settings m_settings;
  JobMetrics m_metrics;
  std::mutex m_lock;  // guards what follows
  std::condition_variable m_changed;
  std::map<int, Entry> m_jobs;  // by number
  std::size_t m_ended = 0;      // of them
};

}  // namespace aps
