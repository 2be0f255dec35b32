#include "monitor/entries.h"

#include <cstring>
#include <gtest/gtest.h>

namespace {

template <class Function>
const void* address(Function* function) {
  return reinterpret_cast<const void*>(function);
}

TEST(MonitorTable, TellsTheSpoolerToReadNineteenSlots) {
  EXPECT_EQ(g_monitorTable.cbSize, 160u);
}

TEST(MonitorTable, HoldsTheEntriesInTheSpoolersOrder) {
  const void* const expected[19] = {
      address(MGEnumPorts),
      address(MGOpenPort),
      nullptr,
      address(MGStartDocPort),
      address(MGWritePort),
      address(MGReadPort),
      address(MGEndDocPort),
      address(MGClosePort),
      address(MGAddPort),
      address(MGAddPortEx),
      address(MGConfigurePort),
      address(MGDeletePort),
      nullptr,
      address(MGSetPortTimeOuts),
      address(MGXcvOpenPort),
      address(MGXcvDataPort),
      address(MGXcvClosePort),
      address(MGShutdown),
      nullptr,
  };
  const void* slots[19];
  std::memcpy(slots, reinterpret_cast<const char*>(&g_monitorTable) + 8, sizeof slots);
  for (int i = 0; i < 19; ++i)
    EXPECT_EQ(slots[i], expected[i]) << "slot " << i + 1;
}

}  // namespace
