#pragma once

#include <atomic>
#include <chrono>
#include <cstddef>
#include <cstdint>
#include <functional>
#include <list>
#include <map>
#include <memory>
#include <mutex>
#include <optional>
#include <string>
#include <utility>
#include <vector>

namespace printclient {

// How far a job has got, as the person sees it.
enum class JobStage {
  kArriving,     // its data come
  kHandingOver,  // it has come whole, and its sink takes it
  kWaiting,      // in the printer's queue
  kPrinting,
  kStopped,  // the printer cannot go on before somebody does something about it
  kPrinted,
  kHandedOn,  // it is in a folder, or a program has taken it
  kFailed,
  kCanceled,
  kUnknown,  // nobody tells any more what becomes of it
};
// Whether nothing more becomes of the job.
constexpr bool isOver(JobStage stage) {
  return stage >= JobStage::kPrinted;
}
constexpr bool isAtPrinter(JobStage stage) {
  return stage == JobStage::kWaiting || stage == JobStage::kPrinting || stage == JobStage::kStopped;
}

// A job as it stands on the board. A plain value; texts are UTF-8 and as they came, so that whoever shows them has to
// make them safe for where he shows them.
struct BoardJob {
  using Clock = std::chrono::system_clock;

  std::uint64_t number = 0;  // the board's own, never used again
  std::uint64_t change = 0;  // the board's count of changes when it changed last
  int server = 0;            // which of those that this process serves
  std::string title;
  std::string printer;  // the person's own name of it
  int copies = 1;
  JobStage stage = JobStage::kArriving;
  std::uint64_t bytes = 0;   // that have come
  std::string where = {};    // behind "printed", as "to Report.pdf"; empty before
  std::string cause = {};    // why it failed or waits; empty when there is nothing to say
  std::string remedy = {};   // what to do about it
  bool isExplained = false;  // the server has said why it failed
  bool isCanceling = false;  // the person wants it no more, and it is not over yet
  bool isAgain = false;      // printed once more from what was kept
  std::string kept = {};     // the extension of the document that is kept, as ".pdf"; empty when none is
  Clock::time_point begun = Clock::now();
  Clock::time_point changed = begun;
};

// Where a person's jobs come from and go to. Plain values.
struct BoardPrinter {
  std::string name;
  std::string place;  // "queue \"desk\""; empty for the common folder or program
  bool isDefault = false;

  bool operator==(const BoardPrinter&) const = default;
};
struct BoardServer {
  std::string name;        // "127.0.0.1:4711, session 5"
  std::string state = {};  // what there is to say about the connection; empty before the first word
  bool isConnected = false;

  bool operator==(const BoardServer&) const = default;
};

// The person's wish that a job end, which may come at any time and from any thread. Shared by the job and the board.
// Whoever works on the job looks at it, or sets a handler while he waits for something that the handler can end.
class CancelRequest {
 public:
  bool isMade() const { return m_isMade; }

  // From now on the request is made; calls the handler that is set.
  void make() {
    m_isMade = true;
    const std::lock_guard<std::mutex> guard(m_lock);
    if (const auto handler = std::exchange(m_handler, nullptr)) handler();
  }

  // While it lives the handler is set: it is called once, at once where the request is made already, and not any more
  // when the destructor has returned. One at a time.
  class Handler {
   public:
    Handler(CancelRequest& request, std::function<void()> handler) : m_request(request) {
      const std::lock_guard<std::mutex> guard(request.m_lock);
      if (request.m_isMade) {
        handler();
      } else {
        request.m_handler = std::move(handler);
      }
    }
    ~Handler() {
      const std::lock_guard<std::mutex> guard(m_request.m_lock);
      m_request.m_handler = nullptr;
    }
    Handler(const Handler&) = delete;
    Handler& operator=(const Handler&) = delete;

   private:
    CancelRequest& m_request;
  };

 private:
  std::atomic<bool> m_isMade{false};
  std::mutex m_lock;  // guards what follows, and is held while it is called
  std::function<void()> m_handler;
};

// What the person may look at: the servers, the printers and the latest jobs, each as it is now. Every change is
// counted, so that whoever has seen the state at one count asks for what is newer and gets no more. Bounded: of more
// than kMost jobs the oldest that is over goes, and where none is over the oldest of all; it is not shown any more, and
// nothing else becomes of it. Any thread; no call waits for anything but the lock, which is held over none of others.
class JobBoard {
 public:
  static constexpr std::size_t kMost = 200;

  struct News {
    std::uint64_t count = 0;     // ask for what is newer than this
    std::vector<BoardJob> jobs;  // that have changed
    // The numbers of all jobs, the latest first; nothing when they are the same.
    std::optional<std::vector<std::uint64_t>> order;
    // Nothing when they are the same.
    std::optional<std::vector<BoardPrinter>> printers;
    std::optional<std::vector<BoardServer>> servers;
  };

  // Puts a job on the board and returns its number. The request ends the job while its data come or its sink takes it;
  // it is let go of when the job is over.
  std::uint64_t add(BoardJob job, std::shared_ptr<CancelRequest> cancel = nullptr);
  // Changes the job under the lock; nothing happens when it is not there any more. A job that is over stays so: what
  // would say otherwise is put right again.
  void change(std::uint64_t number, const std::function<void(BoardJob&)>& change);
  // The server says why a job failed: puts the words to the job that they are about, or on the board as a job of their
  // own when it is one that has never arrived.
  void explain(const BoardJob& failed);
  std::optional<BoardJob> find(std::uint64_t number) const;
  // What ends the job before it is at a printer; null when nothing does.
  std::shared_ptr<CancelRequest> cancelOf(std::uint64_t number) const;

  void setPrinters(std::vector<BoardPrinter> printers);
  void setServer(int server, BoardServer state);

  // Everything for a count of 0.
  News newerThan(std::uint64_t count) const;

  // Calls the handler after each change, on the thread that made it, for as long as the object lives. The handler does
  // little and does not call the board.
  class Watch {
   public:
    enum class Of { kEverything, kStages };  // of everything, or only of jobs that come and get further
    Watch(JobBoard& board, std::function<void()> onChange, Of of = Of::kEverything);
    ~Watch();
    Watch(const Watch&) = delete;
    Watch& operator=(const Watch&) = delete;

   private:
    JobBoard& m_board;
    std::list<std::pair<Of, std::function<void()>>>::iterator m_place;
  };

 private:
  struct Entry {
    BoardJob job;
    std::shared_ptr<CancelRequest> cancel;
  };

  std::uint64_t addLocked(BoardJob job, std::shared_ptr<CancelRequest> cancel);
  void makeRoomLocked();
  Entry* explainedLocked(const BoardJob& failed);
  void tellWatches(bool isStage);

  mutable std::mutex m_lock;  // guards what follows
  std::map<std::uint64_t, Entry> m_jobs;
  std::vector<BoardPrinter> m_printers;
  std::map<int, BoardServer> m_servers;
  std::uint64_t m_count = 0;
  std::uint64_t m_lastNumber = 0;
  std::uint64_t m_orderChange = 0, m_printersChange = 0, m_serversChange = 0;

  std::mutex m_watchLock;  // guards what follows, and is held while they are called
  std::list<std::pair<Watch::Of, std::function<void()>>> m_watches;
};

}  // namespace printclient
