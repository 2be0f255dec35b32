#pragma once

#include <cstdint>

namespace corvane {

// Gives the requests of one connection their numbers. They begin again after four billion; none is 0, which stands for
// a request that wants no reply, nor that of a request whose reply is still waited for. Its owner guards it.
class CorrelationCounter {
 public:
  explicit CorrelationCounter(std::uint32_t last = 0) : m_last(last) {}

  // The next number that is no key of what is waited for.
  template <class Waiting>
  std::uint32_t next(const Waiting& waiting) {
    do {
      ++m_last;
    } while (m_last == 0 || waiting.contains(m_last));
    return m_last;
  }

 private:
  std::uint32_t m_last;
};

}  // namespace corvane
