#include "server/jobs/job_history.h"

#include "corvane/base/text.h"
#include "programs/text.h"

#include <algorithm>
#include <fmt/format.h>
#include <new>
#include <string_view>
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

// What later versions keep besides; a file of an earlier one gets these columns.
struct Addition {
  const char* column;
  const char* filling;  // for the records that are there
};
constexpr Addition kAdditions[] = {
    {"pages", ""},                                  // 0 when they are not known
    {"change", "UPDATE jobs SET change = number"},  // JobHistory::Change::number
    {"logged", ""},                                 // that of the change that a log has
};
constexpr char kLogIndex[] = "CREATE INDEX IF NOT EXISTS jobs_to_log ON jobs(number) WHERE change > logged;";

constexpr char kColumns[] =
    "number, state, server, user, session, printer, document, spooler_job, process, copies, bytes, began, ended, "
    "collecting_ms, sending_ms, taking_ms, paper_ms, cause, remedy, pages";
constexpr int kColumnCount = 20;

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
  number(job.pages);
}

std::string wordsOf(const std::exception& failure) noexcept try {
  return failure.what();
} catch (const std::bad_alloc&) {
  return "out of memory";  // takes none
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
  job.pages = static_cast<int>(number());
  return job;
}

// Writes a record with the number of its change behind it, and leaves what is kept besides as it is.
std::string upsert() {
  std::string marks, sets;
  for (int i = 0; i < kColumnCount; ++i)
    marks += "?,";
  for (std::string_view left = kColumns; !left.empty();) {
    const std::size_t end = std::min(left.find(", "), left.size());
    sets += fmt::format("{0} = excluded.{0}, ", left.substr(0, end));
    left.remove_prefix(std::min(end + 2, left.size()));
  }
  return fmt::format(
      "INSERT INTO jobs({}, change) VALUES({}?) ON CONFLICT(number) DO UPDATE SET {}change = excluded.change", kColumns,
      marks, sets);
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
  addColumns();
  m_change = std::max(m_change, m_database->number("SELECT max(change) FROM jobs") + 1);
  const auto latest = static_cast<int>(m_database->number("SELECT max(number) FROM jobs"));
  endLeftJobs();
  prune();
  const std::lock_guard<std::mutex> guard(m_lock);
  m_latest = std::max(m_latest, latest);
}

// Of jobs that an earlier process has left. One whose print client has told of it before it answered has not failed.
void JobHistory::endLeftJobs() {
  Statement ended(*m_database,
                  "UPDATE jobs SET ended = began, change = ? WHERE ended = '' AND "
                  "state IN ('printing', 'printed', 'delivered', 'shown', 'failed', 'canceled')");
  ended.bind(1, m_change);
  ended.step();
  Statement left(*m_database,
                 "UPDATE jobs SET state = 'failed', ended = began, cause = ?, remedy = ?, change = ? "
                 "WHERE state = 'running'");
  left.bind(1, std::wstring(L"The application server ended while the job was running."));
  left.bind(2, std::wstring(L"See whether the page is there, and print again if it is not."));
  left.bind(3, m_change);
  left.step();
}

void JobHistory::endHeld(const std::set<int>& held) noexcept try {
  const std::lock_guard<std::mutex> guard(m_databaseLock);
  if (!m_database) return;
  Statement gone(*m_database, fmt::format("UPDATE jobs SET state = 'failed', ended = began, cause = ?, remedy = ?, "
                                          "change = ? WHERE state = 'held' AND number NOT IN ({})",
                                          fmt::join(held, ",")));
  gone.bind(1, std::wstring(L"The application server holds the job no more: its file is gone."));
  gone.bind(2, std::wstring(L"Print again."));
  gone.bind(3, m_change);
  gone.step();
} catch (const std::exception&) {
  // They stay as they were told last.
}

void JobHistory::addColumns() {
  for (const Addition& added : kAdditions) {
    const std::string known =
        fmt::format("SELECT count(*) FROM pragma_table_info('jobs') WHERE name = '{}'", added.column);
    if (m_database->number(known.c_str()) != 0) continue;
    m_database->run(fmt::format("BEGIN; ALTER TABLE jobs ADD COLUMN {} INTEGER NOT NULL DEFAULT 0; {}; COMMIT;",
                                added.column, added.filling)
                        .c_str());
  }
  m_database->run(kLogIndex);
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

void JobHistory::put(const JobRecord& record) {
  std::map<int, JobRecord> news;  // a whole record, before anything changes
  news.emplace(record.number, record);
  bool isFirst = false;
  {
    const std::lock_guard<std::mutex> guard(m_lock);
    isFirst = m_waiting.empty();
    m_latest = std::max(m_latest, record.number);
    m_waiting.erase(record.number);
    m_waiting.merge(news);
    boundLocked();
    startLocked();
  }
  if (isFirst) m_changed.notify_all();
}

void JobHistory::putIfPossible(const JobRecord& record) noexcept try { put(record); } catch (const std::bad_alloc&) {
  const std::lock_guard<std::mutex> guard(m_lock);
  ++m_lost;
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
} catch (const std::exception&) {
  // No thread, or no memory for one: the next record tries again.
}

void JobHistory::awaitWritten(int number) noexcept {
  if (m_path.empty()) return;
  std::unique_lock<std::mutex> guard(m_lock);
  wantLocked();
  m_changed.wait_for(guard, kLongestWait,
                     [&] { return !m_trouble.empty() || (m_beingWritten == 0 && m_waiting.count(number) == 0); });
}

std::size_t JobHistory::waitingCount() {
  const std::lock_guard<std::mutex> guard(m_lock);
  return m_waiting.size() + m_beingWritten;
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
    std::optional<std::string> why = writeWaiting(records);
    const bool isWritten = !why;
    guard.lock();
    m_beingWritten = 0;
    if (!isWritten) takeBackLocked(std::move(records));
    guard.unlock();
    tellTrouble(std::move(why).value_or(std::string()));
    m_changed.notify_all();
    if (isWritten && m_onWritten) m_onWritten();
    guard.lock();
    if (isWritten) continue;
    if (m_isStopping) return;
    m_changed.wait_for(guard, kBetweenTries, [this] { return m_isStopping; });
  }
}

// Later records of the same numbers stay.
void JobHistory::takeBackLocked(std::map<int, JobRecord> records) noexcept {
  m_waiting.merge(records);
  boundLocked();
}

void JobHistory::boundLocked() noexcept {
  while (m_waiting.size() > kMostWaiting) {
    m_waiting.erase(m_waiting.begin());
    ++m_lost;
  }
}

std::optional<std::string> JobHistory::writeWaiting(const std::map<int, JobRecord>& records) noexcept try {
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
  return wordsOf(failure);
}

void JobHistory::writeAll(const std::map<int, JobRecord>& records) {
  m_database->inTransaction([&] {
    Statement insert(*m_database, upsert());
    for (const auto& [number, record] : records) {
      bindAll(insert, record);
      insert.bind(kColumnCount + 1, ++m_change);
      insert.step();
      insert.reset();
    }
  });
  m_sincePruned += static_cast<int>(records.size());
  if (m_sincePruned >= (m_path.empty() ? kBetweenPruningsInMemory : kBetweenPrunings)) prune();
}

void JobHistory::prune() {
  const auto toBeLogged = [this] { return m_database->number("SELECT count(*) FROM jobs WHERE change > logged"); };
  const std::int64_t before = m_onWritten ? toBeLogged() : 0;
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
  if (m_onWritten) m_dropped += before - toBeLogged();
}

// Who learns from find() that the file takes nothing, or takes records again, finds the line about it in the log.
void JobHistory::tellTrouble(std::string why) noexcept {
  std::size_t lost = 0;
  {
    const std::lock_guard<std::mutex> guard(m_lock);
    if (m_trouble.empty() == why.empty()) return;
    if (why.empty()) lost = std::exchange(m_lost, 0);
  }
  try {
    if (!why.empty()) {
      m_log.failure(
          fmt::format("the history of jobs ({}) takes nothing: {}; jobs print all the same, and their records "
                      "wait here: make room, or see who uses the file",
                      name(), why));
    } else {
      m_log.line(fmt::format("the history of jobs ({}) goes on; {} records are lost", name(), lost));
    }
  } catch (const std::bad_alloc&) {
    // find() says it all the same.
  }
  const std::lock_guard<std::mutex> guard(m_lock);
  m_trouble = std::move(why);
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

std::vector<JobHistory::Change> JobHistory::changesToLog(int most) {
  const std::lock_guard<std::mutex> guard(m_databaseLock);
  std::vector<Change> changes;
  if (!m_database) return changes;
  Statement rows(*m_database, fmt::format("SELECT {}, change FROM jobs WHERE change > logged AND ended <> '' "
                                          "ORDER BY number LIMIT ?",
                                          kColumns));
  rows.bind(1, most);
  while (rows.step())
    changes.push_back({recordOf(rows), rows.number(kColumnCount)});
  return changes;
}

std::int64_t JobHistory::takeDroppedChanges() {
  const std::lock_guard<std::mutex> guard(m_databaseLock);
  return std::exchange(m_dropped, 0);
}

void JobHistory::haveBeenLogged(const std::vector<Change>& changes) {
  const std::lock_guard<std::mutex> guard(m_databaseLock);
  if (!m_database) return;
  m_database->inTransaction([&] {
    Statement mark(*m_database, "UPDATE jobs SET logged = ? WHERE number = ?");
    for (const Change& change : changes) {
      mark.bind(1, change.number);
      mark.bind(2, change.record.number);
      mark.step();
      mark.reset();
      // Of one that has gone meanwhile nothing is missing.
      if (m_database->number("SELECT changes()") == 0 && m_dropped > 0) --m_dropped;
    }
  });
}

}  // namespace aps
