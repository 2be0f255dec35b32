#include "server/session_host.h"

#include "corvane/base/process.h"
#include "protocol/registration.h"
#include "server/application.h"
#include "tests/support/connection_pair.h"

#include <filesystem>
#include <gtest/gtest.h>

namespace aps {
namespace {

class SessionHostTest : public ::testing::Test {
 protected:
  SessionHostTest() {
    CS_ComponentServer::initialize(0, 0);
    m_application =
        std::make_shared<Application>(std::make_shared<Log>(m_logFile), SessionTable::Limits{}, Launcher::Settings{});
    registerClasses(m_application);
    protocol::registerSessionClientClass();
  }
  ~SessionHostTest() override {
    m_application.reset();
    std::error_code ignored;
    std::filesystem::remove(m_logFile, ignored);
  }

  static protocol::Registration::Answer enter(ConnectionPair& pair, int session) {
    Printer laser;
    laser.texts[0] = L"Laser";
    laser.format = protocol::DataFormat::kRaw;
    return protocol::registerPrinters(pair.dialedPointer(), session, {laser});
  }
  bool isConnected(int session) const {
    for (const SessionTable::Status& status : m_application->sessions.status()) {
      if (status.number == session) return status.connected;
    }
    return false;
  }

  const std::filesystem::path m_logFile =
      std::filesystem::temp_directory_path() / ("aps_host_" + std::to_string(corvane::processId()) + ".log");
  std::shared_ptr<Application> m_application;
};

TEST_F(SessionHostTest, AnySessionLosesItsClientWithTheClientsConnection) {
  for (const int session : {1, 2, 5}) {
    {
      ConnectionPair pair;
      EXPECT_TRUE(enter(pair, session).isAccepted);
      EXPECT_TRUE(isConnected(session));
    }
    EXPECT_FALSE(isConnected(session)) << session;
  }
}

}  // namespace
}  // namespace aps
