#pragma once

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

}  // namespace admin
