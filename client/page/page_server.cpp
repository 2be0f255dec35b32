#include "client/page/page_server.h"

#include "client/page/page_json.h"

#include <algorithm>
#include <array>
#include <atomic>
#include <boost/asio.hpp>
#include <boost/beast/core/flat_buffer.hpp>
#include <boost/beast/http.hpp>
#include <fstream>
#include <limits>
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
namespace http = boost::beast::http;
using asio::ip::tcp;
using boost::system::error_code;
using std::chrono::milliseconds;

constexpr std::size_t kPieceBytes = 64 * 1024;
constexpr std::size_t kMostDrained = 1024 * 1024;
constexpr milliseconds kDrain{1000};
constexpr milliseconds kAcceptPause{200};  // where this process has no descriptor left
constexpr std::chrono::minutes kTick{1};

std::string textOf(const boost::beast::string_view& text) {
  return {text.data(), text.size()};
}

PageRequest pageRequest(const http::request<http::string_body>& request) {
  PageRequest made;
  made.method = textOf(request.method_string());
  made.target = textOf(request.target());
  // A header that stands twice is none of a browser's.
  const auto single = [&request](const char* name) {
    return request.count(name) == 1 ? textOf(request[name]) : request.count(name) == 0 ? std::string() : "?";
  };
  made.host = single("Host");
  made.origin = single("Origin");
  made.site = single("Sec-Fetch-Site");
  made.mode = single("Sec-Fetch-Mode");
  return made;
}

}  // namespace

// What the connections share; of the server's thread, but for what is said otherwise.
class PageServer::State {
 public:
  State(PageAnswers& pageAnswers, JobBoard& jobBoard, const Limits& pageLimits, std::function<void()> tick)
      : answers(pageAnswers), board(jobBoard), limits(pageLimits), onTick(std::move(tick)) {}
  ~State();

  std::uint16_t listen();
  void run();

  PageAnswers& answers;
  JobBoard& board;
  const Limits limits;
  std::atomic<std::size_t> count{0};    // of the connections; any thread
  std::atomic<std::size_t> streams{0};  // of those that want events; any thread
  asio::io_context context{1};
  std::list<std::weak_ptr<Connection>> connections;  // the oldest first

 private:
  void accept();
  void welcome(tcp::socket socket);
  void makeRoom();
  void tick();
  // Any thread.
  void boardHasChanged();
  void tellStreams();

  const std::function<void()> onTick;
  tcp::acceptor m_acceptor{context};
  asio::steady_timer m_pause{context};
  asio::steady_timer m_tick{context};
  std::atomic<bool> m_isTold{false};
  std::thread m_thread;
  std::optional<JobBoard::Watch> m_watch;
};

// One connection: requests one after another, each answered before the next is read. Kept by its own handlers.
class PageServer::Connection : public std::enable_shared_from_this<Connection> {
 public:
  Connection(State& state, tcp::socket socket)
      : m_state(state), m_socket(std::move(socket)), m_deadline(state.context), m_pause(state.context) {
    ++m_state.count;
  }
  ~Connection() {
    --m_state.count;
    endStream();
  }
  Connection(const Connection&) = delete;
  Connection& operator=(const Connection&) = delete;

  bool isProven() const { return m_isProven; }
  void read(milliseconds time) {
    m_parser.emplace();
    m_parser->header_limit(static_cast<std::uint32_t>(m_state.limits.headerBytes));
    m_parser->body_limit(m_state.limits.bodyBytes);
    arm(time);
    http::async_read(m_socket, m_buffer, *m_parser,
                     [self = shared_from_this()](error_code error, std::size_t) { self->take(error); });
  }
  // There is something new on the board.
  void tell() {
    if (!m_isStream) return;
    m_hasNews = true;
    if (!m_isBusy) sendNews();
  }
  void close() {
    error_code ignored;
    m_deadline.cancel();
    m_pause.cancel();
    m_socket.shutdown(tcp::socket::shutdown_both, ignored);
    m_socket.close(ignored);
    endStream();
  }

 private:
  // The connection is closed unless the next step follows by then.
  void arm(milliseconds time) {
    m_deadline.expires_after(time);
    m_deadline.async_wait([weak = weak_from_this()](error_code error) {
      const auto self = weak.lock();
      if (!error && self) self->close();
    });
  }
  void endStream() {
    if (std::exchange(m_isStream, false)) --m_state.streams;
  }
  // A handler's guard: false after closing, when the step has failed.
  bool goesOn(error_code error) {
    if (error || !m_socket.is_open()) {
      close();
      return false;
    }
    return true;
  }

  void take(error_code error);
  void send(const PageAnswer& answer);
  template <class Then>
  void sendText(std::string text, Then then);
  void sendPiece();
  void endOfAnswer();
  void beginStream();
  void sendNews();
  void restStream();
  void awaitEnd();
  void drain();

  State& m_state;
  tcp::socket m_socket;
  asio::steady_timer m_deadline;
  asio::steady_timer m_pause;
  boost::beast::flat_buffer m_buffer{16384};
  std::optional<http::request_parser<http::string_body>> m_parser;
  bool m_isProven = false;
  bool m_staysOpen = false;
  std::string m_text;  // on its way
  PageAnswer m_answer;
  std::ifstream m_file;
  std::uint64_t m_left = 0;       // of the file
  std::array<char, 4096> m_rest;  // what nobody wants to know
  std::size_t m_drained = 0;
  bool m_isStream = false;
  bool m_isBusy = false;  // a piece of the stream is on its way, or it rests
  bool m_hasNews = false;
  std::uint64_t m_seen = 0;  // the board's count that the stream has got
};

void PageServer::Connection::take(error_code error) {
  const bool isMalformed = error.category() == http::make_error_code(http::error::bad_method).category() &&
                           error != http::error::end_of_stream && error != http::error::partial_message;
  if (isMalformed && m_socket.is_open()) {
    PageAnswer answer;
    const bool isLarge =
        error == http::error::header_limit || error == http::error::body_limit || error == http::error::buffer_overflow;
    answer.status = isLarge ? 431 : 400;
    answer.body = isLarge ? "The request is too large.\n" : "This is not a request.\n";
    m_staysOpen = false;
    return send(answer);
  }
  if (!goesOn(error)) return;
  const PageRequest request = pageRequest(m_parser->get());
  m_staysOpen = m_parser->get().keep_alive();
  m_isProven = m_isProven || m_state.answers.isPersons(request);
  send(m_state.answers.to(request));
}

void PageServer::Connection::send(const PageAnswer& answer) {
  m_answer = answer;
  if (!m_isProven || m_answer.isStream) m_staysOpen = false;
  m_left = 0;
  std::uint64_t size = m_answer.body.size();
  if (m_answer.document != nullptr) {
    m_file = std::ifstream(m_answer.document->path, std::ios::binary);
    size = m_left = m_answer.document->size;
  }
  const auto status = static_cast<http::status>(m_answer.status);
  std::string text =
      "HTTP/1.1 " + std::to_string(m_answer.status) + " " + textOf(http::obsolete_reason(status)) + "\r\n";
  for (const auto& [name, value] : m_answer.headers())
    text += name + ": " + value + "\r\n";
  if (!m_answer.isStream) text += "Content-Length: " + std::to_string(size) + "\r\n";
  text += m_staysOpen ? "Connection: keep-alive\r\n\r\n" : "Connection: close\r\n\r\n";
  text += m_answer.body;
  sendText(std::move(text), [this] {
    if (m_answer.isStream) return beginStream();
    sendPiece();
  });
}

template <class Then>
void PageServer::Connection::sendText(std::string text, Then then) {
  m_text = std::move(text);
  arm(m_state.limits.send);
  asio::async_write(m_socket, asio::buffer(m_text),
                    [self = shared_from_this(), then = std::move(then)](error_code error, std::size_t) {
                      if (self->goesOn(error)) then();
                    });
}

void PageServer::Connection::sendPiece() {
  if (m_left == 0) return endOfAnswer();
  std::string piece(static_cast<std::size_t>(std::min<std::uint64_t>(kPieceBytes, m_left)), '\0');
  if (!m_file.read(piece.data(), static_cast<std::streamsize>(piece.size()))) return close();
  m_left -= piece.size();
  sendText(std::move(piece), [this] { sendPiece(); });
}

void PageServer::Connection::endOfAnswer() {
  m_file = std::ifstream();
  m_answer = PageAnswer();
  if (m_staysOpen) return read(m_state.limits.idle);
  error_code ignored;
  m_socket.shutdown(tcp::socket::shutdown_send, ignored);
  arm(kDrain);
  drain();
}

void PageServer::Connection::beginStream() {
  m_deadline.cancel();
  m_isStream = true;
  ++m_state.streams;
  awaitEnd();
  m_hasNews = true;
  sendNews();
}

// Whatever a peer sends behind its request for the stream, or the end of its half, ends the stream.
void PageServer::Connection::awaitEnd() {
  m_socket.async_read_some(asio::buffer(m_rest),
                           [self = shared_from_this()](error_code, std::size_t) { self->close(); });
}

// Closed with something unread, a connection is reset, and the peer may lose the answer.
void PageServer::Connection::drain() {
  m_socket.async_read_some(asio::buffer(m_rest), [self = shared_from_this()](error_code error, std::size_t size) {
    self->m_drained += size;
    if (self->goesOn(error) && self->m_drained < kMostDrained) return self->drain();
    self->close();
  });
}

void PageServer::Connection::sendNews() {
  std::string text = ": here\n\n";
  if (std::exchange(m_hasNews, false)) {
    const JobBoard::News news = m_state.board.newerThan(m_seen);
    m_seen = news.count;
    text = "data: " + pageJson(news) + "\n\n";
  }
  m_isBusy = true;
  sendText(std::move(text), [this] { restStream(); });
}

void PageServer::Connection::restStream() {
  m_deadline.cancel();
  m_pause.expires_after(m_state.limits.pause);
  m_pause.async_wait([self = shared_from_this()](error_code error) {
    if (error || !self->m_isStream) return;
    self->m_isBusy = false;
    if (self->m_hasNews) return self->sendNews();
    self->m_pause.expires_after(self->m_state.limits.sign);
    self->m_pause.async_wait([weak = self->weak_from_this()](error_code canceled) {
      const auto still = weak.lock();
      if (!canceled && still && still->m_isStream && !still->m_isBusy) still->sendNews();
    });
  });
}

PageServer::State::~State() {
  m_watch.reset();
  if (!m_thread.joinable()) return;
  asio::post(context, [this] {
    error_code ignored;
    m_acceptor.close(ignored);
    m_pause.cancel();
    m_tick.cancel();
    for (const auto& weak : std::exchange(connections, {}))
      if (const auto connection = weak.lock()) connection->close();
    context.stop();
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
  m_watch.emplace(board, [this] { boardHasChanged(); });
  m_thread = std::thread([this] { context.run(); });
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
  if (connections.size() >= limits.connections) return;  // all of them the person's
  error_code ignored;
  socket.set_option(tcp::no_delay(true), ignored);
  const auto connection = std::make_shared<Connection>(*this, std::move(socket));
  connections.push_back(connection);
  connection->read(limits.request);
}

void PageServer::State::makeRoom() {
  connections.remove_if([](const auto& weak) { return weak.expired(); });
  if (connections.size() < limits.connections) return;
  const auto stranger = std::find_if(connections.begin(), connections.end(), [](const auto& weak) {
    const auto connection = weak.lock();
    return connection && !connection->isProven();
  });
  if (stranger == connections.end()) return;
  if (const auto connection = stranger->lock()) connection->close();
  connections.erase(stranger);
}

void PageServer::State::tick() {
  m_tick.expires_after(kTick);
  m_tick.async_wait([this](error_code canceled) {
    if (canceled) return;
    if (onTick) onTick();
    tick();
  });
}

void PageServer::State::boardHasChanged() {
  if (streams > 0 && !m_isTold.exchange(true)) asio::post(context, [this] { tellStreams(); });
}

void PageServer::State::tellStreams() {
  m_isTold = false;
  for (const auto& weak : connections)
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
  return m_state->count;
}

}  // namespace printclient
