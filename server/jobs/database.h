#pragma once

#include <cstdint>
#include <filesystem>
#include <functional>
#include <stdexcept>
#include <string>

struct sqlite3;
struct sqlite3_stmt;

namespace aps {

// What SQLite refuses, in its own words.
class DatabaseFailure : public std::runtime_error {
 public:
  DatabaseFailure(const std::string& words, bool isDamaged) : std::runtime_error(words), m_isDamaged(isDamaged) {}
  // The file is no database, or a broken one.
  bool isDamaged() const { return m_isDamaged; }

 private:
  bool m_isDamaged;
};

// An SQLite database (sqlite.org) in a file, or in memory. What it does throws DatabaseFailure. Any thread, one at a
// time.
class Database {
 public:
  // Opens the file, or makes one that only the account of this process can read (on Windows also the system and the
  // administrators). An empty path means memory.
  explicit Database(const std::filesystem::path& path);
  ~Database();
  Database(const Database&) = delete;
  Database& operator=(const Database&) = delete;

  // Statements without parameters and results, one behind the other.
  void run(const char* statements);
  std::int64_t number(const char* query);
  // All of what the work does, or nothing when it throws, whatever that is. One that could not be taken back, because
  // there was no memory for that either, is when the next one begins.
  void inTransaction(const std::function<void()>& work);

 private:
  friend class Statement;
  [[noreturn]] void fail() const;

  sqlite3* m_database = nullptr;
};

// One statement with its parameters, which count from 1, and its results, whose columns count from 0. Not longer than
// its database.
class Statement {
 public:
  Statement(Database& database, const std::string& text);
  ~Statement();
  Statement(const Statement&) = delete;
  Statement& operator=(const Statement&) = delete;

  void bind(int parameter, std::int64_t value);
  void bind(int parameter, const std::wstring& text);
  // Goes on to the next row; false behind the last.
  bool step();
  // From the beginning, with parameters of its own.
  void reset();
  std::int64_t number(int column) const;
  std::wstring text(int column) const;

 private:
  void check(int result) const;

  Database& m_database;
  sqlite3_stmt* m_statement = nullptr;
};

}  // namespace aps
