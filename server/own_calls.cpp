#include "server/own_calls.h"

#include "corvane/net/network.h"
#include "corvane/records/exception.h"
#include "programs/text.h"

#include <algorithm>
#include <array>
#include <chrono>

namespace aps {
namespace {

constexpr unsigned char kAnswer = 'y';

// Where a listener of that address can be reached from this machine.
std::string hostOf(const std::string& listener) {
  const std::string host = listener.substr(0, listener.rfind(':'));
  if (host == "0.0.0.0") return "127.0.0.1";
  if (host == "[::]") return "::1";
  return host.starts_with('[') ? host.substr(1, host.size() - 2) : host;
}

std::string wordsOf(int error) {
  return programs::oneLine(corvane::networkErrorText(error));
}

// Lets connect() wait no longer than that. Windows has no bound for it.
void limitConnect(std::intptr_t handle, corvane::Deadline deadline) {
#ifdef _WIN32
  static_cast<void>(handle);
  static_cast<void>(deadline);
#else
  using namespace std::chrono;
  const auto left = std::max<long long>(1, duration_cast<microseconds>(deadline - steady_clock::now()).count());
  const timeval time{left / 1000000, left % 1000000};
  ::setsockopt(corvane::native(handle), SOL_SOCKET, SO_SNDTIMEO, &time, sizeof time);
#endif
}

// Why the socket is not connected until then; empty when it is.
std::string connectTo(const addrinfo& there, std::intptr_t handle, corvane::Deadline deadline) {
  limitConnect(handle, deadline);
  const auto length = static_cast<corvane::SocketLength>(there.ai_addrlen);
  if (::connect(corvane::native(handle), there.ai_addr, length) == 0) return {};
  const int error = corvane::lastNetworkError();
  return error == EINPROGRESS ? "nobody takes the call" : wordsOf(error);
}

// Why no answer has come until then; empty when it has.
std::string receiveAnswer(corvane::Socket& socket, corvane::Deadline deadline) {
  std::array<unsigned char, 1> byte{};
  try {
    const auto got = socket.receive(byte, deadline);
    if (!got) return "nobody takes the call";
    return *got == 1 && byte[0] == kAnswer ? "" : "the call was not answered";
  } catch (const CS_Exception& failure) {
    return programs::oneLine(failure.detail());
  }
}

}  // namespace

bool OwnCalls::answer(corvane::Socket& accepted) {
  {
    const std::lock_guard<std::mutex> guard(m_lock);
    if (m_endpoint.empty() || accepted.peerEndpoint() != m_endpoint) return false;
  }
  m_look();
  try {
    const std::array<corvane::Socket::Piece, 1> pieces{corvane::Socket::Piece(&kAnswer, 1)};
    accepted.send(pieces);
  } catch (const CS_Exception&) {
    // The call has been given up.
  }
  return true;
}

std::string OwnCalls::call(const std::string& listener, corvane::Deadline deadline) try {
  const auto port = static_cast<std::uint16_t>(std::stoi(listener.substr(listener.rfind(':') + 1)));
  const corvane::AddressList there(hostOf(listener), port);
  const corvane::AddressList here(hostOf(listener), 0);
  const auto handle = static_cast<std::intptr_t>(::socket(there.first()->ai_family, SOCK_STREAM, IPPROTO_TCP));
  if (handle == -1) return wordsOf(corvane::lastNetworkError());
  corvane::Socket socket(handle);
  // The call's own address is known before the listener sees it.
  const auto length = static_cast<corvane::SocketLength>(here.first()->ai_addrlen);
  if (::bind(corvane::native(handle), here.first()->ai_addr, length) != 0) return wordsOf(corvane::lastNetworkError());
  if (!begin(socket, handle)) return "the server stops";
  std::string failure = connectTo(*there.first(), handle, deadline);
  if (failure.empty()) failure = receiveAnswer(socket, deadline);
  return end() ? failure : "the server stops";
} catch (const CS_Exception& failure) {
  return programs::oneLine(failure.detail());
}

bool OwnCalls::begin(const corvane::Socket& socket, std::intptr_t handle) {
  const std::lock_guard<std::mutex> guard(m_lock);
  if (m_stopped) return false;
  m_endpoint = socket.localEndpoint();
  m_calling = handle;
  return true;
}

bool OwnCalls::end() {
  const std::lock_guard<std::mutex> guard(m_lock);
  m_calling.reset();
  m_endpoint.clear();
  return !m_stopped;
}

void OwnCalls::stop() noexcept {
  const std::lock_guard<std::mutex> guard(m_lock);
  m_stopped = true;
  // Not as Socket::shutdown() does, which first takes what has come: it is the calling thread's.
  if (m_calling) corvane::shutdownSocket(*m_calling);
}

}  // namespace aps
