#include "ports/port_list.h"
#include "session/port_monitor_server.h"
#include "tests/support/import_seam.h"
#include "tests/support/local_log.h"
#include "tests/support/recording_monitor.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

extern "C" BOOL WINAPI DllMain(HINSTANCE module, DWORD reason, LPVOID);

MG_IMPORT_SEAM(L"kernel32.dll", DisableThreadLibraryCalls, FALSE)

namespace {

using testing::ElementsAre;
using testing::IsEmpty;

const HINSTANCE kModule = reinterpret_cast<HINSTANCE>(0x1230000);

class DllMainTest : public testing::Test {
 protected:
  DllMainTest() {
    DisableThreadLibraryCallsSeam.replacement = [this](HMODULE module) -> WINBOOL {
      m_quiet.push_back(module);
      return FALSE;
    };
    m_log.trace();
  }
  ~DllMainTest() override { CPortList::setInstance(nullptr); }

  ImportSeams m_seams;
  RecordingScope m_records;
  LocalLog m_log;
  std::vector<HMODULE> m_quiet;
};

TEST_F(DllMainTest, AttachingSwitchesOffTheNoticesOfThreadsAndCreatesNothing) {
  EXPECT_EQ(DllMain(kModule, 1, nullptr), TRUE);
  EXPECT_EQ(DllMain(kModule, 2, nullptr), TRUE);
  EXPECT_THAT(m_quiet, ElementsAre(kModule, kModule));
  EXPECT_EQ(CPortList::instance(), nullptr);
  EXPECT_THAT(m_log.lines(), IsEmpty());
}

TEST_F(DllMainTest, AThreadThatEndsIsOfNoInterest) {
  CPortList list;
  CPortList::setInstance(&list);
  m_log.clear();
  EXPECT_EQ(DllMain(kModule, 3, nullptr), TRUE);
  EXPECT_EQ(DllMain(kModule, 4, nullptr), TRUE);
  EXPECT_THAT(m_quiet, IsEmpty());
  EXPECT_EQ(CPortList::instance(), &list);
  EXPECT_THAT(m_log.lines(), IsEmpty());
}

TEST_F(DllMainTest, DetachingEndsTheSessionLinkAndThenDeletesThePortList) {
  struct Derived : CPortList {
    explicit Derived(bool& gone) : m_gone(gone) {}
    ~Derived() override { m_gone = true; }
    bool& m_gone;
  };
  bool gone = false;
  CPortList::setInstance(new Derived(gone));
  PortMonitorServer::initialize();
  m_log.clear();
  EXPECT_EQ(DllMain(kModule, 0, nullptr), TRUE);
  EXPECT_TRUE(gone);
  EXPECT_EQ(CPortList::instance(), nullptr);
  EXPECT_THAT(m_log.entered(), ElementsAre("PortMonitorServer::shutdown()", "CPortList::~CPortList()"));
  EXPECT_THAT(m_quiet, IsEmpty());
}

TEST_F(DllMainTest, DetachingWithoutHavingBeenInitialisedIsASuccess) {
  EXPECT_EQ(DllMain(kModule, 0, nullptr), TRUE);
  EXPECT_EQ(DllMain(kModule, 0, nullptr), TRUE);
  EXPECT_THAT(m_log.entered(), ElementsAre("PortMonitorServer::shutdown()", "PortMonitorServer::shutdown()"));
  EXPECT_THAT(m_records.lines(), IsEmpty());
}

}  // namespace
