// Prints jobs as the port monitor of a server would, for users that take turns; the first is anna. What the server
// does not answer is printed again under another number, until so many have been answered or refused:
//
//   farm_jobs PORT PRINTER FIRST-NUMBER JOBS USERS
//
// Without a number of jobs (0) it goes on until its standard input ends.
//
// Each job that was answered is a line on the standard output: its number and its user.
#include "corvane/base/text.h"
#include "corvane/components/component_server.h"
#include "corvane/records/exception.h"
#include "tests/processes/monitor_peer.h"

#include <atomic>
#include <cstdio>
#include <cstdlib>
#include <mutex>
#include <signal.h>
#include <string>
#include <thread>
#include <vector>

namespace {

struct Work {
  int port = 0;
  std::wstring printer;
  std::atomic<int> number{0};  // of the next job
  std::atomic<bool> isOver{false};
  std::mutex lock;  // for the output
};

std::wstring titleOf(const std::wstring& number) {
  return L"Letter " + number;
}

// The port monitor's word on how the job ended.
void tell(tests::MonitorPeer& peer, const Work& work, const std::wstring& number, const std::wstring& user,
          const wchar_t* result) {
  peer.notify(1234, L"spoolsv",
              {L"job",
               L"Job " + number + L" has ended",
               {{L"job", number},
                {L"printer", work.printer},
                {L"document", titleOf(number)},
                {L"process", L"1234"},
                {L"user", L"FARM\\" + user},
                {L"result", result},
                {L"session", L"5"},
                {L"bytes", L"5"}}});
}

bool printOne(Work& work, const std::wstring& user) try {
  const int job = work.number++;
  const std::wstring number = std::to_wstring(job);
  tests::MonitorPeer peer(work.port);
  if (!peer.attach(work.printer)) {
    tell(peer, work, number, user, L"failed");
    return true;
  }
  peer.startJob({L"Laser-2 - Job #" + number, L"Laser-2", titleOf(number), L"RAW"}, {1, 1, 1, 1}, 2);
  peer.writeJob("hello");
  if (peer.endJob() != 1) return false;
  {
    const std::lock_guard<std::mutex> guard(work.lock);
    std::printf("%d %s\n", job, corvane::toUtf8(user).c_str());
    std::fflush(stdout);
  }
  tell(peer, work, number, user, L"delivered");
  return true;
} catch (const CS_Exception&) {
  return false;
}

void printFor(Work& work, int user, int jobs) {
  const std::wstring name = user == 0 ? L"anna" : L"user" + std::to_wstring(user);
  for (int done = 0; jobs == 0 ? !work.isOver : done < jobs;)
    if (printOne(work, name)) ++done;
}

}  // namespace

int main(int argc, char** argv) {
  if (argc != 6) {
    std::fputs("usage: farm_jobs PORT PRINTER FIRST-NUMBER JOBS USERS\n", stderr);
    return 2;
  }
  signal(SIGPIPE, SIG_IGN);
  CS_ComponentServer::initialize(0, 0);
  Work work;
  work.port = std::atoi(argv[1]);
  work.printer = corvane::fromUtf8(argv[2]);
  work.number = std::atoi(argv[3]);
  const int jobs = std::atoi(argv[4]), users = std::atoi(argv[5]);
  std::vector<std::thread> threads;
  for (int user = 0; user < users; ++user)
    threads.emplace_back([&work, user, jobs, users] { printFor(work, user, jobs / users); });
  if (jobs == 0) {
    while (std::getchar() != EOF) {
    }
    work.isOver = true;
  }
  for (std::thread& thread : threads)
    thread.join();
  return 0;
}
