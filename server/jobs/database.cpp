#include "server/jobs/database.h"

#include "corvane/base/text.h"
#include "programs/text.h"
#include "server/log_file.h"

#include <sqlite3.h>

namespace aps {

Database::Database(const std::filesystem::path& path) {
  const std::string name = path.empty() ? ":memory:" : programs::fromPath(path);
  // SQLite would let others read it; what it puts beside the file is as the file is.
  if (!path.empty()) AppendFile().make(path);
  const int flags = SQLITE_OPEN_READWRITE | (path.empty() ? SQLITE_OPEN_CREATE : 0) | SQLITE_OPEN_FULLMUTEX;
  if (sqlite3_open_v2(name.c_str(), &m_database, flags, nullptr) == SQLITE_OK) return;
  const std::string words = m_database == nullptr ? "out of memory" : sqlite3_errmsg(m_database);
  sqlite3_close(m_database);
  throw DatabaseFailure(words, false);
}

Database::~Database() {
  sqlite3_close(m_database);
}

void Database::fail() const {
  const int code = sqlite3_errcode(m_database);
  throw DatabaseFailure(sqlite3_errmsg(m_database), code == SQLITE_CORRUPT || code == SQLITE_NOTADB);
}

void Database::run(const char* statements) {
  if (sqlite3_exec(m_database, statements, nullptr, nullptr, nullptr) != SQLITE_OK) fail();
}

std::int64_t Database::number(const char* query) {
  Statement statement(*this, query);
  return statement.step() ? statement.number(0) : 0;
}

void Database::inTransaction(const std::function<void()>& work) {
  const auto isOpen = [this] { return sqlite3_get_autocommit(m_database) == 0; };
  if (isOpen()) run("ROLLBACK");
  run("BEGIN IMMEDIATE");
  try {
    work();
    run("COMMIT");
  } catch (...) {
    try {
      if (isOpen()) run("ROLLBACK");
    } catch (const std::exception&) {
      // The next transaction tries again.
    }
    throw;
  }
}

Statement::Statement(Database& database, const std::string& text) : m_database(database) {
  check(sqlite3_prepare_v2(database.m_database, text.c_str(), -1, &m_statement, nullptr));
}

Statement::~Statement() {
  sqlite3_finalize(m_statement);
}

void Statement::check(int result) const {
  if (result != SQLITE_OK) m_database.fail();
}

void Statement::bind(int parameter, std::int64_t value) {
  check(sqlite3_bind_int64(m_statement, parameter, value));
}

void Statement::bind(int parameter, const std::wstring& text) {
  check(sqlite3_bind_text(m_statement, parameter, corvane::toUtf8(text).c_str(), -1, SQLITE_TRANSIENT));
}

bool Statement::step() {
  const int result = sqlite3_step(m_statement);
  if (result != SQLITE_ROW && result != SQLITE_DONE) m_database.fail();
  return result == SQLITE_ROW;
}

void Statement::reset() {
  sqlite3_reset(m_statement);  // its result is that of the last step
  check(sqlite3_clear_bindings(m_statement));
}

std::int64_t Statement::number(int column) const {
  return sqlite3_column_int64(m_statement, column);
}

std::wstring Statement::text(int column) const {
  const auto* const text = sqlite3_column_text(m_statement, column);
  return text == nullptr ? std::wstring() : corvane::fromUtf8(reinterpret_cast<const char*>(text));
}

}  // namespace aps
