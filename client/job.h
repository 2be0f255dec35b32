#pragma once

#include "client/content_probe.h"
#include "client/job_file.h"
#include "client/job_output.h"
#include "client/job_result.h"

#include <array>
#include <cstdint>
#include <memory>
#include <span>
#include <string>

namespace printclient {

// What the port monitor says about a job at its start. Absent texts are empty.
struct JobTicket {
  std::wstring jobName;
  std::wstring printerName;  // the client's printer
  std::wstring documentName;
  std::wstring dataType;
  std::array<int, 4> settings = {};  // the fourth is the delivery mode; 2 means that the data were converted
  int copies = 0;

  static constexpr int kConverted = 2;
};

// One job from its start to its end. Its data go to a temporary file as they come; what goes wrong on the way is kept
// and becomes the answer to the end. A job that is destroyed without an end is dropped, and a line says so. Used by one
// thread.
class Job {
 public:
  Job(JobTicket ticket, JobOutput& output);
  ~Job();
  Job(const Job&) = delete;
  Job& operator=(const Job&) = delete;

  void append(std::span<const unsigned char> bytes) noexcept;
  // The job cannot be completed any more; the first reason counts.
  void fail(JobResult result, const std::string& why);
  // Completes the job and says what became of it. Once.
  JobResult end();

 private:
  std::string title() const;
  // Whose job it is, for the line of one that did not arrive.
  std::string place() const;
  // What to do about a job that failed.
  std::string remedy() const;
  // What there is to say about what arrived; empty when it is what was to be expected.
  std::string remark() const;
  void complete();
  void reportProgress();

  const JobTicket m_ticket;
  JobOutput& m_output;
  ContentProbe m_probe;
  std::unique_ptr<JobFile> m_file;
  JobResult m_result = kPrinted;
  std::string m_why;  // why it failed
  std::string m_fileName;
  std::uint64_t m_nextProgress;
  bool m_ended = false;
};

}  // namespace printclient
