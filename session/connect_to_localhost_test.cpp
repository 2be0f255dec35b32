#include "corvane/base/text.h"
#include "corvane/records/exception.h"
#include "session/port_monitor_server.h"
#include "tests/support/corvane/key_files_fixture.h"
#include "tests/support/failing_new.h"
#include "tests/support/import_seam.h"
#include "tests/support/monitor_world.h"

#include <winsock2.h>

#include <cstring>
#include <filesystem>
#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <memory>
#include <string>
#include <vector>

MG_IMPORT_SEAM(L"advapi32.dll", RegOpenKeyExA, ERROR_FILE_NOT_FOUND)
MG_IMPORT_SEAM(L"advapi32.dll", RegQueryValueExA, ERROR_FILE_NOT_FOUND)
MG_IMPORT_SEAM(L"advapi32.dll", RegCloseKey, ERROR_SUCCESS)
MG_IMPORT_SEAM(L"kernel32.dll", Sleep, 0)
MG_IMPORT_SEAM(L"ws2_32.dll", connect, SOCKET_ERROR)

namespace {

using testing::ElementsAre;
using testing::IsEmpty;

const HKEY kAnyKey = reinterpret_cast<HKEY>(0x1234);

class ConnectToLocalhostTest : public testing::Test {
 protected:
  ConnectToLocalhostTest() {
    RegOpenKeyExASeam.replacement = [](HKEY, LPCSTR, DWORD, REGSAM, PHKEY) -> LSTATUS { return ERROR_FILE_NOT_FOUND; };
    RegCloseKeySeam.replacement = [this](HKEY key) -> LSTATUS {
      m_closed.push_back(key);
      return ERROR_SUCCESS;
    };
    connectSeam.watch = [this](SOCKET, const sockaddr* address, int) { m_families.push_back(address->sa_family); };
  }

  void setOptions(DWORD options) {
    RegOpenKeyExASeam.replacement = [](HKEY root, LPCSTR key, DWORD reserved, REGSAM access, PHKEY out) -> LSTATUS {
      EXPECT_EQ(root, HKEY_LOCAL_MACHINE);
      EXPECT_STREQ(key, "SOFTWARE\\Quillfern\\Marrowgate\\AppServer");
      EXPECT_EQ(reserved, 0u);
      EXPECT_EQ(access, static_cast<REGSAM>(KEY_QUERY_VALUE));
      *out = kAnyKey;
      return ERROR_SUCCESS;
    };
    RegQueryValueExASeam.replacement = [options](HKEY key, LPCSTR name, LPDWORD, LPDWORD, LPBYTE data,
                                                 LPDWORD size) -> LSTATUS {
      EXPECT_EQ(key, kAnyKey);
      EXPECT_STREQ(name, "ConnectionOptions");
      EXPECT_EQ(*size, 4u);
      std::memcpy(data, &options, sizeof options);
      return ERROR_SUCCESS;
    };
  }

  // The address families that were dialled by one successful call, in order.
  std::vector<int> familiesOfOneConnect() {
    m_families.clear();
    const CS_RCPtr<CS_Connection> connection = PortMonitorServer::connectToLocalhost();
    EXPECT_TRUE(connection);
    CS_Connection::destroy(connection, true);
    return m_families;
  }

  ImportSeams m_seams;
  RecordingScope m_records;
  std::vector<HKEY> m_closed;
  std::vector<int> m_families;
};

TEST_F(ConnectToLocalhostTest, WithoutOptionsTheNumericAddressIsDialled) {
  MonitorWorld world;
  EXPECT_THAT(familiesOfOneConnect(), ElementsAre(AF_INET));
  EXPECT_THAT(m_closed, IsEmpty());
}

TEST_F(ConnectToLocalhostTest, AKeyWithoutTheValueIsAsGoodAsNone) {
  MonitorWorld world;
  setOptions(0x40000);
  RegQueryValueExASeam.replacement = [](HKEY, LPCSTR, LPDWORD, LPDWORD, LPBYTE, LPDWORD) -> LSTATUS {
    return ERROR_FILE_NOT_FOUND;
  };
  EXPECT_THAT(familiesOfOneConnect(), ElementsAre(AF_INET));
  EXPECT_THAT(m_closed, ElementsAre(kAnyKey));
}

TEST_F(ConnectToLocalhostTest, OtherBitsOfTheOptionsAreIgnored) {
  MonitorWorld world;
  setOptions(~0x40000u);
  EXPECT_THAT(familiesOfOneConnect(), ElementsAre(AF_INET));
}

TEST_F(ConnectToLocalhostTest, TheDualStackBitTriesTheNewProtocolFirst) {
  MonitorWorld world;
  setOptions(0x40001);
  EXPECT_THAT(familiesOfOneConnect(), ElementsAre(AF_INET6, AF_INET));
  EXPECT_THAT(m_closed, ElementsAre(kAnyKey));
}

TEST_F(ConnectToLocalhostTest, ARefusalIsWaitedOutInStepsUntilTheServerIsThere) {
  std::uint16_t port = 0;
  {
    const ScriptedPeer peer;
    port = peer.port();
  }
  const ServerAddress address(port);
  std::unique_ptr<ScriptedPeer> late;
  std::vector<DWORD> pauses;
  CS_ComponentServer::initialize(0, 0);
  SleepSeam.replacement = [&](DWORD milliseconds) {
    // The run time's own locks give up the processor by sleeping for nothing.
    if (milliseconds == 0) return SleepSeam.real(0);
    pauses.push_back(milliseconds);
    if (pauses.size() == 150) late = std::make_unique<ScriptedPeer>(port);
  };
  const CS_RCPtr<CS_Connection> connection = PortMonitorServer::connectToLocalhost();
  SleepSeam.restore();
  EXPECT_TRUE(connection);
  EXPECT_EQ(pauses, std::vector<DWORD>(150, 5000));
  EXPECT_THAT(m_records.lines(), IsEmpty());
  CS_Connection::destroy(connection, true);
}

TEST_F(ConnectToLocalhostTest, AKeyThatIsMissingIsRecordedAndNotWaitedFor) {
  MonitorWorld world;
  const ServerAddress address(world.peer().port(), L"Z:\\no such folder\\monitor.key");
  std::vector<DWORD> pauses;
  SleepSeam.replacement = [&](DWORD milliseconds) { pauses.push_back(milliseconds); };
  EXPECT_FALSE(PortMonitorServer::connectToLocalhost());
  SleepSeam.restore();
  EXPECT_THAT(pauses, testing::Not(testing::Contains(5000u)));
  EXPECT_THAT(m_families, IsEmpty());
  EXPECT_THAT(world.records().lines(),
              ElementsAre("0x40000002: number 3108", "0x40000008: Failed to connect to localhost."));
}

// It may be another program in the server's place.
TEST_F(ConnectToLocalhostTest, AServerThatDoesNotProveItselfIsWaitedOutAsOneThatIsNotThere) {
  MonitorWorld world;
  const keys::KeyFiles files;
  const std::string key = files.add("monitor", 'a');
  const ServerAddress address(world.peer().port(), corvane::fromUtf8(key));
  int pauses = 0;
  SleepSeam.replacement = [&](DWORD milliseconds) {
    if (milliseconds != 5000) return SleepSeam.real(milliseconds);
    EXPECT_THAT(world.records().lines(), IsEmpty());
    if (++pauses == 3) std::filesystem::remove(key);
  };
  EXPECT_FALSE(PortMonitorServer::connectToLocalhost());
  SleepSeam.restore();
  EXPECT_EQ(pauses, 3);
  EXPECT_THAT(world.records().lines(),
              ElementsAre("0x40000002: number 3108", "0x40000008: Failed to connect to localhost."));
}

TEST_F(ConnectToLocalhostTest, WithoutMemoryForTheDialItGivesUp) {
  MonitorWorld world;
  for (int nth = 1;; ++nth) {
    ASSERT_LT(nth, 2000);
    world.records().clear();
    CS_RCPtr<CS_Connection> connection;
    bool failed = false;
    {
      const FailingNew failing(nth);
      connection = PortMonitorServer::connectToLocalhost();
      failed = failing.hasFailed();
    }
    if (!connection) {
      EXPECT_THAT(world.records().lines(),
                  ElementsAre("0x40000002: number 3012", "0x40000008: Failed to connect to localhost."))
          << nth;
    }
    CS_Connection::destroy(connection, true);
    if (!failed) break;
  }
}

TEST_F(ConnectToLocalhostTest, WithoutMemoryItRecordsWhyAndAnswersNull) {
  MonitorWorld world;
  const FailingNew failing(1);
  EXPECT_FALSE(PortMonitorServer::connectToLocalhost());
  EXPECT_TRUE(failing.hasFailed());
  EXPECT_THAT(world.records().lines(),
              ElementsAre("0x40000002: number 3012", "0x40000008: Failed to connect to localhost."));
  EXPECT_EQ(world.records().reports(), 1);
}

}  // namespace
