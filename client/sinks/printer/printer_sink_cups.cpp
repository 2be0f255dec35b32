#include "client/account_name.h"
#include "client/sinks/printer/device_jobs.h"
#include "client/sinks/printer/ipp_printer.h"
#include "client/sinks/printer/job_status.h"
#include "client/sinks/printer/printer_sink.h"
#include "client/sinks/printer/printer_words.h"
#include "client/sinks/printer/queued_job.h"

#include <algorithm>
#include <fmt/format.h>
#include <optional>
#include <thread>
#include <utility>

namespace printclient {
namespace {

using std::chrono::milliseconds;
using std::chrono::steady_clock;

constexpr milliseconds kFirstPause{20};  // between two looks at a job
constexpr milliseconds kLongestPause{500};

bool accepts(const PrinterAbilities& abilities, const std::string& format) {
  return std::find(abilities.formats.begin(), abilities.formats.end(), format) != abilities.formats.end();
}

// What the data are, as the printer is told; what is neither PDF nor PostScript is for the device as it is, past all
// that a scheduler would make of it. Empty when the printer does not take such data.
std::string formatFor(const ContentProbe& content, const PrinterAbilities& abilities) {
  const std::string extension = content.extension();
  const std::string format = extension == ".pdf"                              ? "application/pdf"
                             : extension == ".ps"                             ? "application/postscript"
                             : accepts(abilities, "application/vnd.cups-raw") ? "application/vnd.cups-raw"
                                                                              : "application/octet-stream";
  return accepts(abilities, format) ? format : "";
}

// One job's way into a printer, on the thread that takes it.
class Submission {
 public:
  Submission(const PrinterTarget& target, const PrinterPatience& patience, const std::atomic<bool>& stopping)
      : m_target(target),
        m_isQueue(target.uri.empty()),
        m_name(m_isQueue ? fmt::format("the printer \"{}\"", target.queue)
                         : fmt::format("the printer at {}", target.uri)),
        m_patience(patience),
        m_stopping(stopping),
        m_begin(steady_clock::now()) {
    try {
      m_printer.emplace(target, patience, stopping);
      m_abilities = m_printer->abilities();
    } catch (const IppFailure& failure) {
      refuse(fmt::format("{} cannot be used: {}", m_name, failure.what()),
             m_isQueue ? "see with \"lpstat -t\" that the queue is there, and print again"
                       : "see that it is switched on and connected and that the address is right, and print again");
    }
  }

  TakenJob print(const ArrivedJob& job) {
    m_job.title = printableTitle(job.ticket);
    m_job.user = accountName();
    const std::filesystem::path file = job.file.share(job.content.extension());
    const Copies copies = copiesOf(job.ticket, file);
    m_job.copies = copies.asked;
    m_job.format = formatFor(job.content, m_abilities);
    check(job);
    if (job.isCanceled()) refuse("you canceled it", "print it again if it is still wanted");
    send(file);
    const std::string remark = watch(job);
    return {fmt::format("to {} as job {}{}{}", m_name, m_number, copies.words, remark), true, queued()};
  }

 private:
  [[noreturn]] static void refuse(const std::string& cause, const std::string& remedy) {
    throw SinkRefusal(cause, remedy);
  }

  // Whatever can be known before the printer has anything of the job.
  void check(const ArrivedJob& job) const {
    if (!m_abilities.acceptsJobs) {
      refuse(fmt::format("{} takes no jobs{}", m_name,
                         m_abilities.message.empty() ? "" : fmt::format(" (\"{}\")", m_abilities.message)),
             "let it take jobs again, with \"cupsaccept\" where it is a queue, and print again");
    }
    if (m_job.format.empty()) {
      refuse(fmt::format("{} does not take {}; it takes {}", m_name, kindOf(job.content),
                         fmt::join(m_abilities.formats, ", ")),
             "bring it along with another format (--printer NAME,format=...), or take a queue with a driver for it");
    }
    if (m_job.copies > m_abilities.mostCopies) {
      refuse(fmt::format("{} makes no more than {} of a job, and {} are wanted", m_name,
                         m_abilities.mostCopies == 1 ? "one copy" : fmt::format("{} copies", m_abilities.mostCopies),
                         m_job.copies),
             "print fewer at a time");
    }
  }

  void send(const std::filesystem::path& file) {
    try {
      m_number = m_printer->createJob(m_job);
    } catch (const IppFailure& failure) {
      // Even if it has made the job: one without a document is not printed.
      refuse(fmt::format("{} refuses the job: {}", m_name, failure.what()), "put right what it says, and print again");
    }
    try {
      m_printer->sendDocument(m_number, m_job, file);
    } catch (const IppFailure& failure) {
      giveUp(fmt::format("{} did not take the document: {}", m_name, failure.what()),
             failure.isLost() ? "see that it is switched on and what it shows, and print again"
                              : "put right what it says, or bring it along with another format, and print again");
    } catch (const std::exception&) {
      takeBack();
      throw;
    }
    m_isWhole = true;
  }

  // Returns when the queue has the job whole, with what there is to add; empty for nothing.
  std::string watch(const ArrivedJob& job) {
    steady_clock::time_point lastFine = m_begin;
    milliseconds pause = kFirstPause;
    for (;; std::this_thread::sleep_for(pause), pause = std::min(2 * pause, kLongestPause)) {
      JobStatus status;
      if (!look(status)) return "";
      const auto now = steady_clock::now();
      const JobFate fate = fateOf(status, m_isQueue);
      if (fate == JobFate::kTaken) return remarkOn(status);
      if (fate == JobFate::kGivenUp) refuseFor(status);
      if (m_stopping) return giveUp("the print client was stopped", "start it again, and print again");
      if (job.isCanceled()) return giveUp("you canceled it", "print it again if it is still wanted");
      if (fate == JobFate::kWatched) lastFine = now;
      if (fate == JobFate::kWatched && now - m_begin >= m_patience.watch) return remarkOn(status);
      if (now - lastFine >= m_patience.silence || now - m_begin >= m_patience.all) {
        const Trouble trouble = troubleOf(status);
        return giveUp(fmt::format("{} {}", m_name, trouble.cause), trouble.remedy);
      }
    }
  }

  // What goes on behind the answer; null when nothing does.
  std::shared_ptr<const QueuedJob> queued() const {
    if (!m_goesOn) return nullptr;
    return std::make_shared<QueuedJob>(
        QueuedJob{m_target, {m_number}, m_job.title, m_job.user, m_begin, progressOf(*m_goesOn)});
  }

  // False when the printer does not know the job any more: it has printed it and keeps no account of that.
  bool look(JobStatus& status) {
    try {
      std::optional<JobStatus> found = m_printer->status(m_number);
      if (found && m_isQueue && found->state >= JobStatus::kCanceled) {
        if (const auto own = statusAtDevice(*m_printer, m_job.title, m_begin, m_stopping)) found = own;
      }
      m_goesOn.reset();
      if (found) status = *found;
      if (found && found->state < JobStatus::kCanceled) m_goesOn = found;
      return found.has_value();
    } catch (const IppFailure& failure) {
      giveUp(fmt::format("{} does not say what becomes of the job: {}", m_name, failure.what()),
             "see that it is switched on and connected, and print again");
      return false;
    }
  }

  static std::string remarkOn(const JobStatus& status) {
    if (status.state != JobStatus::kPending && status.state != JobStatus::kHeld) return "";
    return isInTrouble(status) ? fmt::format(", where it waits: the printer {}", troubleOf(status).cause)
                               : ", where it waits";
  }

  [[noreturn]] void refuseFor(const JobStatus& status) const {
    const Trouble trouble = troubleOf(status);
    refuse(fmt::format("{} {}", m_name, trouble.cause), trouble.remedy);
  }

  enum class End { kDropped, kPrinted, kUnknown };

  // Takes the job back and refuses it, so that it is not printed later; says so when the printer does not let it go.
  // Returns when the printer has printed the whole job meanwhile, with nothing to add.
  std::string giveUp(const std::string& cause, const std::string& remedy) {
    const End end = takeBack();
    if (end == End::kDropped) refuse(fmt::format("{}; job {} was taken back", cause, m_number), remedy);
    m_goesOn.reset();
    if (end == End::kPrinted && m_isWhole) return "";
    refuse(fmt::format("{}; job {} could not be taken back and may still come out", cause, m_number),
           "look for it there before you print again; " + remedy);
  }

  End takeBack() noexcept try {
    m_printer->hurry(m_patience.takeBack);
    const auto until = steady_clock::now() + m_patience.takeBack;
    bool isTold = false;
    for (milliseconds pause = kFirstPause; steady_clock::now() < until; std::this_thread::sleep_for(pause)) {
      const std::optional<JobStatus> status = m_printer->status(m_number);
      if (!status) return End::kDropped;
      if (status->state >= JobStatus::kCanceled) {
        return fateOf(*status, m_isQueue) == JobFate::kTaken ? End::kPrinted : End::kDropped;
      }
      if (!std::exchange(isTold, true)) m_printer->cancel(m_number, m_job.user);
      pause = std::min(2 * pause, kLongestPause);
    }
    return End::kUnknown;
  } catch (const std::exception&) {
    return End::kUnknown;
  }

  const PrinterTarget m_target;
  const bool m_isQueue;
  const std::string m_name;
  const PrinterPatience m_patience;
  const std::atomic<bool>& m_stopping;
  const steady_clock::time_point m_begin;
  std::optional<IppPrinter> m_printer;
  PrinterAbilities m_abilities;
  IppJob m_job;
  int m_number = 0;
  std::optional<JobStatus> m_goesOn;  // what the printer has said last of a job that it still has
  bool m_isWhole = false;             // the printer has acknowledged the whole document
};

}  // namespace

PrinterSink::PrinterSink(PrinterTarget target, PrinterPatience patience)
    : m_target(std::move(target)), m_patience(patience) {}

TakenJob PrinterSink::take(const ArrivedJob& job) {
  return Submission(m_target, m_patience, m_stopping).print(job);
}

}  // namespace printclient
