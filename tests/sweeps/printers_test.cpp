#include "session/port_monitor_server.h"
#include "session/session_printers.h"
#include "tests/sweeps/sweep.h"
#include "tests/sweeps/windows_seams.h"

#include <gtest/gtest.h>

namespace {

using Names = TObjectMap<UTL_String, void*>;

// Starts without a connection to the server, so that making it is part of what fails.
class PrinterScenario : public Scenario {
 public:
  explicit PrinterScenario(World& world) : m_world(world) { world.answerWithPrinters(); }
  void prepare() override { m_world.bringUpModule(); }
  void tidy() override {
    m_world.takeDownModule();
    m_world.settle(0);
    m_world.peer().clear();
  }

 private:
  World& m_world;
};

class Show : public PrinterScenario {
 public:
  using PrinterScenario::PrinterScenario;
  void run() override {
    // Past the time for which a list that came only in part would be believed.
    windows_seams::advance(1000);
    m_shown = ShowPrinter(7, L"Laser");
    m_shownAgain = ShowPrinter(7, L"Laser");
    m_unknown = ShowPrinter(7, L"Nobody's");
  }
  void check() override {
    // The second question is answered from the first one's list, unless the failure came in one of the two.
    if (m_shown && m_unknown) {
      EXPECT_TRUE(m_shownAgain);
    }
  }
  void checkWhole() override {
    EXPECT_EQ(m_shown, TRUE);
    EXPECT_EQ(m_shownAgain, TRUE);
    EXPECT_EQ(m_unknown, FALSE);
  }

 private:
  BOOL m_shown = FALSE;
  BOOL m_shownAgain = FALSE;
  BOOL m_unknown = FALSE;
};

// The same where the port has a list already, which is too old to be believed.
class ShowAnew : public Show {
 public:
  using Show::Show;
  void prepare() override {
    Show::prepare();
    ShowPrinter(7, L"Laser");
  }
};

class Cached : public PrinterScenario {
 public:
  using PrinterScenario::PrinterScenario;
  void run() override {
    m_list = nullptr;
    m_result = GetCachedPrinterList(7, &m_list);
    m_count = m_list == nullptr ? 0 : static_cast<Names*>(m_list)->count();
    ReleaseCachedPrinterList(&m_list);
  }
  void check() override {
    EXPECT_EQ(m_list, nullptr);
    EXPECT_LE(m_count, 2u);
  }
  void checkWhole() override {
    checkRepeated();
    EXPECT_EQ(m_count, 2u);
  }
  // A first answer that came only in part is kept until the port is removed.
  void checkRepeated() override { EXPECT_EQ(m_result, TRUE); }

 private:
  void* m_list = nullptr;
  BOOL m_result = FALSE;
  std::size_t m_count = 0;
};

class PrinterSweep : public testing::Test {
 protected:
  World m_world;
};

TEST_F(PrinterSweep, ShowPrinterSurvivesEveryFailingAllocation) {
  Show scenario(m_world);
  EXPECT_GT(sweepAllocations(m_world, scenario), 40);
}

TEST_F(PrinterSweep, ShowPrinterSurvivesEveryFailingCall) {
  Show scenario(m_world);
  EXPECT_GT(sweepCalls(m_world, scenario), 30);
}

TEST_F(PrinterSweep, ShowPrinterWithAnOldListSurvivesEveryFailingAllocation) {
  ShowAnew scenario(m_world);
  EXPECT_GT(sweepAllocations(m_world, scenario), 10);
}

TEST_F(PrinterSweep, TheCachedListSurvivesEveryFailingAllocation) {
  Cached scenario(m_world);
  EXPECT_GT(sweepAllocations(m_world, scenario), 40);
}

TEST_F(PrinterSweep, TheCachedListSurvivesEveryFailingCall) {
  Cached scenario(m_world);
  EXPECT_GT(sweepCalls(m_world, scenario), 30);
}

}  // namespace
