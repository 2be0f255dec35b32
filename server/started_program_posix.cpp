#include "corvane/base/text.h"
#include "server/started_program.h"
#include "util/unique_handle.h"

#include <array>
#include <cerrno>
#include <cstdint>
#include <fcntl.h>
#include <fmt/format.h>
#include <poll.h>
#include <signal.h>
#include <spawn.h>
#include <stdexcept>
#include <sys/eventfd.h>
#include <sys/syscall.h>
#include <sys/wait.h>
#include <system_error>
#include <unistd.h>

extern char** environ;

namespace aps {
namespace {

struct DescriptorTraits {
  using Type = int;
  static Type invalid() noexcept { return -1; }
  static void close(Type descriptor) noexcept {
    const int error = errno;
    ::close(descriptor);
    errno = error;
  }
};
using Descriptor = UniqueHandle<DescriptorTraits>;

std::string words(int error) {
  return std::generic_category().message(error);
}

// Nothing of this server goes along: not its connections, not its output, not the signals that it blocks.
class SpawnSettings {
 public:
  SpawnSettings() {
    posix_spawn_file_actions_init(&m_files);
    posix_spawn_file_actions_addopen(&m_files, 0, "/dev/null", O_RDONLY, 0);
    posix_spawn_file_actions_addopen(&m_files, 1, "/dev/null", O_WRONLY, 0);
    posix_spawn_file_actions_addopen(&m_files, 2, "/dev/null", O_WRONLY, 0);
    posix_spawn_file_actions_addclosefrom_np(&m_files, 3);
    posix_spawnattr_init(&m_attributes);
    sigset_t signals;
    sigemptyset(&signals);
    posix_spawnattr_setsigmask(&m_attributes, &signals);
    for (const int ignored : {SIGPIPE, SIGXFSZ})
      sigaddset(&signals, ignored);
    posix_spawnattr_setsigdefault(&m_attributes, &signals);
    // A terminal's Ctrl-C for this server is not meant for the user's programs.
    posix_spawnattr_setflags(&m_attributes, static_cast<short>(POSIX_SPAWN_SETSIGMASK | POSIX_SPAWN_SETSIGDEF |
                                                               static_cast<int>(POSIX_SPAWN_SETSID)));
  }
  ~SpawnSettings() {
    posix_spawnattr_destroy(&m_attributes);
    posix_spawn_file_actions_destroy(&m_files);
  }
  SpawnSettings(const SpawnSettings&) = delete;
  SpawnSettings& operator=(const SpawnSettings&) = delete;

  posix_spawn_file_actions_t m_files;
  posix_spawnattr_t m_attributes;
};

class PosixProgram : public StartedProgram {
 public:
  PosixProgram(std::array<std::string, 5>& words) : m_wake(eventfd(0, EFD_CLOEXEC)) {
    if (!m_wake)
      throw std::runtime_error(fmt::format("no descriptor is left: {}; end some connections", aps::words(errno)));
    std::array<char*, 6> arguments{};
    for (std::size_t i = 0; i < words.size(); ++i)
      arguments[i] = words[i].data();
    const SpawnSettings settings;
    const int error =
        posix_spawn(&m_id, arguments[0], &settings.m_files, &settings.m_attributes, arguments.data(), environ);
    if (error != 0) {
      throw std::runtime_error(
          fmt::format("the command \"{}\" does not start: {}; --launch-command must name a program that aps may run",
                      words[0], aps::words(error)));
    }
    m_process.reset(static_cast<int>(syscall(SYS_pidfd_open, m_id, 0)));
  }

  unsigned long processId() const override { return static_cast<unsigned long>(m_id); }

  std::optional<int> wait() override {
    std::array<pollfd, 2> waits{{{m_wake.get(), POLLIN, 0}, {m_process.get(), POLLIN, 0}}};
    // Where the system gives no descriptor of a process, the end is looked for once a second.
    const int interval = m_process ? -1 : 1000;
    for (;;) {
      poll(waits.data(), waits.size(), interval);
      int status = 0;
      const pid_t ended = waitpid(m_id, &status, WNOHANG);
      if (ended == m_id) return WIFSIGNALED(status) ? 128 + WTERMSIG(status) : WEXITSTATUS(status);
      if (ended < 0 && errno != EINTR) return std::nullopt;
      if (waits[0].revents != 0) return std::nullopt;
    }
  }

  void leave() noexcept override {
    const std::uint64_t one = 1;
    [[maybe_unused]] const ssize_t written = write(m_wake.get(), &one, sizeof one);
  }

 private:
  pid_t m_id = -1;
  const Descriptor m_wake;
  Descriptor m_process;  // none on a kernel without them
};

}  // namespace

std::unique_ptr<StartedProgram> startProgram(const Launch& launch, const std::string& command) {
  if (command.empty()) {
    throw std::runtime_error(
        "aps was not told how to start programs in a session; start it with --launch-command and a program that does");
  }
  std::array<std::string, 5> words = {command, std::to_string(launch.session), corvane::toUtf8(launch.program),
                                      corvane::toUtf8(launch.arguments), corvane::toUtf8(launch.printer)};
  return std::make_unique<PosixProgram>(words);
}

}  // namespace aps
