#pragma once

// Levels and category of the records that go through a CS_ProgramMonitor.
namespace corvane {

inline constexpr int kLevelFailure = 0x4000000a;            // a failure that is then thrown
inline constexpr int kLevelCleanupNote = 0x4000000c;        // a note written while cleaning up after a failed job
inline constexpr int kLevelStackTrace = 0x40000008;         // the closing line of an operation that failed
inline constexpr int kLevelConnectionFailure = 0x40000002;  // an exception on the way to the application server
inline constexpr int kLevelException = 10;                  // an exception as it was caught

inline constexpr long long kCategory = 0x80080000LL;

}  // namespace corvane
