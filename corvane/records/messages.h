#pragma once

#include <span>

// Numbers of the framework's own messages; CS_Exception and CS_ProgramMonitor::recordNumber turn them into texts.
namespace corvane {

inline constexpr int kUnknownException = 3012;
inline constexpr int kMissingObject = 3014;
inline constexpr int kBadArgument = 3015;
inline constexpr int kAllocationFailed = 3016;

inline constexpr int kConnectFailed = 3101;      // nobody listens, or the peer refused the handshake
inline constexpr int kConnectionLost = 3102;     // the connection ended while somebody needed it
inline constexpr int kReplyTimedOut = 3103;      // no reply within the stated time
inline constexpr int kRequestRefused = 3104;     // the peer answered that it cannot serve the request
inline constexpr int kProtocolViolation = 3105;  // the peer sent what the protocol does not allow
inline constexpr int kWrongValueType = 3106;  // a value was read as another type than it was written, or past the end
inline constexpr int kLimitExceeded = 3107;   // a bound on what a peer can make grow was passed
inline constexpr int kKeyNeeded = 3108;       // this side's own key is missing or cannot be used
inline constexpr int kNotProven = 3109;       // the other side did not prove who it is

inline constexpr int kModuleNameFailed = 11504;
inline constexpr int kModuleHandleFailed = 11505;

// The text of a message number, a general one for a number without its own. Never null, static storage.
const wchar_t* messageText(int number);

}  // namespace corvane

// Levels and category of the records that go through a CS_ProgramMonitor.
namespace corvane {

inline constexpr int kLevelFailure = 0x4000000a;            // a failure that is then thrown
inline constexpr int kLevelCleanupNote = 0x4000000c;        // a note written while cleaning up after a failed job
inline constexpr int kLevelStackTrace = 0x40000008;         // the closing line of an operation that failed
inline constexpr int kLevelConnectionFailure = 0x40000002;  // an exception on the way to the application server
inline constexpr int kLevelException = 10;                  // an exception as it was caught

inline constexpr long long kCategory = 0x80080000LL;

// What a level is called where its records are written.
struct LevelWords {
  int level;
  const wchar_t* inOwnLog;     // of the process that records
  const wchar_t* inServerLog;  // of the application server
  bool meansFailure;           // and not only where a failure passed or what was cleaned up
};
// Those above. The administration tool finds the failures in a log by these words.
std::span<const LevelWords> knownLevels();
// Null for another level.
const LevelWords* wordsOf(int level);

}  // namespace corvane
