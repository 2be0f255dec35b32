#include "corvane/base/text.h"
#include "corvane/net/network.h"
#include "corvane/net/socket.h"
#include "corvane/records/exception.h"
#include "corvane/records/messages.h"

#include <chrono>
#include <thread>

#ifndef _WIN32
#include <fcntl.h>
#endif

namespace corvane {
namespace {

struct HostAndPort {
  std::string host;
  std::uint16_t port;
};

HostAndPort parse(const std::string& address) {
  const auto bad = [&](const wchar_t* what) {
    return CS_Exception(kBadArgument,
                        L"\"%s\" is not an address to listen on: %s; write it as 127.0.0.1:4711 or "
                        L"[::1]:4711",
                        fromUtf8(address).c_str(), what);
  };
  const std::size_t colon = address.rfind(':');
  if (colon == std::string::npos || colon == 0) throw bad(L"the port is missing");
  std::string host = address.substr(0, colon);
  if (host.size() > 2 && host.front() == '[' && host.back() == ']') host = host.substr(1, host.size() - 2);
  const std::string digits = address.substr(colon + 1);
  unsigned port = 0;
  if (digits.empty() || digits.size() > 5) throw bad(L"the port is not a number from 0 to 65535");
  for (const char c : digits) {
    if (c < '0' || c > '9') throw bad(L"the port is not a number from 0 to 65535");
    port = port * 10 + static_cast<unsigned>(c - '0');
  }
  if (port > 65535) throw bad(L"the port is not a number from 0 to 65535");
  return {host, static_cast<std::uint16_t>(port)};
}

#ifdef _WIN32
constexpr std::intptr_t openSpare() {
  return -1;  // the system has more handles than a process can use
}
bool isShortage(int error) {
  return error == WSAEMFILE || error == WSAENOBUFS;
}
#else
std::intptr_t openSpare() {
  return ::open("/dev/null", O_RDONLY | O_CLOEXEC);
}
bool isShortage(int error) {
  return error == EMFILE || error == ENFILE || error == ENOBUFS || error == ENOMEM;
}
#endif

}  // namespace

Listener::Listener(const std::string& address) : m_handle(-1) {
  const HostAndPort wanted = parse(address);
  const AddressList addresses(wanted.host, wanted.port);
  const addrinfo* const first = addresses.first();
  m_handle = static_cast<std::intptr_t>(::socket(first->ai_family, first->ai_socktype, first->ai_protocol));
  const int on = 1;
#ifdef _WIN32
  ::setsockopt(native(m_handle), SOL_SOCKET, SO_EXCLUSIVEADDRUSE, reinterpret_cast<const char*>(&on), sizeof on);
#else
  ::setsockopt(native(m_handle), SOL_SOCKET, SO_REUSEADDR, &on, sizeof on);
#endif
  if (m_handle == -1 || ::bind(native(m_handle), first->ai_addr, static_cast<SocketLength>(first->ai_addrlen)) != 0 ||
      ::listen(native(m_handle), SOMAXCONN) != 0) {
    const int error = lastNetworkError();
    if (m_handle != -1) closeSocket(m_handle);
    throw CS_Exception(kConnectFailed, L"cannot listen on %s: %s", fromUtf8(address).c_str(),
                       networkErrorText(error).c_str());
  }
  m_spare = openSpare();
}

Listener::~Listener() {
  stop();
#ifndef _WIN32
  closeSocket(m_handle);
  if (m_spare != -1) closeSocket(m_spare);
#endif
}

std::optional<Socket> Listener::accept() {
  using namespace std::chrono_literals;
  while (!m_stopped) {
    const auto handle = static_cast<std::intptr_t>(::accept(native(m_handle), nullptr, nullptr));
    const int error = handle == -1 ? lastNetworkError() : 0;
    if (handle != -1 && !m_stopped) return Socket(handle);
    if (handle != -1) closeSocket(handle);
    if (m_stopped) break;
    const bool isShort = isShortage(error);
    const bool turnedAway = isShort && turnAway();
    if (isShort && m_onShortage) m_onShortage(networkErrorText(error));
    // The peer has gone again, or there is not even memory: others may still come.
    if (!turnedAway) std::this_thread::sleep_for(20ms);
  }
  return std::nullopt;
}

bool Listener::turnAway() {
#ifdef _WIN32
  return false;
#else
  if (m_spare == -1) m_spare = openSpare();
  if (m_spare == -1) return false;
  closeSocket(m_spare);
  const auto handle = static_cast<std::intptr_t>(::accept(native(m_handle), nullptr, nullptr));
  if (handle != -1) closeSocket(handle);
  m_spare = openSpare();
  return handle != -1;
#endif
}

void Listener::stop() noexcept {
  if (m_stopped.exchange(true)) return;
#ifdef _WIN32
  closeSocket(m_handle);
#else
  // Wakes accept(); the descriptor itself stays taken until the process ends or the object dies, so that accept() on
  // another thread never meets a reused number.
  shutdownSocket(m_handle);
#endif
}

std::uint16_t Listener::port() const {
  sockaddr_storage bound{};
  SocketLength length = sizeof bound;
  if (::getsockname(native(m_handle), reinterpret_cast<sockaddr*>(&bound), &length) != 0) return 0;
  return ntohs(bound.ss_family == AF_INET6 ? reinterpret_cast<const sockaddr_in6&>(bound).sin6_port
                                           : reinterpret_cast<const sockaddr_in&>(bound).sin_port);
}

std::string Listener::address() const {
  sockaddr_storage bound{};
  SocketLength length = sizeof bound;
  ::getsockname(native(m_handle), reinterpret_cast<sockaddr*>(&bound), &length);
  char host[INET6_ADDRSTRLEN + 8] = {};
  ::getnameinfo(reinterpret_cast<sockaddr*>(&bound), length, host, sizeof host, nullptr, 0, NI_NUMERICHOST);
  const std::string name = bound.ss_family == AF_INET6 ? "[" + std::string(host) + "]" : host;
  return name + ":" + std::to_string(port());
}

}  // namespace corvane
