#pragma once

#include "client/sinks/printer/job_status.h"
#include "client/sinks/printer/printer_sink.h"

#include <atomic>
#include <chrono>
#include <cups/cups.h>
#include <filesystem>
#include <memory>
#include <optional>
#include <stdexcept>
#include <string>
#include <vector>

namespace printclient {

// A request that a printer or scheduler did not answer, or answered with no.
class IppFailure : public std::runtime_error {
 public:
  IppFailure(const std::string& words, bool isLost) : std::runtime_error(words), m_isLost(isLost) {}
  // No answer came, so that nobody knows what became of the request.
  bool isLost() const { return m_isLost; }

 private:
  bool m_isLost;
};

// What a printer can do. A plain value.
struct PrinterAbilities {
  std::vector<std::string> formats;
  bool acceptsJobs = true;
  int mostCopies = 1;
  std::string message;
};

// A job as it is announced. Texts are UTF-8.
struct IppJob {
  std::string title;
  std::string user;
  std::string format;
  int copies = 1;
};

// A connection to a printer by IPP: to a queue of the scheduler that CUPS knows, or straight to a printer. Every wait
// has a bound, and ends when the flag is set. Used by one thread. Operations throw IppFailure.
class IppPrinter {
 public:
  IppPrinter(const PrinterTarget& target, const PrinterPatience& patience, const std::atomic<bool>& stopping);
  IppPrinter(const IppPrinter&) = delete;
  IppPrinter& operator=(const IppPrinter&) = delete;

  // From now on no wait takes longer, and the flag ends none.
  void hurry(std::chrono::milliseconds silence);

  PrinterAbilities abilities();
  // Makes a job without a document, which is not printed as it is, and returns its number.
  int createJob(const IppJob& job);
  // Sends the only document of a job; the file is read piece by piece. Throws std::runtime_error when it cannot be.
  void sendDocument(int number, const IppJob& job, const std::filesystem::path& file);
  // Nothing when the printer does not know the job any more.
  std::optional<JobStatus> status(int number);
  // Which device a queue sends its jobs to; empty for a printer itself, and where the scheduler does not tell.
  std::string deviceUri();
  // All jobs of that title that the printer has got since so long ago and still knows; at most kMostJobs of
  // its list are looked at.
  std::vector<JobStatus> jobsCalled(const std::string& title, std::chrono::seconds ago);
  static constexpr int kMostJobs = 500;
  // Asks for the end of a job; whether it has ended says status().
  void cancel(int number, const std::string& user);

 private:
  using Message = std::unique_ptr<ipp_t, decltype(&ippDelete)>;

  static int goesOn(http_t* http, void* printer) noexcept;
  void connectToScheduler(const std::string& queue);
  void connectToAddress(const std::string& uri);
  // A printer of the network that has no queue yet: the scheduler makes one.
  void findOnNetwork(const std::string& queue);
  void usePatience();
  // Throws when the printer at the other end of an encrypted connection is not the one that it was before.
  void checkCertificate() const;
  Message request(ipp_op_t operation, const std::string& user = std::string()) const;
  Message requestFor(ipp_op_t operation, int number, const std::string& user = std::string()) const;
  std::string whyNoAnswer() const;
  // The answer; throws when it is no.
  Message ask(Message request);
  Message checked(Message answer) const;
  void sendFile(std::istream& file, std::uint64_t size);

  PrinterPatience m_patience;
  const std::atomic<bool>& m_stopping;
  bool m_hurries = false;
  std::chrono::steady_clock::time_point m_giveUp;  // when the wait that goes on ends
  std::unique_ptr<http_t, decltype(&httpClose)> m_http{nullptr, httpClose};
  std::string m_resource;
  std::string m_uri;  // how the printer calls itself in requests
};

}  // namespace printclient
