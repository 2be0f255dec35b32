#include "corvane/net/socket.h"

#include <gtest/gtest.h>
#include <memory>

#ifndef _WIN32
#include <fcntl.h>
#include <sys/resource.h>
#include <unistd.h>
#endif

namespace corvane {
namespace {

#ifndef _WIN32

// Leaves this process no descriptor as long as it lives.
class NoDescriptors {
 public:
  NoDescriptors() {
    ::getrlimit(RLIMIT_NOFILE, &m_before);
    const int lowest = ::dup(0);
    ::close(lowest);
    const rlimit few{static_cast<rlim_t>(lowest) + 64, m_before.rlim_max};  // so that there are not many to take
    ::setrlimit(RLIMIT_NOFILE, &few);
    for (int number = ::open("/dev/null", O_RDONLY); number >= 0; number = ::open("/dev/null", O_RDONLY))
      m_taken.push_back(number);
  }
  ~NoDescriptors() {
    for (const int number : m_taken)
      ::close(number);
    ::setrlimit(RLIMIT_NOFILE, &m_before);
  }
  NoDescriptors(const NoDescriptors&) = delete;
  NoDescriptors& operator=(const NoDescriptors&) = delete;

 private:
  rlimit m_before{};
  std::vector<int> m_taken;
};

TEST(Listener, WithoutDescriptorsPeersAreTurnedAwayAndToldAndServedAgainLater) {
  Listener listener("127.0.0.1:0");
  std::vector<std::wstring> shortages;
  listener.onShortage([&](const std::wstring& why) {
    shortages.push_back(why);
    if (shortages.size() == 3) listener.stop();
  });
  std::vector<Socket> peers;
  for (int i = 0; i < 3; ++i)
    peers.push_back(Socket::connect("127.0.0.1", listener.port(), false));
  {
    const NoDescriptors none;
    EXPECT_FALSE(listener.accept()) << "it goes on until it is stopped";
    EXPECT_LT(::open("/dev/null", O_RDONLY), 0) << "the spare one is taken again";
  }
  EXPECT_EQ(shortages, std::vector<std::wstring>(3, L"Too many open files"));
  for (Socket& peer : peers) {
    unsigned char byte;
    EXPECT_EQ(peer.receive({&byte, 1}, after(60000)), 0u) << "the peer knows at once";
  }
}

TEST(Listener, AfterAShortageTheNextPeerIsAccepted) {
  Listener listener("127.0.0.1:0");
  std::unique_ptr<NoDescriptors> none;
  listener.onShortage([&](const std::wstring&) { none.reset(); });
  const Socket first = Socket::connect("127.0.0.1", listener.port(), false);
  const Socket second = Socket::connect("127.0.0.1", listener.port(), false);
  const std::string name = [&] {
    const std::vector<unsigned char> own = second.localEndpoint();
    return "127.0.0.1:" + std::to_string(own[5] * 256 + own[6]);
  }();
  none = std::make_unique<NoDescriptors>();
  const auto accepted = listener.accept();
  ASSERT_TRUE(accepted);
  EXPECT_EQ(accepted->peerName(), name);
}

#endif

}  // namespace
}  // namespace corvane
