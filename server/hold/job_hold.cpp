#include "server/hold/job_hold.h"

#include "corvane/base/text.h"
#include "corvane/components/bridge.h"
#include "corvane/components/component_server.h"
#include "corvane/trust/key.h"
#include "programs/text.h"
#include "protocol/names.h"
#include "server/hold/served_end.h"
#include "server/if_possible.h"
#include "server/paper_notice.h"

#include <algorithm>
#include <array>
#include <fmt/format.h>
#include <fmt/xchar.h>
#include <system_error>

namespace aps {
namespace {

using protocol::JobState;
using End = HeldDelivery::End;

std::wstring newId() {
  std::array<unsigned char, protocol::HeldJob::kIdDigits / 2> bytes;
  corvane::fillWithRandom(bytes);
  return corvane::fromUtf8(fmt::format("{:02x}", fmt::join(bytes, "")));
}

// For a line of the log.
std::string placeOf(const HeldJob& job) {
  return fmt::format("job {}, printer {}, session {}", job.number, programs::quoted(job.printer), job.session);
}

std::wstring sentence(const std::string& text) {
  if (text.empty()) return {};
  std::wstring wide = corvane::fromUtf8(text);
  if (wide[0] >= L'a' && wide[0] <= L'z') wide[0] = static_cast<wchar_t>(wide[0] - L'a' + L'A');
  return wide.back() == L'.' ? wide : wide + L'.';
}

}  // namespace

class JobHold::Line {
 public:
  explicit Line(std::pair<CS_RCPtr<CS_Connection>, CS_RCPtr<CS_Connection>> ends)
      : m_near(std::move(ends.first)), m_far(std::move(ends.second)) {}

  const CS_RCPtr<CS_Connection>& toIt() const { return m_near.connection(); }
  bool isFarEnd(const CS_Connection* connection) const { return connection == m_far.connection().get(); }
  bool isUp() const { return m_near.connection()->isConnected() && m_far.connection()->isConnected(); }

 private:
  const ServedEnd m_near, m_far;
};

JobHold::JobHold(Settings settings, Context context)
    : m_settings(std::move(settings)),
      m_context(context),
      m_store(m_settings.folder, m_settings.limits, m_context.log) {
  tellAll();
  m_caretaker = std::thread([this] { care(); });
}

void JobHold::tellAll() {
  const auto held = m_store.all();
  for (const auto& known : held)
    m_context.book.tellHeld(recordOf(known.job), JobState::kHeld);
  m_context.log.line(fmt::format("jobs for print clients that are away are held in {}: {} for {} sessions now",
                                 programs::fromPath(m_settings.folder), held.size(), m_store.owners().size()));
}

std::set<int> JobHold::held() const {
  std::set<int> numbers;
  for (const auto& known : m_store.all())
    numbers.insert(known.job.number);
  return numbers;
}

std::wstring JobHold::titleOf(const HeldJob& job) const {
  return m_settings.hasTitles ? job.start.documentName : std::wstring();
}

protocol::JobRecord JobHold::recordOf(const HeldJob& job) const {
  protocol::JobRecord record;
  record.number = job.number;
  record.server = m_context.book.server();
  record.session = job.session;
  record.printer = job.printer;
  record.document = titleOf(job);
  record.spoolerJob = jobNumberOf(job.start.jobName);
  record.process = job.process;
  record.copies = job.start.copies;
  record.bytes = job.bytes;
  record.began = job.began;
  return record;
}

void JobHold::tell(const HeldJob& job, JobState state, const std::string& cause, const std::string& remedy) try {
  const std::wstring number = jobNumberOf(job.start.jobName), document = titleOf(job).substr(0, kMaxPaperText);
  const std::wstring why = sentence(cause), what = sentence(remedy);
  const wchar_t* phrase = state == JobState::kHeld        ? L"is held until its print client is back"
                          : state == JobState::kDelivered ? L"was held, and has been delivered"
                          : state == JobState::kCanceled  ? L"was held, and is canceled"
                                                          : L"was held, and is not printed";
  CS_Notice notice;
  notice.kind = protocol::kHeldNotice;
  notice.line =
      fmt::format(L"Job {} \"{}\" on \"{}\" (session {}) {}{}{}{}{}", number.empty() ? L"?" : number, document,
                  job.printer, job.session, phrase, why.empty() ? L"." : L": ", why, what.empty() ? L"" : L" ", what);
  notice.values = {{L"job", number},
                   {L"printer", job.printer},
                   {L"document", document},
                   {L"session", std::to_wstring(job.session)},
                   {L"state", protocol::wordOf(state)}};
  if (!why.empty()) notice.values.emplace_back(L"cause", why);
  if (!what.empty()) notice.values.emplace_back(L"remedy", what);
  m_context.notices.addOfClient(job.session, std::move(notice));
} catch (const std::bad_alloc&) {
  // Its record says the same.
}

// How a job comes to be held

bool JobHold::wants(const SessionTable::Found& found) const {
  if (found.key == corvane::Bytes32{}) return false;
  const Owner owner{found.session, corvane::toHex(found.key)};
  if (found.client && !m_store.isInLine(owner)) return false;
  return m_context.keys.isStill(corvane::Identity::session(found.session), found.key);
}

std::shared_ptr<JobHold::Line> JobHold::line() try {
  std::shared_ptr<Line> old;  // given back without the lock
  const std::lock_guard<std::mutex> guard(m_lock);
  if (m_isStopping) throw HoldRefusal("aps is about to end", "print again when it is back");
  if (!m_line || !m_line->isUp()) {
    old = std::move(m_line);
    m_line = std::make_shared<Line>(CS_Connection::makePair());
  }
  return m_line;
} catch (const std::system_error& failure) {
  throw HoldRefusal(fmt::format("there is no thread to hold it: {}", failure.what()),
                    "end some programs of the server, and print again");
}

class JobHold::HeldPlace : public StandIn::Place {
 public:
  HeldPlace(JobHold& hold, std::unique_ptr<HoldStore::Coming> job) : m_hold(hold), m_job(std::move(job)) {}
  void expect(std::uint32_t bridge) override {
    const std::lock_guard<std::mutex> guard(m_hold.m_lock);
    m_hold.m_expected[bridge] = std::move(m_job);
  }

 private:
  JobHold& m_hold;
  std::unique_ptr<HoldStore::Coming> m_job;
};

std::unique_ptr<StandIn::Place> JobHold::prepare(int number, const SessionTable::Found& found,
                                                 const std::wstring& printer, int process) try {
  HeldJob job;
  job.id = newId();
  job.number = number;
  job.session = found.session;
  job.key = corvane::toHex(found.key);
  job.printer = printer;
  job.process = process;
  job.began = programs::utcText(std::chrono::system_clock::now());
  const auto connection = line()->toIt();
  auto place = std::make_unique<HeldPlace>(*this, m_store.begin(std::move(job)));
  place->connection = connection;
  CS_ComponentServer::getServer()->copyRegisteredClassVersionMap(place->versions);
  return place;
} catch (const std::bad_alloc&) {
  throw HoldRefusal("there is no memory to hold it", "end some programs of the server, and print again");
}

std::unique_ptr<HoldStore::Coming> JobHold::expected(const CS_Connection* connection, std::uint32_t bridge) {
  const std::lock_guard<std::mutex> guard(m_lock);
  if (!m_line || !m_line->isFarEnd(connection)) return nullptr;
  const auto found = m_expected.find(bridge);
  if (found == m_expected.end()) return nullptr;
  auto job = std::move(found->second);
  m_expected.erase(found);
  return job;
}

void JobHold::refused(const HeldJob& job, const HoldRefusal& refusal) {
  m_context.book.tellHeld(recordOf(job), JobState::kFailed, sentence(refusal.what()), sentence(refusal.remedy()));
  m_context.log.failure(fmt::format("job not held: {}: {}; {}", placeOf(job), refusal.what(), refusal.remedy()));
}

bool JobHold::ended(int number, std::uint32_t bridge, bool isAnswered) {
  std::unique_ptr<HoldStore::Coming> unused;
  {
    const std::lock_guard<std::mutex> guard(m_lock);
    if (const auto found = m_expected.find(bridge); found != m_expected.end()) {
      unused = std::move(found->second);
      m_expected.erase(found);
    }
  }
  if (!isAnswered) {
    m_store.remove(number);  // who brought it was told nothing
    return false;
  }
  std::optional<HoldStore::Known> known;
  ifPossible([&] { known = m_store.find(number); });
  if (!m_store.settle(number)) return false;
  ifPossible([&] {
    if (!known) return;  // the caretaker finds it
    m_context.log.line(fmt::format("job held: {}: {} bytes; it goes to the print client when that is back",
                                   placeOf(known->job), known->job.bytes));
    tell(known->job, JobState::kHeld);
    wake({known->job.session, known->job.key});
  });
  return true;
}

// How it is delivered

void JobHold::clientCame(int session) noexcept try {
  const CS_RCPtr<CS_Connection> client = m_context.sessions.clientOf(session);
  if (!client) return;
  const Owner owner{session, corvane::toHex(client->peerKeyMark())};
  m_store.retry(owner);
  wake(owner);
} catch (const std::exception&) {
  m_hasMissedOne = true;  // without memory; the caretaker sees to it
}

void JobHold::wake(const Owner& owner) {
  const std::lock_guard<std::mutex> guard(m_lock);
  if (m_isStopping) return;
  m_ready.insert(owner);
  startWorkersLocked();
}

void JobHold::startWorkersLocked() {
  for (auto at = m_workers.begin(); at != m_workers.end();) {
    const auto next = std::next(at);
    if (at->isDone) {
      at->thread.join();  // it does nothing more
      m_workers.erase(at);
    }
    at = next;
  }
  const auto idle =
      std::count_if(m_ready.begin(), m_ready.end(), [this](const Owner& owner) { return m_busy.count(owner) == 0; });
  for (auto left = idle; left > 0 && m_workers.size() < kMostDeliveries; --left) {
    if (!startWorkerLocked()) return;  // the caretaker tries again
  }
}

bool JobHold::startWorkerLocked() noexcept {
  const std::size_t before = m_workers.size();
  try {
    Worker& worker = m_workers.emplace_back();
    worker.thread = std::thread([this, &worker] { work(worker); });
    return true;
  } catch (const std::exception& failure) {
    if (m_workers.size() > before) m_workers.pop_back();
    ifPossible([&] {
      m_context.log.refusal(
          "threads for held jobs",
          fmt::format("held jobs wait for a thread: {}; end some programs of the server", failure.what()));
    });
    return false;
  }
}

// Takes no memory: the element moves from one set to the other.
std::set<JobHold::Owner>::iterator JobHold::nextLocked() noexcept {
  const auto next =
      std::find_if(m_ready.begin(), m_ready.end(), [this](const Owner& owner) { return m_busy.count(owner) == 0; });
  if (m_isStopping || next == m_ready.end()) return m_busy.end();
  return m_busy.insert(m_ready.extract(next)).position;
}

void JobHold::work(Worker& worker) noexcept {
  std::unique_lock<std::mutex> lock(m_lock);
  for (auto owner = nextLocked(); owner != m_busy.end(); owner = nextLocked()) {
    lock.unlock();
    deliverAll(*owner);
    lock.lock();
    m_busy.erase(owner);
  }
  worker.isDone = true;
}

void JobHold::deliverAll(const Owner& owner) noexcept try {
  while (deliverNext(owner)) {
    const std::lock_guard<std::mutex> guard(m_lock);
    if (m_isStopping) return;
  }
} catch (const std::exception& failure) {
  // The caretaker wakes who goes on.
  ifPossible(
      [&] { m_context.log.failure(fmt::format("held jobs of session {} wait: {}", owner.first, failure.what())); });
}

bool JobHold::deliverNext(const Owner& owner) {
  const CS_RCPtr<CS_Connection> client = m_context.sessions.clientOf(owner.first);
  if (!client || corvane::toHex(client->peerKeyMark()) != owner.second) return false;
  const auto job = m_store.take(owner);
  if (!job) return false;
  try {
    HeldDelivery delivery({m_context.log, m_context.sessions, m_context.clientNews, m_context.book, m_store}, *job,
                          recordOf(*job));
    return finish(*job, delivery.run());
  } catch (...) {
    m_store.putBack(job->number);
    throw;
  }
}

bool JobHold::finish(const HeldJob& job, const HeldDelivery::Outcome& outcome) {
  switch (outcome.end) {
    case End::kDelivered:
    case End::kAlreadyThere:
      if (outcome.end == End::kAlreadyThere) m_context.book.tellHeld(recordOf(job), JobState::kDelivered);
      m_context.book.awaitWritten(job.number);
      m_store.remove(job.number);
      tellEnd(job, JobState::kDelivered, fmt::format("held job delivered: {}: {} bytes", placeOf(job), job.bytes));
      return true;
    case End::kCanceled:
      m_store.remove(job.number);
      tellEnd(job, JobState::kCanceled, fmt::format("held job canceled: {}", placeOf(job)));
      return true;
    case End::kFailed:
      end(job, JobState::kFailed, outcome.cause, outcome.remedy);
      return true;
    case End::kDamaged: {
      const std::string file = programs::fromPath(m_store.setDamagedAside(job.number));
      end(job, JobState::kFailed,
          fmt::format("the file of the held job is damaged: {}; it is set aside as {}", outcome.cause, file),
          outcome.remedy);
      return true;
    }
    case End::kAside:
      setAside(job, outcome);
      return true;
    case End::kBusy:
      m_store.putBack(job.number);
      m_context.log.refusal("held jobs that are tried again",
                            fmt::format("held job waits: {}: {}; it is tried again soon", placeOf(job), outcome.cause));
      return false;
    case End::kAway:
      m_store.putBack(job.number);
      return false;
  }
  return false;
}

void JobHold::tellEnd(const HeldJob& job, JobState state, const std::string& line) {
  m_context.log.line(line);
  tell(job, state);
}

void JobHold::setAside(const HeldJob& job, const HeldDelivery::Outcome& outcome) {
  m_store.setAside(job.number, outcome.cause, outcome.remedy);
  m_context.book.tellHeld(recordOf(job), JobState::kHeld, sentence(outcome.cause), sentence(outcome.remedy));
  m_context.log.failure(fmt::format("held job waits: {}: {}; {}", placeOf(job), outcome.cause, outcome.remedy));
  tell(job, JobState::kHeld, outcome.cause, outcome.remedy);
}

void JobHold::end(const HeldJob& job, JobState state, const std::string& cause, const std::string& remedy) {
  m_context.book.tellHeld(recordOf(job), state, sentence(cause), sentence(remedy));
  m_context.book.awaitWritten(job.number);
  m_store.remove(job.number);
  ifPossible([&] {
    m_context.log.failure(fmt::format("held job not printed: {}: {}; {}", placeOf(job), cause, remedy));
    tell(job, state, cause, remedy);
  });
}

std::optional<protocol::CancelJob::Answer> JobHold::cancel(const protocol::CancelJob& wanted) {
  const auto known = m_store.find(wanted.job);
  if (!known || !m_store.claim(wanted.job)) return std::nullopt;
  try {
    const std::string cause = fmt::format("it was canceled by {}", programs::oneLine(wanted.by));
    protocol::CancelJob::Answer answer{true, fmt::format(L"job {} \"{}\" on \"{}\", which was held, is canceled",
                                                         wanted.job, titleOf(known->job), known->job.printer)};
    m_context.book.tellHeld(recordOf(known->job), JobState::kCanceled, sentence(cause), L"");
    m_store.remove(wanted.job);
    ifPossible([&] {
      m_context.log.line(fmt::format("held job canceled: {}: {}", placeOf(known->job), cause));
      tell(known->job, JobState::kCanceled, cause);
    });
    return answer;
  } catch (...) {
    m_store.putBack(wanted.job);
    throw;
  }
}

// The caretaker

void JobHold::care() noexcept {
  std::unique_lock<std::mutex> lock(m_lock);
  while (!m_changed.wait_for(lock, m_settings.carePause, [this] { return m_isStopping; })) {
    lock.unlock();
    ifPossible([this] {  // and otherwise the next time
      m_store.removeLeft();
      endExpired();
      wakeAll();
    });
    lock.lock();
    startWorkersLocked();  // and joins those that are done
  }
}

void JobHold::wakeAll() {
  const bool isRetry = m_hasMissedOne.exchange(false);
  try {
    for (const Owner& owner : m_store.owners()) {
      const CS_RCPtr<CS_Connection> client = m_context.sessions.clientOf(owner.first);
      if (!client || corvane::toHex(client->peerKeyMark()) != owner.second) continue;
      if (isRetry) m_store.retry(owner);
      wake(owner);
    }
  } catch (...) {
    if (isRetry) m_hasMissedOne = true;
    throw;
  }
}

void JobHold::endExpired() {
  for (const HeldJob& job : m_store.expired(std::chrono::system_clock::now())) {
    if (!m_store.claim(job.number)) continue;  // its print client has just come
    const int days = m_settings.limits.days;
    try {
      end(job, JobState::kFailed,
          fmt::format("its print client has not come for it within {} {} (--hold-days)", days,
                      days == 1 ? "day" : "days"),
          "print again when it is there");
    } catch (...) {
      m_store.putBack(job.number);
      throw;
    }
  }
}

void JobHold::endAll() noexcept {
  std::shared_ptr<Line> line;
  std::map<std::uint32_t, std::unique_ptr<HoldStore::Coming>> expected;
  {
    const std::lock_guard<std::mutex> guard(m_lock);
    m_isStopping = true;
    m_changed.notify_all();
  }
  if (m_caretaker.joinable()) m_caretaker.join();
  {
    const std::lock_guard<std::mutex> guard(m_lock);
    line = std::move(m_line);
    expected.swap(m_expected);
  }
  // No worker begins any more, and the list stays as it is.
  for (Worker& worker : m_workers)
    worker.thread.join();
  m_workers.clear();
  expected.clear();
  line.reset();
  CS_Bridge::waitForThreads(10000);
}

}  // namespace aps
