#include "server/metrics/metrics_server.h"

#include <algorithm>
#include <boost/asio.hpp>
#include <boost/beast/core.hpp>
#include <boost/beast/http.hpp>
#include <exception>
#include <fmt/format.h>
#include <list>
#include <optional>
#include <stdexcept>
#include <system_error>
#include <thread>
#include <utility>

#ifdef _WIN32
#include <winsock2.h>
#endif

namespace aps {
namespace {

namespace asio = boost::asio;
namespace beast = boost::beast;
namespace http = boost::beast::http;
using asio::ip::tcp;
using boost::system::error_code;

constexpr std::chrono::milliseconds kAcceptPause{200};  // where this process has no descriptor left

std::optional<tcp::endpoint> endpointOf(const std::string& address) {
  const std::size_t colon = address.rfind(':');
  std::string host = colon == std::string::npos ? "127.0.0.1" : address.substr(0, colon);
  const std::string port = colon == std::string::npos ? address : address.substr(colon + 1);
  const bool isV6 = host.size() > 2 && host.front() == '[' && host.back() == ']';
  if (isV6) host = host.substr(1, host.size() - 2);
  // Some systems take "1:2" for an address with a port.
  if (!isV6 &&
      (host.find_first_not_of("0123456789.") != std::string::npos || std::count(host.begin(), host.end(), '.') != 3)) {
    return std::nullopt;
  }
  if (port.empty() || port.size() > 5 || port.find_first_not_of("0123456789") != std::string::npos) return std::nullopt;
  const unsigned long number = std::stoul(port);
  error_code failure;
  const auto ip = asio::ip::make_address(host, failure);
  if (failure || number > 65535) return std::nullopt;
  return tcp::endpoint(ip, static_cast<std::uint16_t>(number));
}

// One peer: requests one after another, each answered before the next is read. Kept by its own handlers; all of it runs
// on the thread of the server.
class MetricsPeer : public std::enable_shared_from_this<MetricsPeer> {
 public:
  MetricsPeer(tcp::socket socket, const MetricsServer::Collect& collect, const MetricsServer::Limits& limits)
      : m_stream(std::move(socket)), m_collect(collect), m_limits(limits) {}

  void read() {
    m_parser.emplace();
    m_parser->header_limit(MetricsServer::kRequestBytes);
    m_parser->body_limit(0);
    m_stream.expires_after(m_limits.patience);
    http::async_read(m_stream, m_buffer, *m_parser, [self = shared_from_this()](error_code failure, std::size_t) {
      if (!failure) self->answer();
    });
  }
  void close() { m_stream.close(); }

 private:
  void answer() {
    const auto& request = m_parser->get();
    m_answer = {};
    m_answer.version(request.version());
    m_answer.keep_alive(request.keep_alive());
    m_answer.set(http::field::content_type, "text/plain; charset=utf-8");
    m_answer.set(http::field::cache_control, "no-store");
    if (request.target() != "/metrics") {
      m_answer.result(http::status::not_found);
      m_answer.body() = "the metrics are at /metrics\n";
    } else if (request.method() != http::verb::get) {
      m_answer.result(http::status::method_not_allowed);
      m_answer.set(http::field::allow, "GET");
      m_answer.body() = "only GET is answered\n";
    } else {
      const auto accepted = request[http::field::accept];
      const MetricsForm form = formFor(std::string(accepted.data(), accepted.size()));
      m_answer.result(http::status::ok);
      m_answer.set(http::field::content_type, contentTypeOf(form));
      m_answer.body() = textOf(m_collect(), form);
    }
    m_answer.prepare_payload();
    m_stream.expires_after(m_limits.patience);
    http::async_write(m_stream, m_answer, [self = shared_from_this()](error_code failure, std::size_t) {
      if (!failure && self->m_answer.keep_alive()) self->read();
    });
  }

  beast::tcp_stream m_stream;
  const MetricsServer::Collect& m_collect;
  const MetricsServer::Limits m_limits;
  beast::flat_buffer m_buffer{MetricsServer::kRequestBytes};
  std::optional<http::request_parser<http::empty_body>> m_parser;
  http::response<http::string_body> m_answer;
};

}  // namespace

// Of the server's thread, but for what the constructor and destructor of the server do.
class MetricsServer::State {
 public:
  State(Collect collect, const Limits& limits) : m_collect(std::move(collect)), m_limits(limits) {}
  ~State() {
    if (!m_thread.joinable()) return;
    asio::post(m_context, [this] {
      error_code ignored;
      m_acceptor.close(ignored);
      m_pause.cancel();
      for (const auto& weak : std::exchange(m_peers, {}))
        if (const auto peer = weak.lock()) peer->close();
      m_context.stop();
    });
    m_thread.join();
  }

  void listen(const tcp::endpoint& endpoint) {
    m_acceptor.open(endpoint.protocol());
#ifdef _WIN32
    // Without it another user's program could take the port over.
    m_acceptor.set_option(asio::detail::socket_option::boolean<SOL_SOCKET, SO_EXCLUSIVEADDRUSE>(true));
#else
    m_acceptor.set_option(tcp::acceptor::reuse_address(true));
#endif
    m_acceptor.bind(endpoint);
    m_acceptor.listen();
    m_endpoint = m_acceptor.local_endpoint();
    accept();
    m_thread = std::thread([this] { run(); });
  }
  const tcp::endpoint& endpoint() const {
    return m_endpoint;
  }

 private:
  void run() noexcept {
    for (;;) {
      try {
        m_context.run();
        return;
      } catch (const std::exception&) {
        // No memory at the moment: the peer that wanted it has gone.
      }
    }
  }
  void accept() {
    m_acceptor.async_accept([this](error_code failure, tcp::socket socket) {
      if (!m_acceptor.is_open()) return;
      if (!failure) {
        accept();  // first, so that no peer that cannot be served is the last one
        return welcome(std::move(socket));
      }
      m_pause.expires_after(kAcceptPause);
      m_pause.async_wait([this](error_code canceled) {
        if (!canceled) accept();
      });
    });
  }
  void welcome(tcp::socket socket) {
    m_peers.remove_if([](const auto& weak) { return weak.expired(); });
    if (m_peers.size() >= m_limits.connections) {
      if (const auto oldest = m_peers.front().lock()) oldest->close();
      m_peers.pop_front();
    }
    const auto peer = std::make_shared<MetricsPeer>(std::move(socket), m_collect, m_limits);
    m_peers.push_back(peer);
    peer->read();
  }

  const Collect m_collect;
  const Limits m_limits;
  asio::io_context m_context{1};
  std::list<std::weak_ptr<MetricsPeer>> m_peers;  // the oldest first
  tcp::acceptor m_acceptor{m_context};
  asio::steady_timer m_pause{m_context};
  tcp::endpoint m_endpoint;
  std::thread m_thread;
};

MetricsServer::MetricsServer(const std::string& address, Collect collect, const Limits& limits) try
    : m_state(std::make_unique<State>(std::move(collect), limits)) {
  const auto endpoint = endpointOf(address);
  if (!endpoint) throw std::runtime_error(metricsRefusal(address));
  m_state->listen(*endpoint);
} catch (const boost::system::system_error& failure) {
  throw std::runtime_error(failure.code().message());
} catch (const std::system_error& failure) {
  throw std::runtime_error(failure.what());
}

MetricsServer::~MetricsServer() = default;

std::string MetricsServer::address() const {
  const tcp::endpoint& endpoint = m_state->endpoint();
  const std::string host = endpoint.address().to_string();
  return endpoint.address().is_v6() ? fmt::format("[{}]:{}", host, endpoint.port())
                                    : fmt::format("{}:{}", host, endpoint.port());
}

std::string metricsRefusal(const std::string& address) {
  if (endpointOf(address)) return "";
  return fmt::format(
      "\"{}\" is not an address and port; an example is 127.0.0.1:9464 (9464 alone means the same, and port 0 "
      "takes any free port)",
      address);
}

}  // namespace aps
