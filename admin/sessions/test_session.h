#pragma once

#include "corvane/components/component.h"
#include "corvane/components/connection.h"
#include "protocol/administration.h"

#include <condition_variable>
#include <memory>
#include <mutex>
#include <string>
#include <thread>

namespace admin {

// The sessions that this program makes for test pages have numbers in this range; sessions of users never have. The
// server remembers them like any other, so they are neither shown nor watched.
inline constexpr int kFirstTestSession = 900000001;
inline constexpr int kLastTestSession = 900000099;
bool isTestSession(int number);
// The first unused number.
int freeTestSession(const protocol::ServerStatus& facts, const std::vector<std::wstring>& ports);

// The data that arrived for a test session. Written by the thread of its bridge, read by that of the test.
class Arrival {
 public:
  void begin();
  void append(const unsigned char* data, std::size_t size);
  void end();
  // Waits for the end of a document; false when it did not come in time.
  bool wait(unsigned milliseconds);
  std::string bytes() const;

 private:
  mutable std::mutex m_lock;  // guards what follows
  std::condition_variable m_changed;
  std::string m_bytes;
  bool m_ended = false;
};

// A print client in this process with one printer that accepts raw data. It is served on a thread of this object and
// ends with it.
class TestSession {
 public:
  // Registers with the server on that port (0: that of the registry), with the session's key from that file unless the
  // name is empty; throws a Failure.
  TestSession(int number, int serverPort, const std::string& keyFile, const std::wstring& driver);
  ~TestSession();
  TestSession(const TestSession&) = delete;
  TestSession& operator=(const TestSession&) = delete;

  // The local name that the server assigned to the printer.
  const std::wstring& localName() const { return m_localName; }
  Arrival& arrival() { return *m_arrival; }

 private:
  void bringPrinter(int number, const std::wstring& driver);

  std::shared_ptr<Arrival> m_arrival;
  CS_RCPtr<CS_Connection> m_connection;
  std::wstring m_localName;
  std::thread m_thread;
};

// The component of one job for a test session: it serves the port monitor's requests and keeps the data. Requests
// arrive one after another, on the bridge's thread.
class TestPrintClient : public CS_Component {
 public:
  using Context = Arrival;
  explicit TestPrintClient(std::shared_ptr<Arrival> arrival) : m_arrival(std::move(arrival)) {}

  bool processRequest(CS_InRequest& request) override;

 private:
  std::shared_ptr<Arrival> m_arrival;
};

}  // namespace admin
