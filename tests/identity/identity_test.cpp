#include "corvane/components/component_server.h"
#include "corvane/records/operation.h"
#include "corvane/records/program_monitor.h"
#include "monitor/entries.h"
#include "ports/port_list.h"
#include "session/client_print_job.h"
#include "session/port_monitor_server.h"
#include "session/session_printers.h"
#include "tests/identity/identity_watch.h"
#include "tests/support/own_temporary_path.h"
#include "tests/support/ports_registry.h"
#include "tests/support/scripted_peer.h"
#include "util/win_handle.h"

#include <winspool.h>

#include <cstdio>
#include <gmock/gmock.h>
#include <gtest/gtest.h>

LPMONITOR2 WINAPI InitializePrintMonitor2(PMONITORINIT init, PHANDLE handle);

// The module, called as the spooler calls it: by a thread that impersonates a user.
namespace {

using testing::AllOf;
using testing::Contains;
using testing::Each;
using testing::IsEmpty;
using testing::Not;
using testing::StartsWith;

wchar_t* text(const wchar_t* constant) {
  return const_cast<wchar_t*>(constant);
}

class IdentityTest : public testing::Test {
 protected:
  IdentityTest() {
    answer();
    corvane::LocalMonitor::instance().setSink(nullptr);
    CPortList::setInstance(nullptr);
    EXPECT_TRUE(ImpersonateSelf(SecurityImpersonation));
    m_user = IdentityWatch::token();
    EXPECT_NE(InitializePrintMonitor2(nullptr, &m_monitor), nullptr);
    configure(L"AddPort", L"CPP5");
    MGOpenPort(nullptr, text(L"CPP5"), &m_port);
    // Every record and every entry is a line of the log, and each line rotates it.
    CS_TraceEntry::enable(true);
    MGShutdown(nullptr);
    m_watch.take();
  }
  ~IdentityTest() override {
    RevertToSelf();
    CS_TraceEntry::enable(false);
    MGClosePort(m_port);
    configure(L"DeletePort", L"CPP5");
    PortMonitorServer::shutdown();
    CS_ProgramMonitor::setDefaultMonitor(nullptr);
    delete CPortList::instance();
    CPortList::setInstance(nullptr);
    corvane::LocalMonitor::instance().setSink(nullptr);
  }

  void answer() {
    m_peer.answer("ProgramMonitor_s", 1, [](corvane::ValueWriter& reply) { reply.writeBoolean(true); });
    m_peer.answer("PortMonitorClient", 5, [this](corvane::ValueWriter& reply) {
      reply.writeBoolean(m_knowsPrinter);
      if (!m_knowsPrinter) return;
      for (int i = 0; i < 9; ++i)
        reply.writeBoolean(false);
      reply.writeInt(m_printerValue);
      reply.writeInt(0);
    });
    m_peer.answer("PortMonitorClient", 4, [](corvane::ValueWriter& reply) {
      reply.writeBoolean(true);
      reply.writeInt(1);
      reply.writeText(L"Quillfern::NTR::PrintClient");
      for (const int number : {4, 0, 1, 0})
        reply.writeInt(number);
    });
    m_peer.answer("PortMonitorClient", 6, [](corvane::ValueWriter& reply) {
      reply.writeBoolean(true);
      reply.writeBoolean(false);
    });
    m_peer.answer("PortMonitorClient", 7, [](corvane::ValueWriter& reply) { reply.writeBoolean(true); });
    m_peer.answer("PrintClient", 3, [](corvane::ValueWriter& reply) { reply.writeInt(1); });
  }

  static DWORD configure(const wchar_t* command, const wchar_t* input) {
    return MGXcvDataPort(nullptr, command, reinterpret_cast<PBYTE>(text(input)), 10, nullptr, 0, nullptr);
  }
  BOOL start(const wchar_t* printer = L"Laser") {
    DOC_INFO_1W document{text(L"letter.txt"), nullptr, text(L"RAW")};
    return MGStartDocPort(m_port, text(printer), 17, 1, reinterpret_cast<LPBYTE>(&document));
  }
  BOOL write(const std::string& bytes) {
    DWORD written = 0;
    return MGWritePort(m_port, reinterpret_cast<LPBYTE>(const_cast<char*>(bytes.data())),
                       static_cast<DWORD>(bytes.size()), &written);
  }
  // What was done since the last question. The log and the settings are the process's throughout, and the thread is the
  // user's again.
  std::set<std::string> done() {
    EXPECT_EQ(IdentityWatch::token(), m_user) << "the user was lost";
    std::set<std::string> all = m_watch.take();
    for (const char* what : {"log opened", "log renamed"})
      EXPECT_EQ(all.erase(std::string("process: ") + what), 1u) << what;
    return all;
  }

  OwnTemporaryPath m_files;
  PortsRegistry m_registry;
  ScriptedPeer m_peer;
  IdentityWatch m_watch{m_peer.port()};
  bool m_knowsPrinter = true;
  int m_printerValue = 1;
  HANDLE m_monitor = nullptr;
  HANDLE m_port = nullptr;
  LONGLONG m_user = 0;
};

// What a process that was killed two days ago has left, while it lives.
class LeftoverFile {
 public:
  LeftoverFile() {
    wchar_t folder[MAX_PATH] = L"";
    GetTempPathW(MAX_PATH, folder);
    m_path = folder + (L"identity-" + std::to_wstring(GetCurrentProcessId()) + L" - Job #1-1.ps");
    const mg::FileHandle file(CreateFileW(m_path.c_str(), GENERIC_WRITE, 0, nullptr, CREATE_ALWAYS, 0, nullptr));
    FILETIME now;
    GetSystemTimeAsFileTime(&now);
    ULARGE_INTEGER time{{now.dwLowDateTime, now.dwHighDateTime}};
    time.QuadPart -= 2 * 24ull * 60 * 60 * 10000000;
    const FILETIME written{time.LowPart, time.HighPart};
    SetFileTime(file.get(), nullptr, nullptr, &written);
  }
  ~LeftoverFile() { DeleteFileW(m_path.c_str()); }
  LeftoverFile(const LeftoverFile&) = delete;
  LeftoverFile& operator=(const LeftoverFile&) = delete;

  bool isThere() const { return GetFileAttributesW(m_path.c_str()) != INVALID_FILE_ATTRIBUTES; }

 private:
  std::wstring m_path;
};

// What a new job reads before it is connected.
const std::set<std::string> kSettings = {"process: setting read Port", "process: setting read KeyFile",
                                         "process: key opened AppServer", "process: value read ConnectionOptions"};

std::set<std::string> with(std::set<std::string> what, const std::set<std::string>& more) {
  what.insert(more.begin(), more.end());
  return what;
}

TEST_F(IdentityTest, StartingUpIsTheProcesss) {
  PortsRegistry::set(L"CPP6");
  const LeftoverFile leftover;
  corvane::LocalMonitor::instance().setSink(nullptr);
  m_watch.take();
  EXPECT_NE(InitializePrintMonitor2(nullptr, &m_monitor), nullptr);
  CS_TraceEntry::enable(true);
  MGShutdown(nullptr);
  EXPECT_EQ(done(),
            (std::set<std::string>{"process: key made Ports", "process: values listed", "process: setting read Trace",
                                   "process: setting read LogFile", "process: setting read LogLimit",
                                   "process: leftover files looked for", "process: mark looked for",
                                   "process: file opened", "process: leftover file removed"}));
  EXPECT_FALSE(leftover.isThere());
}

TEST_F(IdentityTest, ThePortsAreChangedAsTheUserWhoAsks) {
  EXPECT_EQ(configure(L"AddPort", L"CPP6"), 0u);
  EXPECT_EQ(done(), (std::set<std::string>{"user: key made Ports", "user: value written"}));
  EXPECT_EQ(configure(L"DeletePort", L"CPP6"), 0u);
  const std::set<std::string> deleted{"user: key opened Ports", "user: value deleted"};
  EXPECT_EQ(done(), deleted);
  configure(L"AddPort", L"CPP6");
  m_watch.take();
  EXPECT_EQ(MGDeletePort(nullptr, nullptr, nullptr, text(L"CPP6")), TRUE);
  EXPECT_EQ(done(), deleted);
}

TEST_F(IdentityTest, OpeningClosingAndListingPortsAsksForNothing) {
  HANDLE port = nullptr;
  DWORD needed = 0;
  DWORD returned = 0;
  MGOpenPort(nullptr, text(L"CPP5"), &port);
  MGClosePort(port);
  MGEnumPorts(nullptr, nullptr, 1, nullptr, 0, &needed, &returned);
  MGSetPortTimeOuts(port, nullptr, 0);
  MGReadPort(port, nullptr, 0, nullptr);
  MGXcvOpenPort(nullptr, nullptr, 0, nullptr);
  MGXcvClosePort(nullptr);
  configure(L"InitPortMonitor", L"");
  MGAddPort(nullptr, nullptr, nullptr, nullptr);
  MGAddPortEx(nullptr, nullptr, 0, nullptr, nullptr);
  MGConfigurePort(nullptr, nullptr, nullptr, nullptr);
  MGShutdown(nullptr);
  EXPECT_THAT(done(), IsEmpty());
}

TEST_F(IdentityTest, AJobReadsItsSettingsAsTheProcessAndAsksTheQueueAsTheUser) {
  EXPECT_EQ(start(), TRUE);
  EXPECT_EQ(done(), with(kSettings, {"user: printer opened", "user: job asked for"}));
  EXPECT_EQ(write("abc"), TRUE);
  EXPECT_THAT(done(), IsEmpty());
  EXPECT_EQ(MGEndDocPort(m_port), TRUE);
  EXPECT_EQ(done(), (std::set<std::string>{"user: name asked for", "user: printer opened", "user: job controlled"}));
}

TEST_F(IdentityTest, AFailedJobIsDeletedByTheUserAndReportedByTheProcess) {
  m_knowsPrinter = false;
  EXPECT_EQ(start(), FALSE);
  const std::set<std::string> told{"process: event log opened", "process: event written", "user: name asked for",
                                   "user: printer opened", "user: job controlled"};
  EXPECT_EQ(done(), with(with(kSettings, {"user: job asked for"}), told));
  m_knowsPrinter = true;
  start();
  static_cast<tagPort*>(m_port)->job->dataLost = true;
  m_watch.take();
  EXPECT_EQ(write("abc"), FALSE);
  EXPECT_EQ(done(), told);
}

TEST_F(IdentityTest, TheKeyIsReadAsTheProcess) {
  const std::wstring file = m_watch.log() + L".key";
  m_watch.useKey(file);
  const std::set<std::string> looked{"process: setting read KeyFile", "process: setting read Port",
                                     "process: key opened AppServer", "process: value read ConnectionOptions",
                                     "process: key file looked at"};
  EXPECT_EQ(start(), FALSE);
  const std::set<std::string> missing = done();
  for (const std::string& what : looked)
    EXPECT_THAT(missing, Contains(what));
  EXPECT_THAT(missing, Not(Contains("process: key file opened")));

  std::FILE* made = _wfopen(file.c_str(), L"wb");
  std::fputs("no key", made);
  std::fclose(made);
  m_watch.take();
  EXPECT_EQ(start(), FALSE);
  EXPECT_THAT(done(), AllOf(Contains("process: key file looked at"), Contains("process: key file opened")));
  DeleteFileW(file.c_str());
}

TEST_F(IdentityTest, AJobIsCollectedAsTheUserAndConvertedAsTheProcess) {
  m_printerValue = 3;
  start();
  EXPECT_THAT(m_watch.take(), Contains("process: mark made"));
  EXPECT_EQ(write("%!PS-Adobe-3.0\n"), TRUE);
  EXPECT_EQ(done(), (std::set<std::string>{"user: opened *.ps"}));
  MGEndDocPort(m_port);
  // The converter needs the spooler's rights, and nothing gives the thread back to the user.
  EXPECT_EQ(IdentityWatch::token(), 0);
  const std::set<std::string> all = m_watch.take();
  for (const char* what :
       {"user: opened *.ps", "user: deleted *.pdf", "user: deleted *.log", "user: opened *.log",
        "process: key opened Marrowgate", "process: value read RootPath", "process: converter started",
        "process: deleted *.ps", "process: deleted *.pdf", "process: deleted *.log"})
    EXPECT_THAT(all, Contains(what));
  EXPECT_THAT(all, Not(Contains("user: key opened Marrowgate")));
  EXPECT_THAT(all, Not(Contains("user: value read RootPath")));
  EXPECT_THAT(all, Not(Contains("user: event written")));
}

TEST_F(IdentityTest, ATextForNotepadIsTheUsers) {
  m_printerValue = 3;
  start(L"Preview PDF");
  write("plain text");
  m_watch.take();
  MGEndDocPort(m_port);
  std::set<std::string> all = done();
  for (const std::string& setting : kSettings)
    EXPECT_EQ(all.erase(setting), 1u) << setting;
  EXPECT_THAT(all, Each(StartsWith("user: ")));
  EXPECT_THAT(all, AllOf(Contains("user: opened *.txt"), Contains("user: deleted *.ps")));
}

TEST_F(IdentityTest, AskingForASessionsPrintersConnectsAsTheProcess) {
  void* list = nullptr;
  EXPECT_EQ(GetCachedPrinterList(5, &list), TRUE);
  ReleaseCachedPrinterList(&list);
  EXPECT_EQ(done(), kSettings);
  EXPECT_EQ(ShowPrinter(5, L"Laser"), FALSE);
  EXPECT_THAT(done(), IsEmpty());
  EXPECT_EQ(configure(L"InitSpooler", L""), 0u);
  EXPECT_THAT(done(), IsEmpty());
}

}  // namespace
