#pragma once

#include "converter/limits.h"
#include "converter/private_folder.h"

#include <string>
#include <vector>

namespace mg::converter {

// One program to run in a private folder: its working directory is the folder, its temporary folder is
// folder.temporary(), its standard output and standard error go to folder.said().
struct RunRequest {
  std::wstring program;
  std::vector<std::wstring> arguments;
  // The file that the program reads as its standard input. The program never learns its name.
  std::wstring input;
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
  // The exit code when it exited; the system's error number when it was not started; the signal when it was killed.
  int code = 0;
};

// The program to run: the configured one, else the newest installed one (under Wine the host's `gs`). None found is a
// ConversionError (kGhostscriptMissing).
std::wstring findGhostscript(const Limits& limits);

// The arguments for Ghostscript: run the file `script` of its working directory, which runs the document from standard
// input, and write a PDF under the name that PrivateFolder gives its output.
RunRequest pdfWriteRequest(const std::wstring& program, const std::wstring& script, const std::wstring& input);

// Both runners block until the program has ended, and end it when this process ends for any reason. The output limit
// applies to all files of the folder together; it is checked ten times a second.

// Runs a Windows program in a job object that carries the memory limit and ends it with this process. Environment
// variables with further options for Ghostscript are not passed on.
RunResult runOnWindows(const RunRequest& request, PrivateFolder& folder, const Limits& limits);

// Runs a program of the host under Wine, through /bin/sh. Wine gives no handle for such a process, so the shell sets
// the limits, waits, and leaves the exit code in a file of the private folder. A pipe in the folder that this process
// holds open tells the shell that it is alive; when the pipe closes, the shell ends the program and removes the folder.
RunResult runOnHost(const RunRequest& request, PrivateFolder& folder, const Limits& limits);

}  // namespace mg::converter
