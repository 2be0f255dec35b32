#pragma once

#include <cstdint>
#include <map>
#include <string>

namespace aps {

// How fast print clients of other machines are sent their jobs at most, so that printing leaves some of their line for
// what they work with. In bytes a second, before packing is not what counts but what is sent.
struct ClientRates {
  std::uint64_t ofEach = 0;                 // 0: as fast as it goes
  std::map<int, std::uint64_t> ofSessions;  // those with a rate of their own

  std::uint64_t of(int session) const;
  // Adds what one --client-rate says: "250KB" for each session, "5=1MB" for session 5; of two for the same the later
  // one counts. Throws std::invalid_argument that says what is wrong and shows an example.
  void add(const std::string& text);
};

}  // namespace aps
