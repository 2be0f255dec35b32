#pragma once

#include <atomic>
#include <cstddef>
#include <utility>

// Holds one reference to an object that counts its references with addRef() and removeRef().
//
// Assigning the pointer that is already held changes nothing. Otherwise the old object loses its reference and the new
// one gains one; an object that is already being destroyed answers addRef() with less than 1, and the holder then
// becomes null instead of keeping a pointer that is about to dangle.
//
// One holder is not shared between threads without a lock; different holders of one object may live on any threads.
template <class T>
class CS_RCPtr {
 public:
  CS_RCPtr() = default;
  CS_RCPtr(std::nullptr_t) {}
  CS_RCPtr(T* object) { assign(object); }
  CS_RCPtr(const CS_RCPtr& other) { assign(other.m_object); }
  CS_RCPtr(CS_RCPtr&& other) noexcept : m_object(std::exchange(other.m_object, nullptr)) {}
  template <class U>
  CS_RCPtr(const CS_RCPtr<U>& other) {
    assign(other.get());
  }
  ~CS_RCPtr() { assign(nullptr); }

  CS_RCPtr& operator=(T* object) {
    assign(object);
    return *this;
  }
  CS_RCPtr& operator=(const CS_RCPtr& other) {
    assign(other.m_object);
    return *this;
  }
  CS_RCPtr& operator=(CS_RCPtr&& other) noexcept {
    std::swap(m_object, other.m_object);
    return *this;
  }

  T* get() const { return m_object; }
  T* operator->() const { return m_object; }
  T& operator*() const { return *m_object; }
  explicit operator bool() const { return m_object != nullptr; }

 private:
  void assign(T* object) {
    if (object == m_object) return;
    if (T* old = std::exchange(m_object, nullptr)) old->removeRef();
    if (object != nullptr && object->addRef() >= 1) m_object = object;
  }

  T* m_object = nullptr;
};

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
