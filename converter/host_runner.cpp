#include "converter/conversion_error.h"
#include "converter/folder_watch.h"
#include "converter/ghostscript.h"
#include "converter/host_shell.h"
#include "util/win_handle.h"

#include <windows.h>

#include <filesystem>
#include <fmt/format.h>
#include <fstream>

namespace mg::converter {
namespace {

// Exit codes of the shell and of `timeout`: the program was not found, not executable, ran out of time.
constexpr int kCannotExecute = 126;
constexpr int kNotFound = 127;
constexpr int kTimedOut = 124;
constexpr int kSignalBase = 128;
constexpr int kSigKill = 9;
constexpr int kSigXfsz = 25;

// After the limit the host kills the program; when this much more time has passed, no status will come.
constexpr ULONGLONG kGraceMilliseconds = 10000;
// The shell is up in milliseconds, on a busy machine in a second.
constexpr ULONGLONG kStartMilliseconds = 10000;

// What the shell does, given the folder, the seconds, the memory in kilobytes, the size of a file in blocks of 512
// bytes, the input, and the words of the program. The converter opens the pipe "line" and holds it open while it is
// alive; however it ends, the pipe closes. Then the program's whole process group is killed, unless it has already
// ended and its number may have been reused, and the folder is removed. The status gets its final name only when it is
// complete and the program's temporary files, whose names a document may have chosen, are removed. The script must not
// contain a single quote.
constexpr char kScript[] = R"(
folder=$1 seconds=$2 memory=$3 blocks=$4 input=$5; shift 5
exec 2>/dev/null
remove() { chmod -R u+rwX "$1"; rm -rf "$1"; }
cd "$folder" && mkfifo line.new && mv line.new line && exec 3<line || exit
read -r go <&3 || { cd /; remove "$folder"; exit; }
rm -f line
(ulimit -v "$memory" && ulimit -f "$blocks" && exec timeout -k 2 "$seconds" env -i PATH=/usr/local/bin:/usr/bin:/bin \
  LC_ALL=C.UTF-8 HOME="$folder/tmp" TMPDIR="$folder/tmp" TEMP="$folder/tmp" TMP="$folder/tmp" "$@"
) <"$input" >said.txt 2>&1 3<&- &
job=$!
{ cat <&3 >/dev/null; [ -e status.new ] || [ -e status ] || kill -s KILL -- "-$job" "$job"; } &
watch=$!
wait "$job"; echo $? >status.new
rmdir tmp || remove tmp; mv status.new status
wait "$watch"; cd /; remove "$folder")";

std::string utf8(const std::wstring& text) {
  const int size =
      WideCharToMultiByte(CP_UTF8, 0, text.data(), static_cast<int>(text.size()), nullptr, 0, nullptr, nullptr);
  std::string bytes(static_cast<size_t>(size), '\0');
  WideCharToMultiByte(CP_UTF8, 0, text.data(), static_cast<int>(text.size()), bytes.data(), size, nullptr, nullptr);
  return bytes;
}

std::string script(const RunRequest& request, const PrivateFolder& folder, const Limits& limits) {
  // The outer limit ends a shell whose converter ended before it opened the pipe.
  std::string script = fmt::format("exec timeout -k 1 {} sh -c '{}' sh {} {} {} {} {} {}", limits.timeSeconds + 60,
                                   kScript, shellWord(hostPath(folder.path())), limits.timeSeconds,
                                   limits.memoryMegabytes * 1024ull, limits.outputMegabytes * 2048ull,
                                   shellWord(hostPath(request.input)), shellWord(utf8(request.program)));
  for (const std::wstring& argument : request.arguments)
    script += fmt::format(" {}", shellWord(utf8(argument)));
  return script;
}

// Opens the pipe that the shell waits for; it closes with this process at the latest.
FileHandle openLine(const FolderWatch& watch, const PrivateFolder& folder) {
  const std::wstring path = folder.path() + L"\\line";
  FileHandle line;
  const bool opened = watch.waitUntil(GetTickCount64() + kStartMilliseconds, [&] {
    line.reset(CreateFileW(path.c_str(), GENERIC_WRITE, FILE_SHARE_READ | FILE_SHARE_WRITE | FILE_SHARE_DELETE, nullptr,
                           OPEN_EXISTING, 0, nullptr));
    return static_cast<bool>(line);
  });
  DWORD written = 0;
  if (!opened || !WriteFile(line.get(), "go\n", 3, &written, nullptr)) {
    throw ConversionError(ExitCode::kGhostscriptMissing,
                          L"The host's shell does not come up: it needs mkfifo, timeout and env in its path.");
  }
  return line;
}

bool readStatus(const std::wstring& path, int& status) {
  std::ifstream file{std::filesystem::path(path)};
  return static_cast<bool>(file >> status);
}

RunResult fromStatus(int status) {
  if (status == kNotFound || status == kCannotExecute) return {RunEnd::kNotStarted, status};
  if (status == kTimedOut || status == kSignalBase + kSigKill) return {RunEnd::kTimeLimit, 0};
  if (status == kSignalBase + kSigXfsz) return {RunEnd::kOutputLimit, 0};
  if (status > kSignalBase && status < kSignalBase + 65) return {RunEnd::kKilled, status - kSignalBase};
  return {RunEnd::kExited, status};
}

}  // namespace

RunResult runOnHost(const RunRequest& request, PrivateFolder& folder, const Limits& limits) {
  const FolderWatch watch(folder.path());
  const ULONGLONG deadline = GetTickCount64() + limits.timeSeconds * 1000ull + kGraceMilliseconds;
  startShell(script(request, folder, limits));
  folder.releaseAtEnd(openLine(watch, folder));
  const unsigned long long most = static_cast<unsigned long long>(limits.outputMegabytes) << 20;
  int status = 0;
  bool tooMuch = false;
  const bool ended = watch.waitUntil(deadline, [&] {
    // In this order: once the status exists nothing more is written, so the size that is checked after it is final.
    const bool hasEnded = readStatus(folder.path() + L"\\status", status);
    tooMuch = folder.holdsMoreThan(most);
    return hasEnded || tooMuch;
  });
  if (tooMuch || !ended) folder.release();
  if (tooMuch) return {RunEnd::kOutputLimit, 0};
  return ended ? fromStatus(status) : RunResult{RunEnd::kTimeLimit, 0};
}

}  // namespace mg::converter
