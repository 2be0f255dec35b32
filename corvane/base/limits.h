#pragma once

#include <cstddef>

// Bounds on everything that a peer can make grow. Past a bound the connection is closed with a record; other
// connections notice nothing.
namespace corvane {

inline constexpr std::size_t kMaxFramePayload = 64 * 1024;    // bytes after the header of one frame
inline constexpr std::size_t kMaxUnpackedPiece = 128 * 1024;  // bytes that one packed frame becomes
inline constexpr std::size_t kMaxTextUnits = 32767;           // UTF-16 units of one text
inline constexpr std::size_t kMaxCollectedRequest =
    1024 * 1024;  // bytes of a request to a component that stands on no bridge
inline constexpr std::size_t kMaxCollectedReply = 4 * 1024 * 1024;  // bytes of one reply
inline constexpr std::size_t kMaxInboxBytes = 384 * 1024;           // bytes held for one bridge's thread
inline constexpr std::size_t kMaxConnectionInboxBytes =
    8 * 1024 * 1024;                                       // bytes held for the threads of one connection's bridges
inline constexpr int kMaxServedBridges = 128;              // bridges of one connection whose threads have not ended
inline constexpr std::size_t kMaxComponentsOnBridge = 64;  // components that stand on one bridge
inline constexpr int kMaxRoutes = 16;                      // bridges of one connection that lead to other connections
inline constexpr std::size_t kMaxClassNameUnits = 256;     // characters of a class name in a map of versions
inline constexpr std::size_t kMaxHelloCharacters = 256;    // of a name or value of the handshake; the rest is cut off
inline constexpr std::size_t kMaxRefusedComponents = 64;   // refusals that are remembered for an answer
inline constexpr std::size_t kMaxHelloValues = 32;         // named values of a handshake
inline constexpr std::size_t kMaxReasonCharacters = 200;   // of a reason that a peer gives; the rest is cut off

// Bytes for which Patience::send is the time: 256 KiB in 120 s are some 2 KiB a second, the least that a peer must
// take.
inline constexpr std::size_t kSendWindow = 256 * 1024;

}  // namespace corvane
