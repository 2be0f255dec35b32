#include "admin/base/service.h"

#include "admin/base/failure.h"
#include "tests/support/admin/service_manager.h"
#include "tests/support/import_seam.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

namespace admin {
namespace {

using ::testing::ElementsAre;
using ::testing::HasSubstr;

constexpr wchar_t kName[] = L"MgAdminTestService";

class ServiceTest : public ::testing::Test {
 protected:
  ServiceTest() { deleteService(kName); }
  ~ServiceTest() override { deleteService(kName); }

  static ServiceSettings settings() {
    return {kName,
            L"A test",
            L"It is there for a test.",
            L"C:\\windows\\no-such-program.exe --service",
            L"NT SERVICE\\MgAdminTestService",
            {L"SeChangeNotifyPrivilege", L"SeTcbPrivilege"}};
  }

  ImportSeams seams;
};

TEST_F(ServiceTest, HasTheIdentifierThatWindowsGivesIt) {
  // Published for this service.
  EXPECT_EQ(serviceSid(L"TrustedInstaller"), L"S-1-5-80-956008885-3418522649-1831038044-1853292631-2271478464");
  EXPECT_EQ(serviceSid(L"trustedinstaller"), serviceSid(L"TrustedInstaller"));
}

TEST_F(ServiceTest, IsMadeWithItsAccountAndIsNotThereAfterItIsDeleted) {
  EXPECT_FALSE(serviceFacts(kName));
  makeService(settings());
  const auto facts = serviceFacts(kName);
  ASSERT_TRUE(facts);
  EXPECT_EQ(facts->commandLine, settings().commandLine);
  EXPECT_EQ(facts->account, L"NT SERVICE\\MgAdminTestService");
  EXPECT_TRUE(facts->startsItself);
  EXPECT_EQ(facts->state, static_cast<DWORD>(SERVICE_STOPPED));
  EXPECT_EQ(stateText(*facts), "is stopped");
  setServiceCommand(kName, L"C:\\other.exe");
  EXPECT_EQ(serviceFacts(kName)->commandLine, L"C:\\other.exe");
  stopService(kName);
  deleteService(kName);
  EXPECT_FALSE(serviceFacts(kName));
  stopService(kName);
}

// Somebody has switched the service off.
void disable(const wchar_t* name) {
  SC_HANDLE const manager = OpenSCManagerW(nullptr, nullptr, SC_MANAGER_CONNECT);
  SC_HANDLE const service = OpenServiceW(manager, name, SERVICE_CHANGE_CONFIG);
  EXPECT_TRUE(ChangeServiceConfigW(service, SERVICE_NO_CHANGE, SERVICE_DISABLED, SERVICE_NO_CHANGE, nullptr, nullptr,
                                   nullptr, nullptr, nullptr, nullptr, nullptr));
  CloseServiceHandle(service);
  CloseServiceHandle(manager);
}

TEST_F(ServiceTest, ThatIsDisabledSaysSoAndStartsWithTheMachineOnceItIsEnabled) {
  makeService(settings());
  EXPECT_FALSE(serviceFacts(kName)->isDisabled);
  disable(kName);
  EXPECT_TRUE(serviceFacts(kName)->isDisabled);
  EXPECT_FALSE(serviceFacts(kName)->startsItself);
  EXPECT_EQ(stateText(*serviceFacts(kName)), "is stopped and disabled");
  enableService(kName);
  EXPECT_FALSE(serviceFacts(kName)->isDisabled);
  EXPECT_TRUE(serviceFacts(kName)->startsItself);
  EXPECT_EQ(serviceFacts(kName)->commandLine, settings().commandLine);
  deleteService(kName);
  try {
    enableService(kName);
    FAIL();
  } catch (const Failure& failure) {
    EXPECT_THAT(failure.what(), HasSubstr("the service \"MgAdminTestService\" cannot be enabled: "));
  }
}

// What Wine does not keep is looked at on its way to Windows.
TEST_F(ServiceTest, IsStartedAgainAfterAFailureOfAnyKindAndHasOnlyItsPrivileges) {
  std::vector<std::string> told;
  takeServiceSettings([&](DWORD level, void* setting) -> WINBOOL {
    switch (level) {
      case SERVICE_CONFIG_FAILURE_ACTIONS: {
        const auto& recovery = *static_cast<SERVICE_FAILURE_ACTIONSW*>(setting);
        EXPECT_EQ(recovery.dwResetPeriod, 86400u);
        for (DWORD i = 0; i < recovery.cActions; ++i) {
          EXPECT_EQ(recovery.lpsaActions[i].Type, SC_ACTION_RESTART);
          told.push_back("again after " + std::to_string(recovery.lpsaActions[i].Delay));
        }
        break;
      }
      case SERVICE_CONFIG_FAILURE_ACTIONS_FLAG:
        told.push_back(static_cast<SERVICE_FAILURE_ACTIONS_FLAG*>(setting)->fFailureActionsOnNonCrashFailures
                           ? "by itself"
                           : "crashes");
        break;
      case SERVICE_CONFIG_SERVICE_SID_INFO:
        told.push_back("identifier " + std::to_string(static_cast<SERVICE_SID_INFO*>(setting)->dwServiceSidType));
        break;
      case SERVICE_CONFIG_REQUIRED_PRIVILEGES_INFO: {
        const wchar_t* name = static_cast<SERVICE_REQUIRED_PRIVILEGES_INFOW*>(setting)->pmszRequiredPrivileges;
        for (; *name != 0; name += std::wcslen(name) + 1)
          told.push_back(std::string(name, name + std::wcslen(name)));
        break;
      }
      default:
        break;
    }
    SetLastError(ERROR_INVALID_LEVEL);
    return level == SERVICE_CONFIG_FAILURE_ACTIONS;
  });
  makeService(settings());
  EXPECT_THAT(told, ElementsAre("again after 5000", "again after 5000", "again after 60000", "by itself",
                                "identifier 1", "SeChangeNotifyPrivilege", "SeTcbPrivilege"));
}

TEST_F(ServiceTest, ThatCannotBeConfiguredIsNotLeftBehind) {
  refuseServiceSetting(2);
  try {
    makeService(settings());
    FAIL();
  } catch (const Failure& failure) {
    EXPECT_EQ(failure.code(), ExitCode::kAccessDenied);
    EXPECT_THAT(failure.what(), HasSubstr("the service \"MgAdminTestService\" cannot be configured: "));
  }
  EXPECT_FALSE(serviceFacts(kName));
}

TEST_F(ServiceTest, WithoutRightsIsNotMadeAndThatIsSaidWithWhatToDo) {
  refuseServiceManager();
  try {
    makeService(settings());
    FAIL();
  } catch (const Failure& failure) {
    EXPECT_EQ(failure.code(), ExitCode::kAccessDenied);
    EXPECT_EQ(failure.remedy(), "Run mgprintmon as administrator, from an elevated command prompt.");
  }
  refuseNewService();
  EXPECT_THROW(makeService(settings()), SystemFailure);
  EXPECT_FALSE(serviceFacts(kName));
}

TEST_F(ServiceTest, WhoseProgramIsMissingDoesNotStart) {
  makeService(settings());
  EXPECT_THROW(startService(kName), Failure);
}

TEST_F(ServiceTest, SaysHowItEnded) {
  ServiceFacts facts;
  facts.error = ERROR_SERVICE_SPECIFIC_ERROR;
  facts.code = 7;
  EXPECT_EQ(stateText(facts), "has stopped with the exit code 7");
  facts.state = SERVICE_RUNNING;
  facts.process = 42;
  EXPECT_EQ(stateText(facts), "runs, process 42");
}

}  // namespace
}  // namespace admin
