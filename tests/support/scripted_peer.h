#pragma once

#include "corvane/net/socket.h"
#include "corvane/wire/frame.h"
#include "corvane/wire/link.h"
#include "corvane/wire/value_writer.h"

#include <condition_variable>
#include <cstdint>
#include <functional>
#include <map>
#include <memory>
#include <mutex>
#include <string>
#include <thread>
#include <utility>
#include <vector>

class ScriptedConnection;

// The other end of the monitor's connections, on a real loopback socket: it speaks frames only, answers from a script,
// and writes down what arrives as readable lines, each value with its type, in order:
//
//   connect
//   create PortMonitorClient
//   request 5 GetPrinterInfo: text "Laser-2"          a request that waits for a reply
//   one-way 2 WriteJob: boolean false, int 3, bytes 3
//   end
//
// It includes nothing of protocol/ on purpose: numbers, order and types of the values stand in the tests that use it,
// so that a change of the wire shows here although both ends of the product make it together.
//
// Connections of other processes are sent away. Lines of a second connection begin with "2| ", and so on. A request
// without an answer in the script is refused. All operations may be called from the test's thread at any time; the
// script runs on the connection's thread.
class ScriptedPeer {
 public:
  using Lines = std::vector<std::string>;
  using Answer = std::function<void(corvane::ValueWriter& reply)>;

  // Port 0 lets the system choose.
  explicit ScriptedPeer(std::uint16_t port = 0);
  ~ScriptedPeer();
  ScriptedPeer(const ScriptedPeer&) = delete;
  ScriptedPeer& operator=(const ScriptedPeer&) = delete;

  std::uint16_t port() const { return m_listener.port(); }

  // What requests of that number to components of that class ("PortMonitorClient") are answered with.
  void answer(const std::string& className, int number, Answer answer);
  // Ends the connection when such a request comes, instead of answering it.
  void hangUpAt(const std::string& className, int number);
  // Called, before the answer, when such a request has come.
  void whenAsked(const std::string& className, int number, std::function<void()> action);

  Lines lines() const;
  // Waits up to ten seconds until that many lines are there, for what nobody answers; returns the lines.
  Lines waitForLines(std::size_t count) const;
  // Waits up to ten seconds for that line; false when it did not come.
  bool waitForLine(const std::string& line) const;
  // The bytes of all blocks of bytes that arrived, one behind the other.
  std::vector<unsigned char> bytes() const;
  void clear();
  // Waits up to ten seconds until no more than that many connections are being served; false when the time ran out.
  bool waitForOpen(int count) const;
  // Ends every connection from this side.
  void hangUp();

 private:
  friend class ScriptedConnection;
  using Key = std::pair<std::string, int>;

  void acceptAll();
  void write(int connection, const std::string& line);

  corvane::Listener m_listener;
  mutable std::mutex m_lock;  // guards what follows
  mutable std::condition_variable m_changed;
  std::map<Key, Answer> m_answers;
  std::map<Key, std::function<void()>> m_actions;
  Lines m_lines;
  int m_open = 0;
  std::vector<unsigned char> m_bytes;
  std::vector<std::shared_ptr<ScriptedConnection>> m_connections;
  std::vector<std::thread> m_threads;
  std::thread m_acceptor;
};
