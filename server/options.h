#pragma once

#include "server/client_rates.h"
#include "server/jobs/job_history.h"
#include "server/launcher.h"
#include "server/session_table.h"

#include <cstddef>
#include <optional>
#include <string>
#include <vector>

namespace aps {

// What is to be done instead of serving, when somebody is to be invited; see server/invitations.h.
struct Invite {
  int session = 0;
  std::string address;  // where the guest's print client reaches aps
  bool isSameUser = false;
  std::string file;  // for the invitation; empty: the standard output
};

// What the command line of aps says.
struct Options {
  std::string listen = "127.0.0.1:4711";
  std::vector<std::string> listenClients;  // addresses for print clients of other machines
  std::string publicAddress;               // where those reach one of them, for invitations; empty: the first one
  ClientRates clientRates;
  bool packsJobs = true;   // for those of other machines
  std::string logFile;     // empty: the standard error output
  std::string keys;        // folder; empty: peers are not authenticated
  bool namesKeys = false;  // that folder, or that there are none; otherwise it is that of programs::keyFolder()
  bool isService = false;  // of Windows, if its service manager has started the process
  std::optional<Invite> invite;
  std::string newKey;   // a key file to make instead of serving
  std::string history;  // file that keeps the records of jobs; empty: they are in memory
  JobHistory::Limits historyLimits;
  bool hasTitles = true;  // in those records
  std::string state;      // file that keeps the sessions over a restart; empty: they are not kept
  std::size_t maxConnections = 512;
  int pace = 1;  // divides the times of corvane::Patience; not shown, for tests
  SessionTable::Limits limits;
  Launcher::Settings launching;
};

// The outcome of reading a command line: go on when exitCode is negative, otherwise end with it after saying message
// on the standard output (code 0, such as help) or the standard error output.
struct ParsedOptions {
  Options options;
  int exitCode = -1;
  std::string message;
};

ParsedOptions parseOptions(std::vector<std::string> arguments);

// Why this server may not listen there; empty when it may. What goes over a connection is not encrypted, so only
// addresses of the machine itself are accepted.
std::string listenRefusal(const std::string& address);

}  // namespace aps
