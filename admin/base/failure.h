#pragma once

#include <windows.h>

#include <stdexcept>
#include <string>

namespace admin {

// The exit codes, for scripts. README.md has the same table; a number never changes its meaning.
enum class ExitCode {
  kDone = 0,
  kFailed = 1,          // an error; standard error states the cause and the remedy
  kUsage = 2,           // the command line is wrong
  kNotFound = 3,        // a port, printer, session, driver or file on the command line does not exist
  kAccessDenied = 4,    // Windows requires administrator rights
  kInUse = 5,           // the spooler uses a file, or a printer uses a port, that must be changed
  kServerAway = 6,      // the application server cannot be queried
  kUnknownOutcome = 7,  // the job was handed over, and its outcome was not known in time
};

// Why a command cannot continue: the cause and, in a separate sentence, the remedy. UTF-8.
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

// The text of a Windows error number, with the number: "Access is denied (5)".
std::string errorWords(DWORD error);

// The remedy for that error; empty when there is none beyond the text.
std::string remedyFor(DWORD error);

// A failed Windows call. `tried` is the beginning of the text, as in "the port CPP5 cannot be added"; exit code and
// remedy follow from the error.
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
