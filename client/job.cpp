#include "client/job.h"

#include "programs/text.h"

#include <exception>
#include <fmt/format.h>

namespace printclient {

using enum protocol::PrintResult;

namespace {

constexpr std::uint64_t kProgressInPlace = 256 * 1024;         // a new number every that many bytes
constexpr std::uint64_t kFirstProgressLine = 4 * 1024 * 1024;  // then each time the size has doubled

std::string bytesText(std::uint64_t bytes) {
  return fmt::format("{} {}", bytes, bytes == 1 ? "byte" : "bytes");
}

}  // namespace

Job::Job(protocol::JobStart ticket, JobOutput& output, JobOrigin origin)
    : m_ticket(std::move(ticket)),
      m_output(output),
      m_origin(std::move(origin)),
      m_nextProgress(output.reporter().isInPlace() ? kProgressInPlace : kFirstProgressLine) {
  BoardJob shown;
  shown.server = m_origin.server;
  shown.title = programs::oneLine(m_ticket.documentName.empty() ? m_ticket.jobName : m_ticket.documentName);
  shown.printer = programs::oneLine(m_ticket.printerName);
  shown.copies = m_ticket.copies;
  shown.isAgain = m_origin.isAgain;
  m_listed = output.board().add(std::move(shown), m_cancel);
  try {
    m_file = std::make_unique<JobFile>(output.folder(), output.nextTemporaryName());
    const std::string copies = m_ticket.copies > 1 ? fmt::format(", {} copies", m_ticket.copies) : "";
    const std::string printer =
        m_ticket.printerName.empty() ? "" : fmt::format(" for {}", programs::quoted(m_ticket.printerName));
    output.reporter().progress(fmt::format("{}receiving {}{}{}", m_origin.label, title(), printer, copies));
  } catch (const std::exception& failure) {
    fail(kDiskFailure, failure.what());
  }
}

Job::~Job() {
  if (m_ended) return;
  m_file.reset();
  showEnd();
  if (m_cancel->isMade()) {
    say(fmt::format("canceled {} after {}, before its end", title(), bytesText(m_probe.size())));
    return;
  }
  say(
      fmt::format("dropped {}: the job was cut after {}, before its end{}; the server says why in a separate line, "
                  "unless it has gone itself; print again",
                  title(), bytesText(m_probe.size()), place()));
}

void Job::say(const std::string& text) const {
  m_output.reporter().line(m_origin.label + text);
}

std::string Job::title() const {
  const std::wstring& name = m_ticket.documentName.empty() ? m_ticket.jobName : m_ticket.documentName;
  return name.empty() ? "an unnamed job" : programs::quoted(name);
}

std::string Job::place() const {
  const std::string printer =
      m_ticket.printerName.empty() ? "" : fmt::format("printer {}, ", programs::quoted(m_ticket.printerName));
  return fmt::format(" ({}{})", printer, m_origin.sessionText());
}

std::string Job::remedy() const {
  switch (m_result) {
    case kDiskFailure:
      return fmt::format("; see that the folder {} is there, has room and can be written, and print again",
                         programs::fromPath(m_output.folder()));
    case kNotTaken:
      return "; " + m_sinksRemedy;
    case kNoData:
      return "; the server says why in a separate line, and its log has more";
    case kIncompletePdf:
      return "; print again, and when that fails too, the log of the application server has more";
    default:
      return "; print again, and when that fails too, install the same version of the port monitor and the print "
             "client";
  }
}

std::string Job::remark() const {
  const bool isWrapped = m_probe.isWrappedPostScript();
  const bool isUnconverted = protocol::isCollected(m_ticket.settings) && !m_probe.isPdf();
  std::string text = isWrapped ? ", PostScript behind printer commands" : "";
  if (isUnconverted) {
    text += isWrapped ? ", which the server sends as it comes instead of converting it"
                      : ", as it came: the server converts PostScript only, and this is not PostScript";
    text += "; for a PDF, print with a driver that sends plain PostScript";
  }
  return text;
}

void Job::append(std::span<const unsigned char> bytes) noexcept {
  refer(bytes);
  letGo();
}

void Job::refer(std::span<const unsigned char> bytes) noexcept {
  if (m_result != kPrinted) return;
  try {
    m_probe.feed(bytes);
    m_file->refer(bytes);
    reportProgress();
  } catch (const std::exception& failure) {
    fail(kDiskFailure, failure.what());
  }
}

void Job::letGo() noexcept {
  if (m_file == nullptr) return;
  try {
    m_file->letGo();
  } catch (const std::exception& failure) {
    fail(kDiskFailure, failure.what());
  }
}

void Job::reportProgress() {
  m_output.board().change(m_listed, [this](BoardJob& job) { job.bytes = m_probe.size(); });
  if (m_probe.size() < m_nextProgress) return;
  m_output.reporter().progress(fmt::format("{}receiving {}: {}", m_origin.label, title(), bytesText(m_probe.size())));
  m_nextProgress = m_output.reporter().isInPlace() ? m_probe.size() + kProgressInPlace : 2 * m_nextProgress;
}

void Job::fail(PrintResult result, const std::string& why) {
  if (m_result != kPrinted) return;
  m_result = result;
  m_why = why;
  m_file.reset();  // gives a full disk its room back at once
}

void Job::keepDocument() {
  const std::string extension = m_probe.extension();
  if (m_probe.size() == 0) return;
  if (!m_output.keep({m_listed, m_origin, m_ticket, *m_file, m_probe.size(), extension})) return;
  m_output.board().change(m_listed, [&extension](BoardJob& job) { job.kept = extension; });
}

TakenJob Job::handOver(Sink& sink) {
  const ArrivedJob job{m_ticket, m_probe, *m_file, m_cancel.get()};
  if (!m_delivery) return sink.take(job);
  m_delivery->begin(sink.onlyRenames() ? std::optional(m_file->settle()) : std::nullopt);
  TakenJob taken = sink.take(job);
  m_delivery->end(true);
  return taken;
}

void Job::complete() {
  if (m_result != kPrinted) return;
  if (m_cancel->isMade()) {
    m_sinksRemedy = "print it again if it is still wanted";
    fail(kNotTaken, "you canceled it");
  } else if (m_probe.size() == 0 && protocol::isCollected(m_ticket.settings)) {
    fail(kNoData, "no data came; the conversion of the job has failed");
  } else if (m_probe.isPdf() && !m_probe.hasPdfEnd()) {
    fail(kIncompletePdf, fmt::format("the PDF is cut; its end mark is missing after {}", bytesText(m_probe.size())));
  } else {
    try {
      keepDocument();
      m_output.board().change(m_listed, [this](BoardJob& job) {
        job.bytes = m_probe.size();
        job.stage = JobStage::kHandingOver;
      });
      const std::shared_ptr<Sink> sink = m_output.sinkOf(m_ticket.printerName);
      m_taken = handOver(*sink);
    } catch (const SinkRefusal& refusal) {
      m_sinksRemedy = refusal.remedy();
      fail(kNotTaken, refusal.what());
    } catch (const std::exception& failure) {
      fail(kDiskFailure, failure.what());
    }
  }
}

void Job::showEnd() {
  m_output.board().change(m_listed, [this](BoardJob& job) {
    job.bytes = m_probe.size();
    if (m_ended && m_result == kPrinted) {
      job.where = m_taken.where + remark();
      // What the printer does with it is told later.
      job.stage = m_taken.queued != nullptr ? JobStage::kWaiting
                  : m_taken.isForPaper      ? JobStage::kPrinted
                                            : JobStage::kHandedOn;
      if (job.isCanceling && isOver(job.stage)) job.where += ", before it could be canceled";
      return;
    }
    job.stage = m_cancel->isMade() ? JobStage::kCanceled : JobStage::kFailed;
    if (job.isExplained && job.stage == JobStage::kFailed) return;
    if (m_ended) {
      job.cause = m_why;
      job.remedy = remedy().substr(2);
    } else if (job.stage == JobStage::kFailed) {
      job.cause = fmt::format("the job was cut after {}, before its end", bytesText(m_probe.size()));
      job.remedy = "print again";
    }
  });
}

PrintResult Job::end() {
  complete();
  m_ended = true;
  m_file.reset();
  showEnd();
  if (m_result == kPrinted) {
    say(fmt::format("printed {}: {} {}{}", title(), bytesText(m_probe.size()), m_taken.where, remark()));
    m_output.taken({m_origin, m_ticket.jobName, m_ticket.printerName, m_ticket.documentName, m_listed}, m_taken);
  } else {
    say(fmt::format("not printed {}: {}{}{}", title(), m_why, place(), remedy()));
    tellRefusal();
  }
  return m_result;
}

// What the server cannot know: of a conversion that failed it knows more itself.
void Job::tellRefusal() const {
  if (m_result != kNotTaken && m_result != kDiskFailure) return;
  const FollowedJob job = {m_origin, m_ticket.jobName, m_ticket.printerName, m_ticket.documentName, m_listed};
  if (m_cancel->isMade()) {
    m_output.refused(job, {protocol::PaperState::kCanceled, "the person whose job it is canceled it", ""});
  } else {
    m_output.refused(job, {protocol::PaperState::kAborted, m_why, remedy().substr(2)});
  }
}

}  // namespace printclient
