#include "admin/base/failure.h"
#include "admin/base/output.h"
#include "admin/commands/invocation.h"
#include "admin/sessions/outcome_watch.h"
#include "admin/spooler/spooler_printer.h"
#include "admin/spooler/wine_spooler.h"
#include "corvane/base/text.h"
#include "programs/text.h"

#include <windows.h>

#include <CLI/CLI.hpp>
#include <algorithm>
#include <chrono>
#include <cstdlib>
#include <filesystem>
#include <fmt/format.h>
#include <nlohmann/json.hpp>

namespace admin {
namespace {

using programs::oneLine;
using Clock = OutcomeWatch::Clock;

constexpr unsigned kGivenUpSeconds = 5;

struct PrintOptions {
  std::string printer, file, title;
  short copies = 1;
  unsigned waitSeconds = 60;
  bool waitsForPaper = false;
  unsigned paperSeconds = 600;
  int serverPort = 0;
};

Json outcomeJson(unsigned long job, const PrintOptions& options, const JobOutcome& outcome) {
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

std::string nameOf(unsigned long job, const PrintOptions& options) {
  return fmt::format("job {} on \"{}\"", job, options.printer);
}

bool isPaperToCome(const JobOutcome& outcome) {
  return outcome.result == L"delivered" || outcome.result == L"held";
}

ExitCode sayOutcome(unsigned long job, const PrintOptions& options, const JobOutcome& outcome, Output& output) {
  const std::string name = nameOf(job, options);
  if (!options.waitsForPaper || !isPaperToCome(outcome)) output.facts(outcomeJson(job, options, outcome));
  if (outcome.result == L"held") {
    output.line(fmt::format("{} is held until the client of session {} is back, {} bytes", name,
                            oneLine(outcome.session), oneLine(outcome.bytes)));
    return ExitCode::kDone;
  }
  if (outcome.isPrinted) {
    output.line(outcome.result == L"shown" ? fmt::format("{} was opened in session {}", name, oneLine(outcome.session))
                                           : fmt::format("{} was delivered to the client of session {}, {} bytes", name,
                                                         oneLine(outcome.session), oneLine(outcome.bytes)));
    return ExitCode::kDone;
  }
  output.line(fmt::format("{} was not printed: {}", name, oneLine(outcome.cause)));
  output.line(fmt::format("  {}", oneLine(outcome.remedy)));
  return ExitCode::kFailed;
}

// The exit code of what has become of a job in the end.
ExitCode codeOf(protocol::PaperState state) {
  switch (state) {
    case protocol::PaperState::kPrinted:
    case protocol::PaperState::kHandedOn:
      return ExitCode::kDone;
    case protocol::PaperState::kCanceled:
    case protocol::PaperState::kAborted:
      return ExitCode::kFailed;
    default:
      return ExitCode::kUnknownOutcome;
  }
}

ExitCode sayPaper(const AwaitedJob& job, const PrintOptions& options, const JobOutcome& outcome, OutcomeWatch& watch,
                  Output& output) {
  const std::string name = nameOf(job.number, options);
  const auto deadline = Clock::now() + std::chrono::seconds(options.paperSeconds);
  const auto paper = watch.waitForPaper(job, deadline, [&](const JobPaper& news) {
    output.line(fmt::format("{} {}", name, news.text()));
    if (!news.remedy.empty()) output.line(fmt::format("  {}", oneLine(news.remedy)));
  });
  Json facts = outcomeJson(job.number, options, outcome);
  facts["paper"] = paper ? textValue(protocol::wordOf(paper->state)) : Json();
  if (paper && !paper->cause.empty()) facts["cause"] = textValue(paper->cause);
  if (paper && !paper->remedy.empty()) facts["remedy"] = textValue(paper->remedy);
  output.facts(facts);
  if (paper && isFinal(paper->state)) return codeOf(paper->state);
  output.line(paper ? fmt::format("what becomes of {} is not known after {} s", name, options.paperSeconds)
                    : fmt::format("the print client of session {} has told nothing of {} within {} s: {}",
                                  oneLine(outcome.session), name, options.paperSeconds, watch.why()));
  output.line("  --timeout waits longer; mgprintmon status shows what is told later.");
  return ExitCode::kUnknownOutcome;
}

ExitCode run(const PrintOptions& options, Output& output) {
  RawDocument document;
  document.printer = corvane::fromUtf8(options.printer);
  document.file = corvane::fromUtf8(options.file);
  document.title = options.title.empty() ? std::filesystem::path(document.file).filename().wstring()
                                         : corvane::fromUtf8(options.title);
  document.copies = options.copies;
  OutcomeWatch watch(options.serverPort);
  if (spoolerPrintsHere() && !watch.isThere()) {
    throw Failure(
        ExitCode::kServerAway, watch.why(),
        fmt::format("{} Wine's spooler prints within this program, which would wait for the server.", watch.remedy()));
  }
  SpooledDocument spooled;
  {
    ProgressBar bar(output);
    spooled = printDocument(document, [&bar](unsigned long long done, unsigned long long all) { bar.show(done, all); });
  }
  const unsigned long job = spooled.job;
  output.line(fmt::format("the spooler has job {} for \"{}\"", job, options.printer));
  const AwaitedJob awaited{job, document.printer, spoolerPrintsHere() ? GetCurrentProcessId() : 0};
  // For a job that the spooler gave up a notice comes at once or never.
  const unsigned seconds = spooled.endError != 0 ? std::min(options.waitSeconds, kGivenUpSeconds) : options.waitSeconds;
  auto outcome = watch.wait(awaited, Clock::now() + std::chrono::seconds(seconds));
  if (outcome) {
    const int session = std::atoi(corvane::toUtf8(outcome->session).c_str());
    if (outcome->result == L"delivered" && watch.isHeld(awaited, session)) outcome->result = L"held";
    const ExitCode code = sayOutcome(job, options, *outcome, output);
    return options.waitsForPaper && isPaperToCome(*outcome) ? sayPaper(awaited, options, *outcome, watch, output)
                                                            : code;
  }
  if (spooled.endError != 0) throw SystemFailure("the spooler does not end the document", spooled.endError);
  throw Failure(ExitCode::kUnknownOutcome, fmt::format("the outcome of job {} is unknown: {}", job, watch.why()),
                "The spooler has the document; mgprintmon status shows the last failures, --wait waits longer.");
}

}  // namespace

void addPrintCommand(CLI::App& app, Invocation& invocation) {
  auto options = std::make_shared<PrintOptions>();
  CLI::App& command = addCommand(app, invocation, "print", "Prints a file as it is and waits for the outcome.",
                                 {"print \"Laser-2 (session 5)\" letter.ps",
                                  "print \"Laser-2 (session 5)\" letter.ps --copies 2 --title Letter --wait 300",
                                  "print \"Laser-2 (session 5)\" letter.ps --wait-printed --timeout 3600"});
  command.add_option("printer", options->printer, "its name on this machine")->required();
  command.add_option("file", options->file, "what to print")->required();
  command.add_option("--copies", options->copies, "how many")->check(CLI::Range(1, 9999));
  command.add_option("--title", options->title, "name of the document; default: of the file");
  command.add_option("--wait", options->waitSeconds, "how many seconds to wait for the outcome; default: 60")
      ->check(CLI::Range(0, 86400));
  CLI::Option* const paper = command.add_flag("--wait-printed", options->waitsForPaper,
                                              "waits then until the job has come out of the client's printer, and "
                                              "says what becomes of it");
  command.add_option("--timeout", options->paperSeconds, "how many seconds to wait for that; default: 600")
      ->needs(paper)
      ->check(CLI::Range(0, 86400));
  command.add_option("--server-port", options->serverPort, "TCP port of aps; default: the registry's")
      ->check(CLI::Range(1, 65535));
  command.callback(
      [options, &invocation] { invocation.run = [options](Output& output) { return run(*options, output); }; });
}

}  // namespace admin
