#include "client/paper_report.h"

#include "corvane/base/text.h"
#include "corvane/records/exception.h"
#include "programs/text.h"
#include "protocol/exchange.h"

#include <fmt/format.h>

namespace printclient {
namespace {

using protocol::PaperState;

// The sentence of what follows "the printer ", or of a remedy.
std::wstring sentence(const std::string& subject, const std::string& text) {
  if (text.empty()) return L"";
  std::string made = subject + text;
  if (made.back() != '.') made += ".";
  if (made.front() >= 'a' && made.front() <= 'z') made.front() = static_cast<char>(made.front() - 'a' + 'A');
  return corvane::fromUtf8(made);
}

std::string phraseOf(PaperState state) {
  switch (state) {
    case PaperState::kWaiting:
      return "waits";
    case PaperState::kPrinting:
      return "is being printed";
    case PaperState::kStopped:
      return "is held up";
    case PaperState::kCanceled:
      return "was canceled";
    case PaperState::kAborted:
      return "was not printed after all";
    case PaperState::kPrinted:
    case PaperState::kHandedOn:
      return "has come out";
    case PaperState::kUnknown:
      break;
  }
  return "is not followed any more";
}

}  // namespace

std::string paperLine(const FollowedJob& job, const JobProgress& progress) {
  const std::wstring& title = job.document.empty() ? job.name : job.document;
  const std::string why =
      progress.cause.empty() ? "" : fmt::format(": the printer {}; {}", progress.cause, progress.remedy);
  return fmt::format("{}{} on {} {}{}", job.origin.label, title.empty() ? "an unnamed job" : programs::quoted(title),
                     programs::quoted(job.printer), phraseOf(progress.state), why);
}

protocol::PaperNews paperNews(const FollowedJob& job, const JobProgress& progress) {
  return {job.printer,
          job.name,
          job.document,
          progress.state,
          sentence("the printer ", progress.cause),
          sentence("", progress.remedy)};
}

protocol::PaperNews refusalNews(const FollowedJob& job, const JobProgress& why) {
  return {job.printer, job.name, job.document, why.state, sentence("", why.cause), sentence("", why.remedy)};
}

void PaperReport::enter(int server, const CS_RCPtr<CS_Component>& component) {
  const std::lock_guard<std::mutex> guard(m_lock);
  m_servers[server] = component;
}

void PaperReport::leave(int server) noexcept {
  CS_RCPtr<CS_Component> gone;  // given back after the lock
  const std::lock_guard<std::mutex> guard(m_lock);
  const auto known = m_servers.find(server);
  if (known == m_servers.end()) return;
  std::swap(gone, known->second);
  m_servers.erase(known);
}

void PaperReport::tell(const FollowedJob& job, const JobProgress& progress, bool isFirst) noexcept try {
  if (!isFirst) m_reporter.line(paperLine(job, progress));
  tellServer(job, paperNews(job, progress));
} catch (const std::exception&) {
  // The connection has gone; the person has read it.
} catch (const CS_Exception&) {
}

void PaperReport::tellRefused(const FollowedJob& job, const JobProgress& why) noexcept try {
  tellServer(job, refusalNews(job, why));
} catch (const std::exception&) {
  // The answer to the job tells it in general words.
} catch (const CS_Exception&) {
}

void PaperReport::tellServer(const FollowedJob& job, const protocol::PaperNews& news) {
  if (job.printer.empty() || job.origin.isAgain) return;  // the server would not know whose job it is
  CS_RCPtr<CS_Component> server;
  {
    const std::lock_guard<std::mutex> guard(m_lock);
    const auto known = m_servers.find(job.origin.server);
    if (known == m_servers.end()) return;
    server = known->second;
  }
  protocol::tell(server, news);
}

}  // namespace printclient
