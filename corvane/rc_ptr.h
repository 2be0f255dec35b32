#pragma once

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
