#include "tests/support/scripted_peer.h"

#include "tests/support/scripted_connection.h"

#include <algorithm>
#include <chrono>

namespace {

std::string listeningAddress(std::uint16_t port) {
  corvane::initializeNetwork();
  return "127.0.0.1:" + std::to_string(port);
}

}  // namespace

ScriptedPeer::ScriptedPeer(std::uint16_t port) : m_listener(listeningAddress(port)) {
  m_acceptor = std::thread([this] { acceptAll(); });
}

ScriptedPeer::~ScriptedPeer() {
  m_listener.stop();
  m_acceptor.join();
  hangUp();
  for (std::thread& thread : m_threads)
    thread.join();
}

void ScriptedPeer::acceptAll() {
  while (auto socket = m_listener.accept()) {
    const std::lock_guard guard(m_lock);
    const int number = static_cast<int>(m_connections.size()) + 1;
    auto connection = std::make_shared<ScriptedConnection>(*this, number, std::move(*socket));
    m_connections.push_back(connection);
    ++m_open;
    m_threads.emplace_back([this, connection] {
      connection->serve();
      const std::lock_guard hold(m_lock);
      --m_open;
      m_changed.notify_all();
    });
  }
}

void ScriptedPeer::answer(const std::string& className, int number, Answer answer) {
  const std::lock_guard guard(m_lock);
  m_answers[{className, number}] = std::move(answer);
}

void ScriptedPeer::hangUpAt(const std::string& className, int number) {
  answer(className, number, nullptr);
}

void ScriptedPeer::whenAsked(const std::string& className, int number, std::function<void()> action) {
  const std::lock_guard guard(m_lock);
  m_actions[{className, number}] = std::move(action);
}

ScriptedPeer::Lines ScriptedPeer::lines() const {
  const std::lock_guard guard(m_lock);
  return m_lines;
}

ScriptedPeer::Lines ScriptedPeer::waitForLines(std::size_t count) const {
  std::unique_lock guard(m_lock);
  m_changed.wait_for(guard, std::chrono::seconds(10), [&] { return m_lines.size() >= count; });
  return m_lines;
}

bool ScriptedPeer::waitForLine(const std::string& line) const {
  std::unique_lock guard(m_lock);
  return m_changed.wait_for(guard, std::chrono::seconds(10),
                            [&] { return std::find(m_lines.begin(), m_lines.end(), line) != m_lines.end(); });
}

bool ScriptedPeer::waitForOpen(int count) const {
  std::unique_lock guard(m_lock);
  return m_changed.wait_for(guard, std::chrono::seconds(10), [&] { return m_open <= count; });
}

std::vector<unsigned char> ScriptedPeer::bytes() const {
  const std::lock_guard guard(m_lock);
  return m_bytes;
}

void ScriptedPeer::clear() {
  const std::lock_guard guard(m_lock);
  m_lines.clear();
  m_bytes.clear();
}

void ScriptedPeer::hangUp() {
  std::vector<std::shared_ptr<ScriptedConnection>> connections;
  {
    const std::lock_guard guard(m_lock);
    connections = m_connections;
  }
  for (const auto& connection : connections)
    connection->hangUp();
}

void ScriptedPeer::write(int connection, const std::string& line) {
  const std::lock_guard guard(m_lock);
  m_lines.push_back(connection == 1 ? line : std::to_string(connection) + "| " + line);
  m_changed.notify_all();
}
