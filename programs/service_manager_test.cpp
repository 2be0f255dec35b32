#include "programs/service_manager.h"

#include <cstddef>
#include <cstdlib>
#include <cstring>
#include <filesystem>
#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <stdexcept>
#include <sys/socket.h>
#include <sys/un.h>
#include <unistd.h>

namespace programs {
namespace {

using std::chrono::microseconds;
using ::testing::ElementsAre;

// The manager's end. Its name is a path in a folder of its own, or an abstract one.
class ManagerSocket {
 public:
  explicit ManagerSocket(const std::string& name) : m_name(name), m_handle(::socket(AF_UNIX, SOCK_DGRAM, 0)) {
    sockaddr_un address{};
    address.sun_family = AF_UNIX;
    std::memcpy(address.sun_path, name.data(), name.size());
    const bool isAbstract = name[0] == '@';
    if (isAbstract) address.sun_path[0] = '\0';
    const auto length = offsetof(sockaddr_un, sun_path) + name.size() + (isAbstract ? 0 : 1);
    if (::bind(m_handle, reinterpret_cast<const sockaddr*>(&address), static_cast<socklen_t>(length)) != 0) {
      throw std::runtime_error("no socket " + name);
    }
  }
  ~ManagerSocket() {
    ::close(m_handle);
    if (m_name[0] == '/') ::unlink(m_name.c_str());
  }
  ManagerSocket(const ManagerSocket&) = delete;
  ManagerSocket& operator=(const ManagerSocket&) = delete;

  // What it was told, a text for each datagram.
  std::vector<std::string> told() const {
    std::vector<std::string> all;
    char bytes[4096];
    for (ssize_t got; (got = ::recv(m_handle, bytes, sizeof bytes, MSG_DONTWAIT)) >= 0;)
      all.emplace_back(bytes, static_cast<std::size_t>(got));
    return all;
  }

 private:
  const std::string m_name;
  const int m_handle;
};

std::string ownPath(const std::string& name) {
  return (std::filesystem::temp_directory_path() / (name + std::to_string(::getpid()))).string();
}

ServiceManager managerOf(const char* socket, const char* time, const char* process) {
  ::setenv("NOTIFY_SOCKET", socket, 1);
  if (time != nullptr) ::setenv("WATCHDOG_USEC", time, 1);
  if (process != nullptr) ::setenv("WATCHDOG_PID", process, 1);
  return ServiceManager::fromEnvironment();
}

TEST(ServiceManager, ATextIsOneDatagramAtItsPath) {
  const std::string path = ownPath("mg_manager_");
  const ManagerSocket socket(path);
  const ServiceManager manager(path);
  EXPECT_EQ(manager.tell("READY=1\nMAINPID=7"), "");
  EXPECT_EQ(manager.tell("WATCHDOG=1"), "");
  EXPECT_THAT(socket.told(), ElementsAre("READY=1\nMAINPID=7", "WATCHDOG=1"));
}

TEST(ServiceManager, AnAbstractNameHasNoByteMoreThanItSays) {
  const std::string name = "@mg_manager_" + std::to_string(::getpid());
  const ManagerSocket socket(name);
  const ManagerSocket longer(name + "0");
  EXPECT_EQ(ServiceManager(name).tell("READY=1"), "");
  EXPECT_THAT(socket.told(), ElementsAre("READY=1"));
  EXPECT_THAT(longer.told(), ElementsAre());
}

TEST(ServiceManager, AnAbstractNameMayTakeTheWholeAddressAndAPathAllButItsEnd) {
  std::string name = "@mg_manager_" + std::to_string(::getpid());
  name.resize(sizeof(sockaddr_un::sun_path), 'n');
  const ManagerSocket socket(name);
  EXPECT_EQ(ServiceManager(name).tell("READY=1"), "");
  EXPECT_THAT(socket.told(), ElementsAre("READY=1"));
  const std::string path = "/" + std::string(sizeof(sockaddr_un::sun_path) - 2, 'p');
  EXPECT_EQ(ServiceManager(path).tell("READY=1"),
            "the service manager at " + path + " cannot be told: No such file or directory");
  EXPECT_EQ(ServiceManager(path + "p").tell("READY=1"),
            "NOTIFY_SOCKET is \"" + path +
                "p\": only a path that begins with / and an abstract name that begins with @ can be told, of at most "
                "107 bytes");
}

TEST(ServiceManager, WhatCannotBeToldIsSaidWithTheReason) {
  for (const std::string name : {"vsock:2:1234", "relative", "/", "@"}) {
    EXPECT_EQ(ServiceManager(name).tell("READY=1"),
              "NOTIFY_SOCKET is \"" + name +
                  "\": only a path that begins with / and an abstract name that begins with @ can be told, of at most "
                  "107 bytes");
  }
  const std::string path = ownPath("mg_nobody_");
  EXPECT_EQ(ServiceManager(path).tell("READY=1"),
            "the service manager at " + path + " cannot be told: No such file or directory");
  { const ManagerSocket gone("@mg_gone"); }
  EXPECT_EQ(ServiceManager("@mg_gone").tell("READY=1"),
            "the service manager at @mg_gone cannot be told: Connection refused");
}

TEST(ServiceManager, OneThatTakesNothingIsNotWaitedForForEver) {
  const std::string name = "@mg_full_" + std::to_string(::getpid());
  const ManagerSocket socket(name);
  const ServiceManager manager(name);
  std::string said;
  for (int i = 0; i < 10000 && said.empty(); ++i)
    said = manager.tell("WATCHDOG=1");
  EXPECT_EQ(said, "the service manager at " + name + " cannot be told: it takes nothing");
}

TEST(ServiceManager, WithoutOneNothingHappens) {
  ::unsetenv("NOTIFY_SOCKET");
  ::setenv("WATCHDOG_USEC", "1000", 1);
  const ServiceManager nobody = ServiceManager::fromEnvironment();
  EXPECT_FALSE(nobody.isThere());
  EXPECT_EQ(nobody.watchdog(), microseconds(0));
  EXPECT_EQ(nobody.tell("READY=1"), "");
}

TEST(ServiceManager, ItsVariablesAreTakenOutOfTheEnvironment) {
  const ServiceManager manager = managerOf("/run/notify", "30000000", std::to_string(::getpid()).c_str());
  EXPECT_TRUE(manager.isThere());
  EXPECT_EQ(manager.watchdog(), microseconds(30000000));
  for (const char* name : {"NOTIFY_SOCKET", "WATCHDOG_USEC", "WATCHDOG_PID"})
    EXPECT_EQ(std::getenv(name), nullptr) << name;
}

TEST(ServiceManager, SignsOfLifeAreWantedOnlyWithATimeAndOfThisProcess) {
  EXPECT_EQ(managerOf("/run/notify", nullptr, nullptr).watchdog(), microseconds(0));
  EXPECT_EQ(managerOf("/run/notify", "500000", nullptr).watchdog(), microseconds(500000));
  EXPECT_EQ(managerOf("/run/notify", "500000", "1").watchdog(), microseconds(0));
  for (const char* wrong : {"", "0", "-5", "soon", "500000s", "99999999999999999999"})
    EXPECT_EQ(managerOf("/run/notify", wrong, nullptr).watchdog(), microseconds(0)) << wrong;
}

}  // namespace
}  // namespace programs
