#include "corvane/components/component_server.h"
#include "monitor/entries.h"
#include "tests/support/failing_new.h"
#include "tests/support/monitor/job_path.h"
#include "tests/support/ports_registry.h"
#include "tests/support/recording_monitor.h"
#include "tests/support/scripted_peer.h"
#include "tests/support/server_address.h"

#include <cstdio>
#include <cstdlib>

// A class stays registered as long as its process lives. What a job meets without one therefore shows in processes of
// its own: each test runs its body in a fresh one and looks at what that has written.
namespace {

bool isRegistered(const wchar_t* name) {
  return CS_ComponentServer::getServer()->findClass(name) != nullptr;
}

class MissingClassDeathTest : public testing::Test {
 protected:
  // Starts a job in this process, writes what was recorded and done to the queue, and ends the process.
  [[noreturn]] static void startJobAndExit() {
    ScriptedPeer peer;
    const ServerAddress address(peer.port());
    const RecordingScope records;
    const FakeQueue queue;
    CPortList list;
    list.AddPort(L"CPP5", 0);
    tagPort* port = list.FindPort(L"CPP5");
    wchar_t printer[] = L"Laser";
    wchar_t name[] = L"letter.txt";
    DOC_INFO_1W document{name, nullptr, nullptr};
    const BOOL started = MGStartDocPort(port, printer, 17, 1, reinterpret_cast<LPBYTE>(&document));
    for (const std::string& line : records.lines())
      std::fprintf(stderr, "[%s]", line.c_str());
    for (const std::string& line : queue.calls())
      std::fprintf(stderr, "[%s]", line.c_str());
    std::fflush(stderr);
    std::_Exit(started ? 1 : 0);
  }

  static std::string failure(const std::string& level, const std::string& text) {
    return "\\[" + level + ": " + text + "\\]\\[10: " + text +
           "\\]\\[0x4000000c: Deleted print job letter.txt\\]"
           "\\[0x40000008: Stack Trace: MgPrintMon - MGStartDocPort\\(\\)\\]"
           "\\[open Laser\\]\\[job 17 level 2\\]\\[close printer\\]"
           "\\[open Laser 0xf000c\\]\\[set job 17 level 0 command 5\\]\\[close handle\\]";
  }

  ImportSeams m_seams;
};

TEST_F(MissingClassDeathTest, AFrameworkThatWasNeverBroughtUpHasNoBridges) {
  EXPECT_EXIT(startJobAndExit(), testing::ExitedWithCode(0),
              failure("0x4000000a", "Failed to get the root owner's class factory"));
}

// The first class that the module registers had no memory, and nothing was registered in its place.
TEST_F(MissingClassDeathTest, AModuleThatHadNoMemoryForItsClassComesUpAndFailsItsJobs) {
  EXPECT_EXIT(
      {
        const PortsRegistry registry;
        MONITORINIT init{};
        HANDLE handle = nullptr;
        // With the framework up, every attempt makes the same allocations up to the one that fails.
        CS_ComponentServer::initialize(0, 0);
        LPMONITOR2 table = nullptr;
        for (int nth = 1; table == nullptr && nth < 100; ++nth) {
          const FailingNew failing(nth);
          table = InitializePrintMonitor2(&init, &handle);
        }
        if (isRegistered(L"Quillfern::NTR::PortMonitorServer")) std::_Exit(2);
        startJobAndExit();
      },
      testing::ExitedWithCode(0), failure("10", "Failed to get port monitor class factory."));
}

}  // namespace
