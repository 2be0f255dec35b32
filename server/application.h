#pragma once

#include "server/client_news.h"
#include "server/jobs_in_progress.h"
#include "server/launcher.h"
#include "server/log.h"
#include "server/notice_list.h"
#include "server/session_table.h"

#include <chrono>
#include <memory>

namespace aps {

// What the components of the application server share. Outlives every component; safe from any thread.
struct Application {
  Application(std::shared_ptr<Log> logFile, const SessionTable::Limits& limits, Launcher::Settings launching)
      : log(std::move(logFile)), sessions(limits), jobs(limits.printers), launcher(std::move(launching), log) {}

  std::shared_ptr<Log> log;
  SessionTable sessions;
  ClientNews clientNews;
  JobsInProgress jobs;
  Launcher launcher;
  ShownJobs shownJobs;
  NoticeList notices;
  std::chrono::milliseconds longestNoticeWait{5000};  // for one question of an administration tool
  const std::chrono::system_clock::time_point startedAt = std::chrono::system_clock::now();
};

}  // namespace aps
