#pragma once

#include "client/job_output.h"
#include "client/sinks/printer/queued_job.h"
#include "programs/allowance.h"

#include <atomic>
#include <chrono>
#include <condition_variable>
#include <cstddef>
#include <deque>
#include <functional>
#include <list>
#include <memory>
#include <mutex>
#include <set>
#include <string>
#include <thread>
#include <vector>

namespace printclient {

// Tells what becomes of jobs after their sinks have taken them, until that is final. One thread for all of them asks
// one printer after another, each for some of its jobs at a time, with pauses that grow while nothing changes or the
// printer does not answer. A printer that never says anything more costs the others kQueuePatience a minute. What is
// followed is forgotten with the object; nothing is kept for a later process.
class JobFollower {
 public:
  using Clock = std::chrono::steady_clock;
  static constexpr std::size_t kMostUnwanted = 100;
  struct Pace {
    std::chrono::milliseconds first{500};                        // until a printer is asked again after a change
    std::chrono::milliseconds longest{5000};                     // while nothing changes
    std::chrono::milliseconds silent{60000};                     // while the printer does not answer
    std::chrono::milliseconds followed{std::chrono::hours(24)};  // a job; after that it is not followed any more
    std::size_t most = 1000;                                     // jobs that are followed; a later one is not
    std::size_t atATime = 20;                                    // jobs of one printer
    int newsAtOnce = 80, newsPerSecond = 15;                     // fewer than the application server keeps

    Pace faster(int factor) const;
  };
  using Open = decltype(&openQueue);
  // Told of the first and of each other progress of a job, on that thread.
  using OnNews = std::function<void(const FollowedJob& job, const JobProgress& progress, bool isFirst)>;

  JobFollower(OnNews onNews, const Pace& pace, Open open = openQueue);
  explicit JobFollower(OnNews onNews) : JobFollower(std::move(onNews), Pace()) {}
  ~JobFollower();
  JobFollower(const JobFollower&) = delete;
  JobFollower& operator=(const JobFollower&) = delete;

  // The person wants that job no more: its printer is told to end it, and what has become of it comes as news. Where it
  // cannot be told, onFailure gets the words that say why, on the thread of the news. A job that is still to come is
  // ended when it does.
  using OnFailure = std::function<void(std::uint64_t listed, const std::string& why)>;
  void onCancelFailure(OnFailure handler) { m_onFailure = std::move(handler); }
  void cancel(std::uint64_t listed) noexcept;

  // A sink has taken the job. Waits for nothing; any thread. Where Pace::most jobs wait for their first news, further
  // ones are not followed.
  void follow(FollowedJob job, const TakenJob& taken) noexcept;

 private:
  struct Followed {
    FollowedJob job;
    QueuedJob queued;
  };
  struct Printer {
    std::list<Followed> jobs;
    Clock::time_point next;
    std::chrono::milliseconds pause;
  };
  struct Arrived {
    FollowedJob job;
    bool isForPaper;
    std::shared_ptr<const QueuedJob> queued;
  };

  void run() noexcept;
  // Returns what has arrived by the time at which a printer is due; false when the thread is to end.
  bool await(std::deque<Arrived>& arrived);

  void begin(const Arrived& arrived);
  // Ends those of the jobs that the person wants no more.
  void cancelSome();
  void cancelAt(Printer& printer, std::list<Followed>::iterator job);
  void lookAt(Printer& printer);
  // Asks for the first of its jobs, and puts it behind the others or takes it out; true when something has changed.
  bool lookAtFirst(Printer& printer, PrinterQueue& queue);
  void dropOld(Printer& printer);
  // Waits until there may be news again, but for those that can be left out.
  void tell(const FollowedJob& job, const JobProgress& progress, bool isFirst);

  const OnNews m_onNews;
  OnFailure m_onFailure;
  const Pace m_pace;
  const Open m_open;
  // Of the thread alone.
  std::list<Printer> m_printers;  // none without jobs
  std::size_t m_count = 0;
  programs::Allowance m_news;
  std::set<std::uint64_t> m_unwanted;  // jobs to end that have not come yet; at most kMostUnwanted

  std::atomic<bool> m_isStopping{false};
  std::mutex m_lock;  // guards what follows
  std::condition_variable m_changed;
  std::deque<Arrived> m_arrived;
  std::vector<std::uint64_t> m_toCancel;
  std::thread m_thread;
};

}  // namespace printclient
