#pragma once

#include "tests/processes/child_process.h"
#include "tests/processes/ghostscript_gate.h"
#include "tests/processes/job_desk.h"
#include "tests/processes/scene.h"
#include "tests/processes/wine_host.h"

#include <map>
#include <memory>
#include <string>
#include <vector>

namespace tests {

// One of the processes that a job goes through.
enum class Part { kHost, kServer, kClient, kConverter, kGhostscript, kPrinter };
inline constexpr int kStages = 8;

// Eight jobs at the same time, of eight sessions, through the real print monitor, server and clients: job number n is
// held at stage n of its life. Then something happens to one part of all of them, they go on, and what became of them
// is looked at. Each step fails the test when it does not work.
//
// The stages of host, server, client and printer: 1 the port is open, 2 the document has been started, 3 the first data
// are written, 4 data are on their way and the client takes no more, 5 the last data are written, 6 Ghostscript is at
// work, 7 the collected document is on its way and the client takes no more, 8 the client brings the document to the
// disk, or gives it to a printer that has made a job for it. Those of converter and Ghostscript are the points of
// GhostscriptGate.
class JobRound {
 public:
  // The converter's time limit, in seconds.
  static constexpr int kConverterSeconds = 20;

  // The desk is the round's own.
  JobRound(Part victim, int number, std::unique_ptr<JobDesk> desk);
  JobRound(const JobRound&) = delete;
  JobRound& operator=(const JobRound&) = delete;
  ~JobRound();

  // The first step: eight jobs, each at its stage.
  void begin();
  // What happens to the processes of the part: SIGSTOP, or SIGKILL, which also waits for their end.
  void signal(int number);
  // What was stopped goes on, and nothing is held any longer.
  void goOn();
  // What was killed comes back, as an administrator would see to: server, clients and printers.
  void restart();
  // Nothing is held any longer but what was stopped.
  void letGo();
  // Waits until the hosts from that stage on have ended by themselves, and until what can come out has; a host that
  // does not end within the bound fails the test and is killed.
  void awaitHosts(int seconds, int firstStage = 1);

  // Whether the job of that stage was reported as printed.
  bool isPrinted(int stage) const { return m_printed.at(stage); }
  bool hasHost(int stage) const { return m_hosts.contains(stage); }
  // What was said about the job's end; empty when nobody said anything.
  std::string failureOf(int stage);
  // What was done to the job in the spooler's queue, in order: "deleted", "marked sent". Nothing leaves it waiting
  // there.
  std::vector<std::string> queueActions(int stage);
  // What has to have been done, as its calls went: a failed start or write deletes the job, the end marks it sent
  // whatever came of it, and a process that was killed before its job had ended has done nothing.
  std::vector<std::string> owedQueueActions(int stage);
  // Whether the job arrived or somebody said something, if only after a while.
  bool isKnown(int stage);
  // What has come out for the job's session, in words: "nothing", "the document", or what is wrong.
  std::string arrived(int stage);

  // Two days pass for what a killed spooler has left of its jobs, so that the next start of the monitor takes it for
  // that. Fails the test when it left nothing.
  void age();

  // Nothing is left of the round but the clients, the server and the documents: no process, no temporary file. By now
  // nothing has come out twice.
  void expectNothingLeft();
  void expectNextJobPrints();

 private:
  struct Plan;
  Plan planOf(int stage) const;
  void startWine();
  void expectNoProcessLeft() const;
  std::unique_ptr<ChildProcess> startClient(int stage);
  std::vector<pid_t> victims() const;
  void restartPrinters();
  std::vector<std::string> sceneOptions() const;
  std::string document(int stage) const { return "s" + std::to_string(stage) + "r" + std::to_string(m_number); }
  std::string log() const;
  // Says what the stage's spooler and the module have said when it does not come to where it is to be held.
  void awaitHeld(int stage);

  const Part m_victim;
  const int m_number;
  const std::unique_ptr<JobDesk> m_desk;
  Scene m_scene;
  std::unique_ptr<WineHost> m_wine;
  GhostscriptGate m_gate;
  std::map<int, std::unique_ptr<ChildProcess>> m_clients, m_hosts;
  std::map<int, pid_t> m_held;  // Ghostscript of each stage
  std::map<int, bool> m_printed;
  std::map<int, std::string> m_hostSaid;  // by hosts that have ended
  std::vector<pid_t> m_stopped;
  std::vector<std::string> m_earlier;  // temporary files that were there before
  std::string m_said;                  // by servers and clients that have been replaced
};

}  // namespace tests
