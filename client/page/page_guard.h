#pragma once

#include "corvane/trust/crypto.h"

#include <cstdint>
#include <optional>
#include <string>
#include <string_view>

namespace printclient {

// A request as it came from whoever can reach the loopback address. Plain values; a header that did not come is empty.
struct PageRequest {
  std::string method;  // "GET"
  std::string target;  // "/SECRET/jobs/7/view"
  std::string host;
  std::string origin;
  std::string site;  // Sec-Fetch-Site
  std::string mode;  // Sec-Fetch-Mode
};

// Says no to everybody but the person's own browser on the person's own page:
//
// - The Host must be this server by its number or as localhost, so that no name of a foreign site can lead here.
// - The first part of the path must be the secret, 256 bits of this process, compared in constant time.
// - An Origin must be the page's own; an action (POST) must have one. What the browser says about the site that a
//   request comes from must fit as well: only opening the page itself may come from elsewhere, because it is opened
//   from a file.
//
// The secret stays in the path. A cookie would be sent to every port of this address, so also to a server that another
// user of this machine runs there; a path is sent to nobody else, since the page lets no Referer out.
class PageGuard {
 public:
  PageGuard();
  explicit PageGuard(const corvane::Bytes32& secret);

  void setPort(std::uint16_t port) { m_port = port; }
  // "http://127.0.0.1:40123/SECRET/"
  std::string address() const;

  // Why the request is refused, as an answer's status and its one line; nothing when it is the person's.
  struct Refusal {
    unsigned status;
    std::string_view line;
  };
  std::optional<Refusal> refusalOf(const PageRequest& request) const;
  // What stands behind the secret and its slash, without a query. Of a request that is not refused.
  static std::string_view pathOf(const PageRequest& request);

 private:
  bool isOwnHost(std::string_view host) const;
  bool hasSecret(std::string_view target) const;

  const corvane::Bytes32 m_secret;
  std::uint16_t m_port = 0;
};

}  // namespace printclient
