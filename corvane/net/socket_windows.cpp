#include "corvane/base/process.h"
#include "corvane/net/network.h"
#include "corvane/net/socket.h"
#include "corvane/records/exception.h"
#include "corvane/records/messages.h"

#include <algorithm>
#include <array>
#include <cstring>
#include <utility>

namespace corvane {
namespace {

[[noreturn]] void throwLost(int error) {
  throw CS_Exception(kConnectionLost, L"%s", networkErrorText(error).c_str());
}

DWORD waitTime(const std::optional<Deadline>& deadline) {
  if (!deadline) return INFINITE;
  const auto left = std::chrono::ceil<std::chrono::milliseconds>(*deadline - std::chrono::steady_clock::now()).count();
  return static_cast<DWORD>(std::clamp<long long>(left, 0, 1000000000));
}

// How often a send that waits looks whether the socket was shut down: Wine 8 now and then leaves a send waiting that
// was cancelled while its thread was about to continue it, so that it must be cancelled again.
constexpr DWORD kLookMilliseconds = 50;

// A manual-reset event, made when it is first needed.
void* eventOf(void*& event) {
  if (event == nullptr) event = ::CreateEventW(nullptr, TRUE, FALSE, nullptr);
  if (event == nullptr) throwLost(static_cast<int>(::GetLastError()));
  return event;
}

}  // namespace

Socket::~Socket() {
  close();
  for (void* const event : {m_receiveEvent, m_sendEvent}) {
    if (event != nullptr) ::CloseHandle(event);
  }
}

// Unlike elsewhere, shutting down resets a connection over bytes that were not received.
void Socket::close() noexcept {
  if (m_handle != kNone) closeSocket(std::exchange(m_handle, kNone));
}

void Socket::send(std::span<const Piece> pieces) {
  constexpr std::size_t kAtOnce = 64;
  std::array<WSABUF, kAtOnce> buffers;
  std::size_t offset = 0;  // bytes of the first piece that are sent already
  while (!pieces.empty()) {
    // How far a send has come is not known before it ends, so that none is longer than what the allowance is for.
    std::size_t room = m_allowance.window();
    std::size_t count = 0;
    for (; count < std::min(pieces.size(), kAtOnce) && room > 0; ++count) {
      const Piece rest = count == 0 ? pieces[0].subspan(offset) : pieces[count];
      const std::size_t now = std::min(room, rest.size());
      buffers[count] = {static_cast<ULONG>(now), const_cast<char*>(reinterpret_cast<const char*>(rest.data()))};
      room -= now;
    }
    if (m_allowance.left().count() == 0) m_allowance.refuse();
    WSAOVERLAPPED overlapped{};
    overlapped.hEvent = eventOf(m_sendEvent);
    DWORD sent = 0;
    DWORD flags = 0;
    if (::WSASend(native(m_handle), buffers.data(), static_cast<DWORD>(count), &sent, 0, &overlapped, nullptr) != 0) {
      if (lastNetworkError() != WSA_IO_PENDING) throwLost(lastNetworkError());
      awaitSend(&overlapped);
      if (!::WSAGetOverlappedResult(native(m_handle), &overlapped, &sent, FALSE, &flags)) {
        if (m_allowance.left().count() == 0) m_allowance.refuse();
        throwLost(lastNetworkError());
      }
    }
    m_allowance.took(sent);
    auto done = std::size_t{sent} + offset;
    while (!pieces.empty() && done >= pieces.front().size()) {
      done -= pieces.front().size();
      pieces = pieces.subspan(1);
    }
    offset = done;
  }
}

// Until the send has come to its end, for which it is cancelled when the socket was shut down or the peer has used up
// what it may keep a sender waiting. Its buffers are in use for as long as it lasts.
void Socket::awaitSend(void* send) {
  auto* const overlapped = static_cast<WSAOVERLAPPED*>(send);
  auto from = std::chrono::steady_clock::now();
  while (::WaitForSingleObject(overlapped->hEvent, kLookMilliseconds) != WAIT_OBJECT_0) {
    const auto now = std::chrono::steady_clock::now();
    m_allowance.waited(now - std::exchange(from, now));
    if (m_shutDown || m_allowance.left().count() == 0) {
      ::CancelIoEx(reinterpret_cast<HANDLE>(m_handle), overlapped);
    }
  }
  m_allowance.waited(std::chrono::steady_clock::now() - from);
}

std::optional<std::size_t> Socket::receive(std::span<unsigned char> buffer, std::optional<Deadline> deadline) {
  WSABUF into{static_cast<ULONG>(buffer.size()), reinterpret_cast<char*>(buffer.data())};
  WSAOVERLAPPED overlapped{};
  overlapped.hEvent = eventOf(m_receiveEvent);
  DWORD received = 0;
  DWORD flags = 0;
  // A wait on the event of an overlapped receive costs half a round trip less than select or WSAPoll before a receive.
  if (::WSARecv(native(m_handle), &into, 1, &received, &flags, &overlapped, nullptr) == 0) return received;
  if (lastNetworkError() != WSA_IO_PENDING) throwLost(lastNetworkError());
  bool cancelled = false;
  if (::WaitForSingleObject(m_receiveEvent, waitTime(deadline)) != WAIT_OBJECT_0) {
    ::CancelIoEx(reinterpret_cast<HANDLE>(m_handle), &overlapped);
    cancelled = true;
  }
  // After a cancellation the receive may have come to its end all the same, so its own result decides.
  if (::WSAGetOverlappedResult(native(m_handle), &overlapped, &received, TRUE, &flags)) return received;
  if (cancelled && lastNetworkError() == WSA_OPERATION_ABORTED) return std::nullopt;
  throwLost(lastNetworkError());
}

bool Socket::hasRoom() const noexcept {
  WSAPOLLFD state{native(m_handle), POLLWRNORM, 0};
  return ::WSAPoll(&state, 1, 0) > 0;
}

bool Socket::peerHasClosed() const noexcept {
  WSAPOLLFD state{native(m_handle), POLLRDNORM, 0};
  if (::WSAPoll(&state, 1, 0) <= 0) return false;
  if ((state.revents & (POLLHUP | POLLERR | POLLNVAL)) != 0) return true;
  char first;
  return ::recv(native(m_handle), &first, 1, MSG_PEEK) == 0;
}

void Socket::shutdown() noexcept {
  if (m_handle == kNone) return;
  m_shutDown = true;
  shutdownSocket(m_handle);
  ::CancelIoEx(reinterpret_cast<HANDLE>(m_handle), nullptr);
}

std::wstring networkErrorText(int error) {
  const std::wstring words = systemErrorWords(static_cast<unsigned long>(error));
  const std::wstring number = std::to_wstring(error);
  return words.empty() ? L"error " + number : words + L" (" + number + L")";
}

bool initializeNetwork() {
  WSADATA data{};
  return ::WSAStartup(MAKEWORD(2, 2), &data) == 0;
}

}  // namespace corvane
