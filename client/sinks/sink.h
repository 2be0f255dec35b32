#pragma once

#include "client/content_probe.h"
#include "client/job_board.h"
#include "client/job_file.h"
#include "protocol/print_job.h"
#include "protocol/session.h"

#include <memory>
#include <stdexcept>
#include <string>
#include <utility>

namespace printclient {

// Why a sink did not take a job, in its own words: what was wrong, and what to do about it. Neither ends with a stop.
class SinkRefusal : public std::runtime_error {
 public:
  SinkRefusal(const std::string& cause, std::string remedy) : std::runtime_error(cause), m_remedy(std::move(remedy)) {}
  const std::string& remedy() const { return m_remedy; }

 private:
  std::string m_remedy;
};

// A job that has come whole, for as long as a sink takes it.
struct ArrivedJob {
  const protocol::JobStart& ticket;
  const ContentProbe& content;
  JobFile& file;                    // unfinished; it goes with the job unless the sink gives it a name of its own
  CancelRequest* cancel = nullptr;  // the person wants the job no more; null when nobody can say so

  bool isCanceled() const { return cancel != nullptr && cancel->isMade(); }
};

// How far a job has got at its printer. A plain value; texts are UTF-8.
struct JobProgress {
  protocol::PaperState state = protocol::PaperState::kUnknown;
  std::string cause = {};   // as it follows "the printer ... "; empty when there is nothing to say
  std::string remedy = {};  // without a stop at its end

  bool operator==(const JobProgress&) const = default;
};

struct QueuedJob;

// A job that a sink has taken.
struct TakenJob {
  // Follows "printed ...: 17 bytes" in the person's line, as "to Report.pdf" does.
  std::string where;
  // Whether it goes to paper, as far as the sink can know.
  bool isForPaper = false;
  // Where it goes on; null when the printer has printed it already, and where it does not go to paper.
  std::shared_ptr<const QueuedJob> queued = nullptr;
};

// Where jobs end: a folder, a printer, a program. Outlives the jobs, and takes them on any number of threads at a time.
class Sink {
 public:
  virtual ~Sink() = default;
  // Returns when the sink has the whole job, and never before that. Throws SinkRefusal when the sink did not take the
  // job and nothing of it is printed any more, as far as the sink can tell and otherwise says; and what JobFile throws
  // when the file failed.
  virtual TakenJob take(const ArrivedJob& job) = 0;
  // Whether taking a job means no more than that its file gets another name in the same folder.
  virtual bool onlyRenames() const { return false; }
  // The print client ends: jobs that are being taken are given up and refused, and so is every later one.
  virtual void stop() noexcept {}
};

}  // namespace printclient
