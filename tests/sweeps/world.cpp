#include "tests/sweeps/world.h"

#include "corvane/components/component_server.h"
#include "corvane/records/messages.h"
#include "monitor/entries.h"
#include "ports/port_list.h"
#include "session/port_monitor_server.h"
#include "session/print_server.h"
#include "tests/sweeps/windows_seams.h"
#include "util/win_handle.h"

#include <cstdio>
#include <gtest/gtest.h>

extern "C" BOOL WINAPI DllMain(HINSTANCE module, DWORD reason, LPVOID);

namespace {

// Takes records and notices and keeps none: it is called while allocations fail.
class QuietMonitor : public CS_ProgramMonitor {
 public:
  void notify(const CS_Notice&) noexcept override {}

 protected:
  void write(const CS_Record&) noexcept override {}
};

std::wstring programFolder() {
  wchar_t path[MAX_PATH] = {};
  GetModuleFileNameW(nullptr, path, MAX_PATH);
  const std::wstring program = path;
  return program.substr(0, program.rfind(L'\\'));
}

void setRootPath(const std::wstring& root) {
  RegSetKeyValueW(HKEY_LOCAL_MACHINE, L"SOFTWARE\\Quillfern\\Marrowgate", L"RootPath", REG_SZ, root.c_str(),
                  static_cast<DWORD>((root.size() + 1) * sizeof(wchar_t)));
}

}  // namespace

World::World() : m_records(new QuietMonitor) {
  CS_ComponentServer::initialize(0, 0);
  CS_ComponentServer* server = CS_ComponentServer::getServer();
  server->registerClass(L"Quillfern::NTR::PortMonitorServer", new PortMonitorServerClass(CS_Version(4, 0, 1, 0)));
  server->registerClass(L"Quillfern::NTR::PrintServer", new PrintServerClass(CS_Version(4, 0, 1, 0)));
  // The log is opened once per process, by the first record.
  CS_ProgramMonitor::getLocalMonitor()->recordText(corvane::kLevelException, corvane::kCategory, L"a sweep begins");
  restoreRecords();
  makeFolders();
  windows_seams::install(m_peer.port());
  m_peer.answer("ProgramMonitor_s", 1, [](corvane::ValueWriter& reply) { reply.writeBoolean(true); });
}

World::~World() {
  CS_ProgramMonitor::setDefaultMonitor(nullptr);
  takeTemporaryFiles();
  SetCurrentDirectoryW(m_before);
  RemoveDirectoryW(m_temporary.c_str());
}

void World::makeFolders() {
  const std::wstring root = programFolder() + L"\\sweeps";
  setRootPath(root);
  m_temporary = root + L"\\" + std::to_wstring(GetCurrentProcessId());
  CreateDirectoryW(m_temporary.c_str(), nullptr);
  SetEnvironmentVariableW(L"TMP", m_temporary.c_str());
  SetEnvironmentVariableW(L"TEMP", m_temporary.c_str());
  // Where there is no directory for temporary files, they land here.
  GetCurrentDirectoryW(static_cast<DWORD>(std::size(m_before)), m_before);
  SetCurrentDirectoryW(m_temporary.c_str());
}

void World::settle(int connections) {
  if (m_peer.waitForOpen(connections)) return;
  std::fputs("the server did not notice the end of a connection\n", stderr);
  m_peer.hangUp();
  EXPECT_TRUE(m_peer.waitForOpen(connections));
}

void World::answerWithPrinters() {
  m_peer.answer("PortMonitorClient", 6, [](corvane::ValueWriter& reply) {
    reply.writeBoolean(true);
    for (const wchar_t* name : {L"Laser", L"Ink"}) {
      reply.writeBoolean(true);
      reply.writeText(name);
    }
    reply.writeBoolean(false);
  });
}

void World::bringUpModule() {
  PortMonitorServer::initialize();
  CPortList::setInstance(new CPortList);
  CPortList::instance()->AddPort(L"CPP7", 0);
}

void World::takeDownModule() {
  unloadModule();
}

void World::restoreRecords() {
  CS_ProgramMonitor::setDefaultMonitor(m_records);
}

int World::takeTemporaryFiles() {
  int count = 0;
  WIN32_FIND_DATAW found;
  const HANDLE search = FindFirstFileW((m_temporary + L"\\*").c_str(), &found);
  if (search == INVALID_HANDLE_VALUE) return 0;
  do {
    if ((found.dwFileAttributes & FILE_ATTRIBUTE_DIRECTORY) != 0) continue;
    ++count;
    DeleteFileW((m_temporary + L"\\" + found.cFileName).c_str());
  } while (FindNextFileW(search, &found));
  FindClose(search);
  return count;
}

void World::leaveCollectedFile() {
  const std::wstring path = m_temporary + L"\\Laser - Job #1-1.ps";
  const mg::FileHandle file(CreateFileW(path.c_str(), GENERIC_WRITE, 0, nullptr, CREATE_ALWAYS, 0, nullptr));
  FILETIME now;
  GetSystemTimeAsFileTime(&now);
  ULARGE_INTEGER time{{now.dwLowDateTime, now.dwHighDateTime}};
  time.QuadPart -= 2 * 24ull * 60 * 60 * 10000000;
  const FILETIME written{time.LowPart, time.HighPart};
  EXPECT_TRUE(SetFileTime(file.get(), nullptr, nullptr, &written));
}

void unloadModule() {
  if (CPortList* list = CPortList::instance()) {
    // The records stay after the end of the list, because the spooler may still hold their addresses.
    for (const wchar_t* name : {L"CPP7", L"CPP8"})
      list->DeletePort(name);
  }
  EXPECT_EQ(DllMain(GetModuleHandleA(nullptr), DLL_PROCESS_DETACH, nullptr), TRUE);
  EXPECT_EQ(CPortList::instance(), nullptr);
}
