#include "server/jobs/job_book.h"

#include "corvane/base/text.h"
#include "corvane/records/exception.h"
#include "corvane/wire/value_reader.h"
#include "programs/text.h"
#include "protocol/names.h"
#include "protocol/print_job.h"
#include "server/paper_notice.h"
#include "server/printer_name.h"

#include <algorithm>
#include <fmt/format.h>
#include <fmt/xchar.h>
#include <memory>
#include <utility>

namespace aps {
namespace {

using protocol::JobRecord;
using protocol::JobState;
using protocol::PaperState;

std::wstring shortened(const std::wstring& text) {
  return text.substr(0, JobBook::kMaxText);
}

std::wstring utcNow() {
  return programs::utcText(std::chrono::system_clock::now());
}

template <class Message>
Message readMessage(std::span<const unsigned char> payload) {
  corvane::ValueReader values(payload);
  return protocol::read<Message>(values);
}

// Empty when the notice has no value of that name.
std::wstring textIn(const CS_Notice& notice, std::wstring_view wanted) {
  for (const auto& [name, value] : notice.values) {
    if (name == wanted) return shortened(value);
  }
  return {};
}

// 0 for what is none.
std::int64_t numberIn(const std::wstring& text) {
  std::int64_t number = 0;
  if (text.size() > 18) return 0;
  for (const wchar_t digit : text) {
    if (digit < L'0' || digit > L'9') return 0;
    number = number * 10 + (digit - L'0');
  }
  return number;
}

std::wstring describe(const JobRecord& job) {
  return fmt::format(L"job {} \"{}\" on \"{}\"", job.number, job.document, job.printer);
}

JobState stateOfPaper(PaperState paper) {
  switch (paper) {
    case PaperState::kWaiting:
    case PaperState::kPrinting:
    case PaperState::kStopped:
      return JobState::kPrinting;
    case PaperState::kCanceled:
      return JobState::kCanceled;
    case PaperState::kAborted:
      return JobState::kFailed;
    case PaperState::kPrinted:
      return JobState::kPrinted;
    default:
      return JobState::kDelivered;
  }
}

}  // namespace

JobBook::Entry& JobBook::beginLocked(const std::wstring& printer, int session, int process) {
  const int number = m_history.nextNumber();
  Entry& entry = m_jobs[number];
  entry.record.number = number;
  entry.record.server = m_settings.server;
  entry.record.printer = shortened(printer);
  entry.record.session = session;
  entry.record.process = process;
  entry.record.began = utcNow();
  return entry;
}

int JobBook::begin(const std::wstring& printer, int session, int process) {
  const std::lock_guard<std::mutex> guard(m_lock);
  return beginLocked(printer, session, process).record.number;
}

void JobBook::routed(int job, CS_RCPtr<CS_BridgeRouter> router) {
  const std::lock_guard<std::mutex> guard(m_lock);
  const auto found = m_jobs.find(job);
  if (found != m_jobs.end() && !found->second.hasEnded) found->second.router = std::move(router);
}

void JobBook::hold(int job) {
  const std::lock_guard<std::mutex> guard(m_lock);
  const auto found = m_jobs.find(job);
  if (found != m_jobs.end()) found->second.hold = Hold::kComing;
}

protocol::JobRecord JobBook::recordOf(const JobRecord& known) {
  {
    const std::lock_guard<std::mutex> guard(m_lock);
    if (const auto found = m_jobs.find(known.number); found != m_jobs.end()) return found->second.record;
  }
  protocol::Jobs query;
  query.job = known.number;
  query.most = 1;
  const auto kept = m_history.find(query).jobs;
  const bool isSame = !kept.empty() && kept[0].printer == known.printer && kept[0].began == known.began;
  return isSame ? kept[0] : known;
}

void JobBook::redeliver(const JobRecord& known) {
  JobRecord record = recordOf(known);
  const std::lock_guard<std::mutex> guard(m_lock);
  const auto earlier = m_jobs.find(known.number);
  const bool isNoticed = earlier != m_jobs.end() && earlier->second.isNoticed;
  if (earlier != m_jobs.end() && earlier->second.hasEnded) --m_ended;
  Entry& entry = m_jobs[known.number] = Entry();
  entry.record = std::move(record);
  entry.record.state = JobState::kRunning;
  entry.record.ended.clear();
  entry.record.cause.clear();
  entry.record.remedy.clear();
  entry.hold = Hold::kDelivery;
  entry.isNoticed = isNoticed;
  m_history.putIfPossible(entry.record);
}

void JobBook::tellHeld(const JobRecord& known, JobState state, const std::wstring& cause, const std::wstring& remedy) {
  JobRecord record = recordOf(known);
  const std::lock_guard<std::mutex> guard(m_lock);
  record.state = state;
  record.cause = shortened(cause);
  record.remedy = shortened(remedy);
  record.ended = protocol::isFinal(state) ? utcNow() : L"";
  m_history.put(record);  // first: without memory for it nothing has happened
  if (const auto found = m_jobs.find(known.number); found != m_jobs.end()) {
    Entry& entry = found->second;
    entry.record = std::move(record);
    entry.isSettled = protocol::isFinal(state);
    entry.isRefused = state == JobState::kFailed && !entry.hasEnded;
    if (entry.isRefused) entry.failure = FailureClass::kNotAttached;
    if (protocol::isFinal(state) && entry.hasEnded) countLocked(entry);
  } else if (protocol::isFinal(state)) {
    m_metrics.ended(record, FailureClass::kPrintClient);
  }
}

std::optional<JobRecord> JobBook::refusalOf(int job) {
  const std::lock_guard<std::mutex> guard(m_lock);
  const auto found = m_jobs.find(job);
  if (found == m_jobs.end() || !found->second.isRefused) return std::nullopt;
  return found->second.record;
}

void JobBook::stageEndsLocked(Entry& entry, protocol::JobStage stage) const {
  const auto present = Clock::now();
  const auto time = std::chrono::duration_cast<std::chrono::milliseconds>(present - entry.stageBegan).count();
  entry.record.milliseconds[stage] = static_cast<int>(std::min<long long>(time, 1000000000));
  entry.stageBegan = present;
}

void JobBook::startLocked(Entry& entry, const CS_BridgeRouter::Passing& passing) const {
  const auto start = readMessage<protocol::JobStart>(passing.payload);
  entry.record.spoolerJob = jobNumberOf(start.jobName);
  entry.record.copies = start.copies;
  entry.name = start.jobName;
  entry.clientsPrinter = start.printerName;
  if (m_settings.hasTitles) entry.record.document = shortened(start.documentName);
}

void JobBook::answeredLocked(Entry& entry, const CS_BridgeRouter::Passing& passing) const {
  const auto result = readMessage<protocol::JobEnd::Answer>(passing.payload).result;
  stageEndsLocked(entry, protocol::kTaking);
  if (entry.router) entry.record.bytes = static_cast<std::int64_t>(entry.router->bytesPassed());
  entry.isAnswered = true;
  const bool isTaken = static_cast<int>(result) > 0;
  if (entry.hold == Hold::kDelivery && !isTaken) return;  // who holds it says what that means
  if (entry.hold == Hold::kComing && isTaken) {
    entry.record.state = JobState::kHeld;
    return;
  }
  if (isTaken && !entry.hasPaper) entry.record.state = JobState::kDelivered;
  if (!isTaken && !entry.isRefused) {  // of one that was refused the record says more
    failLocked(entry, FailureClass::kPrintClient, protocol::textOf(result),
               L"See in the print client's output what it says about the job.");
  }
  entry.record.ended = utcNow();  // last, because what happened counts when there is no memory for when
}

void JobBook::passed(int job, const CS_BridgeRouter::Passing& passing) noexcept {
  bool isAnswer = false;
  try {
    const std::lock_guard<std::mutex> guard(m_lock);
    const auto found = m_jobs.find(job);
    if (found == m_jobs.end()) return;
    Entry& entry = found->second;
    const auto request = static_cast<protocol::PrintRequest>(passing.number);
    if (passing.isReply) {
      if (request != protocol::PrintRequest::kEnd) return;
      isAnswer = true;
      answeredLocked(entry, passing);
    } else if (request == protocol::PrintRequest::kStart) {
      startLocked(entry, passing);
    } else if (request == protocol::PrintRequest::kData) {
      stageEndsLocked(entry, protocol::kCollecting);
    } else if (request == protocol::PrintRequest::kEnd) {
      stageEndsLocked(entry, protocol::kSending);
      return;
    }
    m_history.putIfPossible(entry.record);
  } catch (const CS_Exception&) {
    // Of another version of the port monitor or the print client; what it means is theirs.
  } catch (const std::exception&) {
    // Without memory the record is shorter.
  }
  // Who has the answer may count on the record, even if this process is killed now.
  if (isAnswer) m_history.awaitWritten(job);
}

void JobBook::failLocked(Entry& entry, FailureClass failure, const std::wstring& cause,
                         const std::wstring& remedy) const {
  if (entry.failure == FailureClass::kNone) entry.failure = failure;
  entry.record.state = JobState::kFailed;
  entry.record.cause = shortened(cause);
  entry.record.remedy = shortened(remedy);
}

void JobBook::endLocked(Entry& entry) {
  entry.hasEnded = true;
  if (entry.record.ended.empty()) entry.record.ended = utcNow();
  ++m_ended;
}

void JobBook::countLocked(Entry& entry) {
  if (std::exchange(entry.isCounted, true)) return;
  m_metrics.ended(entry.record, entry.failure);
  countPaperLocked(entry);
}

// As soon as both are known: that it has ended, and what became of its paper.
void JobBook::countPaperLocked(Entry& entry) {
  const JobState state = entry.record.state;
  const bool isKnown = state == JobState::kPrinted || state == JobState::kCanceled || state == JobState::kFailed;
  if (!entry.hasEnded || !entry.hasPaper || entry.isRefused || !isKnown || entry.isPaperCounted) return;
  entry.isPaperCounted = true;
  m_metrics.paperEnded(entry.record);
}

std::size_t JobBook::runningCount() {
  const std::lock_guard<std::mutex> guard(m_lock);
  return m_jobs.size() - m_ended;
}

// What the end of its bridge makes of a job.
void JobBook::decideLocked(Entry& entry, const CS_BridgeRouter::Ending& ending, bool isShown) const {
  if (entry.hold == Hold::kDelivery && entry.canceledBy.empty()) {
    // Who holds it says what comes of it, unless the person wants it no more.
    const bool isOpen = entry.isRefused ? entry.record.state != JobState::kCanceled
                                        : !protocol::isFinal(entry.record.state) && !entry.hasPaper;
    if (isOpen) entry.record.state = JobState::kHeld;
  } else if (entry.isRefused) {
    // Its record says why.
  } else if (!entry.isAnswered && isShown) {
    entry.record.state = JobState::kShown;
  } else if (!entry.isAnswered && !entry.canceledBy.empty()) {
    entry.record.state = JobState::kCanceled;
    entry.record.cause = fmt::format(L"It was canceled by {}.", entry.canceledBy);
  } else if (!entry.isAnswered && !entry.isNoticed) {
    const std::wstring why = ending.reason.empty() ? L"" : fmt::format(L" ({})", ending.reason);
    failLocked(entry, ending.madeHere ? FailureClass::kPortMonitor : FailureClass::kPrintClient,
               fmt::format(L"{} before the job's end{}.",
                           ending.madeHere ? L"The port monitor left" : L"The session's print client left", why),
               ending.madeHere ? L"The port monitor's log says what failed there; print again."
                               : L"Start the print client, and print again.");
  }
}

bool JobBook::ended(int job, const CS_BridgeRouter::Ending& ending, bool isShown) noexcept try {
  CS_RCPtr<CS_BridgeRouter> router;  // given back without the lock
  const std::lock_guard<std::mutex> guard(m_lock);
  const auto found = m_jobs.find(job);
  if (found == m_jobs.end() || found->second.hasEnded) return false;
  Entry& entry = found->second;
  std::swap(router, entry.router);
  endLocked(entry);
  entry.record.bytes = static_cast<std::int64_t>(ending.bytes);
  try {
    decideLocked(entry, ending, isShown);
  } catch (const std::bad_alloc&) {
    if (entry.record.state == JobState::kRunning) entry.record.state = JobState::kFailed;
  }
  if (entry.isRefused && entry.hold == Hold::kNone) entry.failure = FailureClass::kPrintClient;
  if (entry.record.state == JobState::kHeld) {
    entry.record.ended.clear();
  } else {
    countLocked(entry);
  }
  m_history.putIfPossible(entry.record);
  const bool isCanceled = entry.record.state == JobState::kCanceled;
  forgetLocked();
  return isCanceled;
} catch (const std::exception&) {
  return false;  // without memory the record is shorter
}

void JobBook::refused(int job, std::wstring_view cause) noexcept try {
  const std::lock_guard<std::mutex> guard(m_lock);
  const auto found = m_jobs.find(job);
  if (found == m_jobs.end() || found->second.hasEnded) return;
  found->second.record.state = JobState::kFailed;
  endLocked(found->second);
  failLocked(found->second, FailureClass::kNotAttached, std::wstring(cause), L"");
  countLocked(found->second);
  m_history.putIfPossible(found->second.record);
  forgetLocked();
} catch (const std::exception&) {
  // without memory the record is shorter
}

template <class Matches>
std::map<int, JobBook::Entry>::iterator JobBook::latestLocked(const std::wstring& printer, const Matches& matches) {
  const std::wstring folded = foldedName(shortened(printer));
  for (auto at = m_jobs.end(); at != m_jobs.begin();) {
    --at;
    if (foldedName(at->second.record.printer) == folded && matches(at->second)) return at;
  }
  return m_jobs.end();
}

JobBook::Entry* JobBook::unnoticedLocked(const std::wstring& printer, int process, const std::wstring& number) {
  const auto isOf = [&](const Entry& entry, const std::wstring& spoolerJob) {
    return !entry.isNoticed && entry.record.process == process && entry.record.spoolerJob == spoolerJob;
  };
  auto found = latestLocked(printer, [&](const Entry& entry) { return isOf(entry, number); });
  // One that has not come as far as to tell its number.
  if (found == m_jobs.end()) found = latestLocked(printer, [&](const Entry& entry) { return isOf(entry, L""); });
  return found == m_jobs.end() ? nullptr : &found->second;
}

// Of a job that an earlier process of this server has known, and whose notice that did not hear: it has no user.
std::optional<JobRecord> JobBook::ofEarlierServer(const std::wstring& printer, int process, int session,
                                                  const std::wstring& number) {
  protocol::Jobs latest;
  latest.session = session;
  latest.most = 100;
  const std::wstring folded = foldedName(shortened(printer));
  for (JobRecord& job : m_history.find(latest).jobs) {
    const bool isIt = job.process == process && job.spoolerJob == number && foldedName(job.printer) == folded;
    if (isIt && job.user.empty() && !job.ended.empty()) return std::move(job);
  }
  return std::nullopt;
}

JobBook::Entry& JobBook::addEndedLocked(const std::optional<JobRecord>& earlier, const std::wstring& printer,
                                        int session, int process, const std::wstring& result) {
  if (!earlier) {
    Entry& entry = beginLocked(printer, session, process);
    endLocked(entry);
    entry.record.state = result == L"delivered" ? JobState::kDelivered
                         : result == L"shown"   ? JobState::kShown
                                                : JobState::kFailed;
    entry.failure = FailureClass::kPortMonitor;
    return entry;
  }
  Entry& entry = m_jobs[earlier->number];
  entry.record = *earlier;
  endLocked(entry);
  entry.isCounted = true;  // it has not ended here
  if (result == L"delivered" && entry.record.state == JobState::kFailed) {
    entry.record.state = JobState::kDelivered;
    entry.record.cause.clear();
    entry.record.remedy.clear();
  }
  return entry;
}

void JobBook::noticed(const CS_Notice& notice) {
  if (notice.kind != protocol::kJobNotice) return;
  const std::wstring printer = textIn(notice, L"printer"), number = textIn(notice, L"job");
  const int process = static_cast<int>(numberIn(textIn(notice, L"process")));
  const int session = static_cast<int>(numberIn(textIn(notice, L"session")));
  const std::wstring result = textIn(notice, L"result");
  std::unique_lock<std::mutex> guard(m_lock);
  Entry* known = unnoticedLocked(printer, process, number);
  if (known == nullptr) {
    guard.unlock();  // the history may be on a disk
    const std::optional<JobRecord> earlier = ofEarlierServer(printer, process, session, number);
    guard.lock();
    const bool isHere = earlier && m_jobs.count(earlier->number) != 0;
    known = &addEndedLocked(isHere ? std::nullopt : earlier, printer, session, process, result);
    if (known->record.bytes == 0) known->record.bytes = numberIn(textIn(notice, L"bytes"));
    countLocked(*known);
  }
  Entry& entry = *known;
  entry.isNoticed = true;
  entry.record.spoolerJob = number;
  entry.record.user = textIn(notice, L"user");
  entry.record.pages = static_cast<int>(std::min<std::int64_t>(numberIn(textIn(notice, L"pages")), 1000000000));
  if (m_settings.hasTitles) entry.record.document = textIn(notice, L"document");
  const bool isKnown = entry.isRefused || (entry.hold != Hold::kNone && entry.isAnswered);
  if (result == L"failed" && entry.canceledBy.empty() && !isKnown) {
    failLocked(entry, FailureClass::kPortMonitor, textIn(notice, L"cause"), textIn(notice, L"remedy"));
  }
  m_history.putIfPossible(entry.record);
  forgetLocked();
}

void JobBook::paperNews(const protocol::PaperNews& news, int session, const std::wstring& printer) {
  const std::wstring number = jobNumberOf(news.job);
  const std::lock_guard<std::mutex> guard(m_lock);
  // The spooler may give a number again while a job of that number is held, or was when it was canceled.
  const auto found = latestLocked(printer, [&](const Entry& entry) {
    const bool isWithClient = entry.hold != Hold::kComing && entry.record.state != JobState::kHeld && !entry.isSettled;
    return isWithClient && entry.record.session == session && entry.record.spoolerJob == number;
  });
  if (found == m_jobs.end()) return;
  Entry& entry = found->second;
  entry.hasPaper = true;
  ++entry.news;
  const bool isAnswered = !entry.record.ended.empty();
  entry.isRefused = !isAnswered && (news.state == PaperState::kAborted || news.state == PaperState::kCanceled);
  entry.record.state = stateOfPaper(news.state);
  entry.record.cause = shortened(news.cause);
  entry.record.remedy = shortened(news.remedy);
  if (news.state == PaperState::kCanceled && !entry.canceledBy.empty()) {
    entry.record.cause = fmt::format(L"It was canceled by {}.", entry.canceledBy);
  }
  if (!entry.isRefused && protocol::isFinal(news.state) && news.state != PaperState::kHandedOn) {
    const auto began = entry.stageBegan;
    stageEndsLocked(entry, protocol::kPaper);
    entry.stageBegan = began;  // news may be corrected by later news
  }
  countPaperLocked(entry);
  m_history.putIfPossible(entry.record);
  m_changed.notify_all();
}

std::optional<JobBook::AtPrinter> JobBook::findAtPrinter(int job) {
  const std::lock_guard<std::mutex> guard(m_lock);
  const auto found = m_jobs.find(job);
  if (found == m_jobs.end()) return std::nullopt;
  const Entry& entry = found->second;
  if (entry.record.state != JobState::kPrinting || entry.record.ended.empty()) return std::nullopt;
  return AtPrinter{
      describe(entry.record), entry.record.printer, entry.clientsPrinter, entry.name, entry.record.session, entry.news};
}

void JobBook::cancelsAtPrinter(int job, const std::wstring& by) {
  const std::lock_guard<std::mutex> guard(m_lock);
  const auto found = m_jobs.find(job);
  if (found != m_jobs.end()) found->second.canceledBy = shortened(by);
}

std::optional<JobRecord> JobBook::awaitPaper(int job, int news, std::chrono::milliseconds time) {
  std::unique_lock<std::mutex> guard(m_lock);
  m_changed.wait_for(guard, time, [&] {
    const auto found = m_jobs.find(job);
    if (found == m_jobs.end() || isFinal(found->second.record.state)) return true;
    return found->second.news > news && !found->second.record.cause.empty();
  });
  const auto found = m_jobs.find(job);
  if (found == m_jobs.end()) return std::nullopt;
  return found->second.record;
}

std::map<int, JobBook::Entry>::iterator JobBook::oldestLocked(bool isAtPrinter) {
  return std::find_if(m_jobs.begin(), m_jobs.end(), [isAtPrinter](const auto& job) {
    return job.second.hasEnded && (job.second.record.state == JobState::kPrinting) == isAtPrinter;
  });
}

// What is dropped stays in the history as it is.
void JobBook::forgetLocked() {
  while (m_ended > kMostEnded) {
    auto oldest = oldestLocked(false);
    if (oldest == m_jobs.end()) {
      if (m_ended <= kMostAtPrinters) return;
      oldest = oldestLocked(true);
      oldest->second.record.state = JobState::kDelivered;
      m_history.putIfPossible(oldest->second.record);
    }
    m_jobs.erase(oldest);
    --m_ended;
  }
}

protocol::Jobs::Answer JobBook::find(const protocol::Jobs& wanted) {
  protocol::Jobs::Answer answer = m_history.find(wanted);
  const std::lock_guard<std::mutex> guard(m_lock);
  for (JobRecord& job : answer.jobs) {
    const auto found = m_jobs.find(job.number);
    if (found == m_jobs.end()) continue;
    // The history loses what it has no memory for.
    if (found->second.hasEnded && job.state == JobState::kRunning) job = found->second.record;
    if (found->second.router) job.bytes = static_cast<std::int64_t>(found->second.router->bytesPassed());
  }
  return answer;
}

protocol::CancelJob::Answer JobBook::cancel(const protocol::CancelJob& wanted) {
  CS_RCPtr<CS_BridgeRouter> router;
  std::wstring what;
  {
    const std::lock_guard<std::mutex> guard(m_lock);
    const auto found = m_jobs.find(wanted.job);
    if (found == m_jobs.end()) return {false, fmt::format(L"no job {} is running", wanted.job)};
    Entry& entry = found->second;
    what = describe(entry.record);
    if (!entry.router || !entry.record.ended.empty()) {
      const bool isAtPrinter = entry.record.state == JobState::kPrinting;
      return {false, fmt::format(L"{} {}", what,
                                 isAtPrinter ? L"is at its printer already; the person whose it is can cancel it there"
                                             : L"has ended")};
    }
    entry.canceledBy = shortened(wanted.by);
    router = entry.router;
  }
  const bool isCut = router->cut(fmt::format(L"canceled by {}", shortened(wanted.by)));
  return {isCut, isCut ? fmt::format(L"{} is canceled", what) : fmt::format(L"{} has ended", what)};
}

}  // namespace aps
