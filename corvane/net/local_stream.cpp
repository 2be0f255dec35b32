#include "corvane/net/local_stream.h"

#include "corvane/base/lock.h"
#include "corvane/records/exception.h"
#include "corvane/records/messages.h"

#include <algorithm>
#include <array>
#include <mutex>

namespace corvane {
namespace {

// What goes one way: the bytes that were sent and not received, in a ring.
struct OneWay {
  std::vector<unsigned char> ring;  // as long as it ever had to be
  std::size_t from = 0;
  std::size_t size = 0;
};

struct Pipe {
  Lock lock;  // guards what follows
  Condition changed;
  std::array<OneWay, 2> ways;  // by the end that sends
  std::array<bool, 2> isOver = {false, false};

  bool hasEnded() const { return isOver[0] || isOver[1]; }
};

void put(OneWay& way, std::span<const unsigned char> bytes) {
  if (way.ring.empty()) way.ring.resize(kLocalStreamBytes);
  for (std::size_t done = 0; done < bytes.size();) {
    const std::size_t at = (way.from + way.size) % way.ring.size();
    const std::size_t count = std::min(bytes.size() - done, way.ring.size() - at);
    std::copy_n(bytes.begin() + static_cast<std::ptrdiff_t>(done), count,
                way.ring.begin() + static_cast<std::ptrdiff_t>(at));
    way.size += count;
    done += count;
  }
}

std::size_t take(OneWay& way, std::span<unsigned char> buffer) {
  const std::size_t count = std::min({buffer.size(), way.size, way.ring.size() - way.from});
  std::copy_n(way.ring.begin() + static_cast<std::ptrdiff_t>(way.from), count, buffer.begin());
  way.from = (way.from + count) % way.ring.size();
  way.size -= count;
  return count;
}

class LocalStream final : public Stream {
 public:
  LocalStream(std::shared_ptr<Pipe> pipe, std::size_t end) : m_pipe(std::move(pipe)), m_end(end) {}
  ~LocalStream() override { shutdown(); }

  void setPatience(const Patience&) override {}

  void send(std::span<const Piece> pieces) override {
    for (Piece piece : pieces) {
      while (!piece.empty()) {
        std::unique_lock lock(m_pipe->lock);
        OneWay& way = m_pipe->ways[m_end];
        m_pipe->changed.wait(lock, [&] { return m_pipe->hasEnded() || way.size < kLocalStreamBytes; });
        if (m_pipe->hasEnded()) throw CS_Exception(kConnectionLost, L"the other end of this process has gone");
        const std::size_t count = std::min(piece.size(), kLocalStreamBytes - way.size);
        put(way, piece.first(count));
        piece = piece.subspan(count);
        m_pipe->changed.notify_all();
      }
    }
  }

  bool hasRoom() const noexcept override {
    const std::lock_guard guard(m_pipe->lock);
    return m_pipe->hasEnded() || m_pipe->ways[m_end].size < kLocalStreamBytes;
  }

  std::optional<std::size_t> receive(std::span<unsigned char> buffer, std::optional<Deadline> deadline) override {
    std::unique_lock lock(m_pipe->lock);
    OneWay& way = m_pipe->ways[1 - m_end];
    const auto isReady = [&] { return m_pipe->hasEnded() || way.size != 0; };
    if (!deadline) {
      m_pipe->changed.wait(lock, isReady);
    } else if (!m_pipe->changed.wait_until(lock, *deadline, isReady)) {
      return std::nullopt;
    }
    if (m_pipe->isOver[m_end] || way.size == 0) return 0;
    const std::size_t count = take(way, buffer);
    m_pipe->changed.notify_all();
    return count;
  }

  void shutdown() noexcept override {
    const std::lock_guard guard(m_pipe->lock);
    m_pipe->isOver[m_end] = true;
    m_pipe->changed.notify_all();
  }
  void close() noexcept override { shutdown(); }

  bool peerHasClosed() const noexcept override {
    const std::lock_guard guard(m_pipe->lock);
    return m_pipe->isOver[1 - m_end];
  }
  std::string peerName() const override { return "this process"; }
  std::vector<unsigned char> localEndpoint() const override { return {}; }
  std::vector<unsigned char> peerEndpoint() const override { return {}; }

 private:
  const std::shared_ptr<Pipe> m_pipe;
  const std::size_t m_end;
};

}  // namespace

std::pair<std::unique_ptr<Stream>, std::unique_ptr<Stream>> makeLocalStreams() {
  const auto pipe = std::make_shared<Pipe>();
  return {std::make_unique<LocalStream>(pipe, 0), std::make_unique<LocalStream>(pipe, 1)};
}

}  // namespace corvane
