#pragma once

#include "admin/server_facts.h"
#include "admin/session_printers.h"
#include "corvane/component.h"
#include "corvane/connection.h"

#include <string>
#include <vector>

namespace admin {

// A connection to the application server of this machine, to ask what it knows. One thread. Every operation throws a
// Failure with kServerAway when the server cannot be asked, and can be tried again on a new object.
class ApplicationServer {
 public:
  // Dials that port of this machine; 0 is the one in the registry.
  explicit ApplicationServer(int port = 0);
  ~ApplicationServer();
  ApplicationServer(const ApplicationServer&) = delete;
  ApplicationServer& operator=(const ApplicationServer&) = delete;

  ServerFacts status();
  // The latest lines of its log that tell of a failure, oldest first.
  std::vector<std::wstring> records(int most);
  // What was noticed after that number, waiting that long for the first one; -1 asks for the latest number only.
  // The server has the patience on top of that for its answer.
  Notices notices(int after, unsigned waitMilliseconds, unsigned patienceMilliseconds = kReplyMilliseconds);
  // Tells it that a session's printer cannot be had on this machine, for its log and for the session's print client.
  void tellRefusal(int session, const RefusedPrinter& printer);

  static constexpr unsigned kReplyMilliseconds = 15000;

 private:
  CS_RCPtr<CS_Connection> m_connection;
  CS_RCPtr<CS_Component> m_component;
  int m_port;
};

}  // namespace admin
