#include "server/metrics/metrics_server.h"

#include <boost/asio.hpp>
#include <deque>
#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <stdexcept>

namespace aps {
namespace {

using boost::asio::ip::tcp;
using ::testing::EndsWith;
using ::testing::HasSubstr;
using ::testing::StartsWith;

class MetricsServerTest : public ::testing::Test {
 protected:
  static Metrics some() {
    Metrics metrics;
    metrics.running = 3;
    return metrics;
  }
  tcp::socket dial(const MetricsServer& server) {
    const std::string address = server.address();
    tcp::socket socket(m_context);
    socket.connect({boost::asio::ip::address_v4::loopback(),
                    static_cast<std::uint16_t>(std::stoi(address.substr(address.rfind(':') + 1)))});
    return socket;
  }
  // All that comes until the server ends the connection.
  static std::string rest(tcp::socket& socket) {
    std::string text;
    boost::system::error_code end;
    boost::asio::read(socket, boost::asio::dynamic_buffer(text), end);
    return text;
  }
  std::string answerTo(const MetricsServer& server, const std::string& request) {
    tcp::socket socket = dial(server);
    boost::asio::write(socket, boost::asio::buffer(request));
    return rest(socket);
  }
  static std::string get(const std::string& more = "") {
    return "GET /metrics HTTP/1.1\r\nHost: x\r\n" + more + "Connection: close\r\n\r\n";
  }

  boost::asio::io_context m_context;
};

TEST_F(MetricsServerTest, AnswersInTheFormThatIsWanted) {
  const MetricsServer server("127.0.0.1:0", some);
  const std::string plain = answerTo(server, get());
  EXPECT_THAT(plain, StartsWith("HTTP/1.1 200 OK\r\n"));
  EXPECT_THAT(plain, HasSubstr("Content-Type: text/plain; version=0.0.4; charset=utf-8\r\n"));
  EXPECT_THAT(plain, HasSubstr("\naps_jobs_running 3\n"));
  const std::string open = answerTo(server, get("Accept: application/openmetrics-text; version=1.0.0\r\n"));
  EXPECT_THAT(open, HasSubstr("Content-Type: application/openmetrics-text; version=1.0.0; charset=utf-8\r\n"));
  EXPECT_THAT(open, EndsWith("\n# EOF\n"));
}

TEST_F(MetricsServerTest, AnswersOneRequestAfterAnotherOnAConnection) {
  const MetricsServer server("127.0.0.1:0", some);
  const std::string both = answerTo(server, "GET /metrics HTTP/1.1\r\nHost: x\r\n\r\n" + get());
  EXPECT_NE(both.find("HTTP/1.1 200 OK"), both.rfind("HTTP/1.1 200 OK"));
}

TEST_F(MetricsServerTest, RefusesOtherPathsAndMethods) {
  const MetricsServer server("127.0.0.1:0", some);
  EXPECT_EQ(answerTo(server, "GET / HTTP/1.1\r\nConnection: close\r\n\r\n"),
            "HTTP/1.1 404 Not Found\r\nConnection: close\r\nContent-Type: text/plain; charset=utf-8\r\n"
            "Cache-Control: no-store\r\nContent-Length: 28\r\n\r\nthe metrics are at /metrics\n");
  EXPECT_EQ(answerTo(server, "POST /metrics HTTP/1.1\r\nConnection: close\r\n\r\n"),
            "HTTP/1.1 405 Method Not Allowed\r\nConnection: close\r\nContent-Type: text/plain; charset=utf-8\r\n"
            "Cache-Control: no-store\r\nAllow: GET\r\nContent-Length: 21\r\n\r\nonly GET is answered\n");
}

TEST_F(MetricsServerTest, WhatIsNoRequestOrATooLongOneEndsItsConnectionOnly) {
  const MetricsServer server("127.0.0.1:0", some);
  EXPECT_EQ(answerTo(server, "\x16\x03\x01 nonsense\r\n\r\n"), "");
  EXPECT_EQ(answerTo(server, "POST /metrics HTTP/1.1\r\nContent-Length: 5\r\n\r\nhello"), "");
  tcp::socket longOne = dial(server);
  boost::system::error_code ignored;
  boost::asio::write(longOne, boost::asio::buffer("GET /metrics HTTP/1.1\r\nX: " + std::string(100000, 'x')), ignored);
  EXPECT_EQ(rest(longOne), "");
  EXPECT_THAT(answerTo(server, get()), HasSubstr("aps_jobs_running 3"));
}

TEST_F(MetricsServerTest, APeerThatSaysNothingIsLeftAfterItsTime) {
  const MetricsServer server("127.0.0.1:0", some, {16, std::chrono::milliseconds(50)});
  tcp::socket silent = dial(server);
  EXPECT_EQ(rest(silent), "");
}

TEST_F(MetricsServerTest, ANewPeerTakesThePlaceOfTheOldestOfMany) {
  const MetricsServer server("127.0.0.1:0", some, {4, std::chrono::hours(1)});
  std::deque<tcp::socket> silent;
  for (int peer = 0; peer < 100; ++peer)
    silent.push_back(dial(server));
  EXPECT_THAT(answerTo(server, get()), HasSubstr("aps_jobs_running 3"));
  for (int gone = 0; gone < 97; ++gone, silent.pop_front())
    EXPECT_EQ(rest(silent.front()), "") << gone;
  for (tcp::socket& there : silent) {
    boost::asio::write(there, boost::asio::buffer(get()));
    EXPECT_THAT(rest(there), HasSubstr("aps_jobs_running 3"));
  }
}

TEST_F(MetricsServerTest, APortThatIsTakenIsSaid) {
  const MetricsServer server("127.0.0.1:0", some);
  EXPECT_THROW(
      {
        try {
          const MetricsServer other(server.address(), some);
        } catch (const std::runtime_error& failure) {
          EXPECT_STRNE(failure.what(), "");
          throw;
        }
      },
      std::runtime_error);
}

TEST_F(MetricsServerTest, EndsWhileItsPeersAreThere) {
  auto server = std::make_unique<MetricsServer>("127.0.0.1:0", some);
  tcp::socket silent = dial(*server);
  server.reset();
  EXPECT_EQ(rest(silent), "");
}

TEST_F(MetricsServerTest, IsThisMachinesOwnUnlessAnotherAddressIsTyped) {
  EXPECT_EQ(metricsRefusal("127.0.0.1:9464"), "");
  EXPECT_EQ(metricsRefusal("9464"), "");
  EXPECT_EQ(metricsRefusal("127.0.0.1:65535"), "");
  EXPECT_EQ(metricsRefusal("[::1]:9464"), "");
  EXPECT_EQ(metricsRefusal("0.0.0.0:9464"), "");
  EXPECT_THAT(MetricsServer("0", some).address(), StartsWith("127.0.0.1:"));
  for (const char* wrong : {"", ":", "127.0.0.1", "127.0.0.1:", "host:9464", "127.0.0.1:65536", "127.0.0.1:009464",
                            "127.0.0.1:x", "1:2:3"}) {
    EXPECT_EQ(metricsRefusal(wrong),
              "\"" + std::string(wrong) +
                  "\" is not an address and port; an example is 127.0.0.1:9464 (9464 alone means the "
                  "same, and port 0 takes any free port)");
  }
}

}  // namespace
}  // namespace aps
