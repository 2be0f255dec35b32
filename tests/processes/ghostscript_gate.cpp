#include "tests/processes/ghostscript_gate.h"

#include "tests/processes/process_table.h"

#include <chrono>
#include <fcntl.h>
#include <fstream>
#include <signal.h>
#include <stdexcept>
#include <sys/stat.h>
#include <thread>
#include <unistd.h>

namespace tests {

namespace fs = std::filesystem;

namespace {

// The session stands in the name of the file to be converted, which is the standard input. What is held has its own
// folder, named for the session: "at" says that it is there, "go" is a pipe that it waits for somebody to open.
constexpr char kGateProgram[] = R"(#!/bin/sh
session=$(readlink /proc/$$/fd/0 | sed -n 's/.*(session \([0-9]*\)).*/\1/p')
mine=FOLDER/session-$session
point=$(cat "$mine/point" 2>/dev/null || echo 0)
echo $$ >"$mine/process"
hold() { : >"$mine/at"; read -r _ <"$mine/go"; }
[ "$point" = 1 ] && hold
gs --permit-file-read="$mine/*" --permit-file-write="$mine/*" -sGate="$mine" -dGatePoint="$point" "$@"
status=$?
[ "$point" = 8 ] && hold
exit $status
)";

constexpr char kProlog[] = R"(%!PS-Adobe-3.0
%%Pages: PAGES
%%EndComments
/beside { dup length Gate length add string dup 0 Gate putinterval dup Gate length 4 -1 roll putinterval } def
/point {
  systemdict /Gate known { GatePoint eq } { pop false } ifelse
  { (/at) beside (w) file closefile (/go) beside (r) file closefile } if
} def
)";

std::string with(std::string text, const std::string& word, const std::string& value) {
  for (std::size_t at = text.find(word); at != std::string::npos; at = text.find(word, at + value.size()))
    text.replace(at, word.size(), value);
  return text;
}

std::string pages(int count) {
  std::string text;
  for (int page = 1; page <= count; ++page) {
    const std::string number = std::to_string(page);
    text += "%%Page: " + number + " " + number + "\n" + std::to_string(page + 1) + " point\n" +
            "/Helvetica findfont 24 scalefont setfont 72 700 moveto (page " + number + ") show showpage\n";
  }
  return text + "%%Trailer\n" + std::to_string(count + 2) + " point\n%%EOF\n";
}

}  // namespace

GhostscriptGate::GhostscriptGate(const fs::path& folder) : m_folder(folder) {
  fs::create_directories(folder);
  std::ofstream(program()) << with(kGateProgram, "FOLDER", folder.string());
  fs::permissions(program(), fs::perms::owner_all);
  std::ofstream(document()) << with(kProlog, "PAGES", std::to_string(kPages)) << pages(kPages);
}

bool GhostscriptGate::isWhole(const std::string& pdf) {
  int found = 0;
  for (std::size_t at = pdf.find("/Type/Page"); at != std::string::npos; at = pdf.find("/Type/Page", at + 1)) {
    if (pdf.compare(at, 11, "/Type/Pages") != 0) ++found;
  }
  const std::size_t end = pdf.rfind("%%EOF");
  return pdf.starts_with("%PDF-") && end != std::string::npos && end + 8 > pdf.size() && found == kPages;
}

void GhostscriptGate::holdAt(int session, int point) {
  const fs::path mine = folderOf(session);
  fs::remove_all(mine);
  fs::create_directories(mine);
  if (::mkfifo((mine / "go").c_str(), 0600) != 0) throw std::runtime_error("no pipe in " + mine.string());
  std::ofstream(mine / "point") << point << "\n";
}

pid_t GhostscriptGate::waitUntilHeld(int session) const {
  const fs::path mine = folderOf(session);
  const auto deadline = std::chrono::steady_clock::now() + std::chrono::minutes(1);
  while (!fs::exists(mine / "at")) {
    if (std::chrono::steady_clock::now() >= deadline) throw std::runtime_error("nothing is held in " + mine.string());
    std::this_thread::sleep_for(std::chrono::milliseconds(5));
  }
  pid_t shell = -1;
  int point = 0;
  std::ifstream(mine / "process") >> shell;
  std::ifstream(mine / "point") >> point;
  if (point == 1 || point == 8) return shell;
  for (const Process& process : processesWith("-sGate=" + mine.string() + " ")) {
    if (process.parent == shell) return process.id;
  }
  throw std::runtime_error("Ghostscript is gone from " + mine.string());
}

void GhostscriptGate::open(int session) const {
  const fs::path mine = folderOf(session);
  // It says that it is there just before it opens the pipe; what was killed never does.
  for (int tries = 0; tries < 200; ++tries) {
    const int pipe = ::open((mine / "go").c_str(), O_WRONLY | O_NONBLOCK | O_CLOEXEC);
    if (pipe != -1) {
      ::close(pipe);  // both wait only for somebody to open it
      return;
    }
    pid_t shell = -1;
    if (!(std::ifstream(mine / "process") >> shell) || ::kill(shell, 0) != 0) return;
    std::this_thread::sleep_for(std::chrono::milliseconds(5));
  }
}

}  // namespace tests
