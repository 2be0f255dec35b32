#pragma once

// The differences between the socket interfaces of the platforms, for the files that implement Socket and Listener.
// Not for headers.

#ifdef _WIN32
#include <winsock2.h>
#include <ws2tcpip.h>
#else
#include <arpa/inet.h>
#include <cerrno>
#include <netdb.h>
#include <netinet/in.h>
#include <netinet/tcp.h>
#include <poll.h>
#include <sys/socket.h>
#include <sys/uio.h>
#include <unistd.h>
#endif

#include <cstdint>
#include <string>

namespace corvane {

#ifdef _WIN32
using NativeSocket = SOCKET;
using SocketLength = int;
inline int lastNetworkError() {
  return ::WSAGetLastError();
}
inline void closeSocket(std::intptr_t handle) {
  ::closesocket(static_cast<SOCKET>(handle));
}
constexpr int kBothWays = SD_BOTH;
#else
using NativeSocket = int;
using SocketLength = socklen_t;
inline int lastNetworkError() {
  return errno;
}
inline void closeSocket(std::intptr_t handle) {
  ::close(static_cast<int>(handle));
}
constexpr int kBothWays = SHUT_RDWR;
#endif

inline NativeSocket native(std::intptr_t handle) {
  return static_cast<NativeSocket>(handle);
}

// Ends what is sent and received, and whatever a thread waits for there.
inline void shutdownSocket(std::intptr_t handle) {
  ::shutdown(native(handle), kBothWays);
}

// The system's words for an error number.
std::wstring networkErrorText(int error);

// The addresses of a host name or numeric address. Throws CS_Exception (3101) when the host cannot be found.
class AddressList {
 public:
  AddressList(const std::string& host, std::uint16_t port);
  ~AddressList();
  AddressList(const AddressList&) = delete;
  AddressList& operator=(const AddressList&) = delete;
  const addrinfo* first() const { return m_list; }

 private:
  addrinfo* m_list = nullptr;
};

}  // namespace corvane
