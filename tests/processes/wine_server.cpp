#include "tests/processes/wine_server.h"

#include "tests/processes/process_table.h"

#include <chrono>
#include <cstdio>
#include <fcntl.h>
#include <fstream>
#include <gtest/gtest.h>
#include <signal.h>
#include <stdexcept>
#include <stdlib.h>
#include <string>
#include <sys/file.h>
#include <thread>
#include <unistd.h>
#include <vector>

namespace tests {

namespace fs = std::filesystem;

namespace {

constexpr char kProgram[] = "/usr/lib/wine/wineserver64";

int lock(const fs::path& prefix) {
  const int file = ::open((prefix / ".in-use").c_str(), O_RDWR | O_CREAT | O_CLOEXEC, 0600);
  if (file == -1 || ::flock(file, LOCK_EX | LOCK_NB) != 0) {
    if (file != -1) ::close(file);
    throw std::runtime_error("another run of the tests uses " + prefix.string() + "; wait for its end");
  }
  return file;
}

void endEarlierServer(const fs::path& prefix) {
  // Ends with 0 when there was one, and not before that one is gone.
  ChildProcess ending(std::vector<std::string>{kProgram, "-k"});
  if (ending.wait() != 0) return;
  std::fprintf(stderr, "an earlier run was killed and left Wine's server in %s; it has been ended\n", prefix.c_str());
}

// A program that comes before the server listens starts a second one, and in a new prefix the two disturb each other.
// Debian's Wine names the folder of its socket in the prefix.
void waitForServer(const fs::path& prefix) {
  const auto deadline = std::chrono::steady_clock::now() + std::chrono::seconds(10);
  while (std::chrono::steady_clock::now() < deadline) {
    std::string folder;
    if (std::ifstream(prefix / "wineserver") >> folder && fs::is_directory("/tmp/" + folder)) {
      for (const auto& entry : fs::directory_iterator("/tmp/" + folder)) {
        if (fs::is_socket(entry.path() / "socket")) return;
      }
    }
    std::this_thread::sleep_for(std::chrono::milliseconds(20));
  }
}

// The programs of the prefix that Wine's loader runs.
void endPrograms(const fs::path& prefix) {
  const std::string ours = "WINEPREFIX=" + prefix.string();
  for (const auto& entry : fs::directory_iterator("/proc")) {
    std::error_code gone;
    if (fs::read_symlink(entry.path() / "exe", gone).filename().string().find("wine") == std::string::npos) continue;
    std::ifstream environment(entry.path() / "environ", std::ios::binary);
    for (std::string variable; std::getline(environment, variable, '\0');) {
      if (variable == ours) kill(std::stoi(entry.path().filename().string()), SIGKILL);
    }
  }
}

}  // namespace

WineServer::WineServer(const fs::path& prefix) : m_prefix(prefix) {
  fs::create_directories(prefix);
  setenv("MG_WINE_PREFIX", prefix.c_str(), 1);
  setenv("WINEPREFIX", prefix.c_str(), 1);
  m_lock = lock(prefix);
  endEarlierServer(prefix);
  m_server = std::make_unique<ChildProcess>(std::vector<std::string>{kProgram, "-f", "-p"});
  waitForServer(prefix);
}

bool WineServer::hasEnded() {
  if (!m_end && waitUntilEnded(m_server->id(), 0)) m_end = m_server->wait();
  return m_end.has_value();
}

bool WineServer::hasFallen() {
  if (m_hasFallen || !hasEnded()) return m_hasFallen;
  const std::string said = m_server->output();
  m_hasFallen = said.find("sock_get_poll_events: Assertion") != std::string::npos;
  if (m_hasFallen) {
    std::printf("Wine's server has fallen over its own assertion; its programs are ended:\n%s\n", said.c_str());
    endPrograms(m_prefix);
  }
  return m_hasFallen;
}

WineServer::~WineServer() {
  // Its programs wait for it for ever, so whatever else went wrong began with this.
  if (hasEnded() && !hasFallen())
    ADD_FAILURE() << "Wine's server ended by itself with " << *m_end << "\n" << m_server->output();
  // On SIGINT the server ends every process of its prefix; on SIGTERM it leaves Wine's services behind without it.
  m_server->signal(SIGINT);
  m_server->wait();
  ::close(m_lock);
}

std::vector<std::filesystem::path> WineServer::temporaryFolders(const std::filesystem::path& prefix) {
  std::vector<std::filesystem::path> folders = {prefix / "drive_c" / "windows" / "temp"};
  for (const auto& user : std::filesystem::directory_iterator(prefix / "drive_c" / "users")) {
    folders.push_back(user.path() / "Temp");
    folders.push_back(user.path() / "AppData" / "Local" / "Temp");
  }
  std::erase_if(folders, [](const auto& folder) { return !std::filesystem::is_directory(folder); });
  return folders;
}

}  // namespace tests
