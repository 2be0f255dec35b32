#include "admin/install/service_plan.h"

#include "admin/base/service.h"

#include <gtest/gtest.h>

namespace admin {
namespace {

class ServicePlanTest : public ::testing::Test {
 protected:
  ServicePlanTest() {
    places.root = L"C:\\Program Files\\Marrowgate";
    places.dataFolder = L"C:\\ProgramData\\Marrowgate";
    places.serverService = L"MgAdminTestServer";
    places.watchService = L"MgAdminTestWatch";
    forget();
  }
  ~ServicePlanTest() override { forget(); }
  void forget() const {
    deleteService(places.serverService);
    deleteService(places.watchService);
  }

  Places places;
};

constexpr wchar_t kFresh[] =
    L"\"C:\\Program Files\\Marrowgate\\Programs\\aps.exe\" --service --listen 127.0.0.1:4720 --state "
    L"C:\\ProgramData\\Marrowgate\\State\\sessions --history C:\\ProgramData\\Marrowgate\\State\\history --log "
    L"C:\\ProgramData\\Marrowgate\\Log\\aps.log --keys C:\\ProgramData\\Marrowgate\\Keys";

TEST_F(ServicePlanTest, ANewServerHasKeysAndAnAccountOfItsOwn) {
  const ServiceSettings settings = serverService(places, {4720, places.keyFolder(), false});
  EXPECT_EQ(settings.commandLine, kFresh);
  EXPECT_EQ(settings.account, L"NT SERVICE\\MgAdminTestServer");
  EXPECT_EQ(settings.privileges, std::vector<std::wstring>{L"SeChangeNotifyPrivilege"});
}

TEST_F(ServicePlanTest, WithoutAKeyThatIsTypedOut) {
  const ServiceSettings settings = serverService(places, {4720, L"", false});
  EXPECT_NE(settings.commandLine.find(L" --no-keys "), std::wstring::npos) << "no word of it";
  EXPECT_EQ(settings.commandLine.find(L" --keys"), std::wstring::npos);
}

TEST_F(ServicePlanTest, AsTheSystemItMayStartProgramsInSessions) {
  const ServiceSettings settings = serverService(places, {4720, L"", true});
  EXPECT_EQ(settings.account, L"LocalSystem");
  EXPECT_EQ(settings.privileges.size(), 5u);
}

TEST_F(ServicePlanTest, WhatAnAdministratorHasSetStaysUnlessAnOptionNamesIt) {
  ServiceSettings settings = serverService(places, {4720, L"", false});
  settings.commandLine = L"D:\\old\\aps.exe --service --listen 127.0.0.1:1 --no-keys --no-titles";
  makeService(settings);
  const std::wstring program = L"\"C:\\Program Files\\Marrowgate\\Programs\\aps.exe\" ";
  EXPECT_EQ(serverService(places, {}).commandLine, program + L"--service --listen 127.0.0.1:1 --no-keys --no-titles");
  EXPECT_EQ(serverService(places, {5, L"", false}).commandLine,
            program + L"--service --listen 127.0.0.1:5 --no-keys --no-titles");
  EXPECT_EQ(serverService(places, {std::nullopt, L"C:\\a b", false}).commandLine,
            program + L"--service --listen 127.0.0.1:1 --no-titles --keys \"C:\\a b\"");
  settings.commandLine = L"D:\\old\\aps.exe --service --keys C:\\others";
  setServiceCommand(places.serverService, settings.commandLine);
  EXPECT_EQ(serverService(places, {std::nullopt, L"C:\\a b", false}).commandLine,
            program + L"--service --keys C:\\others");
}

TEST_F(ServicePlanTest, PrintClientsOnOtherMachinesAreServedWhereTheOptionsSay) {
  const std::wstring fresh = kFresh;
  ServicePlan plan{4720, places.keyFolder(), false, L"0.0.0.0:4712", L"print.example:4712"};
  EXPECT_EQ(serverService(places, plan).commandLine,
            fresh + L" --listen-clients 0.0.0.0:4712 --public-address print.example:4712");
  ServiceSettings settings = serverService(places, plan);
  settings.commandLine += L" --listen-clients [::]:4712 --no-titles";
  makeService(settings);
  EXPECT_EQ(serverService(places, {}).commandLine, settings.commandLine) << "what nobody named has changed";
  plan = {std::nullopt, L"", false, L"10.0.0.1:5", L""};
  EXPECT_EQ(serverService(places, plan).commandLine,
            fresh + L" --public-address print.example:4712 --no-titles --listen-clients 10.0.0.1:5");
  plan = {std::nullopt, L"", false, L"", L"other.example:6"};
  EXPECT_EQ(serverService(places, plan).commandLine, fresh +
                                                         L" --listen-clients 0.0.0.0:4712 --public-address "
                                                         L"other.example:6 --listen-clients [::]:4712 --no-titles");
  plan = {};
  plan.onlyThisMachine = true;
  EXPECT_EQ(serverService(places, plan).commandLine, fresh + L" --no-titles");
}

TEST_F(ServicePlanTest, AnOptionWithoutItsValueAtTheEndIsTakenOutAlone) {
  ServiceSettings settings = serverService(places, {4720, L"", false});
  settings.commandLine = L"D:\\old\\aps.exe --service --public-address";
  makeService(settings);
  ServicePlan plan;
  plan.onlyThisMachine = true;
  EXPECT_EQ(serverService(places, plan).commandLine, L"\"C:\\Program Files\\Marrowgate\\Programs\\aps.exe\" --service");
}

TEST_F(ServicePlanTest, TheWatchKeepsItsArgumentsToo) {
  ServiceSettings settings = watchService(places);
  EXPECT_EQ(settings.commandLine,
            L"\"C:\\Program Files\\Marrowgate\\Programs\\mgprintmon.exe\" watch --service --log "
            L"C:\\ProgramData\\Marrowgate\\Log\\mgprintmon.log");
  settings.commandLine = L"D:\\old\\mgprintmon.exe watch --service --grace 300";
  makeService(settings);
  EXPECT_EQ(watchService(places).commandLine,
            L"\"C:\\Program Files\\Marrowgate\\Programs\\mgprintmon.exe\" watch --service --grace 300");
}

}  // namespace
}  // namespace admin
