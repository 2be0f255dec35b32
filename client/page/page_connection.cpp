#include "client/page/page_connection.h"

#include "client/page/page_json.h"

#include <algorithm>
#include <utility>

namespace printclient {
namespace {

namespace asio = boost::asio;
namespace http = boost::beast::http;
using asio::ip::tcp;
using boost::system::error_code;
using std::chrono::milliseconds;

constexpr std::size_t kDocumentPieceBytes = 64 * 1024;
constexpr std::size_t kMostDrained = 1024 * 1024;
constexpr milliseconds kDrain{1000};

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

PageConnection::PageConnection(PageShared& shared, Socket socket)
    : m_shared(shared),
      m_socket(std::move(socket)),
      m_deadline(m_socket.get_executor()),
      m_pause(m_socket.get_executor()) {
  ++m_shared.connections;
}

PageConnection::~PageConnection() {
  --m_shared.connections;
  endStream();
}

void PageConnection::read(milliseconds time) {
  m_parser.emplace();
  m_parser->header_limit(static_cast<std::uint32_t>(m_shared.limits.headerBytes));
  m_parser->body_limit(m_shared.limits.bodyBytes);
  arm(time);
  http::async_read(m_socket, m_buffer, *m_parser,
                   [self = shared_from_this()](error_code error, std::size_t) { self->take(error); });
}

void PageConnection::tell() {
  if (!m_isStream) return;
  m_hasNews = true;
  if (!m_isBusy) sendNews();
}

void PageConnection::close() {
  error_code ignored;
  m_deadline.cancel();
  m_pause.cancel();
  m_socket.cancel(ignored);  // Wine does not end a send that waits when its socket is closed
  m_socket.shutdown(tcp::socket::shutdown_both, ignored);
  m_socket.close(ignored);
  endStream();
}

void PageConnection::arm(milliseconds time) {
  m_deadline.expires_after(time);
  m_deadline.async_wait([weak = weak_from_this()](error_code error) {
    const auto self = weak.lock();
    // It may have been set anew while its old end was on its way here.
    if (!error && self && self->m_deadline.expiry() <= std::chrono::steady_clock::now()) self->close();
  });
}

void PageConnection::endStream() {
  if (std::exchange(m_isStream, false)) --m_shared.streams;
}

bool PageConnection::goesOn(error_code error) {
  if (error || !m_socket.is_open()) {
    close();
    return false;
  }
  return true;
}

void PageConnection::take(error_code error) {
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
  m_isProven = m_isProven || m_shared.answers.isPersons(request);
  send(m_shared.answers.to(request));
}

void PageConnection::send(const PageAnswer& answer) {
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
void PageConnection::sendText(std::string text, Then then) {
  m_text = std::move(text);
  arm(m_shared.limits.send);
  asio::async_write(m_socket, asio::buffer(m_text),
                    [self = shared_from_this(), then = std::move(then)](error_code error, std::size_t) {
                      if (self->goesOn(error)) then();
                    });
}

void PageConnection::sendPiece() {
  if (m_left == 0) return endOfAnswer();
  std::string piece(static_cast<std::size_t>(std::min<std::uint64_t>(kDocumentPieceBytes, m_left)), '\0');
  if (!m_file.read(piece.data(), static_cast<std::streamsize>(piece.size()))) return close();
  m_left -= piece.size();
  sendText(std::move(piece), [this] { sendPiece(); });
}

void PageConnection::endOfAnswer() {
  m_file = std::ifstream();
  m_answer = PageAnswer();
  if (m_staysOpen) return read(m_shared.limits.idle);
  error_code ignored;
  m_socket.shutdown(tcp::socket::shutdown_send, ignored);
  arm(kDrain);
  drain();
}

void PageConnection::beginStream() {
  m_deadline.cancel();
  m_isStream = true;
  ++m_shared.streams;
  awaitEnd();
  m_hasNews = true;
  sendNews();
}

// Whatever a peer sends behind its request for the stream, or the end of its half, ends the stream.
void PageConnection::awaitEnd() {
  m_socket.async_read_some(asio::buffer(m_rest),
                           [self = shared_from_this()](error_code, std::size_t) { self->close(); });
}

// Closed with something unread, a connection is reset, and the peer may lose the answer.
void PageConnection::drain() {
  m_socket.async_read_some(asio::buffer(m_rest), [self = shared_from_this()](error_code error, std::size_t size) {
    self->m_drained += size;
    if (self->goesOn(error) && self->m_drained < kMostDrained) return self->drain();
    self->close();
  });
}

void PageConnection::sendNews() {
  std::string text = ": here\n\n";
  if (std::exchange(m_hasNews, false)) {
    const JobBoard::News news = m_shared.board.newerThan(m_seen);
    m_seen = news.count;
    text = "data: " + pageJson(news) + "\n\n";
  }
  m_isBusy = true;
  sendText(std::move(text), [this] { restStream(); });
}

void PageConnection::restStream() {
  m_deadline.cancel();
  m_pause.expires_after(m_shared.limits.pause);
  m_pause.async_wait([self = shared_from_this()](error_code error) {
    if (error || !self->m_isStream) return;
    self->m_isBusy = false;
    if (self->m_hasNews) return self->sendNews();
    self->m_pause.expires_after(self->m_shared.limits.sign);
    self->m_pause.async_wait([weak = self->weak_from_this()](error_code canceled) {
      const auto still = weak.lock();
      if (!canceled && still && still->m_isStream && !still->m_isBusy) still->sendNews();
    });
  });
}

}  // namespace printclient
