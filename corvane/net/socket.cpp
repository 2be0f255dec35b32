#include "corvane/net/socket.h"

#include "corvane/base/text.h"
#include "corvane/net/network.h"
#include "corvane/records/exception.h"
#include "corvane/records/messages.h"

#include <utility>

namespace corvane {

std::wstring hostName() {
  char name[256] = {};
  return ::gethostname(name, sizeof name - 1) == 0 ? fromUtf8(name) : std::wstring();
}

Socket::Socket(std::intptr_t handle) : m_handle(handle) {
  const int on = 1;
  ::setsockopt(native(handle), IPPROTO_TCP, TCP_NODELAY, reinterpret_cast<const char*>(&on), sizeof on);
  ::setsockopt(native(handle), SOL_SOCKET, SO_KEEPALIVE, reinterpret_cast<const char*>(&on), sizeof on);
}

Socket::Socket(Socket&& other) noexcept {
  *this = std::move(other);
}

Socket& Socket::operator=(Socket&& other) noexcept {
  std::swap(m_handle, other.m_handle);
  std::swap(m_allowance, other.m_allowance);
#ifdef _WIN32
  std::swap(m_receiveEvent, other.m_receiveEvent);
  std::swap(m_sendEvent, other.m_sendEvent);
  m_shutDown = other.m_shutDown.exchange(m_shutDown);
#endif
  return *this;
}

namespace {

// Dials one address after the other; the handle, or -1 with the last error.
std::intptr_t dial(const AddressList& addresses, int& error) {
  for (const addrinfo* address = addresses.first(); address != nullptr; address = address->ai_next) {
    const auto handle =
        static_cast<std::intptr_t>(::socket(address->ai_family, address->ai_socktype, address->ai_protocol));
    if (handle == -1) {
      error = lastNetworkError();
      continue;
    }
    if (::connect(native(handle), address->ai_addr, static_cast<SocketLength>(address->ai_addrlen)) == 0) return handle;
    error = lastNetworkError();
    closeSocket(handle);
  }
  return -1;
}

}  // namespace

Socket Socket::connect(const std::string& host, std::uint16_t port, bool preferIpv6) {
  // "localhost" means the loopback addresses, whatever the system's name service says.
  const bool loopback = host == "localhost";
  int error = 0;
  std::intptr_t handle = -1;
  if (loopback && preferIpv6) handle = dial(AddressList("::1", port), error);
  if (handle == -1) handle = dial(AddressList(loopback ? "127.0.0.1" : host, port), error);
  if (handle != -1) return Socket(handle);
  throw CS_Exception(kConnectFailed, L"nobody answers on %s port %d: %s", fromUtf8(host).c_str(),
                     static_cast<int>(port), networkErrorText(error).c_str());
}

std::string Socket::peerName() const {
  sockaddr_storage address{};
  SocketLength length = sizeof address;
  if (::getpeername(native(m_handle), reinterpret_cast<sockaddr*>(&address), &length) != 0) return "unknown";
  char host[INET6_ADDRSTRLEN + 8] = {};
  char port[8] = {};
  if (::getnameinfo(reinterpret_cast<sockaddr*>(&address), length, host, sizeof host, port, sizeof port,
                    NI_NUMERICHOST | NI_NUMERICSERV) != 0) {
    return "unknown";
  }
  return address.ss_family == AF_INET6 ? "[" + std::string(host) + "]:" + port : std::string(host) + ":" + port;
}

namespace {

std::vector<unsigned char> endpointOf(const sockaddr_storage& address) {
  std::vector<unsigned char> endpoint;
  const auto append = [&](unsigned char family, const auto& bytes, const auto& port) {
    const auto* const first = reinterpret_cast<const unsigned char*>(&bytes);
    const auto* const second = reinterpret_cast<const unsigned char*>(&port);
    endpoint.push_back(family);
    endpoint.insert(endpoint.end(), first, first + sizeof bytes);
    endpoint.insert(endpoint.end(), second, second + sizeof port);
  };
  if (address.ss_family == AF_INET) {
    const auto& four = reinterpret_cast<const sockaddr_in&>(address);
    append(4, four.sin_addr, four.sin_port);
  } else if (address.ss_family == AF_INET6) {
    const auto& six = reinterpret_cast<const sockaddr_in6&>(address);
    append(6, six.sin6_addr, six.sin6_port);
  }
  return endpoint;
}

}  // namespace

std::vector<unsigned char> Socket::localEndpoint() const {
  sockaddr_storage address{};
  SocketLength length = sizeof address;
  if (::getsockname(native(m_handle), reinterpret_cast<sockaddr*>(&address), &length) != 0) return {};
  return endpointOf(address);
}

std::vector<unsigned char> Socket::peerEndpoint() const {
  sockaddr_storage address{};
  SocketLength length = sizeof address;
  if (::getpeername(native(m_handle), reinterpret_cast<sockaddr*>(&address), &length) != 0) return {};
  return endpointOf(address);
}

AddressList::AddressList(const std::string& host, std::uint16_t port) {
  addrinfo hints{};
  hints.ai_socktype = SOCK_STREAM;
  hints.ai_protocol = IPPROTO_TCP;
  hints.ai_family = AF_UNSPEC;
  if (::getaddrinfo(host.c_str(), std::to_string(port).c_str(), &hints, &m_list) != 0 || m_list == nullptr) {
    throw CS_Exception(kConnectFailed, L"the host %s cannot be found", fromUtf8(host).c_str());
  }
}

AddressList::~AddressList() {
  if (m_list != nullptr) ::freeaddrinfo(m_list);
}

}  // namespace corvane
