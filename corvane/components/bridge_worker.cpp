#include "corvane/components/bridge_worker.h"

#include "corvane/base/limits.h"
#include "corvane/records/exception.h"
#include "corvane/records/messages.h"
#include "corvane/records/program_monitor.h"
#include "corvane/wire/value_reader.h"

#include <thread>
#include <utility>

namespace corvane {
namespace {

constexpr std::size_t kMaxSpare = 16;  // of one connection

// The threads of all bridges of this process, counted for the end of the program.
struct Threads {
  std::mutex lock;
  std::condition_variable changed;
  int running = 0;
};

Threads& threads() {
  static auto* const instance = new Threads;
  return *instance;
}

void countThread(int change) {
  const std::lock_guard guard(threads().lock);
  threads().running += change;
  threads().changed.notify_all();
}

}  // namespace

// Gives a request its frames as they arrive.
class BridgeWorker::Source : public FrameSource {
 public:
  Source(BridgeWorker& worker, OwnedFrame first) : m_worker(worker), m_frame(std::move(first)) {}

  bool next(std::span<const unsigned char>& payload) override {
    if (m_started) {
      if (!m_frame.header.hasMore()) return false;
      const FrameHeader previous = m_frame.header;
      m_worker.recycle(m_frame);
      m_frame = m_worker.next();
      if (m_frame.header.kind != FrameKind::kRequest || m_frame.header.correlation != previous.correlation) {
        throw CS_Exception(kProtocolViolation, L"frames of two requests are mixed");
      }
    }
    m_started = true;
    payload = m_frame.payload;
    return true;
  }

 private:
  BridgeWorker& m_worker;
  OwnedFrame m_frame;
  bool m_started = false;
};

BridgeWorker::BridgeWorker(CS_Component& bridge, std::shared_ptr<BridgeLoad> load)
    : m_serving(bridge, nullptr), m_load(std::move(load)) {}

std::size_t BridgeWorker::costOf(const OwnedFrame& frame) {
  return sizeof frame + frame.payload.size();
}

bool BridgeWorker::start(const CS_RCPtr<CS_Component>& bridge, EndHandler onEnd) {
  {
    const std::lock_guard guard(m_load->lock);
    if (m_load->threads >= kMaxServedBridges) return false;
    ++m_load->threads;
  }
  countThread(1);
  const auto ended = [load = m_load] {
    {
      const std::lock_guard guard(load->lock);
      --load->threads;
    }
    countThread(-1);
  };
  try {
    std::thread([self = shared_from_this(), held = bridge, onEnd = std::move(onEnd), ended]() mutable {
      self->run(onEnd);
      held = nullptr;
      self.reset();
      ended();
    }).detach();
    return true;
  } catch (const std::exception&) {
    ended();
    return false;
  }
}

bool BridgeWorker::hasRoomLocked() const {
  return m_bytes < kMaxInboxBytes && m_frames.size() < kMaxInboxFrames && m_load->bytes < kMaxConnectionInboxBytes;
}

void BridgeWorker::deliver(const Frame& frame) {
  OwnedFrame owned;
  owned.header = frame.header;
  {
    std::unique_lock lock(m_load->lock);
    m_load->room.wait(lock, [&] { return m_stopped || hasRoomLocked(); });
    if (m_stopped) return;
    if (!m_load->spare.empty()) {
      owned.payload = std::move(m_load->spare.back());
      m_load->spare.pop_back();
    }
  }
  owned.payload.assign(frame.payload().begin(), frame.payload().end());
  const std::lock_guard guard(m_load->lock);
  if (m_stopped) return;
  const std::size_t cost = costOf(owned);
  m_frames.push_back(std::move(owned));
  m_bytes += cost;
  m_load->bytes += cost;
  m_arrived.notify_one();
}

BridgeWorker::OwnedFrame BridgeWorker::take() {
  std::unique_lock lock(m_load->lock);
  m_arrived.wait(lock, [&] { return m_stopped || !m_frames.empty(); });
  if (m_stopped) throw CS_Exception(kConnectionLost, L"%s", m_reason.c_str());
  OwnedFrame frame = std::move(m_frames.front());
  m_frames.pop_front();
  m_bytes -= costOf(frame);
  m_load->bytes -= costOf(frame);
  m_load->room.notify_one();
  return frame;
}

std::optional<BridgeWorker::OwnedFrame> BridgeWorker::nextUnpacked() {
  const auto rest = std::span<const unsigned char>(m_unpacked).subspan(m_unpackedFrom);
  if (rest.empty()) return std::nullopt;
  OwnedFrame frame;
  const bool isWhole = rest.size() >= kFrameHeaderSize;
  if (isWhole) frame.header = decodeHeader(rest.first<kFrameHeaderSize>());
  if (!isWhole || rest.size() < kFrameHeaderSize + frame.header.length) {
    throw CS_Exception(kProtocolViolation, L"a packed frame that ends in the middle of another one");
  }
  const auto payload = rest.subspan(kFrameHeaderSize, frame.header.length);
  frame.payload.assign(payload.begin(), payload.end());
  m_unpackedFrom += kFrameHeaderSize + payload.size();
  return frame;
}

BridgeWorker::OwnedFrame BridgeWorker::next() {
  for (;;) {
    if (auto frame = nextUnpacked()) return std::move(*frame);
    OwnedFrame frame = take();
    if (frame.header.kind != FrameKind::kPacked) return frame;
    if (m_unpacker == nullptr) m_unpacker = m_load->packing->makeUnpacker();
    m_unpackedFrom = 0;
    m_unpacked.clear();
    m_unpacker->unpack(frame.payload, frame.header.beginsAnew(), m_unpacked);
    recycle(frame);
  }
}

void BridgeWorker::recycle(OwnedFrame& frame) {
  const std::lock_guard guard(m_load->lock);
  if (m_load->spare.size() < kMaxSpare) m_load->spare.push_back(std::move(frame.payload));
}

void BridgeWorker::stop(const std::wstring& reason) {
  const std::lock_guard guard(m_load->lock);
  if (m_stopped) return;
  m_stopped = true;
  m_reason = reason;
  m_frames.clear();
  m_load->bytes -= std::exchange(m_bytes, 0);
  m_arrived.notify_one();
  m_load->room.notify_one();
}

std::wstring BridgeWorker::serveAll() {
  try {
    for (;;)
      serveOne(next());
  } catch (const CS_Exception& exception) {
    if (exception.number() == kConnectionLost) return {};
    return exception.detail();
  } catch (...) {
    return messageText(kUnknownException);
  }
}

void BridgeWorker::run(const EndHandler& onEnd) {
  const std::wstring failure = serveAll();
  if (!failure.empty()) {
    LocalMonitor::instance().writeLine(L"bridge", failure.c_str());
    stop(failure);
  }
  onEnd(failure);
}

void BridgeWorker::serveOne(OwnedFrame frame) {
  const FrameHeader header = frame.header;
  switch (header.kind) {
    case FrameKind::kCreate:
      m_serving.create(header, frame.payload);
      return;
    case FrameKind::kRequest:
      m_serving.request(header, std::make_unique<Source>(*this, std::move(frame)));
      return;
    case FrameKind::kRelease:
      m_serving.release(header, readReason(frame.payload));
      return;
    default:
      throw CS_Exception(kProtocolViolation, L"frame kind %d on a bridge", static_cast<int>(header.kind));
  }
}

bool BridgeWorker::waitForAll(unsigned timeoutMilliseconds) {
  std::unique_lock lock(threads().lock);
  return threads().changed.wait_for(lock, std::chrono::milliseconds(timeoutMilliseconds),
                                    [] { return threads().running == 0; });
}

}  // namespace corvane
