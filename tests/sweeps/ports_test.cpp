#include "monitor/entries.h"
#include "ports/port_list.h"
#include "tests/support/ports_registry.h"
#include "tests/sweeps/sweep.h"
#include "tests/sweeps/windows_seams.h"

#include <winspool.h>

#include <gtest/gtest.h>

namespace {

wchar_t* writable(const wchar_t* constant) {
  return const_cast<wchar_t*>(constant);
}

DWORD configure(const wchar_t* command, const wchar_t* input) {
  return MGXcvDataPort(nullptr, command, reinterpret_cast<BYTE*>(writable(input)), 0, nullptr, 0, nullptr);
}

bool isInList(const wchar_t* name) {
  tagPort* port = CPortList::instance()->FindPort(name);
  if (port != nullptr) port->lock->unlock();
  return port != nullptr;
}

bool isInRegistry(const wchar_t* name) {
  return PortsRegistry::values().contains(name);
}

class PortScenario : public Scenario {
 public:
  explicit PortScenario(World& world) : m_world(world) {}
  void prepare() override { m_world.bringUpModule(); }
  void tidy() override {
    m_world.takeDownModule();
    PortsRegistry::remove();
  }

 private:
  World& m_world;
};

class Enumerate : public PortScenario {
 public:
  Enumerate(World& world, DWORD level) : PortScenario(world), m_level(level) {}
  void run() override {
    m_needed = m_returned = 99;
    m_result = MGEnumPorts(nullptr, nullptr, m_level, m_buffer, sizeof m_buffer, &m_needed, &m_returned);
  }
  void check() override {
    if (m_result) checkWhole();
  }
  void checkWhole() override {
    EXPECT_EQ(m_result, TRUE);
    EXPECT_EQ(m_returned, 1u);
    EXPECT_EQ(m_needed, m_level == 1 ? 38u : 142u);
    const wchar_t* name = m_level == 1 ? reinterpret_cast<PORT_INFO_1W*>(m_buffer)->pName
                                       : reinterpret_cast<PORT_INFO_2W*>(m_buffer)->pPortName;
    EXPECT_STREQ(name, L"CPP7");
  }

 private:
  DWORD m_level;
  alignas(8) BYTE m_buffer[256] = {};
  BOOL m_result = FALSE;
  DWORD m_needed = 0;
  DWORD m_returned = 0;
};

class OpenAndClose : public PortScenario {
 public:
  using PortScenario::PortScenario;
  void run() override {
    m_port = nullptr;
    m_opened = MGOpenPort(nullptr, writable(L"CPP7"), &m_port);
    m_flags = m_port == nullptr ? 0 : static_cast<tagPort*>(m_port)->flags;
    m_closed = MGClosePort(m_port);
  }
  void check() override {
    EXPECT_EQ(m_opened, m_port != nullptr ? TRUE : FALSE);
    EXPECT_EQ(m_closed, m_opened);
    EXPECT_EQ(m_flags, m_opened ? kPortIsOpen : 0u);
    if (m_port != nullptr) {
      EXPECT_EQ(static_cast<tagPort*>(m_port)->flags, 0u);
    }
  }
  void checkWhole() override { EXPECT_EQ(m_opened, TRUE); }

 private:
  HANDLE m_port = nullptr;
  BOOL m_opened = FALSE;
  BOOL m_closed = FALSE;
  std::uint32_t m_flags = 0;
};

class Add : public PortScenario {
 public:
  using PortScenario::PortScenario;
  void run() override { m_result = configure(L"AddPort", L"CPP8"); }
  void check() override {
    // What the port list makes of it is not the caller's to know; only the command itself can lack memory.
    EXPECT_TRUE(m_result == ERROR_SUCCESS || m_result == ERROR_INVALID_DATA);
    // A port that is in the registry is in the list. The other way round it may be missing: then its record stays.
    const bool listed = isInList(L"CPP8");
    if (isInRegistry(L"CPP8")) {
      EXPECT_TRUE(listed);
    }
    CPortList::instance()->DeletePort(L"CPP8");
    EXPECT_FALSE(isInList(L"CPP8"));
    EXPECT_FALSE(isInRegistry(L"CPP8"));
    m_wasListed = listed;
  }
  void checkWhole() override {
    EXPECT_EQ(m_result, DWORD{ERROR_SUCCESS});
    EXPECT_TRUE(m_wasListed);
  }

 private:
  DWORD m_result = 0;
  bool m_wasListed = false;
};

class Delete : public PortScenario {
 public:
  using PortScenario::PortScenario;
  void prepare() override {
    PortScenario::prepare();
    add();
  }
  void run() override { m_result = configure(L"DeletePort", L"CPP8"); }
  void check() override {
    EXPECT_TRUE(m_result == ERROR_SUCCESS || m_result == ERROR_INVALID_DATA);
    m_isGone = !isInList(L"CPP8") && !isInRegistry(L"CPP8");
    add();
  }
  void checkWhole() override {
    EXPECT_EQ(m_result, DWORD{ERROR_SUCCESS});
    EXPECT_TRUE(m_isGone);
  }

 protected:
  void add() {
    // Not for a name that it has: its record would be replaced and stay.
    CPortList::instance()->DeletePort(L"CPP8");
    CPortList::instance()->AddNewPort(L"CPP8");
  }

 private:
  DWORD m_result = 0;
  bool m_isGone = false;
};

class DeleteWithBox : public Delete {
 public:
  using Delete::Delete;
  void run() override {
    const int before = windows_seams::messageBoxes();
    m_result = MGDeletePort(nullptr, nullptr, nullptr, writable(L"CPP8"));
    m_boxes = windows_seams::messageBoxes() - before;
  }
  void check() override {
    m_isListed = isInList(L"CPP8");
    if (m_result) {
      EXPECT_FALSE(m_isListed);
    }
    EXPECT_LE(m_boxes, 1);
    add();
  }
  void checkWhole() override {
    EXPECT_EQ(m_result, TRUE);
    EXPECT_EQ(m_boxes, 1);
  }

 private:
  BOOL m_result = FALSE;
  int m_boxes = 0;
  bool m_isListed = false;
};

class InitSpoolerCommand : public PortScenario {
 public:
  using PortScenario::PortScenario;
  void run() override { m_result = configure(L"InitSpooler", L""); }
  void check() override { EXPECT_TRUE(m_result == ERROR_SUCCESS || m_result == ERROR_INVALID_DATA); }
  void checkWhole() override { EXPECT_EQ(m_result, DWORD{ERROR_SUCCESS}); }

 private:
  DWORD m_result = 0;
};

class PortSweep : public testing::Test {
 protected:
  void sweepBoth(Scenario&& scenario, int leastAllocations, int leastCalls) {
    EXPECT_GE(sweepAllocations(m_world, scenario), leastAllocations);
    EXPECT_GE(sweepCalls(m_world, scenario), leastCalls);
  }
  World m_world;
};

TEST_F(PortSweep, EnumeratingAtLevel1SurvivesEveryFailure) {
  sweepBoth(Enumerate(m_world, 1), 0, 0);
}

TEST_F(PortSweep, EnumeratingAtLevel2SurvivesEveryFailure) {
  sweepBoth(Enumerate(m_world, 2), 0, 0);
}

TEST_F(PortSweep, OpeningAndClosingAPortSurvivesEveryFailure) {
  sweepBoth(OpenAndClose(m_world), 1, 0);
}

TEST_F(PortSweep, AddingAPortSurvivesEveryFailure) {
  sweepBoth(Add(m_world), 5, 6);
}

TEST_F(PortSweep, DeletingAPortSurvivesEveryFailure) {
  sweepBoth(Delete(m_world), 2, 6);
}

TEST_F(PortSweep, DeletingAPortWithAMessageBoxSurvivesEveryFailure) {
  sweepBoth(DeleteWithBox(m_world), 1, 8);
}

TEST_F(PortSweep, InitialisingTheSpoolerSurvivesEveryFailure) {
  sweepBoth(InitSpoolerCommand(m_world), 20, 20);
}

}  // namespace
