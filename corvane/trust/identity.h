#pragma once

#include <optional>
#include <string>
#include <string_view>

namespace corvane {

// Who a peer can be: the print monitor (with the administration tool), or the print client of one session.
class Identity {
 public:
  static Identity monitor() { return Identity(0); }
  // The number is 1 or more.
  static Identity session(int number) { return Identity(number); }
  // "monitor" or "session-5", exactly so: no other case, sign, space or leading zero. Nothing for any other text, so
  // that what a peer says never becomes part of a path.
  static std::optional<Identity> parse(std::wstring_view name);

  bool isMonitor() const { return m_session == 0; }
  // 0 for the monitor.
  int sessionNumber() const { return m_session; }
  // ASCII, the text that parse() takes.
  std::wstring name() const;

  friend bool operator==(const Identity&, const Identity&) = default;

 private:
  explicit Identity(int session) : m_session(session) {}
  int m_session;
};

}  // namespace corvane
