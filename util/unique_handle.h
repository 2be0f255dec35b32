#pragma once

#include <utility>

// Owns one handle of an operating system and closes it exactly once. Traits tell what such a handle is:
//   using Type = ...;                    the handle's type, cheap to copy
//   static Type invalid();               the value that stands for "none"
//   static void close(Type) noexcept;    never called with invalid(); keeps the thread's last error
// Moving hands the ownership over. One object belongs to one thread at a time.
template <typename Traits>
class UniqueHandle {
 public:
  using Type = typename Traits::Type;

  UniqueHandle() noexcept : m_handle(Traits::invalid()) {}
  explicit UniqueHandle(Type handle) noexcept : m_handle(handle) {}
  UniqueHandle(UniqueHandle&& other) noexcept : m_handle(other.release()) {}
  UniqueHandle& operator=(UniqueHandle&& other) noexcept {
    if (this != &other) reset(other.release());
    return *this;
  }
  UniqueHandle(const UniqueHandle&) = delete;
  UniqueHandle& operator=(const UniqueHandle&) = delete;
  ~UniqueHandle() { reset(); }

  Type get() const noexcept { return m_handle; }
  explicit operator bool() const noexcept { return m_handle != Traits::invalid(); }

  // Closes what is held and takes over handle.
  void reset(Type handle = Traits::invalid()) noexcept {
    const Type old = std::exchange(m_handle, handle);
    if (old != Traits::invalid()) Traits::close(old);
  }

  // Gives the handle up without closing it.
  Type release() noexcept { return std::exchange(m_handle, Traits::invalid()); }

  // Closes what is held and gives the place for a call that opens a handle through an out argument.
  Type* receive() noexcept {
    reset();
    return &m_handle;
  }

 private:
  Type m_handle;
};
