#pragma once

#include "client/job_board.h"
#include "client/reporter.h"
#include "client/sinks/sink.h"
#include "client/taken_jobs.h"
#include "protocol/session.h"

#include <atomic>
#include <filesystem>
#include <functional>
#include <map>
#include <memory>
#include <mutex>
#include <string>

class CS_Connection;

namespace printclient {

// Where a job comes from. A plain value.
struct JobOrigin {
  int server = 0;  // which of those that this process serves
  int session = 0;
  std::string label;     // in front of what is said about it, where there are several servers; otherwise empty
  bool isAgain = false;  // printed once more by the person, from what was kept: the server knows nothing of it

  // For a line: "session 5".
  std::string sessionText() const;
};

// A job that is spoken of after its sink has taken it. A plain value.
struct FollowedJob {
  JobOrigin origin;
  std::wstring name, printer, document;  // as its start named them
  std::uint64_t listed = 0;              // its number on the board
};

// The document of a job that has come whole, for who keeps a copy of it.
struct WholeDocument {
  std::uint64_t listed;  // its number on the board
  const JobOrigin& origin;
  const protocol::JobStart& ticket;
  JobFile& file;
  std::uint64_t size;
  const std::string& extension;  // ".pdf"
};

// A name for a temporary file that no other job uses, of whatever process and machine, with a word that says what for;
// begins with a dot, so that it is hidden from a person. removeLeftoversIn() knows it.
std::string temporaryNameFor(const std::string& what);
// Whether it is such a name, or one with an extension behind it.
bool isTemporaryNameFor(const std::string& what, const std::string& name);
// Removes what earlier print clients left behind in the folder when they were killed, and nothing that a print client
// still has in use. Returns how many files there were.
int removeLeftoversIn(const std::filesystem::path& folder) noexcept;

// Where the jobs of this process go and where they come from: the folder of their temporary files, the sink of each
// printer, and the server of each connection. Shared by all of them, from any thread; outlives them.
class JobOutput {
 public:
  // A print client of several servers, each with its own session, has the number 0. The jobs of a printer without a
  // sink of its own go to that of the others; without it they are refused.
  JobOutput(std::filesystem::path folder, int session, unsigned long processId, Reporter& reporter,
            std::shared_ptr<Sink> others);

  const std::filesystem::path& folder() const { return m_folder; }
  Reporter& reporter() const { return m_reporter; }

  void setSink(const std::wstring& printer, std::shared_ptr<Sink> sink);
  // The sink of a printer, by the name that the client knows it by. Throws SinkRefusal when there is none.
  std::shared_ptr<Sink> sinkOf(const std::wstring& printer) const;
  // Sink::stop() of all.
  void stopSinks() noexcept;

  // What comes on that connection is from there, until it is forgotten.
  void setOrigin(const CS_Connection* connection, JobOrigin origin);
  void forgetOrigin(const CS_Connection* connection) noexcept;
  // That of the session alone, which may be 0, where the connection is not known.
  JobOrigin originOf(const CS_Connection* connection) const;

  // Is given every job that a sink has taken, on the thread of the job; it waits for nothing. Set before the first job.
  using OnTaken = std::function<void(const FollowedJob&, const TakenJob&)>;
  void onTaken(OnTaken handler) { m_onTaken = std::move(handler); }
  void taken(const FollowedJob& job, const TakenJob& taken) const {
    if (m_onTaken) m_onTaken(job, taken);
  }

  // Is told of every job that was not taken, and why, on the thread of the job and before it is answered. Set before
  // the first job.
  using OnRefused = std::function<void(const FollowedJob&, const JobProgress&)>;
  void onRefused(OnRefused handler) { m_onRefused = std::move(handler); }
  void refused(const FollowedJob& job, const JobProgress& why) const {
    if (m_onRefused) m_onRefused(job, why);
  }

  // Ends a job that a printer has, as the server wants it: nothing when that has begun, otherwise why not. Set before
  // the first job.
  using OnCancel = std::function<std::string(const JobOrigin& origin, const protocol::CancelAtPrinter& wanted)>;
  void onCancel(OnCancel handler) { m_onCancel = std::move(handler); }
  std::string cancelAtPrinter(const JobOrigin& origin, const protocol::CancelAtPrinter& wanted) const {
    return m_onCancel ? m_onCancel(origin, wanted) : "it follows no jobs";
  }

  // Where the jobs are remembered that servers have held; null where they are not. Set before the first job.
  void useTakenJobs(std::unique_ptr<TakenJobs> taken) { m_takenJobs = std::move(taken); }
  TakenJobs* takenJobs() const { return m_takenJobs.get(); }

  // What the person may look at.
  JobBoard& board() const { return m_board; }
  // Is given every document that has come whole, on the thread of its job, and says whether it keeps a copy. Set before
  // the first job.
  using Keep = std::function<bool(const WholeDocument&)>;
  void onWhole(Keep keep) { m_keep = std::move(keep); }
  bool keep(const WholeDocument& document) const { return m_keep && m_keep(document); }

  // A name that no other job uses, of whatever process and machine; begins with a dot, so that it is hidden from a
  // person.
  std::string nextTemporaryName();
  // removeLeftoversIn() the folder of the temporary files.
  int removeLeftovers() const noexcept { return removeLeftoversIn(m_folder); }

 private:
  const std::filesystem::path m_folder;
  const int m_session;
  const std::string m_prefix;  // of this process's temporary names
  Reporter& m_reporter;
  const std::shared_ptr<Sink> m_others;
  OnTaken m_onTaken;
  OnRefused m_onRefused;
  OnCancel m_onCancel;
  std::unique_ptr<TakenJobs> m_takenJobs;
  mutable JobBoard m_board;
  Keep m_keep;
  std::atomic<unsigned> m_last{0};
  mutable std::mutex m_lock;  // guards what follows
  std::map<std::wstring, std::shared_ptr<Sink>> m_sinks;
  std::map<const CS_Connection*, JobOrigin> m_origins;
};

}  // namespace printclient
