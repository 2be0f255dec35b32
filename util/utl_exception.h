#pragma once

#include <cstdint>

// Status codes that the utility classes share: results of waits, states of a OneTimeMethod and the codes that a
// UTL_Exception carries. The numbers are part of the contract; 3 means "finished" as a state and "no memory" as the
// code of an exception.
namespace mg::status {

inline constexpr std::int32_t kFailure = 1;
inline constexpr std::int32_t kNoMemory = 3;
inline constexpr std::int32_t kDone = 3;
inline constexpr std::int32_t kRunning = 4;
inline constexpr std::int32_t kDestroyed = 5;
inline constexpr std::int32_t kNotRun = 6;
inline constexpr std::int32_t kNotReady = 7;
inline constexpr std::int32_t kSuccess = 8;
inline constexpr std::int32_t kTimedOut = 9;
inline constexpr std::int32_t kConversion = 11;

}  // namespace mg::status

// What the utility classes throw: a status code and nothing else, so that throwing it never needs
// memory for a text. Copying copies the code.
class UTL_Exception {
 public:
  explicit UTL_Exception(std::int32_t code = 0) noexcept : m_code(code) {}
  UTL_Exception(const UTL_Exception&) noexcept = default;
  UTL_Exception& operator=(const UTL_Exception&) noexcept = default;
  virtual ~UTL_Exception() = default;

  std::int32_t code() const noexcept { return m_code; }

 private:
  std::int32_t m_code;
};
