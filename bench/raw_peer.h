#pragma once

#include "corvane/net/socket.h"

#include <array>
#include <cstddef>
#include <cstdint>
#include <functional>
#include <span>

// The sending end of the raw yardstick; bench/raw_hops.cpp is the other ones. Everything here throws CS_Exception when
// a connection fails. Each object and call belongs to one thread.
namespace bench {

// One send for one buffer, and a wait until a buffer is full.
void sendAll(corvane::Socket& socket, std::span<const unsigned char> bytes);
void receiveAll(corvane::Socket& socket, std::span<unsigned char> bytes);

// What a connection to the relay is for: its first byte.
inline constexpr unsigned char kStream = 's';   // 8 bytes of length, then the data; the sink answers one byte
inline constexpr unsigned char kPings = 'p';    // 64 bytes each, answered with 64 bytes
inline constexpr unsigned char kCommand = 'c';  // the sink runs its command and answers one byte
// Who answers a ping: its first byte.
inline constexpr unsigned char kByRelay = 'r';
inline constexpr unsigned char kBySink = 's';

inline constexpr std::size_t kPingBytes = 64;
using Ping = std::array<unsigned char, kPingBytes>;

// Connects, sends the piece as often as the total wants, and waits until the sink has all of it in its file.
void streamRaw(std::uint16_t relay, std::span<const unsigned char> piece, std::uint64_t total);

// Has the sink run its command, and waits for its end.
void runRawCommand(std::uint16_t relay);

// A connection for round trips.
class RawPings {
 public:
  explicit RawPings(std::uint16_t relay);

  // One round trip.
  void ask(unsigned char who);

 private:
  corvane::Socket m_socket;
  bool m_isFirst = true;
};

// Runs the measurements of a program. Returns its exit code: what is thrown is said on the error output.
int runMeasurements(const std::function<void()>& measure);

}  // namespace bench
