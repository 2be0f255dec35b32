#pragma once

#include "admin/sessions/server_facts.h"

#include <string>

namespace admin {

// What the test page is printed with.
struct TestPageOptions {
  int serverPort = 0;      // 0: the registry's
  std::wstring driver;     // empty: the first one that is installed
  std::wstring processor;  // empty: winprint
  std::string keyFile;     // of the test session; empty: none
};

// Prints a page the whole way round: a session of this program's own, its port and printer, the spooler, the monitor,
// the server, and back here, where it is compared. Everything is removed again. Gives what happened in words; throws a
// Failure.
std::string printTestPage(const ServerFacts& server, const TestPageOptions& options);

}  // namespace admin
