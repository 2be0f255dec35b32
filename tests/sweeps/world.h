#pragma once

#include "corvane/records/program_monitor.h"
#include "tests/support/import_seam.h"
#include "tests/support/scripted_peer.h"
#include "tests/sweeps/lock_probe.h"
#include "tests/sweeps/private_registry.h"

#include <windows.h>

#include <string>

// What the scenarios live in: the framework with the module's classes, a scripted application server that the module
// finds by itself, one printer in the queue, an installation root with a converter, a folder of its own for temporary
// files, and an empty list of ports in the registry.
//
// bringUpModule() and takeDownModule() are what the spooler's process does with the module, without its start-up: one
// port "CPP7" is in the list in between.
class World {
 public:
  World();
  ~World();
  World(const World&) = delete;
  World& operator=(const World&) = delete;

  ScriptedPeer& peer() { return m_peer; }
  ImportSeams& seams() { return m_seams; }
  // Waits until the server serves no more than that many connections, so that nothing of the others comes any more.
  // That the module has ended them is for the ledger to say: on a busy machine Wine has been seen to keep the end of a
  // connection from the one who waits for it, and then the server ends them itself.
  void settle(int connections);
  // Answers a request for a session's printers with "Laser" and "Ink".
  void answerWithPrinters();

  void bringUpModule();
  void takeDownModule();

  void expectLocksFree() { m_probe.expectFree(); }
  // The monitor that the module installs with its connection goes with the module.
  void restoreRecords();

  const std::wstring& temporaryFolder() const { return m_temporary; }
  // Files in the folder for temporary files; removes them.
  int takeTemporaryFiles();
  // A file there as a process that was killed two days ago has left it.
  void leaveCollectedFile();

 private:
  void makeFolders();

  PrivateRegistry m_registry;  // before the seams, which write down its calls otherwise
  ImportSeams m_seams;
  CS_RCPtr<CS_ProgramMonitor> m_records;
  ScriptedPeer m_peer;
  LockProbe m_probe;
  std::wstring m_temporary;
  wchar_t m_before[MAX_PATH] = {};  // the current directory
};

// Removes the ports of the list and the list, and does what the module's entry does when the module is unloaded.
void unloadModule();
