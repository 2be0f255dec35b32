
#include "session/port_monitor_server.h"
#include "session/print_server.h"
#include "tests/support/failing_new.h"

#include <gtest/gtest.h>

namespace {

constexpr CS_Version kVersion(4, 0, 1, 0);

TEST(ComponentClass, MakesComponentsOfItsOwnKind) {
  PortMonitorServerClass portMonitors(kVersion);
  CS_Component* portMonitor = portMonitors.createInstance();
  EXPECT_NE(dynamic_cast<PortMonitorServer*>(portMonitor), nullptr);
  EXPECT_TRUE(portMonitors.destroyInstance(portMonitor));

  PrintServerClass printServers(kVersion);
  CS_Component* printServer = printServers.createInstance();
  EXPECT_NE(dynamic_cast<PrintServer*>(printServer), nullptr);
  EXPECT_TRUE(printServers.destroyInstance(printServer));
}

TEST(ComponentClass, MakesNothingWithoutMemory) {
  PortMonitorServerClass portMonitors(kVersion);
  PrintServerClass printServers(kVersion);
  {
    const FailingNew failing(1);
    EXPECT_EQ(portMonitors.createInstance(), nullptr);
    EXPECT_TRUE(failing.hasFailed());
  }
  const FailingNew failing(1);
  EXPECT_EQ(printServers.createInstance(), nullptr);
  EXPECT_TRUE(failing.hasFailed());
}

TEST(ComponentClass, SpeaksTheFirstRequestLayoutAndKeepsItsVersion) {
  const PortMonitorServerClass portMonitors(kVersion);
  const PrintServerClass printServers(kVersion);
  EXPECT_EQ(portMonitors.currentSchema(), 1);
  EXPECT_EQ(printServers.currentSchema(), 1);
  EXPECT_EQ(portMonitors.version(), kVersion);
  EXPECT_EQ(printServers.version(), kVersion);
}

TEST(ComponentClass, TakesTheDestructionOfNothingForASuccess) {
  PrintServerClass printServers(kVersion);
  EXPECT_TRUE(printServers.destroyInstance(nullptr));
}

}  // namespace
