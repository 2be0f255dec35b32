#include "admin/base/places.h"
#include "admin/base/service_log.h"
#include "admin/commands/invocation.h"
#include "admin/sessions/application_server.h"
#include "admin/sessions/held_news.h"
#include "admin/sessions/session_watch.h"
#include "admin/spooler/spooler_port.h"
#include "corvane/base/text.h"
#include "programs/main.h"
#include "programs/service_manager.h"
#include "programs/stop_request.h"

#include <CLI/CLI.hpp>
#include <condition_variable>
#include <cstdio>
#include <mutex>

namespace admin {
namespace {

constexpr unsigned kRoundMilliseconds = 2000;

struct WatchOptions {
  int serverPort = 0;
  unsigned graceSeconds = 60;
  std::string driver, processor, log;
  bool isService = false;
};

// The user's request to end the watch.
class Stop {
 public:
  Stop() : m_request([this] { ask(); }) {}

  bool isAsked() {
    const std::lock_guard guard(m_lock);
    return m_asked;
  }
  // True when the end was requested within that time.
  bool wait(unsigned milliseconds) {
    std::unique_lock guard(m_lock);
    return m_changed.wait_for(guard, std::chrono::milliseconds(milliseconds), [this] { return m_asked; });
  }

 private:
  void ask() {
    const std::lock_guard guard(m_lock);
    m_asked = true;
    m_changed.notify_all();
  }

  std::mutex m_lock;  // guards m_asked
  std::condition_variable m_changed;
  bool m_asked = false;
  programs::StopRequest m_request;
};

// Watches over one connection. Throws a Failure when the connection is lost.
void follow(int serverPort, SessionWatch& watch, HeldNews& heldNews, ApplicationServer*& followed, Stop& stop) {
  ApplicationServer server(serverPort);
  followed = &server;
  while (!stop.isAsked()) {
    const protocol::ServerStatus facts = server.status();
    watch.see(facts, SessionWatch::Clock::now());
    heldNews.see(facts, [&server](int after) { return server.notices(after, 0); });
    stop.wait(kRoundMilliseconds);
  }
}

ExitCode watchSessions(const WatchOptions& options, Output& output) {
  const SessionOptions made{corvane::fromUtf8(options.driver), corvane::fromUtf8(options.processor)};
  ApplicationServer* server = nullptr;  // while one is followed
  SessionWatch watch({[&made](const protocol::ListedSession& session) { return bringUp(session, made); }, takeDown,
                      [](unsigned session) { return hasPort(sessionPort(session)); },
                      [&server](int session, const RefusedPrinter& printer) { server->tellRefusal(session, printer); }},
                     std::chrono::seconds(options.graceSeconds), output);
  HeldNews heldNews(output);
  Stop stop;
  programs::ServiceManager::fromEnvironment().tell("READY=1");
  output.line("watching the sessions; Ctrl-C ends it");
  while (!stop.isAsked()) {
    try {
      follow(options.serverPort, watch, heldNews, server, stop);
    } catch (const Failure& failure) {
      if (failure.code() != ExitCode::kServerAway) throw;
      watch.seeNothing(failure.what());
      stop.wait(kRoundMilliseconds);
    }
  }
  output.line("the watch ends; the printers stay");
  return ExitCode::kDone;
}

ExitCode run(const WatchOptions& options, Output& output) {
  if (options.log.empty() && !options.isService) return watchSessions(options, output);
  const std::wstring file = options.log.empty() ? Places::ofThisMachine().serviceLogFolder() + L"\\mgprintmon.log"
                                                : corvane::fromUtf8(options.log);
  ServiceLog log(file);
  if (!log.isWritable()) {
    std::fprintf(stderr, "the log %s cannot be written; the sessions are watched without a log\n",
                 corvane::toUtf8(file).c_str());
  }
  Output logged(log.stream(), log.stream(), output.isJson());
  try {
    return watchSessions(options, logged);
  } catch (const Failure& failure) {
    logged.failure(failure);
    throw;
  }
}

}  // namespace

void addWatchCommand(CLI::App& app, Invocation& invocation) {
  auto options = std::make_shared<WatchOptions>();
  CLI::App& command = addCommand(app, invocation, "watch",
                                 "Brings sessions up and down as their print clients come and go, and tells of jobs "
                                 "that are held for clients that are away, until Ctrl-C. With --json, a line for each "
                                 "event.",
                                 {"watch", "watch --driver \"Generic PostScript\" --grace 300"});
  command.add_option("--driver", options->driver,
                     "driver for printers whose own cannot be used; default: FallbackDriver");
  command.add_option("--processor", options->processor, "print processor; default: winprint");
  command
      .add_option("--grace", options->graceSeconds,
                  "seconds that a client may be gone before its session goes down; default: 60")
      ->check(CLI::Range(0, 86400));
  command.add_option("--log", options->log,
                     "file that is appended to instead of the standard output; a service has one without this");
  command.add_flag(programs::kServiceOption, options->isService,
                   "as a service of Windows, which mgprintmon install makes; by hand a command like any other");
  command.add_option("--server-port", options->serverPort, "TCP port of aps; default: the registry's")
      ->check(CLI::Range(1, 65535));
  command.callback(
      [options, &invocation] { invocation.run = [options](Output& output) { return run(*options, output); }; });
}

}  // namespace admin
