#include "programs/child_program.h"
#include "programs/text.h"
#include "util/unique_handle.h"

#include <algorithm>
#include <array>
#include <cerrno>
#include <cstdint>
#include <cstring>
#include <fcntl.h>
#include <poll.h>
#include <signal.h>
#include <spawn.h>
#include <sys/eventfd.h>
#include <sys/syscall.h>
#include <sys/wait.h>
#include <system_error>
#include <unistd.h>

extern char** environ;

namespace programs {
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

[[noreturn]] void fail(int error, const char* what) {
  throw std::system_error(error, std::generic_category(), what);
}

// Nothing of this process goes along: not its connections, not its output, not the signals that it blocks.
class SpawnSettings {
 public:
  // Errors go to the descriptor; below 0 to nobody.
  explicit SpawnSettings(int errors) {
    posix_spawn_file_actions_init(&m_files);
    posix_spawn_file_actions_addopen(&m_files, 0, "/dev/null", O_RDONLY, 0);
    posix_spawn_file_actions_addopen(&m_files, 1, "/dev/null", O_WRONLY, 0);
    if (errors < 0) {
      posix_spawn_file_actions_addopen(&m_files, 2, "/dev/null", O_WRONLY, 0);
    } else {
      posix_spawn_file_actions_adddup2(&m_files, errors, 2);
    }
    posix_spawn_file_actions_addclosefrom_np(&m_files, 3);
    posix_spawnattr_init(&m_attributes);
    sigset_t signals;
    sigemptyset(&signals);
    posix_spawnattr_setsigmask(&m_attributes, &signals);
    for (const int ignored : {SIGPIPE, SIGXFSZ})
      sigaddset(&signals, ignored);
    posix_spawnattr_setsigdefault(&m_attributes, &signals);
    // A terminal's Ctrl-C for this process is not meant for the program.
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

// This process's environment with the command's own values in front of it, which replace those of the same name.
std::vector<std::string> environmentOf(const ChildCommand& command) {
  std::vector<std::string> all;
  for (const auto& [name, value] : command.environment)
    all.push_back(name + "=" + value);
  for (char** entry = environ; entry != nullptr && *entry != nullptr; ++entry) {
    const std::string text = *entry;
    const std::string name = text.substr(0, text.find('='));
    const bool isReplaced = std::any_of(command.environment.begin(), command.environment.end(),
                                        [&name](const auto& own) { return own.first == name; });
    if (!isReplaced) all.push_back(text);
  }
  return all;
}

std::vector<char*> pointersTo(std::vector<std::string>& texts) {
  std::vector<char*> pointers;
  for (std::string& text : texts)
    pointers.push_back(text.data());
  pointers.push_back(nullptr);
  return pointers;
}

int millisecondsUntil(ChildProgram::Deadline deadline) {
  if (deadline == ChildProgram::Deadline::max()) return -1;
  const auto left = std::chrono::ceil<std::chrono::milliseconds>(deadline - std::chrono::steady_clock::now()).count();
  return static_cast<int>(std::clamp<std::int64_t>(left, 0, 60 * 60 * 1000));
}

class PosixChild : public ChildProgram {
 public:
  explicit PosixChild(const ChildCommand& command) : m_wake(eventfd(0, EFD_CLOEXEC)) {
    if (!m_wake) fail(errno, "no descriptor is left");
    Descriptor errors;
    if (command.keepsErrors) {
      int ends[2];
      if (pipe2(ends, O_CLOEXEC) != 0) fail(errno, "no descriptor is left");
      m_errors.reset(ends[0]);
      errors.reset(ends[1]);
      fcntl(m_errors.get(), F_SETFL, O_NONBLOCK);
    }
    std::vector<std::string> words = {command.program};
    words.insert(words.end(), command.arguments.begin(), command.arguments.end());
    std::vector<std::string> environment = environmentOf(command);
    const SpawnSettings settings(errors.get());
    const int error = posix_spawn(&m_id, command.program.c_str(), &settings.m_files, &settings.m_attributes,
                                  pointersTo(words).data(), pointersTo(environment).data());
    if (error != 0) fail(error, command.program.c_str());
    m_process.reset(static_cast<int>(syscall(SYS_pidfd_open, m_id, 0)));
  }

  unsigned long processId() const override { return static_cast<unsigned long>(m_id); }

  std::optional<int> wait(Deadline deadline) override {
    // Where the system gives no descriptor of a process, the end is looked for once a second.
    constexpr int kLook = 1000;
    for (;;) {
      std::array<pollfd, 3> waits{
          {{m_wake.get(), POLLIN, 0}, {m_process.get(), POLLIN, 0}, {m_errors.get(), POLLIN, 0}}};
      const int left = millisecondsUntil(deadline);
      poll(waits.data(), waits.size(), m_process ? left : left < 0 ? kLook : std::min(left, kLook));
      readErrors();
      int status = 0;
      const pid_t ended = waitpid(m_id, &status, WNOHANG);
      if (ended == m_id) {
        m_hasEnded = true;
        readErrors();
        return WIFSIGNALED(status) ? 128 + WTERMSIG(status) : WEXITSTATUS(status);
      }
      if (ended < 0 && errno != EINTR) return std::nullopt;
      if (waits[0].revents != 0 || std::chrono::steady_clock::now() >= deadline) return std::nullopt;
    }
  }

  void leave() noexcept override {
    const std::uint64_t one = 1;
    [[maybe_unused]] const ssize_t written = write(m_wake.get(), &one, sizeof one);
  }

  void end() noexcept override {
    if (m_hasEnded) return;  // its number may be somebody else's by now
    kill(-m_id, SIGTERM);
    pollfd gone{m_process.get(), POLLIN, 0};
    poll(&gone, 1, static_cast<int>(kEndMilliseconds));
    // What the program has started may not have listened.
    kill(-m_id, SIGKILL);
    while (waitpid(m_id, nullptr, 0) < 0 && errno == EINTR) {
    }
    m_hasEnded = true;
  }

  std::string lastErrorLine() const override { return lastLine(m_said); }

 private:
  // What is there; the end of the pipe is not waited for, as programs that it has started may hold it.
  void readErrors() {
    std::array<char, kErrorBytes> piece;
    while (m_errors) {
      const ssize_t got = read(m_errors.get(), piece.data(), piece.size());
      if (got < 0 && errno == EINTR) continue;
      if (got < 0 && errno == EAGAIN) return;
      if (got <= 0) {
        m_errors.reset();
        return;
      }
      m_said.append(piece.data(), static_cast<std::size_t>(got));
      if (m_said.size() > kErrorBytes) m_said.erase(0, m_said.size() - kErrorBytes);
    }
  }

  pid_t m_id = -1;
  const Descriptor m_wake;
  Descriptor m_process;  // none on a kernel without them
  Descriptor m_errors;   // none when nobody wants them, or all are read
  std::string m_said;    // the end of them
  bool m_hasEnded = false;
};

}  // namespace

std::unique_ptr<ChildProgram> ChildProgram::start(const ChildCommand& command) {
  return std::make_unique<PosixChild>(command);
}

}  // namespace programs
