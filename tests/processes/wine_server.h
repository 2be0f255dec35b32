#pragma once

#include "tests/processes/child_process.h"

#include <filesystem>
#include <memory>
#include <optional>
#include <sys/types.h>
#include <vector>

namespace tests {

// Wine's server of a prefix. It lives as long as the object, and every program of the prefix no longer. One in a
// process: programs find the prefix through the environment.
//
// A test binary that was killed leaves its server behind, with the programs of that run; they would be what the next
// run talks to. So such a server is ended first, and that is said.
class WineServer {
 public:
  // The prefix's folder is made. Throws std::runtime_error when a run that still lives uses it.
  explicit WineServer(const std::filesystem::path& prefix);
  ~WineServer();
  WineServer(const WineServer&) = delete;
  WineServer& operator=(const WineServer&) = delete;

  pid_t id() const { return m_server->id(); }

  // Where programs of a prefix put temporary files, those that are there; their place depends on Wine's version.
  static std::vector<std::filesystem::path> temporaryFolders(const std::filesystem::path& prefix);

  // Wine 8's server ends now and then when processes with sockets are killed: an assertion of its own in
  // sock_get_poll_events fails. Every program of the prefix then waits for it for ever. When that has come to pass,
  // this ends those programs, says so and returns true; the end counts as a failure no longer. For tests that kill.
  bool hasFallen();

 private:
  bool hasEnded();

  int m_lock = -1;  // of a file in the prefix; the system takes it back when the process ends
  std::unique_ptr<ChildProcess> m_server;
  const std::filesystem::path m_prefix;
  std::optional<int> m_end;  // its exit code, when it has ended by itself
  bool m_hasFallen = false;
};

}  // namespace tests
