#include "server/jobs/job_history.h"

#include "corvane/base/text.h"
#include "programs/text.h"

#include <algorithm>
#include <fmt/format.h>
#include <system_error>

namespace aps {
namespace {

using protocol::JobRecord;
using std::chrono::seconds;
using std::chrono::system_clock;

constexpr seconds kBetweenTries{5};    // while the file takes nothing
constexpr int kBetweenPrunings = 500;  // records, in a file
constexpr int kBetweenPruningsInMemory = 50;
constexpr int kLongestTry = 1000;  // milliseconds, for a file that another program has locked

constexpr char kSchema[] =
    "PRAGMA journal_mode=WAL; PRAGMA synchronous=NORMAL; "
    "CREATE TABLE IF NOT EXISTS jobs("
    "number INTEGER PRIMARY KEY, state TEXT NOT NULL, server TEXT NOT NULL, user TEXT NOT NULL,"
    "session INTEGER NOT NULL, printer TEXT NOT NULL, document TEXT NOT NULL, spooler_job TEXT NOT NULL,"
    "process INTEGER NOT NULL, copies INTEGER NOT NULL, bytes INTEGER NOT NULL, began TEXT NOT NULL,"
    "ended TEXT NOT NULL, collecting_ms INTEGER NOT NULL, sending_ms INTEGER NOT NULL, taking_ms INTEGER NOT NULL,"
    "paper_ms INTEGER NOT NULL, cause TEXT NOT NULL, remedy TEXT NOT NULL);"
    "CREATE INDEX IF NOT EXISTS jobs_by_time ON jobs(began);";

constexpr char kColumns[] =
    "number, state, server, user, session, printer, document, spooler_job, process, copies, bytes, began, ended, "
    "collecting_ms, sending_ms, taking_ms, paper_ms, cause, remedy";
constexpr int kColumnCount = 19;

void bindAll(Statement& statement, const JobRecord& job) {
  int at = 0;
  const auto put = [&](const auto& value) { statement.bind(++at, value); };
  const auto number = [&](std::int64_t value) { statement.bind(++at, value); };
  number(job.number);
  put(std::wstring(protocol::wordOf(job.state)));
  put(job.server);
  put(job.user);
  number(job.session);
  put(job.printer);
  put(job.document);
  put(job.spoolerJob);
  number(job.process);
  number(job.copies);
  number(job.bytes);
  put(job.began);
  put(job.ended);
  for (const int time : job.milliseconds)
    number(time);
  put(job.cause);
  put(job.remedy);
}

JobRecord recordOf(const Statement& row) {
  int at = 0;
  const auto text = [&] { return row.text(at++); };
  const auto number = [&] { return row.number(at++); };
  JobRecord job;
  job.number = static_cast<int>(number());
  job.state = protocol::jobStateOf(text());
  job.server = text();
  job.user = text();
  job.session = static_cast<int>(number());
  job.printer = text();
  job.document = text();
  job.spoolerJob = text();
  job.process = static_cast<int>(number());
  job.copies = static_cast<int>(number());
  job.bytes = number();
  job.began = text();
  job.ended = text();
  for (int& time : job.milliseconds)
    time = static_cast<int>(number());
  job.cause = text();
  job.remedy = text();
  return job;
}

std::string questionMarks() {
  std::string marks = "?";
  for (int i = 1; i < kColumnCount; ++i)
    marks += ",?";
  return marks;
}

// Far above the numbers of a file that cannot be read, and rising with time.
int numberWithoutFile() {
  constexpr long long kEarlier = 1700000000;  // 2023
  const auto now = std::chrono::duration_cast<seconds>(system_clock::now().time_since_epoch()).count();
  return static_cast<int>(std::clamp(now - kEarlier, 0LL, 2000000000LL));
}

}  // namespace

JobHistory::JobHistory(std::filesystem::path path, const Limits& limits, Log& log)
    : m_path(std::move(path)), m_limits(limits), m_log(log) {
  if (m_path.empty()) m_limits.jobs = std::min(m_limits.jobs, kMostInMemory);
  try {
    open();
  } catch (const DatabaseFailure& failure) {
    m_latest = numberWithoutFile();
    tellTrouble(failure.what());
  }
}

JobHistory::~JobHistory() {
  finish();
}

void JobHistory::finish() noexcept {
  {
    const std::lock_guard<std::mutex> guard(m_lock);
    m_isStopping = true;
  }
  m_changed.notify_all();
  // Nobody starts another one: what comes now waits for ever.
  if (m_writer.joinable()) m_writer.join();
}

std::string JobHistory::name() const {
  return m_path.empty() ? "in memory" : programs::fromPath(m_path);
}

// With the database's lock, or before there is another thread.
void JobHistory::open() {
  try {
    openDatabase();
  } catch (const DatabaseFailure& failure) {
    m_database.reset();
    if (!failure.isDamaged()) throw;
    setAside();
    openDatabase();
  }
}

void JobHistory::openDatabase() {
  m_database = std::make_unique<Database>(m_path);
  m_database->run(fmt::format("PRAGMA busy_timeout={};", kLongestTry).c_str());
  m_database->run(kSchema);
  const auto latest = static_cast<int>(m_database->number("SELECT max(number) FROM jobs"));
  Statement left(*m_database,
                 "UPDATE jobs SET state = 'failed', ended = began, cause = ?, remedy = ? "
                 "WHERE state = 'running'");
  left.bind(1, std::wstring(L"The application server ended while the job was running."));
  left.bind(2, std::wstring(L"See whether the page is there, and print again if it is not."));
  left.step();
  // Who holds them says so again (JobBook::tellHeld).
  Statement held(*m_database,
                 "UPDATE jobs SET state = 'failed', ended = began, cause = ?, remedy = ? "
                 "WHERE state = 'held'");
  held.bind(1, std::wstring(L"The application server holds the job no more: its file is gone."));
  held.bind(2, std::wstring(L"Print again."));
  held.step();
  prune();
  const std::lock_guard<std::mutex> guard(m_lock);
  m_latest = std::max(m_latest, latest);
}

void JobHistory::setAside() {
  std::filesystem::path damaged = m_path;
  damaged += ".damaged";
  std::error_code failure;
  std::filesystem::rename(m_path, damaged, failure);
  for (const char* suffix : {"-wal", "-shm"}) {
    std::filesystem::path beside = m_path;
    std::filesystem::remove(beside += suffix, failure);
  }
  m_log.failure(fmt::format("the history of jobs in {} is damaged; it is set aside as {}, and a new one is begun",
                            name(), programs::fromPath(damaged)));
}

int JobHistory::nextNumber() {
  const std::lock_guard<std::mutex> guard(m_lock);
  return ++m_latest;
}

void JobHistory::put(const JobRecord& record) noexcept {
  bool isFirst = false;
  {
    const std::lock_guard<std::mutex> guard(m_lock);
    try {
      isFirst = m_waiting.empty();
      m_latest = std::max(m_latest, record.number);
      m_waiting[record.number] = record;
      if (m_waiting.size() > kMostWaiting) {
        m_waiting.erase(m_waiting.begin());
        ++m_lost;
      }
    } catch (const std::bad_alloc&) {
      ++m_lost;
    }
    startLocked();
  }
  if (isFirst) m_changed.notify_all();
}

void JobHistory::wantLocked() noexcept {
  if (m_waiting.empty()) return;
  m_isWanted = true;
  m_changed.notify_all();
}

void JobHistory::start() noexcept {
  const std::lock_guard<std::mutex> guard(m_lock);
  startLocked();
}

void JobHistory::startLocked() noexcept try {
  if (!m_isStopping && !m_writer.joinable()) m_writer = std::thread([this] { run(); });
} catch (const std::system_error&) {
  // The next record tries again.
}

void JobHistory::awaitWritten(int number) noexcept {
  if (m_path.empty()) return;
  std::unique_lock<std::mutex> guard(m_lock);
  wantLocked();
  m_changed.wait_for(guard, kLongestWait,
                     [&] { return !m_trouble.empty() || (m_beingWritten == 0 && m_waiting.count(number) == 0); });
}

void JobHistory::run() noexcept {
  std::unique_lock<std::mutex> guard(m_lock);
  while (true) {
    m_changed.wait(guard, [this] { return m_isStopping || !m_waiting.empty(); });
    m_changed.wait_for(guard, kGathering, [this] { return m_isStopping || m_isWanted; });
    m_isWanted = false;
    if (m_waiting.empty()) return;
    std::map<int, JobRecord> records;
    records.swap(m_waiting);
    m_beingWritten = records.size();
    guard.unlock();
    const std::optional<std::string> why = writeWaiting(records);
    guard.lock();
    m_beingWritten = 0;
    if (why) takeBack(std::move(records));
    guard.unlock();
    tellTrouble(why.value_or(""));
    m_changed.notify_all();
    guard.lock();
    if (!why) continue;
    if (m_isStopping) return;
    m_changed.wait_for(guard, kBetweenTries, [this] { return m_isStopping; });
  }
}

// With the lock; later records of the same numbers stay.
void JobHistory::takeBack(std::map<int, JobRecord> records) {
  m_waiting.merge(records);
  while (m_waiting.size() > kMostWaiting) {
    m_waiting.erase(m_waiting.begin());
    ++m_lost;
  }
}

std::optional<std::string> JobHistory::writeWaiting(const std::map<int, JobRecord>& records) try {
  const std::lock_guard<std::mutex> guard(m_databaseLock);
  if (!m_database) open();
  try {
    writeAll(records);
  } catch (const DatabaseFailure& failure) {
    if (!failure.isDamaged()) throw;
    m_database.reset();
    open();
    writeAll(records);
  }
  return std::nullopt;
} catch (const std::exception& failure) {
  return failure.what();
}

void JobHistory::writeAll(const std::map<int, JobRecord>& records) {
  m_database->run("BEGIN IMMEDIATE");
  try {
    Statement insert(*m_database, fmt::format("INSERT OR REPLACE INTO jobs({}) VALUES({})", kColumns, questionMarks()));
    for (const auto& [number, record] : records) {
      bindAll(insert, record);
      insert.step();
      insert.reset();
    }
    m_database->run("COMMIT");
  } catch (const DatabaseFailure&) {
    try {
      m_database->run("ROLLBACK");
    } catch (const DatabaseFailure&) {
      // SQLite has done it already.
    }
    throw;
  }
  m_sincePruned += static_cast<int>(records.size());
  if (m_sincePruned >= (m_path.empty() ? kBetweenPruningsInMemory : kBetweenPrunings)) prune();
}

void JobHistory::prune() {
  m_sincePruned = 0;
  Statement old(*m_database, "DELETE FROM jobs WHERE began < ?");
  old.bind(1, programs::utcText(system_clock::now() - std::chrono::hours(24) * m_limits.days));
  old.step();
  Statement surplus(*m_database,
                    "DELETE FROM jobs WHERE number <= "
                    "(SELECT number FROM jobs ORDER BY number DESC LIMIT 1 OFFSET ?)");
  surplus.bind(1, static_cast<std::int64_t>(m_limits.jobs));
  surplus.step();
  const std::int64_t most = static_cast<std::int64_t>(m_limits.megabytes) * 1024 * 1024;
  const auto bytes = [this] {
    const std::int64_t pages = m_database->number("PRAGMA page_count") - m_database->number("PRAGMA freelist_count");
    return pages * m_database->number("PRAGMA page_size");
  };
  while (bytes() > most && m_database->number("SELECT count(*) FROM jobs") > 1) {
    m_database->run(
        "DELETE FROM jobs WHERE number IN "
        "(SELECT number FROM jobs ORDER BY number LIMIT (SELECT count(*) / 10 + 1 FROM jobs))");
  }
}

void JobHistory::tellTrouble(const std::string& why) {
  std::size_t lost = 0;
  {
    const std::lock_guard<std::mutex> guard(m_lock);
    if (m_trouble.empty() == why.empty()) return;
    m_trouble = why;
    if (why.empty()) lost = std::exchange(m_lost, 0);
  }
  if (!why.empty()) {
    m_log.failure(
        fmt::format("the history of jobs ({}) takes nothing: {}; jobs print all the same, and their records "
                    "wait here: make room, or see who uses the file",
                    name(), why));
  } else {
    m_log.line(fmt::format("the history of jobs ({}) goes on; {} records are lost", name(), lost));
  }
}

protocol::Jobs::Answer JobHistory::find(const protocol::Jobs& wanted) {
  protocol::Jobs::Answer answer;
  {
    std::unique_lock<std::mutex> guard(m_lock);
    wantLocked();
    m_changed.wait_for(guard, kLongestWait,
                       [&] { return !m_trouble.empty() || (m_beingWritten == 0 && m_waiting.empty()); });
    if (!m_trouble.empty()) answer.trouble = corvane::fromUtf8(m_trouble);
  }
  try {
    const std::lock_guard<std::mutex> guard(m_databaseLock);
    if (!m_database) return answer;
    Statement rows(*m_database,
                   fmt::format("SELECT {} FROM jobs WHERE (?1 = 0 OR number < ?1) AND (?2 = 0 OR number = ?2) "
                               "AND (?3 = 0 OR session = ?3) AND (?4 = '' OR user = ?4 COLLATE NOCASE "
                               "OR substr(user, -length(?4) - 1) = '\\' || ?4 COLLATE NOCASE) "
                               "AND (?5 = '' OR began >= ?5) AND (?6 = '' OR began < ?6) "
                               "AND (?7 = 0 OR state = 'failed') ORDER BY number DESC LIMIT ?8",
                               kColumns));
    rows.bind(1, wanted.before);
    rows.bind(2, wanted.job);
    rows.bind(3, wanted.session);
    rows.bind(4, wanted.user);
    rows.bind(5, wanted.since);
    rows.bind(6, wanted.until);
    rows.bind(7, wanted.isFailedOnly ? 1 : 0);
    rows.bind(8, std::clamp(wanted.most, 0, protocol::Jobs::kMost));
    while (rows.step())
      answer.jobs.push_back(recordOf(rows));
  } catch (const DatabaseFailure& failure) {
    answer.trouble = corvane::fromUtf8(failure.what());
  }
  return answer;
}

}  // namespace aps
