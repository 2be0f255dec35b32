#include "programs/main.h"

#include "compression/deflate.h"
#include "corvane/base/text.h"
#include "corvane/components/component_server.h"
#include "corvane/net/socket.h"
#include "corvane/records/exception.h"
#include "corvane/trust/key.h"
#include "programs/data_folder.h"
#include "programs/invitation.h"
#include "programs/line_queue.h"
#include "programs/service_manager.h"
#include "programs/stop_request.h"
#include "programs/text.h"
#include "protocol/version_text.h"
#include "server/application.h"
#include "server/connection_list.h"
#include "server/invitations.h"
#include "server/jobs/job_log.h"
#include "server/keyless_monitor.h"
#include "server/log_monitor.h"
#include "server/metrics/metrics_server.h"
#include "server/options.h"
#include "server/session_keeper.h"
#include "server/supervision.h"
#include "tls/tls_stream.h"

#include <algorithm>
#include <chrono>
#include <cstdio>
#include <exception>
#include <filesystem>
#include <fmt/format.h>
#include <functional>
#include <memory>
#include <new>
#include <optional>
#include <span>
#include <thread>
#include <vector>

#ifndef _WIN32
#include <sys/resource.h>
#endif

namespace {

// Null after saying why aps cannot listen there.
std::unique_ptr<corvane::Listener> listenOn(const std::string& address, const char* option) {
  try {
    return std::make_unique<corvane::Listener>(address);
  } catch (const CS_Exception& failure) {
    std::fprintf(stderr, "aps: %s; choose another port with %s, or end the program that has this one\n",
                 programs::oneLine(failure.detail()).c_str(), option);
    return nullptr;
  }
}

int makeKey(const std::string& file) {
  try {
    corvane::Key::writeNew(file);
  } catch (const CS_Exception& failure) {
    std::fprintf(stderr, "aps: %s\n", programs::oneLine(failure.detail()).c_str());
    return 1;
  }
  std::printf("a new key is in %s\n", file.c_str());
  return 0;
}

int invite(const aps::Invite& wanted, const corvane::KeyFolder& keys) {
  using Guest = aps::Invitations::Guest;
  try {
    const Guest guest = wanted.isSameUser ? Guest::kSame : Guest::kNext;
    const std::string code = aps::Invitations(keys).make(wanted.session, guest);
    const std::string text =
        programs::Invitation{programs::HostAndPort::parse(wanted.address), wanted.session, code}.text() + "\n";
    if (wanted.file.empty()) {
      std::fputs(text.c_str(), stdout);
    } else {
      corvane::createKeyFile(wanted.file, std::span(reinterpret_cast<const unsigned char*>(text.data()), text.size()));
    }
    std::fprintf(
        stderr, "session %d: %s; the invitation is good once, for %d minutes: printclient --invitation %s\n",
        wanted.session, wanted.isSameUser ? "the key stays" : "it has a new key, and an older one opens nothing",
        static_cast<int>(aps::Invitations::kValid.count()), wanted.file.empty() ? "LINE" : wanted.file.c_str());
    return 0;
  } catch (const CS_Exception& failure) {
    std::fprintf(stderr, "aps: nobody is invited: %s\n", programs::oneLine(failure.detail()).c_str());
    return 1;
  }
}

// Null when peers need no keys; false after saying why the folder cannot be used. A monitor that was installed without
// a key goes on without one where nobody has said anything else; the options then have no folder either.
bool openKeys(aps::Options& options, std::unique_ptr<corvane::KeyFolder>& keys) {
  if (options.keys.empty()) return true;
  keys = std::make_unique<corvane::KeyFolder>(options.keys);
  const std::wstring refusal = keys->refusal();
  if (refusal.empty()) return true;
  if (options.namesKeys) {
    std::fprintf(stderr, "aps: the folder of --keys cannot be used: %s\n", programs::oneLine(refusal).c_str());
    return false;
  }
  if (!options.invite && options.listenClients.empty() && aps::hasKeylessMonitor()) {
    options.keys.clear();
    keys.reset();
    return true;
  }
  std::fprintf(
      stderr,
      "aps: it serves only peers that prove who they are, by keys in %s, and that folder cannot be used: %s; make "
      "it and the keys in it (mgprintmon install; aps --new-key FILE), name another folder with --keys, or type "
      "--no-keys to serve everybody on this machine\n",
      options.keys.c_str(), programs::oneLine(refusal).c_str());
  return false;
}

// Why nobody proves who he is, with what to do about it.
std::string wordsOfNoKeys(const aps::Options& options) {
  return fmt::format(
      "peers are not authenticated: every user of this machine can act as the monitor or as any session; {}",
      options.namesKeys ? "start aps without --no-keys to change that"
                        : "the monitor was installed without a key: mgprintmon install --keys changes that");
}

// Makes this process have so many descriptors, as far as the system lets it, and returns how many it may have. Windows
// does not count them.
std::size_t raiseDescriptorLimit(std::size_t wanted) {
#ifndef _WIN32
  rlimit limit{};
  if (::getrlimit(RLIMIT_NOFILE, &limit) != 0) return wanted;
  if (limit.rlim_cur < wanted) {
    limit.rlim_cur = std::min<rlim_t>(wanted, limit.rlim_max);
    ::setrlimit(RLIMIT_NOFILE, &limit);
    ::getrlimit(RLIMIT_NOFILE, &limit);
  }
  wanted = std::min<rlim_t>(limit.rlim_cur, wanted);
#endif
  return wanted;
}

// The bounds of the connections, of which some places are kept apart, whatever the options say.
aps::Places placesFor(const aps::Options& options, aps::Log& log) {
  aps::Places places;
  places.monitor = options.maxConnections;
  places.clients = options.limits.sessions + 64;
  places.all = places.arriving + (options.listenClients.empty() ? 0 : places.fromNetwork) + places.clients +
               places.monitor + places.administration;
  // Besides: the log, keys, the file of sessions, started programs, and connections that are about to end.
  constexpr std::size_t kOthers = 128;
  const std::size_t wanted = places.all + kOthers;
  const std::size_t available = raiseDescriptorLimit(wanted);
  if (available < wanted) {
    places.all = available > 2 * kOthers ? available - kOthers : available / 2;
    log.failure(fmt::format(
        "this process may have only {} descriptors instead of {}: it serves at most {} connections; raise the limit on "
        "open files of its account (ulimit -n, LimitNOFILE=) and start it again",
        available, wanted, places.all));
  }
  return places;
}

// The listeners of aps, which end together.
struct Listeners {
  std::unique_ptr<corvane::Listener> own;                   // for this machine
  std::vector<std::unique_ptr<corvane::Listener>> clients;  // for print clients of others

  // False after saying why aps cannot listen on one of the addresses.
  bool open(const aps::Options& options) {
    own = listenOn(options.listen, "--listen");
    for (const std::string& address : options.listenClients) {
      if (own) clients.push_back(listenOn(address, "--listen-clients"));
    }
    return own && std::find(clients.begin(), clients.end(), nullptr) == clients.end();
  }
  // Where print clients of other machines reach aps; empty when that is not known.
  std::string publicAddress(const aps::Options& options) const {
    if (!options.publicAddress.empty() || clients.empty()) return options.publicAddress;
    const std::string address = clients.front()->address();
    const bool isEvery = address.starts_with("0.0.0.0:") || address.starts_with("[::]:");
    return isEvery ? "" : address;
  }
  std::vector<std::string> addresses() const {
    std::vector<std::string> all{own->address()};
    for (const auto& listener : clients)
      all.push_back(listener->address());
    return all;
  }
  void stop() const {
    own->stop();
    for (const auto& listener : clients)
      listener->stop();
  }
};

void sayStart(aps::Log& log, programs::LineQueue& said, const Listeners& listeners, const aps::Options& options) {
  log.line(fmt::format("aps listens on {}", listeners.own->address()));
  for (const auto& listener : listeners.clients)
    log.line(fmt::format("aps takes print clients of other machines on {}, under TLS", listener->address()));
  log.line(options.keys.empty() ? wordsOfNoKeys(options)
                                : fmt::format("peers must prove that they have their key in {}", options.keys));
  said.put(fmt::format("aps listens on {}\n", listeners.own->address()));
  for (const auto& listener : listeners.clients)
    said.put(fmt::format("aps listens for print clients on {}\n", listener->address()));
}

// The key of a session or of an invitation, for a peer from the network that claims it; nobody else comes from there.
std::optional<corvane::Key> keyForNetwork(const corvane::KeyFolder& keys, const std::string& name) {
  const auto identity = corvane::Identity::parse(corvane::fromUtf8(name));
  if (!identity || identity->isMonitor()) return std::nullopt;
  if (identity->isSession()) return keys.read(*identity);
  return aps::Invitations(keys).keyOf(identity->sessionNumber());
}

// What makes the stream of a connection that was accepted.
using StreamMaker = std::function<std::unique_ptr<corvane::Stream>(corvane::Socket socket)>;

// What every thread that accepts connections works with.
struct Serving {
  aps::ConnectionList& connections;
  aps::Supervision& supervision;
  aps::Log& log;
};

void serveUntilStopped(corvane::Listener& listener, aps::Room room, const StreamMaker& makeStream,
                       const Serving& serving) {
  aps::Log& log = serving.log;
  listener.onShortage([&log](const std::wstring& why) {
    log.refusal("descriptors",
                fmt::format("a connection was turned away: {}; raise the limit on open files (ulimit -n, "
                            "LimitNOFILE=), or end connections",
                            programs::oneLine(why)));
  });
  for (bool isStopped = false; !isStopped;) {
    try {
      auto socket = listener.accept();
      isStopped = !socket;
      if (isStopped || serving.supervision.answersOwnCall(*socket)) continue;
      serving.connections.serve(makeStream(std::move(*socket)), room);
    } catch (const std::bad_alloc&) {
      log.refusal("memory", "a connection was turned away: out of memory");
    }
  }
}

// Serves this machine on this thread and each address for other machines on one of its own, until the listeners stop.
void serveAll(const Listeners& listeners, const corvane::KeyFolder* keys, const Serving& serving) {
  struct Threads {
    ~Threads() {
      listeners.stop();  // where one of them could not be started
      for (std::thread& thread : all)
        thread.join();
    }
    const Listeners& listeners;
    std::vector<std::thread> all;
  } threads{listeners, {}};
  for (const auto& listener : listeners.clients) {
    threads.all.emplace_back([&serving, keys, &listener = *listener] {
      const auto encrypted = [keys](corvane::Socket socket) {
        return std::make_unique<tls::TlsStream>(std::move(socket),
                                                [keys](const std::string& name) { return keyForNetwork(*keys, name); });
      };
      serveUntilStopped(listener, aps::Room::kArrivingFromNetwork, encrypted, serving);
    });
  }
  const auto plain = [](corvane::Socket socket) { return std::make_unique<corvane::Socket>(std::move(socket)); };
  serveUntilStopped(*listeners.own, aps::Room::kArriving, plain, serving);
}

std::shared_ptr<aps::Application> makeApplication(const aps::Options& options, const corvane::KeyFolder* keys,
                                                  const std::shared_ptr<aps::Log>& log) {
  auto application = std::make_shared<aps::Application>(
      log, options.limits, options.launching,
      aps::Application::Records{
          programs::toPath(options.history), options.historyLimits, {corvane::hostName(), options.hasTitles}});
  if (keys != nullptr) application->invitations.emplace(*keys);
  aps::registerClasses(application);
  return application;
}

// The log of the options. A service makes the folders of its files where they are missing, and one that cannot have its
// log says so and serves without it: jobs matter more.
std::shared_ptr<aps::Log> openLog(const aps::Options& options) {
  const std::filesystem::path file = programs::toPath(options.logFile);
  if (!options.isService) return std::make_shared<aps::Log>(file);
  for (const std::string& name : {options.logFile, options.state, options.history, options.jobLog}) {
    std::error_code ignored;
    if (!name.empty()) std::filesystem::create_directories(programs::toPath(name).parent_path(), ignored);
  }
  try {
    return std::make_shared<aps::Log>(file);
  } catch (const std::runtime_error& failure) {
    std::fprintf(stderr, "aps: %s; it serves without a log until it is started again\n", failure.what());
    return std::make_shared<aps::Log>("NUL");
  }
}

// What a hang-up is good for, if not for ending the program: a log's file was renamed. A service manager may send one
// where there is no such file, too. The log of jobs may be null.
std::function<void()> onHangup(const std::shared_ptr<aps::Log>& log, aps::JobLog* jobLog,
                               aps::Supervision& supervision) {
  if (!log->isFile() && jobLog == nullptr && !supervision.isThere()) return {};
  return [&supervision, jobLog, log] {
    supervision.reload([&log, jobLog] {
      if (jobLog != nullptr) jobLog->reopen();
      log->reopen();
      log->flush();
    });
  };
}

// Null when there is to be none.
std::unique_ptr<aps::JobLog> makeJobLog(const aps::Options& options, aps::Application& application) {
  if (options.jobLog.empty()) return nullptr;
  aps::JobLog::Settings settings;
  settings.path = programs::toPath(options.jobLog);
  return std::make_unique<aps::JobLog>(std::move(settings), application.history, *application.log);
}

// What this server is like now. The version is that of its classes.
aps::Metrics collect(aps::Application& application, aps::ConnectionList& connections) {
  aps::Metrics metrics;
  metrics.jobs = application.book.metrics().counts();
  metrics.running = application.book.runningCount();
  metrics.held = application.hold ? application.hold->held().size() : 0;
  metrics.recordsWaiting = application.history.waitingCount();
  for (const auto& session : application.sessions.status())
    ++(session.connected ? metrics.sessionsConnected : metrics.sessionsAway);
  metrics.connections = connections.counts();
  metrics.logLinesLost = application.log->linesLost();
  metrics.version = protocol::versionText();
  metrics.startedAt = std::chrono::duration<double>(application.startedAt.time_since_epoch()).count();
  return metrics;
}

// Null when there are to be none, or cannot be; then a line says why, and jobs print all the same.
std::unique_ptr<aps::MetricsServer> serveMetrics(const aps::Options& options, aps::Application& application,
                                                 aps::ConnectionList& connections, programs::LineQueue& said) try {
  if (options.metrics.empty()) return nullptr;
  auto server = std::make_unique<aps::MetricsServer>(
      options.metrics, [&application, &connections] { return collect(application, connections); });
  application.log->line(fmt::format("metrics are at http://{}/metrics, for whoever asks there", server->address()));
  said.put(fmt::format("aps serves metrics on {}\n", server->address()));
  return server;
} catch (const std::runtime_error& failure) {
  application.log->failure(fmt::format(
      "there are no metrics at {}: {}; jobs print all the same: choose another port with --metrics, or end the program "
      "that has this one, and start aps again",
      options.metrics, failure.what()));
  return nullptr;
}

// Null when the sessions are not kept. Without a file of their own they are kept beside the jobs that are held for
// them.
std::unique_ptr<aps::SessionKeeper> makeKeeper(const aps::Options& options, aps::Application& application) {
  if (options.state.empty() && options.hold.empty()) return nullptr;
  const auto file =
      options.state.empty() ? programs::toPath(options.hold) / "sessions" : programs::toPath(options.state);
  return std::make_unique<aps::SessionKeeper>(file, application.sessions, application.log);
}

// The threads that write the records, which have what the program has decided for all of its threads by now.
void startRecords(aps::Application& application, aps::JobLog* jobLog) {
  application.history.start();
  if (jobLog != nullptr) jobLog->start();
}

// False after saying why jobs cannot be held.
bool holdJobs(const aps::Options& options, const corvane::KeyFolder* keys,
              const std::shared_ptr<aps::Application>& application) try {
  if (options.hold.empty() || keys == nullptr) {
    application->history.endHeld({});  // an earlier start held jobs, and nobody has them now
    return true;
  }
  aps::JobHold::Settings settings{programs::toPath(options.hold), options.holdLimits, options.hasTitles};
  settings.carePause /= options.pace;
  application->hold = std::make_unique<aps::JobHold>(
      std::move(settings), aps::JobHold::Context{*application->log, application->sessions, application->clientNews,
                                                 application->book, application->notices, *keys});
  application->history.endHeld(application->hold->held());
  aps::registerHoldClasses(application);
  return true;
} catch (const std::exception& failure) {
  std::fprintf(stderr, "aps: no jobs can be held (--hold): %s\n", failure.what());
  return false;
}

void endAll(aps::Application& application, aps::ConnectionList& connections, aps::JobLog* jobLog) {
  application.notices.close();
  connections.endAll();
  if (application.hold) application.hold->endAll();
  application.clientNews.endAll();
  application.launcher.endAll();
  application.history.finish();
  if (jobLog != nullptr) jobLog->finish();
  application.log->line("aps stops");
  application.log->finish();
}

// Returns the exit code.
int serve(const aps::Options& options, const corvane::KeyFolder* keys) {
  const auto manager = programs::ServiceManager::fromEnvironment();
  if (!CS_ComponentServer::initialize(0, 0)) {
    std::fputs("the network of this machine cannot be used\n", stderr);
    return 1;
  }
  programs::LineQueue said(programs::outputTo(programs::kStandardOutput));
  const auto log = openLog(options);
  CS_ProgramMonitor::setDefaultMonitor(CS_RCPtr<CS_ProgramMonitor>(new aps::LogMonitor(log)));
  const auto application = makeApplication(options, keys, log);
  const std::unique_ptr<aps::JobLog> jobLog = makeJobLog(options, *application);
  const auto isNeeded = [&application = *application](const CS_Connection& connection) {
    return application.sessions.isClient(&connection) || application.jobs.isNeeded(&connection);
  };
  aps::Supervision supervision(manager, log, [&application] { application->sessions.isClient(nullptr); });

  Listeners listeners;
  if (!listeners.open(options)) return 1;
  application->publicAddress = listeners.publicAddress(options);
  const auto end = [&] {
    supervision.stopping();
    listeners.stop();
  };
  const programs::StopRequest stop(end, onHangup(log, jobLog.get(), supervision));
  if (!holdJobs(options, keys, application)) return 1;
  startRecords(*application, jobLog.get());
  const std::unique_ptr<aps::SessionKeeper> keeper = makeKeeper(options, *application);
  aps::ConnectionList connections(log, placesFor(options, *log), keys, isNeeded,
                                  corvane::Patience().faster(options.pace));
  connections.useLines(options.packsJobs ? &compression::deflate() : nullptr, options.clientRates);
  sayStart(*log, said, listeners, options);
  auto metrics = serveMetrics(options, *application, connections, said);
  supervision.ready(listeners.addresses());
  serveAll(listeners, keys, {connections, supervision, *log});

  metrics.reset();
  if (keeper) keeper->stop();
  endAll(*application, connections, jobLog.get());
  CS_ProgramMonitor::setDefaultMonitor(nullptr);
  return 0;
}

}  // namespace

int programMain(const std::vector<std::string>& arguments) {
  const aps::ParsedOptions parsed = aps::parseOptions(arguments);
  if (parsed.exitCode >= 0) {
    std::fputs(parsed.message.c_str(), parsed.exitCode == 0 ? stdout : stderr);
    return parsed.exitCode;
  }
  aps::Options options = parsed.options;
  if (!options.newKey.empty()) return makeKey(options.newKey);
  std::unique_ptr<corvane::KeyFolder> keys;
  if (!openKeys(options, keys)) return 1;
  return options.invite ? invite(*options.invite, *keys) : serve(options, keys.get());
}
