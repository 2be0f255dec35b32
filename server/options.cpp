#include "server/options.h"

#include "programs/data_folder.h"
#include "programs/host_and_port.h"
#include "protocol/version_text.h"
#include "server/metrics/metrics_server.h"

#include <CLI/CLI.hpp>
#include <algorithm>
#include <fmt/format.h>
#include <limits>
#include <sstream>
#include <stdexcept>

namespace aps {

std::string listenRefusal(const std::string& address) {
  const std::size_t colon = address.rfind(':');
  const std::string host = colon == std::string::npos ? address : address.substr(0, colon);
  const std::string port = colon == std::string::npos ? "" : address.substr(colon + 1);
  const bool isNumber = !port.empty() && port.size() <= 5 && port.find_first_not_of("0123456789") == std::string::npos;
  if (!isNumber || std::stoul(port) > 65535) {
    return fmt::format("\"{}\" is not an address and port; an example is 127.0.0.1:4711 (port 0 takes any free port)",
                       address);
  }
  if (host != "127.0.0.1" && host != "[::1]") {
    return fmt::format(
        "aps listens there on this machine's own addresses only, 127.0.0.1 or [::1], not on \"{}\"; print clients of "
        "other machines come to --listen-clients",
        host);
  }
  return "";
}

namespace {

void addAddresses(CLI::App& app, Options& options) {
  app.add_option("--listen", options.listen, "address and port, 127.0.0.1:PORT or [::1]:PORT; port 0 takes a free one")
      ->capture_default_str();
  app.add_option(
         "--listen-clients", options.listenClients,
         "address and port for print clients on other machines, as in 0.0.0.0:4712 or [::]:4712; they are served "
         "under TLS and need the key of their session; repeatable")
      ->expected(1)
      ->multi_option_policy(CLI::MultiOptionPolicy::TakeAll);
  app.add_option(
      "--public-address", options.publicAddress,
      "host and port where print clients of other machines reach this server, for the invitations of mgprintmon");
}

// The rates are read when everything else is known to be right.
void addLines(CLI::App& app, Options& options, std::vector<std::string>& rates) {
  app.add_option("--client-rate", rates,
                 "bytes a second, as in 250KB, that a print client of another machine is sent at most; 5=250KB says so "
                 "for session 5 only; repeatable")
      ->expected(1)
      ->multi_option_policy(CLI::MultiOptionPolicy::TakeAll);
  app.add_flag("!--no-compression", options.packsJobs,
               "sends jobs to print clients of other machines as they are; without it they are compressed where the "
               "line is slower than their data come");
}

void addHistory(CLI::App& app, Options& options) {
  const CLI::Validator named([](std::string& text) { return text.empty() ? "it names nothing" : ""; }, "");
  app.add_option(
         "--history", options.history,
         "file that keeps the records of jobs (SQLite); without it the latest 200 are in memory, until aps ends")
      ->check(named);
  app.add_option("--history-days", options.historyLimits.days, "how long a job's record is kept")
      ->capture_default_str()
      ->check(CLI::Range(1, 10000));
  app.add_option("--history-jobs", options.historyLimits.jobs, "how many records are kept; the oldest go")
      ->capture_default_str()
      ->check(CLI::Range(1, 100000000));
  app.add_option("--history-size", options.historyLimits.megabytes, "megabytes of them that are kept; the oldest go")
      ->capture_default_str()
      ->check(CLI::Range(1, 1000000));
  app.add_option("--job-log", options.jobLog,
                 "file that gets the record of each job that has ended as a line of JSON, for a program that collects "
                 "those of many servers; needs --history")
      ->check(named);
  app.add_option("--metrics", options.metrics,
                 "address and port, as in 127.0.0.1:9464, where /metrics answers a program that watches this server, "
                 "over HTTP and whoever asks; a port alone is one of 127.0.0.1")
      ->check(named);
  app.add_flag("!--no-titles", options.hasTitles, "leaves the names of documents out of the records of jobs");
}

void addKeys(CLI::App& app, Options& options, bool& hasNone) {
  // An empty name, such as that of an unset variable, must not be taken for an option that was not given.
  const CLI::Validator named([](std::string& text) { return text.empty() ? "it names nothing" : ""; }, "");
  app.add_option("--keys", options.keys,
                 fmt::format("folder with the keys of the peers, monitor.key and session-NUMBER.key, of which every "
                             "peer must prove that it has its own; without it {}",
                             programs::keyFolder()))
      ->check(named);
  app.add_flag("--no-keys", hasNone,
               "serves peers that prove nothing: every user of this machine can act as the monitor or as any session");
  app.add_option("--new-key", options.newKey, "makes a file with a fresh key and ends")->check(named);
}

void addHold(CLI::App& app, Options& options) {
  const CLI::Validator named([](std::string& text) { return text.empty() ? "it names nothing" : ""; }, "");
  HoldStore::Limits& limits = options.holdLimits;
  app.add_option("--hold", options.hold,
                 "folder in which jobs wait for a print client that is away; needs --keys, because a held job is for "
                 "the key of its session and nobody else")
      ->check(named);
  const auto add = [&app](const char* name, int& value, const char* text) {
    app.add_option(name, value, text)->capture_default_str()->check(CLI::Range(1, 1000000));
  };
  add("--hold-size", limits.megabytes, "megabytes of jobs that are held for one session");
  add("--hold-jobs", limits.jobs, "jobs that are held for one session");
  add("--hold-total", limits.totalMegabytes, "megabytes of jobs that are held in all");
  add("--hold-total-jobs", limits.totalJobs, "jobs that are held in all");
  app.add_option("--hold-days", limits.days, "how long a job is held; then it is given up, and its record says so")
      ->capture_default_str()
      ->check(CLI::Range(1, 10000));
}

void addFiles(CLI::App& app, Options& options) {
  // An empty name, such as that of an unset variable, must not be taken for an option that was not given.
  const CLI::Validator named([](std::string& text) { return text.empty() ? "it names nothing" : ""; }, "");
  app.add_option("--log", options.logFile, "log file, appended to; without it the log goes to the error output");
  app.add_option("--state", options.state,
                 "file that keeps the sessions and their printers, so that they are known after a restart")
      ->check(named);
  addHistory(app, options);
  addHold(app, options);
}

void addLaunching(CLI::App& app, Options& options) {
  if (kLaunchesByCommand) {
    app.add_option("--launch-command", options.launching.command,
                   "program that starts programs in sessions; its arguments are the session's number, the program, the "
                   "program's arguments as one text, and the printer's name");
  }
  app.add_option("--launch-program", options.launching.programs, "a program that sessions may have started; repeatable")
      ->capture_default_str();
  app.add_option("--max-launched", options.launching.limit, "started programs that run at the same time")
      ->capture_default_str()
      ->check(CLI::Range(1, 10000));
}

void addBounds(CLI::App& app, Options& options) {
  app.add_option(
         "--max-connections", options.maxConnections,
         "connections of the monitor at the same time: one for each job in progress, and those that only ask; print "
         "clients and administration tools have places of their own")
      ->capture_default_str()
      ->check(CLI::Range(1, 100000));
  app.add_option("--pace", options.pace)->check(CLI::Range(1, 1000))->group("");
  app.add_option("--max-sessions", options.limits.sessions, "sessions that are remembered")
      ->capture_default_str()
      ->check(CLI::Range(1, 100000));
  app.add_option("--max-printers", options.limits.printers, "printers of one session")
      ->capture_default_str()
      ->check(CLI::Range(1, 4096));
}

}  // namespace

namespace {

// Its values are taken over when the command was given.
CLI::App* addInvite(CLI::App& app, Invite& invite) {
  CLI::App* const command = app.add_subcommand(
      "invite", "makes an invitation: a line by which somebody's print client gets the key of a session, once");
  command->fallthrough();
  command->footer("--keys FOLDER of aps may stand here, too, where the keys are in another folder than usually.");
  command->add_option("session", invite.session, "number of the session")
      ->required()
      ->check(CLI::Range(1, std::numeric_limits<int>::max()));
  command->add_option("--address", invite.address, "host and port where that print client reaches aps --listen-clients")
      ->required();
  command->add_flag("--same-user", invite.isSameUser,
                    "for a further device of the user whom the session has; without it the session gets a new key, and "
                    "the old one opens nothing any more");
  command->add_option("--file", invite.file, "a new file for the invitation, instead of the standard output");
  return command;
}

// The same for those of held jobs.
std::string holdContradiction(const Options& options) {
  if (options.keys.empty()) {
    return "--hold keeps jobs for the key of their session, and without keys a job has no owner: leave --no-keys out";
  }
  const HoldStore::Limits& limits = options.holdLimits;
  if (2 * static_cast<long long>(limits.megabytes) > limits.totalMegabytes) {
    return fmt::format(
        "--hold-size {} and --hold-total {}: one session could take the room of all others; let it have "
        "half of all at most",
        limits.megabytes, limits.totalMegabytes);
  }
  if (2 * static_cast<long long>(limits.jobs) > limits.totalJobs) {
    return fmt::format(
        "--hold-jobs {} and --hold-total-jobs {}: one session could take the places of all others; let it "
        "have half of all at most",
        limits.jobs, limits.totalJobs);
  }
  return "";
}

// Why the options cannot be used together; empty when they can.
std::string contradiction(const Options& options) {
  if (options.invite) {
    if (options.keys.empty()) return "aps invite: an invitation is for a key; leave --no-keys out";
    try {
      programs::HostAndPort::parse(options.invite->address);
    } catch (const std::invalid_argument& failure) {
      return fmt::format("--address {}", failure.what());
    }
    return "";
  }
  if (std::string refusal = listenRefusal(options.listen); !refusal.empty())
    return fmt::format("--listen: {}", refusal);
  if (!options.listenClients.empty() && options.keys.empty()) {
    return "--listen-clients takes print clients over the network, and each must have the key of its session: leave "
           "--no-keys out";
  }
  if (!options.metrics.empty()) {
    if (const std::string refusal = metricsRefusal(options.metrics); !refusal.empty())
      return fmt::format("--metrics: {}", refusal);
  }
  if (!options.jobLog.empty() && options.history.empty()) {
    return "--job-log takes the records of jobs from their history, which numbers them and keeps what the log cannot "
           "be "
           "given: name a file for it with --history";
  }
  if (!options.hold.empty() && options.newKey.empty()) {
    if (std::string wrong = holdContradiction(options); !wrong.empty()) return wrong;
  }
  const bool hasRates = options.clientRates.ofEach != 0 || !options.clientRates.ofSessions.empty();
  if (options.listenClients.empty() && (hasRates || !options.packsJobs)) {
    return "--client-rate and --no-compression are for print clients of other machines, which come to "
           "--listen-clients; "
           "give their address there, or leave these out";
  }
  return "";
}

void addStart(CLI::App& app, [[maybe_unused]] Options& options, unsigned& clientWaitSeconds) {
#ifdef _WIN32
  app.add_flag("--service", options.isService,
               fmt::format("as a service of Windows, which mgprintmon install makes; the log is {} unless --log names "
                           "another file. By hand it is a program like any other",
                           programs::serviceLog()));
#endif
  app.add_option("--client-wait", clientWaitSeconds,
                 "seconds that a job waits for its print client after aps has started or the client's connection was "
                 "lost; 0 for not at all")
      ->capture_default_str()
      ->check(CLI::Range(0, 60));
}

// What stands for an option that was not given.
void fillIn(Options& options, bool hasNoKeys) {
  options.namesKeys = hasNoKeys || !options.keys.empty();
  if (!options.namesKeys) options.keys = programs::keyFolder();
  if (options.isService && options.logFile.empty()) options.logFile = programs::serviceLog();
}

ParsedOptions refused(const std::string& why) {
  ParsedOptions result;
  result.exitCode = 2;
  result.message = why + "\n";
  return result;
}

}  // namespace

ParsedOptions parseOptions(std::vector<std::string> arguments) {
  ParsedOptions result;
  Options& options = result.options;
  CLI::App app("The application server: routes print jobs to the print clients of sessions.", "aps");
  app.set_version_flag("--version", protocol::versionLine("aps"), protocol::kVersionHelp);
  addAddresses(app, options);
  std::vector<std::string> rates;
  addLines(app, options, rates);
  addFiles(app, options);
  bool hasNoKeys = false;
  addKeys(app, options, hasNoKeys);
  unsigned clientWaitSeconds = 20;
  addStart(app, options, clientWaitSeconds);
  addBounds(app, options);
  addLaunching(app, options);
  Invite invite;
  const CLI::App* const inviteCommand = addInvite(app, invite);
  std::reverse(arguments.begin(), arguments.end());
  try {
    app.parse(arguments);
    if (inviteCommand->parsed()) options.invite = invite;
    for (const std::string& rate : rates)
      options.clientRates.add(rate);
  } catch (const CLI::ParseError& error) {
    std::ostringstream out;
    result.exitCode = app.exit(error, out, out) == 0 ? 0 : 2;
    result.message = out.str();
    return result;
  } catch (const std::invalid_argument& wrong) {
    return refused(fmt::format("--client-rate: {}", wrong.what()));
  }
  options.limits.clientWait = std::chrono::seconds(clientWaitSeconds);
  const bool isBoth = hasNoKeys && !options.keys.empty();
  fillIn(options, hasNoKeys);
  if (const std::string wrong = isBoth ? "--keys and --no-keys contradict each other" : contradiction(options);
      !wrong.empty()) {
    return refused(wrong);
  }
  return result;
}

}  // namespace aps
