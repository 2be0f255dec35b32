#pragma once

#include "client/job_board.h"
#include "client/page/page_answer.h"
#include "client/page/page_limits.h"

#include <array>
#include <atomic>
#include <boost/asio.hpp>
#include <boost/beast/core/flat_buffer.hpp>
#include <boost/beast/http.hpp>
#include <chrono>
#include <cstddef>
#include <cstdint>
#include <fstream>
#include <memory>
#include <optional>
#include <string>

namespace printclient {

// What all connections of a server have in common; outlives them.
struct PageShared {
  PageAnswers& answers;
  JobBoard& board;
  const PageLimits limits;
  std::atomic<std::size_t> connections{0};  // any thread
  std::atomic<std::size_t> streams{0};      // those of them that want events; any thread
};

// One connection to the page: requests one after another, each answered before the next is read, or a stream of events.
// Kept by its own handlers; all of it runs on the thread of the server.
class PageConnection : public std::enable_shared_from_this<PageConnection> {
 public:
  using Socket = boost::asio::ip::tcp::socket;

  PageConnection(PageShared& shared, Socket socket);
  ~PageConnection();
  PageConnection(const PageConnection&) = delete;
  PageConnection& operator=(const PageConnection&) = delete;

  // Whether it has shown the secret.
  bool isProven() const { return m_isProven; }
  // The next request, which has that long to come.
  void read(std::chrono::milliseconds time);
  // There is something new on the board.
  void tell();
  void close();

 private:
  // The connection is closed unless the next step follows by then.
  void arm(std::chrono::milliseconds time);
  void endStream();
  // A handler's guard: false after closing, when the step has failed.
  bool goesOn(boost::system::error_code error);

  void take(boost::system::error_code error);
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

  PageShared& m_shared;
  Socket m_socket;
  boost::asio::steady_timer m_deadline;
  boost::asio::steady_timer m_pause;
  boost::beast::flat_buffer m_buffer{16384};
  std::optional<boost::beast::http::request_parser<boost::beast::http::string_body>> m_parser;
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

}  // namespace printclient
