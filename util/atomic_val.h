#pragma once

#include <atomic>

namespace mg {

// One value that a thread may store while others read it, for the types whose aligned store is indivisible on the
// target processor: long and void*. Only that is promised: no order towards other memory, and no read-modify-write.
template <typename T>
class AtomicVal {
 public:
  AtomicVal() noexcept = default;
  explicit AtomicVal(T value) noexcept : m_value(value) {}
  AtomicVal(const AtomicVal& other) noexcept : m_value(other.get()) {}

  // One plain store of the other's value.
  AtomicVal& operator=(const AtomicVal& other) noexcept {
    m_value.store(other.get(), std::memory_order_relaxed);
    return *this;
  }

  T get() const noexcept { return m_value.load(std::memory_order_relaxed); }

 private:
  static_assert(std::atomic<T>::is_always_lock_free);
  std::atomic<T> m_value{};
};

}  // namespace mg
