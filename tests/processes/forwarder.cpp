#include "tests/processes/forwarder.h"

#include "corvane/records/exception.h"

#include <stdexcept>

namespace tests {

Forwarder::Forwarder(std::uint16_t target) : m_target(target), m_acceptor([this] { accept(); }) {}

Forwarder::~Forwarder() {
  m_listener.stop();
  m_acceptor.join();
  cut();
  for (Line& line : m_lines) {
    line.forthThread.join();
    line.backThread.join();
  }
}

std::vector<std::string> Forwarder::seen() {
  const std::lock_guard guard(m_lock);
  std::vector<std::string> all;
  for (const Line& line : m_lines) {
    all.push_back(line.forth);
    all.push_back(line.back);
  }
  return all;
}

void Forwarder::cut() {
  const std::lock_guard guard(m_lock);
  for (Line& line : m_lines) {
    line.near.shutdown();
    line.far.shutdown();
  }
}

void Forwarder::accept() {
  for (;;) {
    try {
      corvane::Socket near = m_listener.accept();
      corvane::Socket far = corvane::Socket::connect("127.0.0.1", m_target, false);
      const std::lock_guard guard(m_lock);
      Line& line = m_lines.emplace_back();
      line.near = std::move(near);
      line.far = std::move(far);
      line.forthThread = std::thread([this, &line] { pass(line.near, line.far, line.forth); });
      line.backThread = std::thread([this, &line] { pass(line.far, line.near, line.back); });
    } catch (const CS_Exception&) {
      // Nobody listens behind it: the connection to it ends.
    } catch (const std::runtime_error&) {
      return;  // stopped
    }
  }
}

void Forwarder::pass(corvane::Socket& from, corvane::Socket& to, std::string& into) {
  std::vector<unsigned char> buffer(64 * 1024);
  try {
    for (;;) {
      const auto count = from.receive(buffer, std::nullopt);
      if (!count || *count == 0) break;
      const corvane::Stream::Piece piece = std::span(buffer).first(*count);
      {
        const std::lock_guard guard(m_lock);
        into.append(piece.begin(), piece.end());
      }
      to.send(std::span(&piece, 1));
    }
  } catch (const CS_Exception&) {
    // One of the two has gone, and so does the other.
  }
  from.shutdown();
  to.shutdown();
}

}  // namespace tests
