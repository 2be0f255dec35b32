#include "client/page/page_server.h"

#include "client/page/page_connection.h"

#include <algorithm>
#include <atomic>
#include <boost/asio.hpp>
#include <list>
#include <optional>
#include <stdexcept>
#include <system_error>
#include <thread>
#include <utility>
#include <vector>

#ifdef _WIN32
#include <winsock2.h>
#endif

namespace printclient {
namespace {

namespace asio = boost::asio;
using asio::ip::tcp;
using boost::system::error_code;
using std::chrono::milliseconds;

constexpr milliseconds kAcceptPause{200};  // where this process has no descriptor left
constexpr std::chrono::minutes kTick{1};

}  // namespace

// Of the server's thread, but for what is said otherwise.
class PageServer::State {
 public:
  State(PageAnswers& answers, JobBoard& board, const Limits& limits, std::function<void()> tick)
      : m_shared{answers, board, limits}, m_onTick(std::move(tick)) {}
  ~State();

  std::uint16_t listen();
  void run();

  // Any thread.
  std::size_t connectionCount() const { return m_shared.connections; }

 private:
  void serve() noexcept;
  void accept();
  void welcome(tcp::socket socket);
  void makeRoom();
  void tick();
  // Any thread.
  void boardHasChanged();
  void tellStreams();

  PageShared m_shared;
  const std::function<void()> m_onTick;
  asio::io_context m_context{1};
  std::list<std::weak_ptr<PageConnection>> m_connections;  // the oldest first
  tcp::acceptor m_acceptor{m_context};
  asio::steady_timer m_pause{m_context};
  asio::steady_timer m_tick{m_context};
  std::atomic<bool> m_isTold{false};
  std::thread m_thread;
  std::optional<JobBoard::Watch> m_watch;
};

PageServer::State::~State() {
  m_watch.reset();
  if (!m_thread.joinable()) return;
  asio::post(m_context, [this] {
    error_code ignored;
    m_acceptor.close(ignored);
    m_pause.cancel();
    m_tick.cancel();
    for (const auto& weak : std::exchange(m_connections, {}))
      if (const auto connection = weak.lock()) connection->close();
    m_context.stop();
  });
  m_thread.join();
}

std::uint16_t PageServer::State::listen() {
  const tcp::endpoint any(asio::ip::address_v4::loopback(), 0);
  m_acceptor.open(any.protocol());
#ifdef _WIN32
  // Without it another user's program could take the port over.
  m_acceptor.set_option(asio::detail::socket_option::boolean<SOL_SOCKET, SO_EXCLUSIVEADDRUSE>(true));
#endif
  m_acceptor.bind(any);
  m_acceptor.listen();
  return m_acceptor.local_endpoint().port();
}

void PageServer::State::run() {
  accept();
  tick();
  m_watch.emplace(m_shared.board, [this] { boardHasChanged(); });
  m_thread = std::thread([this] { serve(); });
}

void PageServer::State::serve() noexcept {
  for (;;) {
    try {
      m_context.run();
      return;
    } catch (const std::exception&) {
      // No memory at the moment: the connection that wanted it has gone.
    }
  }
}

void PageServer::State::accept() {
  m_acceptor.async_accept([this](error_code error, tcp::socket socket) {
    if (!m_acceptor.is_open()) return;
    if (!error) {
      welcome(std::move(socket));
      return accept();
    }
    m_pause.expires_after(kAcceptPause);
    m_pause.async_wait([this](error_code canceled) {
      if (!canceled) accept();
    });
  });
}

void PageServer::State::welcome(tcp::socket socket) {
  makeRoom();
  if (m_connections.size() >= m_shared.limits.connections) return;  // all of them the person's
  error_code ignored;
  socket.set_option(tcp::no_delay(true), ignored);
  const auto connection = std::make_shared<PageConnection>(m_shared, std::move(socket));
  m_connections.push_back(connection);
  connection->read(m_shared.limits.request);
}

void PageServer::State::makeRoom() {
  m_connections.remove_if([](const auto& weak) { return weak.expired(); });
  if (m_connections.size() < m_shared.limits.connections) return;
  const auto stranger = std::find_if(m_connections.begin(), m_connections.end(), [](const auto& weak) {
    const auto connection = weak.lock();
    return connection && !connection->isProven();
  });
  if (stranger == m_connections.end()) return;
  if (const auto connection = stranger->lock()) connection->close();
  m_connections.erase(stranger);
}

void PageServer::State::tick() {
  m_tick.expires_after(kTick);
  m_tick.async_wait([this](error_code canceled) {
    if (canceled) return;
    if (m_onTick) m_onTick();
    tick();
  });
}

void PageServer::State::boardHasChanged() {
  if (m_shared.streams > 0 && !m_isTold.exchange(true)) asio::post(m_context, [this] { tellStreams(); });
}

void PageServer::State::tellStreams() {
  m_isTold = false;
  for (const auto& weak : m_connections)
    if (const auto connection = weak.lock()) connection->tell();
}

PageServer::PageServer(PageGuard& guard, PageAnswers& answers, JobBoard& board, const Limits& limits,
                       std::function<void()> onTick) try
    : m_state(std::make_unique<State>(answers, board, limits, std::move(onTick))) {
  guard.setPort(m_state->listen());
  m_state->run();
} catch (const std::system_error& failure) {
  throw std::runtime_error(failure.what());
}

PageServer::~PageServer() = default;

std::size_t PageServer::connectionCount() const {
  return m_state->connectionCount();
}

}  // namespace printclient
