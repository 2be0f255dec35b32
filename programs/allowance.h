#pragma once

#include <algorithm>
#include <chrono>

namespace programs {

// How often something may happen: so many times at once, and from then on so many times a second. Used under the lock
// of whoever owns it.
class Allowance {
 public:
  using Clock = std::chrono::steady_clock;

  Allowance(int atOnce, int perSecond) : m_atOnce(atOnce), m_perSecond(perSecond), m_left(atOnce) {}

  // Whether it may happen now; counts it when it may.
  bool take(Clock::time_point now = Clock::now()) {
    const std::chrono::duration<double> passed = std::max(now - m_last, Clock::duration::zero());
    m_left = std::min<double>(m_atOnce, m_left + passed.count() * m_perSecond);
    m_last = now;
    if (m_left < 1) return false;
    m_left -= 1;
    return true;
  }

 private:
  const int m_atOnce;
  const int m_perSecond;
  double m_left;
  Clock::time_point m_last = Clock::now();
};

}  // namespace programs
