#include "corvane/net/ready_watch.h"

#include <array>
#include <cerrno>
#include <sys/epoll.h>
#include <sys/eventfd.h>
#include <unistd.h>
#include <utility>

namespace corvane {
namespace {

constexpr std::uint64_t kStop = ~std::uint64_t{0};

}  // namespace

ReadyWatch::ReadyWatch(Ready ready)
    : m_ready(std::move(ready)), m_epoll(::epoll_create1(EPOLL_CLOEXEC)), m_stop(::eventfd(0, EFD_CLOEXEC)) {
  if (!watch(m_stop, kStop)) return;
  try {
    m_thread = std::thread([this] { run(); });
  } catch (...) {
    ::close(m_stop);
    ::close(m_epoll);
    throw;
  }
}

ReadyWatch::~ReadyWatch() {
  const std::uint64_t one = 1;
  if (m_thread.joinable() && ::write(m_stop, &one, sizeof one) == sizeof one) m_thread.join();
  ::close(m_stop);
  ::close(m_epoll);
}

bool ReadyWatch::watch(int handle, std::uint64_t number) noexcept {
  epoll_event event{};
  event.events = EPOLLIN | EPOLLRDHUP | EPOLLONESHOT;
  event.data.u64 = number;
  // One that was watched before is still known.
  return ::epoll_ctl(m_epoll, EPOLL_CTL_MOD, handle, &event) == 0 ||
         (errno == ENOENT && ::epoll_ctl(m_epoll, EPOLL_CTL_ADD, handle, &event) == 0);
}

void ReadyWatch::run() noexcept {
  std::array<epoll_event, 64> events;
  for (;;) {
    const int count = ::epoll_wait(m_epoll, events.data(), static_cast<int>(events.size()), -1);
    for (int i = 0; i < count; ++i) {
      const std::uint64_t number = events[static_cast<std::size_t>(i)].data.u64;
      if (number == kStop) return;
      m_ready(number);
    }
  }
}

}  // namespace corvane
