#include "admin/base/failure.h"
#include "admin/doctor/checks.h"
#include "programs/text.h"

#include <algorithm>
#include <fmt/format.h>

namespace admin {
namespace {

constexpr char kWhoDisables[] =
    "When it is disabled again afterwards, a group policy does that: Computer Configuration, Windows Settings, "
    "Security "
    "Settings, System Services, Print Spooler.";

// What is the matter with the queue, and the remedy; both empty when nothing is.
Failure obstacleOf(const SpoolerPrinter& printer) {
  const std::string name = programs::quoted(printer.name);
  if (printer.isGoing) {
    return {ExitCode::kFailed,
            fmt::format("printer {} is deleted, and it and its port {} stay until the last job has left its queue",
                        name, programs::quoted(printer.port)),
            "Let the job print, or delete it from the queue; when it does not go, restart the spooler."};
  }
  if (printer.isPaused) {
    return {ExitCode::kFailed, fmt::format("printer {} is paused: its jobs wait", name),
            "Take \"Pause Printing\" back in the menu of its queue."};
  }
  if (printer.isOffline) {
    return {ExitCode::kFailed, fmt::format("printer {} is offline: its jobs wait", name),
            "Take \"Use Printer Offline\" back in the menu of its queue."};
  }
  return {ExitCode::kDone, "", ""};
}

}  // namespace

std::string checkSpooler(const std::optional<ServiceFacts>& facts, bool printsHere) {
  if (facts && facts->isDisabled) {
    const bool runs = facts->state == SERVICE_RUNNING;
    throw Failure(
        ExitCode::kFailed,
        fmt::format("the service Spooler is disabled{}", runs ? ", and runs until the machine starts again" : ""),
        fmt::format("Let it start: sc config Spooler start= auto, and net start Spooler. {}", kWhoDisables));
  }
  if (printsHere) return "it is a part of each program that prints";
  if (!facts) {
    throw Failure(ExitCode::kFailed, "the service Spooler is missing", "Install the print services of this Windows.");
  }
  if (facts->state != SERVICE_RUNNING) {
    throw Failure(ExitCode::kFailed, fmt::format("the service Spooler {}", stateText(*facts)),
                  "Start it: net start Spooler. When it ends again, the event log (System, source Service Control "
                  "Manager) says why.");
  }
  return stateText(*facts);
}

std::string checkQueues(const std::vector<std::wstring>& ports, const std::vector<SpoolerPrinter>& present) {
  std::string causes;
  std::string remedy;
  int count = 0;
  for (const SpoolerPrinter& printer : present) {
    if (std::find(ports.begin(), ports.end(), printer.port) == ports.end()) continue;
    ++count;
    const Failure obstacle = obstacleOf(printer);
    if (obstacle.code() == ExitCode::kDone) continue;
    causes += fmt::format("{}{}", causes.empty() ? "" : "; ", obstacle.what());
    if (remedy.find(obstacle.remedy()) == std::string::npos)
      remedy += fmt::format("{}{}", remedy.empty() ? "" : " ", obstacle.remedy());
  }
  if (!causes.empty()) throw Failure(ExitCode::kFailed, causes, remedy);
  if (count == 0) return "there are none yet";
  return fmt::format("{} {} to print", count, count == 1 ? "is ready" : "are ready");
}

}  // namespace admin
