#pragma once

#include "client/content_probe.h"
#include "client/job_file.h"
#include "client/job_output.h"
#include "client/taken_jobs.h"
#include "protocol/print_job.h"

#include <cstdint>
#include <memory>
#include <span>
#include <string>
#include <utility>

namespace printclient {

using protocol::PrintResult;

// One job from its start to its end. Its data go to a temporary file as they come, and the whole file to the sink of
// its printer; what goes wrong on the way is kept and becomes the answer to the end. A job that is destroyed without an
// end is dropped, and a line says so. Used by one thread.
class Job {
 public:
  // From that connection, where it is known.
  Job(protocol::JobStart ticket, JobOutput& output, const CS_Connection* connection = nullptr)
      : Job(std::move(ticket), output, output.originOf(connection)) {}
  Job(protocol::JobStart ticket, JobOutput& output, JobOrigin origin);
  ~Job();
  Job(const Job&) = delete;
  Job& operator=(const Job&) = delete;

  void append(std::span<const unsigned char> bytes) noexcept;
  // The same for bytes that stay until letGo(): so they are written together.
  void refer(std::span<const unsigned char> bytes) noexcept;
  void letGo() noexcept;
  // The job cannot be completed any more; the first reason counts.
  void fail(PrintResult result, const std::string& why);
  // The server has held the job: what becomes of it is remembered. Before end().
  void remember(std::unique_ptr<TakenJobs::Delivery> delivery) { m_delivery = std::move(delivery); }
  // Completes the job and says what became of it. Once.
  PrintResult end();

  // The person's wish that this job end; lives as long as the job.
  CancelRequest& cancelRequest() { return *m_cancel; }

 private:
  std::string title() const;
  // Whose job it is, for the line of one that did not arrive.
  std::string place() const;
  // What to do about a job that failed.
  std::string remedy() const;
  // What there is to say about what arrived; empty when it is what was to be expected.
  std::string remark() const;
  void complete();
  TakenJob handOver(Sink& sink);
  // A line of the person's about this job.
  void say(const std::string& text) const;
  void reportProgress();
  // Keeps what has come for the person, where documents are kept.
  void keepDocument();
  void showEnd();
  void tellRefusal() const;

  const protocol::JobStart m_ticket;
  JobOutput& m_output;
  const JobOrigin m_origin;
  ContentProbe m_probe;
  std::unique_ptr<JobFile> m_file;
  PrintResult m_result = PrintResult::kPrinted;
  std::string m_why;          // why it failed
  std::string m_sinksRemedy;  // what to do when a sink did not take it
  TakenJob m_taken;           // where it is now
  std::uint64_t m_nextProgress;
  const std::shared_ptr<CancelRequest> m_cancel = std::make_shared<CancelRequest>();
  std::unique_ptr<TakenJobs::Delivery> m_delivery;  // of a job that the server has held
  std::uint64_t m_listed = 0;                       // its number on the board
  bool m_ended = false;
};

}  // namespace printclient
