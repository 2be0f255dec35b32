// The desk of somebody who prints: a print scheduler (cupsd) with a queue "desk" in front of a printer (ippeveprinter),
// and a program that finds them as any program of that person would, such as printclient. Says what comes out of the
// printer and puts it into a folder. Ends with the program, and as it did; when it is to stop it stops the program.
//
//   paper_desk FOLDER PROGRAM [ARGUMENT...]

#include "tests/support/paper/print_scheduler.h"
#include "tests/support/paper/virtual_printer.h"

#include <csignal>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <fstream>
#include <sys/prctl.h>
#include <sys/wait.h>
#include <thread>
#include <unistd.h>

namespace {

pid_t g_program = -1;

pid_t start(char** program) {
  const pid_t id = ::fork();
  if (id != 0) return id;
  ::prctl(PR_SET_PDEATHSIG, SIGKILL);
  ::execvp(program[0], program);
  std::fprintf(stderr, "paper_desk: %s: %s\n", program[0], std::strerror(errno));
  ::_exit(127);
}

// What has come out behind the first so many jobs.
std::size_t takePages(const tests::VirtualPrinter& printer, std::size_t known, const std::filesystem::path& folder) {
  const std::vector<std::string> printed = printer.printed();
  for (; known < printed.size(); ++known) {
    const bool isPdf = printed[known].starts_with("%PDF");
    const std::filesystem::path file = folder / ("paper-" + std::to_string(known + 1) + (isPdf ? ".pdf" : ".ps"));
    std::ofstream(file, std::ios::binary) << printed[known];
    std::printf("paper: \"%s\", copies %s, %s\n", printer.said(known, "IPP_JOB_NAME").c_str(),
                printer.said(known, "IPP_COPIES").c_str(), file.c_str());
    std::fflush(stdout);
  }
  return known;
}

}  // namespace

int main(int count, char** arguments) try {
  if (count < 3) {
    std::fputs("usage: paper_desk FOLDER PROGRAM [ARGUMENT...]\n", stderr);
    return 2;
  }
  const std::filesystem::path folder = arguments[1];
  std::filesystem::create_directories(folder);
  const tests::PaperPlace place;
  const tests::PrintScheduler scheduler(place);
  const tests::VirtualPrinter printer(place);
  scheduler.addQueue("desk", printer.uri());
  g_program = start(arguments + 2);
  for (const int number : {SIGINT, SIGTERM})
    std::signal(number, [](int signal) { ::kill(g_program, signal); });
  int status = 0;
  std::size_t known = 0;
  while (::waitpid(g_program, &status, WNOHANG) == 0) {
    known = takePages(printer, known, folder);
    std::this_thread::sleep_for(std::chrono::milliseconds(20));
  }
  takePages(printer, known, folder);
  return WIFEXITED(status) ? WEXITSTATUS(status) : 128 + WTERMSIG(status);
} catch (const std::exception& failure) {
  std::fprintf(stderr, "paper_desk: %s\n", failure.what());
  return 1;
}
