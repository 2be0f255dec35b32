#pragma once

#include <atomic>

namespace corvane {

// Counts the references to one object. A new object has none; the first add() makes it 1. When remove() takes the last
// one it answers 0 exactly once, and from then on add() answers 0: an object that is being destroyed cannot be held
// again. Safe from any thread; never fails.
class RefCount {
 public:
  int add() {
    int count = m_count.load(std::memory_order_relaxed);
    do {
      if (count < 0) return 0;
    } while (!m_count.compare_exchange_weak(count, count + 1, std::memory_order_relaxed));
    return count + 1;
  }

  // The caller destroys the object when the answer is 0.
  int remove() {
    int count = m_count.load(std::memory_order_relaxed);
    int left;
    do {
      if (count <= 0) return -1;
      left = count == 1 ? kDestroyed : count - 1;
    } while (!m_count.compare_exchange_weak(count, left, std::memory_order_acq_rel, std::memory_order_relaxed));
    return left == kDestroyed ? 0 : left;
  }

 private:
  static constexpr int kDestroyed = -1;
  std::atomic<int> m_count{0};
};

}  // namespace corvane
