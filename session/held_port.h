#pragma once

#include "ports/tag_port.h"

class CPortList;

namespace mg {

// The module's port list. Throws CS_Exception (3014) before the module is initialised and after its end.
CPortList& portList();

// A port of the list with its lock held for the rest of the scope; empty when the list has no port of that name. The
// lock is left before anything is recorded about the operation, as long as the scope lies inside its body. Belongs to
// the thread that made it.
class HeldPort {
 public:
  HeldPort(CPortList& list, const wchar_t* name);
  ~HeldPort();
  HeldPort(const HeldPort&) = delete;
  HeldPort& operator=(const HeldPort&) = delete;

  tagPort* get() const { return m_port; }
  tagPort* operator->() const { return m_port; }
  explicit operator bool() const { return m_port != nullptr; }

 private:
  tagPort* m_port;
};

// The port that serves a session: "CPP" and the session's number. The text ends within its array.
struct SessionPortName {
  explicit SessionPortName(unsigned int sessionId);
  wchar_t text[16];
};

}  // namespace mg
