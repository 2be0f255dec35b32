#include "corvane/base/lock.h"

#include <windows.h>

#include <algorithm>

namespace corvane {
namespace {

static_assert(sizeof(SRWLOCK) == sizeof(void*) && sizeof(CONDITION_VARIABLE) == sizeof(void*));

// Both begin as zero (SRWLOCK_INIT, CONDITION_VARIABLE_INIT).
SRWLOCK* slim(void*& word) {
  return reinterpret_cast<SRWLOCK*>(&word);
}
CONDITION_VARIABLE* variable(void*& word) {
  return reinterpret_cast<CONDITION_VARIABLE*>(&word);
}

}  // namespace

void Lock::lock() noexcept {
  AcquireSRWLockExclusive(slim(m_word));
}

bool Lock::try_lock() noexcept {
  return TryAcquireSRWLockExclusive(slim(m_word)) != 0;
}

void Lock::unlock() noexcept {
  ReleaseSRWLockExclusive(slim(m_word));
}

void Condition::notify_one() noexcept {
  WakeConditionVariable(variable(m_word));
}

void Condition::notify_all() noexcept {
  WakeAllConditionVariable(variable(m_word));
}

void Condition::wait(std::unique_lock<Lock>& lock) noexcept {
  SleepConditionVariableSRW(variable(m_word), slim(lock.mutex()->m_word), INFINITE, 0);
}

std::cv_status Condition::wait_until(std::unique_lock<Lock>& lock,
                                     std::chrono::steady_clock::time_point deadline) noexcept {
  using std::chrono::milliseconds;
  constexpr milliseconds kLongest = std::chrono::hours(24);  // INFINITE is 49 days
  const auto left = std::chrono::ceil<milliseconds>(deadline - std::chrono::steady_clock::now());
  const auto time = static_cast<DWORD>(std::clamp(left, milliseconds(0), kLongest).count());
  SleepConditionVariableSRW(variable(m_word), slim(lock.mutex()->m_word), time, 0);
  return std::chrono::steady_clock::now() < deadline ? std::cv_status::no_timeout : std::cv_status::timeout;
}

}  // namespace corvane
