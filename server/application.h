#pragma once

#include "server/administration_server.h"
#include "server/client_news.h"
#include "server/hold/held_job_taker.h"
#include "server/hold/job_hold.h"
#include "server/invitation_host.h"
#include "server/invitations.h"
#include "server/jobs/job_book.h"
#include "server/jobs/job_history.h"
#include "server/jobs/printer_cancel.h"
#include "server/jobs_in_progress.h"
#include "server/launcher.h"
#include "server/log.h"
#include "server/notice_list.h"
#include "server/port_monitor_client.h"
#include "server/program_monitor_server.h"
#include "server/session_host.h"
#include "server/session_table.h"

#include <chrono>
#include <filesystem>
#include <memory>
#include <optional>
#include <string>
#include <tuple>

namespace aps {

// The parts of the application server, and which of them the components of each class work with. Outlives every
// component; safe from any thread.
struct Application {
  // What is kept of jobs, and where; in memory without a file.
  struct Records {
    std::filesystem::path history;
    JobHistory::Limits limits;
    JobBook::Settings book;
  };

  Application(std::shared_ptr<Log> logFile, const SessionTable::Limits& limits, Launcher::Settings launching,
              Records records = Records())
      : log(std::move(logFile)),
        sessions(limits),
        jobs(limits.printers),
        launcher(std::move(launching), log),
        history(std::move(records.history), records.limits, *log),
        book(history, std::move(records.book)) {}
  Application(const Application&) = delete;
  Application& operator=(const Application&) = delete;

  // What the components of a class share; it keeps the application.
  template <class Component>
  static std::shared_ptr<typename Component::Context> contextOf(const std::shared_ptr<Application>& application) {
    return {application, &std::get<typename Component::Context>(application->contexts)};
  }

  const std::shared_ptr<Log> log;
  SessionTable sessions;
  ClientNews clientNews;
  JobsInProgress jobs;
  Launcher launcher;
  ShownJobs shownJobs;
  NoticeList notices;
  JobHistory history;
  JobBook book;
  PrinterCancel printerCancel{book, sessions, clientNews};
  // Set before the first peer is served.
  std::optional<Invitations> invitations;  // nothing where peers need no keys
  std::unique_ptr<JobHold> hold;           // null where no jobs are held
  StandIn* standIn = nullptr;              // the same, for who serves the port monitor
  std::string publicAddress;  // where print clients of other machines come to; empty when that is not known
  std::chrono::milliseconds longestNoticeWait{5000};  // for one question of an administration tool
  const std::chrono::system_clock::time_point startedAt = std::chrono::system_clock::now();

 private:
  std::tuple<PortMonitorClient::Context, SessionHost::Context, ProgramMonitorServer::Context,
             AdministrationServer::Context, InvitationHost::Context, HeldJobTaker::Context>
      contexts{{*log, sessions, clientNews, jobs, shownJobs, launcher, book, standIn},
               {*log, sessions, clientNews, notices, book, hold},
               {*log, sessions, clientNews, notices, book},
               {*log, sessions, notices, invitations, publicAddress, longestNoticeWait, startedAt, book, printerCancel,
                hold},
               {*log, invitations},
               {hold}};
};

// Registers the classes of this server's components and offers those that a peer may create. Once, before the first
// peer is served; the components share the application.
void registerClasses(const std::shared_ptr<Application>& application);
// The same for those of an application that holds jobs, once it does: the port monitor's jobs find it from then on.
void registerHoldClasses(const std::shared_ptr<Application>& application);

}  // namespace aps
