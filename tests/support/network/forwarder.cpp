#include "tests/support/network/forwarder.h"

#include "corvane/records/exception.h"
#include "tests/support/own_listener.h"

#include <algorithm>

namespace tests {
namespace {

constexpr std::size_t kWide = 1024 * 1024;  // what is on its way at most where the line has no rate

}  // namespace

Forwarder::Forwarder(std::uint16_t target, const LineQuality& line)
    : m_quality(line),
      m_target(target),
      m_ownListener((corvane::initializeNetwork(), OwnListener::host() + ":0")),
      m_listener(*m_ownListener),
      m_acceptor([this] { accept(); }) {}

Forwarder::Forwarder(corvane::Listener& listener, std::uint16_t target, const LineQuality& line)
    : m_quality(line), m_target(target), m_listener(listener), m_acceptor([this] { accept(); }) {}

Forwarder::~Forwarder() {
  m_listener.stop();
  m_acceptor.join();
  cut();
  for (Line& line : m_lines) {
    for (Way* way : {&line.forth, &line.back}) {
      way->in.join();
      way->out.join();
    }
  }
}

std::vector<std::string> Forwarder::seen() {
  const std::lock_guard guard(m_lock);
  std::vector<std::string> all;
  for (const Line& line : m_lines) {
    all.push_back(line.forth.seen);
    all.push_back(line.back.seen);
  }
  return all;
}

std::size_t Forwarder::passedBack() {
  const std::lock_guard guard(m_lock);
  std::size_t passed = 0;
  for (const Line& line : m_lines)
    passed += line.back.seen.size();
  return passed;
}

void Forwarder::cut() {
  const std::lock_guard guard(m_lock);
  for (Line& line : m_lines) {
    line.near.shutdown();
    line.far.shutdown();
    for (Way* way : {&line.forth, &line.back}) {
      way->hasEnded = true;
      way->changed.notify_all();
    }
  }
}

void Forwarder::accept() {
  for (;;) {
    try {
      auto near = m_listener.accept();
      if (!near) return;  // stopped
      corvane::Socket far = corvane::Socket::connect("127.0.0.1", m_target, false);
      const std::lock_guard guard(m_lock);
      Line& line = m_lines.emplace_back();
      line.near = std::move(*near);
      line.far = std::move(far);
      start(line.forth, line.near, line.far, m_forth);
      start(line.back, line.far, line.near, m_back);
    } catch (const CS_Exception&) {
      // Nobody listens behind it: the connection to it ends.
    }
  }
}

void Forwarder::start(Way& way, corvane::Socket& from, corvane::Socket& to, Direction& direction) {
  way.in = std::thread([this, &way, &from, &direction] { take(from, way, direction); });
  way.out = std::thread([this, &way, &from, &to] { pass(from, to, way); });
}

void Forwarder::take(corvane::Socket& from, Way& way, Direction& direction) {
  // On a narrow line in portions of which none occupies it for long.
  const std::size_t portion = m_quality.bytesPerSecond == 0 ? 64 * 1024 : 1460;
  std::vector<unsigned char> buffer(portion);
  try {
    for (;;) {
      const auto count = from.receive(buffer, std::nullopt);
      if (!count || *count == 0) break;
      std::unique_lock lock(m_lock);
      const std::size_t most = m_quality.bytesPerSecond == 0 ? kWide : m_quality.queue;
      way.changed.wait(lock, [&] { return way.hasEnded || way.waiting < most; });
      if (way.hasEnded) return;
      auto arrival = std::max(Clock::now(), direction.free);
      if (m_quality.bytesPerSecond != 0) {
        arrival += std::chrono::microseconds(*count * 1000000 / m_quality.bytesPerSecond);
        direction.free = arrival;
      }
      way.pieces.emplace_back(arrival + m_quality.delay,
                              std::vector<unsigned char>(buffer.begin(), buffer.begin() + static_cast<long>(*count)));
      way.waiting += *count;
      way.changed.notify_all();
    }
  } catch (const CS_Exception&) {
    // It has gone; what it had sent still arrives.
  }
  const std::lock_guard guard(m_lock);
  way.hasEnded = true;
  way.changed.notify_all();
}

void Forwarder::pass(corvane::Socket& from, corvane::Socket& to, Way& way) {
  try {
    for (;;) {
      std::unique_lock lock(m_lock);
      way.changed.wait(lock, [&] { return way.hasEnded || !way.pieces.empty(); });
      if (way.pieces.empty()) break;
      auto [arrival, bytes] = std::move(way.pieces.front());
      way.pieces.pop_front();
      if (Clock::now() < arrival) {
        lock.unlock();
        std::this_thread::sleep_until(arrival);
        lock.lock();
      }
      // What is under way on the line itself does not wait in front of it.
      way.waiting -= bytes.size();
      way.seen.append(bytes.begin(), bytes.end());
      way.changed.notify_all();
      lock.unlock();
      const corvane::Stream::Piece piece = bytes;
      to.send(std::span(&piece, 1));
    }
  } catch (const CS_Exception&) {
    // One of the two has gone, and so does the other.
  }
  from.shutdown();
  to.shutdown();
  const std::lock_guard guard(m_lock);
  way.hasEnded = true;
  way.changed.notify_all();
}

}  // namespace tests
