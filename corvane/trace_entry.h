#pragma once

#include <atomic>

// Marks the time that an operation takes, from its construction to the end of its scope, in the local log.
//
//   CS_TraceEntry trace(L"MGOpenPort (pName = %s)", name);
//
// While tracing is off (the default) an entry costs one branch: nothing is formatted and nothing is allocated. Tracing
// is switched by the value "Trace" of the framework's configuration, read when the component server is initialised.
// Leaves the thread's last error as it was; never throws. A null argument for %s is written as "(null)".
class CS_TraceEntry {
 public:
  template <class... Arguments>
  explicit CS_TraceEntry(const wchar_t* format, Arguments... arguments) {
    if (s_enabled.load(std::memory_order_relaxed)) [[unlikely]]
      enter(format, arguments...);
  }
  ~CS_TraceEntry() {
    if (m_active) [[unlikely]]
      leave();
  }
  CS_TraceEntry(const CS_TraceEntry&) = delete;
  CS_TraceEntry& operator=(const CS_TraceEntry&) = delete;

  static void enable(bool on) { s_enabled.store(on, std::memory_order_relaxed); }
  static bool isEnabled() { return s_enabled.load(std::memory_order_relaxed); }

 private:
  void enter(const wchar_t* format, ...) noexcept;
  void leave() noexcept;

  static std::atomic<bool> s_enabled;
  bool m_active = false;
  wchar_t m_text[128];  // filled by enter() only
};
