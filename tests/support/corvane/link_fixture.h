#pragma once

#include "corvane/records/exception.h"
#include "corvane/records/messages.h"
#include "corvane/wire/frame.h"
#include "corvane/wire/link.h"
#include "tests/support/corvane/socket_fixture.h"

#include <condition_variable>
#include <functional>
#include <mutex>
#include <utility>

// Takes the frames of a link in a test, one after the other, and does with each what the test says.
class FrameTaker : public corvane::FrameHandler {
 public:
  std::function<void(const corvane::Frame&)> take;  // set before the link is read

  void onFrame(corvane::Frame& frame) override {
    if (take) take(frame);
    const std::lock_guard guard(m_lock);
    ++m_frames;
    m_changed.notify_all();
  }
  void onBatchEnd() override {
    const std::lock_guard guard(m_lock);
    ++m_batches;
    m_changed.notify_all();
  }
  void onBatchAbandoned() noexcept override {}
  void onLinkEnd(const std::wstring&) override {}

  // Waits until so many frames have been taken; false when they do not come.
  bool waitForFrames(int count) {
    std::unique_lock guard(m_lock);
    return m_changed.wait_for(guard, std::chrono::seconds(20), [&] { return m_frames >= count; });
  }
  int frames() {
    const std::lock_guard guard(m_lock);
    return m_frames;
  }
  int batches() {
    const std::lock_guard guard(m_lock);
    return m_batches;
  }

 private:
  std::mutex m_lock;
  std::condition_variable m_changed;
  int m_frames = 0;
  int m_batches = 0;
};

// Something that happens once.
class Happening {
 public:
  void happen() {
    const std::lock_guard guard(m_lock);
    m_has = true;
    m_changed.notify_all();
  }
  // False when it does not happen.
  bool await() {
    std::unique_lock guard(m_lock);
    return m_changed.wait_for(guard, std::chrono::seconds(20), [&] { return m_has; });
  }

 private:
  std::mutex m_lock;
  std::condition_variable m_changed;
  bool m_has = false;
};

// A link whose other end is a socket of the test, which says what it likes.
class LinkTest : public ::testing::Test {
 protected:
  // The sockets hold so many bytes, or as few as the system allows.
  explicit LinkTest(int bytes = 4096) : m_pair(bytes) {}

  static std::vector<unsigned char> frameOf(corvane::FrameHeader header, std::span<const unsigned char> payload) {
    header.length = static_cast<std::uint32_t>(payload.size());
    const corvane::EncodedHeader encoded = corvane::encodeHeader(header);
    std::vector<unsigned char> bytes(encoded.begin(), encoded.end());
    bytes.insert(bytes.end(), payload.begin(), payload.end());
    return bytes;
  }
  static std::vector<unsigned char> replyTo(std::uint32_t correlation, std::uint32_t bridge, unsigned char value) {
    corvane::FrameHeader header;
    header.kind = corvane::FrameKind::kReply;
    header.bridge = bridge;
    header.correlation = correlation;
    return frameOf(header, {&value, 1});
  }
  static std::vector<unsigned char> requestFrame(unsigned char value) { return frameOf({}, {&value, 1}); }

  void say(std::span<const unsigned char> bytes) {
    const corvane::Socket::Piece pieces[] = {bytes};
    m_peer.send(pieces);
  }
  // What the waiter got: a reply of one byte, or the negative number of the failure.
  static int resultOf(corvane::Link::Pending& pending, unsigned milliseconds = 20000) {
    try {
      const auto bytes = pending.wait(corvane::after(milliseconds));
      return bytes.size() == 1 ? bytes[0] : -1;
    } catch (const CS_Exception& exception) {
      return -exception.number();
    }
  }

  NarrowPair m_pair;
  corvane::Socket& m_peer = m_pair.accepted;
  FrameTaker m_taker;
  corvane::Link m_link{std::move(m_pair.dialed)};
};
