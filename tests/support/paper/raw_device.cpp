#include "tests/support/paper/raw_device.h"

#include <arpa/inet.h>
#include <netinet/in.h>
#include <poll.h>
#include <stdexcept>
#include <sys/socket.h>
#include <unistd.h>

namespace tests {

RawDevice::RawDevice() : m_listener(socket(AF_INET, SOCK_STREAM | SOCK_CLOEXEC, 0)) {
  sockaddr_in address{};
  address.sin_family = AF_INET;
  address.sin_addr.s_addr = htonl(INADDR_LOOPBACK);
  socklen_t size = sizeof address;
  auto* const general = reinterpret_cast<sockaddr*>(&address);
  const bool listens = bind(m_listener, general, size) == 0 && listen(m_listener, 8) == 0 &&
                       getsockname(m_listener, general, &size) == 0;
  if (!listens) throw std::runtime_error("no listener");
  m_port = ntohs(address.sin_port);
}

RawDevice::~RawDevice() {
  close(m_listener);
}

std::string RawDevice::uri() const {
  // The scheduler would wait for 90 s for this end to close, which is read only when its job has ended.
  return "socket://127.0.0.1:" + std::to_string(m_port) + "/?waiteof=false";
}

std::string RawDevice::next() const {
  constexpr int kMinute = 60000;
  pollfd coming{m_listener, POLLIN, 0};
  if (poll(&coming, 1, kMinute) != 1) throw std::runtime_error("nobody sends");
  const int sender = accept4(m_listener, nullptr, nullptr, SOCK_CLOEXEC);
  std::string all;
  char piece[4096];
  for (ssize_t got = read(sender, piece, sizeof piece); got > 0; got = read(sender, piece, sizeof piece))
    all.append(piece, static_cast<std::size_t>(got));
  close(sender);
  return all;
}

}  // namespace tests
