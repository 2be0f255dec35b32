#pragma once

#include "converter/limits.h"
#include "converter/private_folder.h"

#include <string>
#include <vector>

namespace mg::converter {

// One program to run in a private folder: its working directory is the folder, its temporary folder is
// folder.temporary(), its standard output and standard error go to folder.said(), its standard input is empty.
struct RunRequest {
  std::wstring program;
  // Arguments in order; the input file stands between them, because a runner on a foreign system must rename it.
  std::vector<std::wstring> beforeInput;
  std::wstring input;
  std::vector<std::wstring> afterInput;
};

// How a program ended.
enum class RunEnd {
  kExited,
  // It could not be started: it is missing or cannot be executed.
  kNotStarted,
  // It was stopped because it reached a limit.
  kTimeLimit,
  kOutputLimit,
  // It was killed or crashed.
  kKilled,
};

struct RunResult {
  RunEnd end = RunEnd::kNotStarted;
  // The exit code when it exited, the system's number when it was not started or killed.
  int code = 0;
};

// Runs a Windows program in a job object that carries the memory limit and ends it with this process. Blocks until it
// has ended. Environment variables that would give Ghostscript further options are not handed on.
RunResult runOnWindows(const RunRequest& request, const PrivateFolder& folder, const Limits& limits);

// Runs a program of the host under Wine, through /bin/sh. Wine gives no handle for such a process, so the shell sets
// the limits, waits, and leaves the exit code in a file of the private folder. Blocks until that file is there or the
// time limit and a grace have passed.
RunResult runOnHost(const RunRequest& request, const PrivateFolder& folder, const Limits& limits);

// True under Wine.
bool runsUnderWine();

}  // namespace mg::converter
