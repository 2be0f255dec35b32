#pragma once

#include <windows.h>

#include <stdexcept>
#include <string>

namespace admin {

// What the program ends with, for scripts. The table stands in README.md as well; a number never changes its meaning.
enum class ExitCode {
  kDone = 0,
  kFailed = 1,          // something went wrong; standard error output says what, and what to do next
  kUsage = 2,           // the command line is wrong
  kNotFound = 3,        // a port, printer, session, driver or file that was named is not there
  kAccessDenied = 4,    // Windows asks for administrator rights here
  kInUse = 5,           // something else holds what is to be changed: the spooler a file, a printer a port
  kServerAway = 6,      // the application server cannot be asked
  kUnknownOutcome = 7,  // the job was handed over, and nobody could say in time what became of it
};

// Why a command cannot go on: what is wrong and, in a sentence of its own, what to do next. UTF-8.
class Failure : public std::runtime_error {
 public:
  Failure(ExitCode code, const std::string& what, std::string remedy)
      : std::runtime_error(what), m_code(code), m_remedy(std::move(remedy)) {}

  ExitCode code() const { return m_code; }
  const std::string& remedy() const { return m_remedy; }

 private:
  ExitCode m_code;
  std::string m_remedy;
};

// An error number of Windows in its words, with the number: "Access is denied (5)".
std::string errorWords(DWORD error);

// What to do about it; empty when the words say all there is.
std::string remedyFor(DWORD error);

// A call of Windows that failed. What was tried is the beginning of the text, as in "the port CPP5 cannot be added";
// exit code and remedy follow from the error.
class SystemFailure : public Failure {
 public:
  SystemFailure(const std::string& tried, DWORD error);
  DWORD error() const { return m_error; }

 private:
  DWORD m_error;
};

// Throws a SystemFailure with the thread's last error unless `done`.
void require(bool done, const std::string& tried);
// The same for calls that return the error itself.
void requireStatus(LSTATUS status, const std::string& tried);

}  // namespace admin
