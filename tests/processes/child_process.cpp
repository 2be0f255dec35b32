#include "tests/processes/child_process.h"

#include <algorithm>
#include <cerrno>
#include <chrono>
#include <fcntl.h>
#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <poll.h>
#include <signal.h>
#include <spawn.h>
#include <stdexcept>
#include <sys/eventfd.h>
#include <sys/wait.h>
#include <system_error>
#include <unistd.h>

extern char** environ;

namespace tests {

ChildProcess::ChildProcess(const std::vector<std::string>& command, Input input) {
  int ends[2];
  int inputEnds[2] = {-1, -1};
  if (pipe2(ends, O_CLOEXEC) != 0 || (input == Input::kLines && pipe2(inputEnds, O_CLOEXEC) != 0)) {
    throw std::system_error(errno, std::generic_category(), "pipe2");
  }
  m_pipe = ends[0];
  m_input = inputEnds[1];
  m_ended = eventfd(0, EFD_CLOEXEC);
  posix_spawn_file_actions_t actions;
  posix_spawn_file_actions_init(&actions);
  if (input == Input::kLines) {
    posix_spawn_file_actions_adddup2(&actions, inputEnds[0], 0);
  } else {
    posix_spawn_file_actions_addopen(&actions, 0, "/dev/null", O_RDONLY, 0);
  }
  posix_spawn_file_actions_adddup2(&actions, ends[1], 1);
  posix_spawn_file_actions_adddup2(&actions, ends[1], 2);
  std::vector<char*> arguments;
  for (const std::string& argument : command)
    arguments.push_back(const_cast<char*>(argument.c_str()));
  arguments.push_back(nullptr);
  const int error = posix_spawnp(&m_id, arguments[0], &actions, nullptr, arguments.data(), environ);
  posix_spawn_file_actions_destroy(&actions);
  close(ends[1]);
  if (inputEnds[0] != -1) close(inputEnds[0]);
  if (error != 0) {
    close(m_pipe);
    close(m_ended);
    if (m_input != -1) close(m_input);
    throw std::system_error(error, std::generic_category(), command[0]);
  }
  m_reader = std::thread([this] { collect(); });
}

ChildProcess::~ChildProcess() {
  if (!m_hasStatus) {
    kill(m_id, SIGTERM);
    EXPECT_EQ(wait(), 0) << output();
  }
  EXPECT_THAT(output(), ::testing::Not(::testing::HasSubstr("Sanitizer")));
  m_reader.join();
  close(m_pipe);
  close(m_ended);
  if (m_input != -1) close(m_input);
}

void ChildProcess::say(const std::string& line) const {
  // A program that has ended must not end this one.
  sigset_t broken;
  sigemptyset(&broken);
  sigaddset(&broken, SIGPIPE);
  pthread_sigmask(SIG_BLOCK, &broken, nullptr);
  const std::string whole = line + "\n";
  if (write(m_input, whole.data(), whole.size()) < 0) {
    const timespec now{};
    sigtimedwait(&broken, nullptr, &now);
  }
  pthread_sigmask(SIG_UNBLOCK, &broken, nullptr);
}

void ChildProcess::collect() {
  std::string rest;
  pollfd sources[2] = {{m_pipe, POLLIN, 0}, {m_ended, POLLIN, 0}};
  while (true) {
    if (poll(sources, 2, -1) < 0 && errno == EINTR) continue;
    // Once the program has ended, only what it left in the pipe is read: programs that it started in turn may hold the
    // other end open for as long as they like.
    if (sources[1].revents != 0) fcntl(m_pipe, F_SETFL, O_NONBLOCK);
    char buffer[4096];
    const ssize_t got = read(m_pipe, buffer, sizeof buffer);
    if (got < 0 && errno == EINTR) continue;
    if (got <= 0) break;
    rest.append(buffer, static_cast<std::size_t>(got));
    const std::lock_guard<std::mutex> guard(m_lock);
    for (std::size_t end = rest.find('\n'); end != std::string::npos; end = rest.find('\n')) {
      m_lines.push_back(rest.substr(0, end));
      rest.erase(0, end + 1);
    }
    m_changed.notify_all();
  }
  const std::lock_guard<std::mutex> guard(m_lock);
  if (!rest.empty()) m_lines.push_back(rest);
  m_closed = true;
  m_changed.notify_all();
}

std::string ChildProcess::waitForLine(const std::string& text) {
  const auto deadline = std::chrono::steady_clock::now() + std::chrono::minutes(1);
  std::unique_lock<std::mutex> guard(m_lock);
  while (true) {
    for (; m_next < m_lines.size(); ++m_next) {
      if (m_lines[m_next].find(text) != std::string::npos) return m_lines[m_next++];
    }
    if (m_closed || m_changed.wait_until(guard, deadline) == std::cv_status::timeout) break;
  }
  std::string all = "no line with \"" + text + "\" among:\n";
  for (const std::string& line : m_lines)
    all += line + "\n";
  throw std::runtime_error(all);
}

void ChildProcess::waitForLines(const std::vector<std::string>& texts) {
  std::size_t first = 0, next = 0;
  {
    const std::lock_guard<std::mutex> guard(m_lock);
    first = m_next;
  }
  for (const std::string& text : texts) {
    {
      const std::lock_guard<std::mutex> guard(m_lock);
      m_next = first;
    }
    waitForLine(text);
    const std::lock_guard<std::mutex> guard(m_lock);
    next = std::max(next, m_next);
  }
  const std::lock_guard<std::mutex> guard(m_lock);
  m_next = next;
}

std::string ChildProcess::output() {
  const std::lock_guard<std::mutex> guard(m_lock);
  std::string all;
  for (const std::string& line : m_lines)
    all += line + "\n";
  return all;
}

void ChildProcess::signal(int number) const {
  kill(m_id, number);
}

int ChildProcess::wait() {
  while (!m_hasStatus) {
    int status = 0;
    const pid_t ended = waitpid(m_id, &status, 0);
    if (ended < 0 && errno == EINTR) continue;
    m_hasStatus = true;
    eventfd_write(m_ended, 1);
    m_status = WIFSIGNALED(status) ? 256 + WTERMSIG(status) : WEXITSTATUS(status);
  }
  // The lines it wrote last are there when this returns.
  std::unique_lock<std::mutex> guard(m_lock);
  m_changed.wait(guard, [this] { return m_closed; });
  return m_status;
}

}  // namespace tests
