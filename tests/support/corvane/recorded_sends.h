#pragma once

#include "corvane/net/socket.h"

#include <functional>
#include <memory>
#include <mutex>
#include <string>
#include <thread>
#include <utility>
#include <vector>

// What was sent on a stream, one entry for each send. Safe from any thread.
class RecordedSends {
 public:
  struct Send {
    std::string bytes;
    std::thread::id by;
  };

  // Called on the sending thread with how many sends there are, this one included, before its bytes leave. Set before
  // the first send.
  std::function<void(std::size_t)> beforeSend;

  std::vector<Send> all() {
    const std::lock_guard guard(m_lock);
    return m_sends;
  }
  void clear() {
    const std::lock_guard guard(m_lock);
    m_sends.clear();
  }
  std::size_t add(std::string bytes) {
    const std::lock_guard guard(m_lock);
    m_sends.push_back({std::move(bytes), std::this_thread::get_id()});
    return m_sends.size();
  }

 private:
  std::mutex m_lock;
  std::vector<Send> m_sends;
};

// A socket whose sends are recorded; what is recorded outlives it.
class RecordingStream : public corvane::Stream {
 public:
  RecordingStream(corvane::Socket socket, RecordedSends& sends) : m_socket(std::move(socket)), m_sends(sends) {}

  void send(std::span<const Piece> pieces) override {
    std::string bytes;
    for (const Piece& piece : pieces)
      bytes.append(reinterpret_cast<const char*>(piece.data()), piece.size());
    const std::size_t count = m_sends.add(std::move(bytes));
    if (m_sends.beforeSend) m_sends.beforeSend(count);
    m_socket.send(pieces);
  }
  std::optional<std::size_t> receive(std::span<unsigned char> buffer,
                                     std::optional<corvane::Deadline> deadline) override {
    return m_socket.receive(buffer, deadline);
  }
  void setPatience(const corvane::Patience& patience) override { m_socket.setPatience(patience); }
  bool hasRoom() const noexcept override { return m_socket.hasRoom(); }
  void shutdown() noexcept override { m_socket.shutdown(); }
  void close() noexcept override { m_socket.close(); }
  bool peerHasClosed() const noexcept override { return m_socket.peerHasClosed(); }
  std::string peerName() const override { return m_socket.peerName(); }
  std::vector<unsigned char> localEndpoint() const override { return m_socket.localEndpoint(); }
  std::vector<unsigned char> peerEndpoint() const override { return m_socket.peerEndpoint(); }

 private:
  corvane::Socket m_socket;
  RecordedSends& m_sends;
};
