#include "corvane/base/process.h"
#include "corvane/base/text.h"
#include "corvane/net/network.h"
#include "corvane/net/socket.h"
#include "corvane/records/exception.h"
#include "corvane/records/messages.h"

#include <algorithm>
#include <array>
#include <cstring>
#include <sys/ioctl.h>
#include <utility>

namespace corvane {
namespace {

constexpr std::size_t kFewBytes = 4096;

[[noreturn]] void throwLost(int error) {
  throw CS_Exception(kConnectionLost, L"%s", networkErrorText(error).c_str());
}

// Until the system has room for bytes to send, or the peer has used up what it may keep a sender waiting. A signal only
// makes the caller try again.
void awaitRoom(std::intptr_t handle, SendAllowance& allowance) {
  if (allowance.left().count() == 0) allowance.refuse();
  const auto from = std::chrono::steady_clock::now();
  pollfd wait{native(handle), POLLOUT, 0};
  ::poll(&wait, 1, static_cast<int>(std::min<long long>(allowance.left().count(), 1000000000)));
  allowance.waited(std::chrono::steady_clock::now() - from);
}

// Closed over bytes that were not received, the system resets the connection and throws away what was sent last. That
// is right for a peer that floods, and waits; a few bytes that crossed our end shall not cost it our last words.
void takeFewBytes(std::intptr_t handle) {
  std::array<char, kFewBytes> few;
  int waiting = 0;
  if (::ioctl(native(handle), FIONREAD, &waiting) == 0 && waiting > 0 && waiting <= static_cast<int>(kFewBytes)) {
    static_cast<void>(::recv(native(handle), few.data(), few.size(), MSG_DONTWAIT));
  }
}

}  // namespace

Socket::~Socket() {
  close();
}

void Socket::close() noexcept {
  if (m_handle == kNone) return;
  takeFewBytes(m_handle);
  closeSocket(std::exchange(m_handle, kNone));
}

void Socket::send(std::span<const Piece> pieces) {
  constexpr std::size_t kAtOnce = 64;
  std::array<iovec, kAtOnce> vectors;
  std::size_t offset = 0;  // bytes of the first piece that are sent already
  while (!pieces.empty()) {
    const std::size_t count = std::min(pieces.size(), kAtOnce);
    for (std::size_t i = 0; i < count; ++i) {
      const Piece rest = i == 0 ? pieces[0].subspan(offset) : pieces[i];
      vectors[i] = {const_cast<unsigned char*>(rest.data()), rest.size()};
    }
    msghdr message{};
    message.msg_iov = vectors.data();
    message.msg_iovlen = count;
    const ssize_t sent = ::sendmsg(native(m_handle), &message, MSG_NOSIGNAL | MSG_DONTWAIT);
    if (sent < 0) {
      if (errno != EAGAIN && errno != EWOULDBLOCK) throwLost(errno);
      awaitRoom(m_handle, m_allowance);
      continue;
    }
    m_allowance.took(static_cast<std::size_t>(sent));
    auto done = static_cast<std::size_t>(sent) + offset;
    while (!pieces.empty() && done >= pieces.front().size()) {
      done -= pieces.front().size();
      pieces = pieces.subspan(1);
    }
    offset = done;
  }
}

std::optional<std::size_t> Socket::receive(std::span<unsigned char> buffer, std::optional<Deadline> deadline) {
  for (;;) {
    if (deadline) {
      const auto left =
          std::chrono::ceil<std::chrono::milliseconds>(*deadline - std::chrono::steady_clock::now()).count();
      pollfd wait{native(m_handle), POLLIN, 0};
      const int ready = ::poll(&wait, 1, static_cast<int>(std::clamp<long long>(left, 0, 1000000000)));
      if (ready == 0) return std::nullopt;
      if (ready < 0 && errno != EINTR) throwLost(errno);
      if (ready < 0) continue;
    }
    const ssize_t received = ::recv(native(m_handle), buffer.data(), buffer.size(), 0);
    if (received >= 0) return static_cast<std::size_t>(received);
    if (errno == EAGAIN || errno == EWOULDBLOCK) return std::nullopt;  // see returnWhenIdle()
    if (errno != EINTR) throwLost(errno);
  }
}

// The system's own limit costs no call for each receive, as poll() would.
bool Socket::returnWhenIdle(std::chrono::milliseconds idle) {
  const timeval limit{idle.count() / 1000, idle.count() % 1000 * 1000};
  return ::setsockopt(native(m_handle), SOL_SOCKET, SO_RCVTIMEO, &limit, sizeof limit) == 0;
}

bool Socket::hasRoom() const noexcept {
  pollfd state{native(m_handle), POLLOUT, 0};
  return ::poll(&state, 1, 0) > 0;
}

bool Socket::peerHasClosed() const noexcept {
  pollfd state{native(m_handle), POLLRDHUP, 0};
  return ::poll(&state, 1, 0) > 0;  // nothing else is asked for, but that and failures
}

void Socket::shutdown() noexcept {
  if (m_handle == kNone) return;
  // Before, because afterwards the system does not tell a peer any more that there is room again: where the window is
  // so small that a few bytes shut it, the peer would wait on for a minute.
  takeFewBytes(m_handle);
  shutdownSocket(m_handle);
}

std::wstring networkErrorText(int error) {
  return systemErrorWords(static_cast<unsigned long>(error));
}

bool initializeNetwork() {
  return true;
}

}  // namespace corvane
