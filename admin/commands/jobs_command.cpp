#include "admin/base/moment.h"
#include "admin/commands/invocation.h"
#include "admin/sessions/application_server.h"
#include "corvane/base/text.h"
#include "programs/text.h"
#include "protocol/job_json.h"

#include <windows.h>

#include <CLI/CLI.hpp>
#include <algorithm>
#include <fmt/format.h>
#include <iterator>
#include <limits>
#include <nlohmann/json.hpp>
#include <stdexcept>

namespace admin {
namespace {

using programs::localTime;
using programs::oneLine;
using protocol::JobRecord;
using protocol::JobState;

struct Wanted {
  int job = 0, session = 0, most = 50, serverPort = 0;
  std::string user, since, until;
  bool isFailedOnly = false;
};

std::string orDash(const std::wstring& text) {
  return text.empty() ? "-" : oneLine(text);
}

std::string numberOrDash(int number) {
  return number == 0 ? "-" : std::to_string(number);
}

// One line for a job, and one below it for why.
void sayJob(const JobRecord& job, Output& output) {
  output.line(fmt::format("{:>6}  {}  {:9}  {:>8}  session {}, {}, {}: {}", job.number, localTime(job.began),
                          oneLine(protocol::wordOf(job.state)), sizeText(job.bytes), job.session, orDash(job.user),
                          orDash(job.printer), orDash(job.document)));
  if (!job.cause.empty()) {
    output.line(fmt::format("        {}{}{}", oneLine(job.cause), job.remedy.empty() ? "" : " ", oneLine(job.remedy)));
  }
}

void sayStory(const JobRecord& job, Output& output) {
  sayJob(job, output);
  output.line(fmt::format("        on {}, spooler's job {} of process {}, copies: {}, pages: {}", orDash(job.server),
                          orDash(job.spoolerJob), job.process, numberOrDash(job.copies), numberOrDash(job.pages)));
  std::string times;
  for (const protocol::JobStage stage : protocol::kStages) {
    if (job.milliseconds[stage] != JobRecord::kNotReached) {
      times += fmt::format("{}{} {} ms", times.empty() ? "" : ", ", protocol::wordOf(stage), job.milliseconds[stage]);
    }
  }
  if (!times.empty()) output.line(fmt::format("        {}", times));
  if (!job.ended.empty()) output.line(fmt::format("        ended {}", localTime(job.ended)));
}

std::wstring moment(const std::string& text) {
  if (text.empty()) return L"";
  try {
    return programs::utcText(parseMoment(text, std::chrono::system_clock::now()));
  } catch (const std::invalid_argument& wrong) {
    throw Failure(ExitCode::kUsage, wrong.what(), "");
  }
}

protocol::Jobs queryOf(const Wanted& wanted) {
  protocol::Jobs query;
  query.most = protocol::Jobs::kMost;
  query.job = wanted.job;
  query.session = wanted.session;
  query.user = corvane::fromUtf8(wanted.user);
  query.since = moment(wanted.since);
  query.until = moment(wanted.until);
  query.isFailedOnly = wanted.isFailedOnly;
  return query;
}

ExitCode list(const Wanted& wanted, Output& output) {
  protocol::Jobs query = queryOf(wanted);
  ApplicationServer server(wanted.serverPort);
  protocol::Jobs::Answer all;
  while (all.jobs.size() < static_cast<std::size_t>(wanted.most)) {
    query.most = std::min(protocol::Jobs::kMost, wanted.most - static_cast<int>(all.jobs.size()));
    protocol::Jobs::Answer page = server.jobs(query);
    if (!page.trouble.empty()) all.trouble = page.trouble;
    if (page.jobs.empty()) break;
    query.before = page.jobs.back().number;
    std::move(page.jobs.begin(), page.jobs.end(), std::back_inserter(all.jobs));
  }
  Json jobs = Json::array();
  for (const JobRecord& job : all.jobs) {
    jobs.push_back(nlohmann::ordered_json::parse(protocol::jobText(job)));
    wanted.job != 0 ? sayStory(job, output) : sayJob(job, output);
  }
  if (all.jobs.empty() && wanted.job == 0) output.line("no such jobs");
  if (!all.trouble.empty()) {
    output.line(
        fmt::format("jobs may be missing here, because the history of aps cannot be used: {}", oneLine(all.trouble)));
  }
  output.facts({{"jobs", jobs}, {"trouble", textValue(all.trouble)}});
  if (wanted.job != 0 && all.jobs.empty()) {
    throw Failure(ExitCode::kNotFound, fmt::format("aps knows no job {}", wanted.job),
                  "See which it knows with mgprintmon jobs.");
  }
  return ExitCode::kDone;
}

// "ANNA-PC\anna" as the system calls who runs this.
std::wstring ownName() {
  wchar_t name[257] = L"";
  DWORD size = 257;
  return ::GetUserNameW(name, &size) ? name : L"an administrator";
}

ExitCode cancel(int job, int serverPort, Output& output) {
  const auto answer = ApplicationServer(serverPort).cancelJob({job, ownName()});
  output.facts({{"job", job}, {"canceled", answer.isDone}, {"text", textValue(answer.text)}});
  if (!answer.isDone) {
    throw Failure(ExitCode::kFailed, fmt::format("nothing is canceled: {}", oneLine(answer.text)),
                  "See what runs with mgprintmon jobs.");
  }
  output.line(oneLine(answer.text));
  return ExitCode::kDone;
}

void addServerPort(CLI::App& command, int& port) {
  command.add_option("--server-port", port, "TCP port of aps; default: the registry's")->check(CLI::Range(1, 65535));
}

}  // namespace

void addJobsCommand(CLI::App& app, Invocation& invocation) {
  auto wanted = std::make_shared<Wanted>();
  CLI::App& command =
      addCommand(app, invocation, "jobs",
                 "Lists the jobs of this server, the latest first: whose, since when, how far, how they "
                 "ended and why.",
                 {"jobs", "jobs 17", "jobs --user anna --since yesterday", "jobs --failed --json"});
  command.add_option("job", wanted->job, "the number of one job, whose whole story is told")
      ->check(CLI::Range(1, std::numeric_limits<int>::max()));
  command.add_option("--user", wanted->user, "only jobs of this user, with or without a domain");
  command.add_option("--session", wanted->session, "only jobs of this session")
      ->check(CLI::Range(1, std::numeric_limits<int>::max()));
  command.add_option("--since", wanted->since,
                     "only jobs from then on: today, yesterday, 90m, 2h, 3d, 2026-01-31 or \"2026-01-31 14:30\"");
  command.add_option("--until", wanted->until, "only jobs from before then");
  command.add_flag("--failed", wanted->isFailedOnly, "only jobs that have failed");
  command.add_option("--most", wanted->most, "how many at the most")
      ->capture_default_str()
      ->check(CLI::Range(1, 1000000));
  addServerPort(command, wanted->serverPort);
  command.callback(
      [wanted, &invocation] { invocation.run = [wanted](Output& output) { return list(*wanted, output); }; });
}

void addCancelCommand(CLI::App& app, Invocation& invocation) {
  auto job = std::make_shared<int>(0);
  auto port = std::make_shared<int>(0);
  CLI::App& command = addCommand(app, invocation, "cancel",
                                 "Cancels a job that is running: it ends for the application as when the print client "
                                 "has gone. One that the print client's printer has is canceled there.",
                                 {"cancel 17"});
  command.add_option("job", *job, "its number, from mgprintmon jobs")
      ->required()
      ->check(CLI::Range(1, std::numeric_limits<int>::max()));
  addServerPort(command, *port);
  command.callback([job, port, &invocation] {
    invocation.run = [job, port](Output& output) { return cancel(*job, *port, output); };
  });
}

}  // namespace admin
