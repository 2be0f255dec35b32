#include "admin/application_server.h"
#include "admin/invocation.h"
#include "admin/job_outcome.h"
#include "admin/progress_bar.h"
#include "admin/raw_document.h"
#include "admin/system_failure.h"
#include "admin/wine_spooler.h"
#include "corvane/text.h"
#include "programs/one_line.h"

#include <windows.h>

#include <CLI/CLI.hpp>
#include <algorithm>
#include <chrono>
#include <filesystem>
#include <nlohmann/json.hpp>

namespace admin {
namespace {

using programs::oneLine;
using Clock = std::chrono::steady_clock;

// The longest that the server lets somebody wait for a notice.
constexpr long long kLongestWait = 5000;

constexpr unsigned kGivenUpSeconds = 5;

struct Options {
  std::string printer, file, title;
  short copies = 1;
  unsigned waitSeconds = 60;
  int serverPort = 0;
};

// The server as the teller of outcomes. It may be away: printing does not depend on it, knowing what became of it does.
class OutcomeWatch {
 public:
  explicit OutcomeWatch(int serverPort) {
    try {
      m_server = std::make_unique<ApplicationServer>(serverPort);
      m_after = m_server->notices(-1, 0).latest;
    } catch (const Failure& failure) {
      m_server.reset();
      m_why = failure.what();
    }
  }

  // Nothing when nobody could say it in time.
  std::optional<JobOutcome> wait(const AwaitedJob& job, Clock::time_point deadline) {
    while (m_server) {
      const auto left = std::chrono::duration_cast<std::chrono::milliseconds>(deadline - Clock::now()).count();
      try {
        const Notices news = m_server->notices(m_after, static_cast<unsigned>(std::clamp(left, 0LL, kLongestWait)));
        for (const Notice& notice : news.notices) {
          if (job.isOf(notice)) return JobOutcome::of(notice);
        }
        m_after = news.latest;
      } catch (const Failure& failure) {
        m_why = failure.what();
        return std::nullopt;
      }
      if (left <= 0) {
        m_why = "the time for it is over";
        return std::nullopt;
      }
    }
    return std::nullopt;
  }

  bool isThere() const { return m_server != nullptr; }
  const std::string& why() const { return m_why; }

 private:
  std::unique_ptr<ApplicationServer> m_server;
  int m_after = 0;
  std::string m_why;
};

Json outcomeJson(unsigned long job, const Options& options, const JobOutcome& outcome) {
  Json facts;
  facts["job"] = job;
  facts["printer"] = options.printer;
  facts["result"] = textValue(outcome.result);
  facts["session"] = textValue(outcome.session);
  facts["bytes"] = textValue(outcome.bytes);
  if (!outcome.isPrinted) {
    facts["cause"] = textValue(outcome.cause);
    facts["remedy"] = textValue(outcome.remedy);
  }
  return facts;
}

ExitCode sayOutcome(unsigned long job, const Options& options, const JobOutcome& outcome, Output& output) {
  const std::string name = "job " + std::to_string(job) + " on \"" + options.printer + "\"";
  output.facts(outcomeJson(job, options, outcome));
  if (outcome.isPrinted) {
    output.line(name + (outcome.result == L"shown"
                            ? " was opened in session " + oneLine(outcome.session)
                            : " was delivered to the client of session " + oneLine(outcome.session) + ", " +
                                  oneLine(outcome.bytes) + " bytes"));
    return ExitCode::kDone;
  }
  output.line(name + " was not printed: " + oneLine(outcome.cause));
  output.line("  " + oneLine(outcome.remedy));
  return ExitCode::kFailed;
}

ExitCode run(const Options& options, Output& output) {
  RawDocument document;
  document.printer = corvane::fromUtf8(options.printer);
  document.file = corvane::fromUtf8(options.file);
  document.title = options.title.empty() ? std::filesystem::path(document.file).filename().wstring()
                                         : corvane::fromUtf8(options.title);
  document.copies = options.copies;
  OutcomeWatch watch(options.serverPort);
  if (isWine() && !watch.isThere()) {
    throw Failure(ExitCode::kServerAway, watch.why(),
                  "Wine's spooler prints within this program, which would wait for the server: start aps first.");
  }
  SpooledDocument spooled;
  {
    ProgressBar bar(output);
    spooled = printDocument(document, [&bar](unsigned long long done, unsigned long long all) { bar.show(done, all); });
  }
  const unsigned long job = spooled.job;
  output.line("the spooler has job " + std::to_string(job) + " for \"" + options.printer + "\"");
  const AwaitedJob awaited{job, document.printer, isWine() ? GetCurrentProcessId() : 0};
  // A job that the spooler gave up is noticed at once or never.
  const unsigned seconds = spooled.endError != 0 ? std::min(options.waitSeconds, kGivenUpSeconds) : options.waitSeconds;
  const auto outcome = watch.wait(awaited, Clock::now() + std::chrono::seconds(seconds));
  if (outcome) return sayOutcome(job, options, *outcome, output);
  if (spooled.endError != 0) throw SystemFailure("the spooler does not end the document", spooled.endError);
  throw Failure(ExitCode::kUnknownOutcome,
                "what became of job " + std::to_string(job) + " is not known: " + watch.why(),
                "The spooler has the document; mgprintmon status shows the last failures, --wait waits longer.");
}

}  // namespace

void addPrintCommand(CLI::App& app, Invocation& invocation) {
  auto options = std::make_shared<Options>();
  CLI::App& command = addCommand(app, invocation, "print", "Prints a file as it is and waits for what becomes of it.",
                                 {"print \"Laser-2 (session 5)\" letter.ps",
                                  "print \"Laser-2 (session 5)\" letter.ps --copies 2 --title Letter --wait 300"});
  command.add_option("printer", options->printer, "its name on this machine")->required();
  command.add_option("file", options->file, "what to print")->required();
  command.add_option("--copies", options->copies, "how many")->check(CLI::Range(1, 9999));
  command.add_option("--title", options->title, "name of the document; default: of the file");
  command.add_option("--wait", options->waitSeconds, "how many seconds to wait for the outcome; default: 60")
      ->check(CLI::Range(0, 86400));
  command.add_option("--server-port", options->serverPort, "TCP port of aps; default: the registry's")
      ->check(CLI::Range(1, 65535));
  command.callback(
      [options, &invocation] { invocation.run = [options](Output& output) { return run(*options, output); }; });
}

}  // namespace admin
