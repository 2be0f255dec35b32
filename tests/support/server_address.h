#pragma once

#include <cstdint>
#include <string>

// Lets the code of this test binary find the application server at a port of the test's choice, for as long as this
// object lives, whatever the registry says, and no key but the one whose file is given. Link the object library
// mg_server_address.
class ServerAddress {
 public:
  explicit ServerAddress(std::uint16_t port, const std::wstring& keyFile = {});
  ~ServerAddress();
  ServerAddress(const ServerAddress&) = delete;
  ServerAddress& operator=(const ServerAddress&) = delete;
};
