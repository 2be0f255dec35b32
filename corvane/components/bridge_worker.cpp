#include "corvane/components/bridge_worker.h"

#include "corvane/base/limits.h"
#include "corvane/base/lock.h"
#include "corvane/records/exception.h"
#include "corvane/records/messages.h"
#include "corvane/records/program_monitor.h"
#include "corvane/wire/value_reader.h"

#include <new>
#include <thread>
#include <utility>

namespace corvane {
namespace {

constexpr std::size_t kSmallest = 4 * 1024;    // a smaller buffer is made as quickly as it is found
constexpr std::size_t kMostBegun = 72 * 1024;  // of a request: a write of 64 KiB with what stands in front of it

// The threads of all bridges of this process, counted for the end of the program.
struct Threads {
  Lock lock;
  Condition changed;
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

// The exception that is being handled, as one of ours.
CS_Exception caught() noexcept {
  try {
    throw;
  } catch (const CS_Exception& exception) {
    return exception;
  } catch (...) {
    return CS_Exception(kUnknownException, L"%s", messageText(kUnknownException));
  }
}

}  // namespace

// Gives a request its frames as they arrive.
class BridgeWorker::Source : public FrameSource {
 public:
  Source(BridgeWorker& worker, const Frame& first) : m_worker(worker), m_frame(first) {}

  bool next(std::span<const unsigned char>& payload) override {
    if (m_started) {
      if (!m_frame.header.hasMore()) return false;
      const FrameHeader previous = m_frame.header;
      m_frame = m_worker.next();
      if (m_frame.header.kind != FrameKind::kRequest || m_frame.header.correlation != previous.correlation) {
        throw CS_Exception(kProtocolViolation, L"frames of two requests are mixed");
      }
    }
    m_started = true;
    payload = m_frame.payload();
    return true;
  }

 private:
  BridgeWorker& m_worker;
  Frame m_frame;
  bool m_started = false;
};

BridgeWorker::BridgeWorker(CS_Component& bridge, std::shared_ptr<BridgeLoad> load)
    : m_serving(bridge, nullptr), m_load(std::move(load)) {}

std::size_t BridgeWorker::costOf(const std::vector<unsigned char>& run) {
  return sizeof run + run.size();
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
  return m_bytes < kMaxInboxBytes && m_load->bytes < kMaxConnectionInboxBytes;
}

bool BridgeWorker::borrow() {
  const std::lock_guard guard(m_load->lock);
  m_isBorrowed = m_isIdle && !m_stopped && m_arrivals.empty() && !m_end;
  return m_isBorrowed;
}

void BridgeWorker::giveBack(const std::optional<CS_Exception>& end) {
  const std::lock_guard guard(m_load->lock);
  m_isBorrowed = false;
  m_end = end;
  countBegunLocked(m_stopped ? 0 : m_begun.size());
  if (m_stopped || m_end) m_arrived.notify_one();
}

void BridgeWorker::countBegunLocked(std::size_t bytes) {
  m_bytes += bytes - m_begunBytes;
  m_load->bytes += bytes - m_begunBytes;
  m_begunBytes = bytes;
}

bool BridgeWorker::mayKeep(std::size_t bytes) const {
  if (m_begun.size() + bytes > kMostBegun) return false;
  const std::lock_guard guard(m_load->lock);
  return hasRoomLocked();
}

void BridgeWorker::serveRun(std::span<unsigned char> frames) {
  m_run.rest = frames;
  const struct End {
    Serving& serving;
    ~End() { serving.letGoOfPieces(); }
  } end{m_serving};
  while (!m_run.rest.empty())
    serveOne(next());
}

// Up to the end of the request that has begun; all of them when they are for the thread.
std::span<unsigned char> BridgeWorker::serveBegun(std::span<unsigned char> frames) {
  Run run{frames};
  bool isWhole = false;
  while (!isWhole && !run.rest.empty()) {
    const FrameHeader header = run.next()->header;
    if (header.kind != FrameKind::kRequest) return frames;
    isWhole = !header.hasMore();
  }
  const auto now = frames.first(frames.size() - run.rest.size());
  if (!mayKeep(now.size())) return frames;
  m_begun.insert(m_begun.end(), now.begin(), now.end());
  if (isWhole) {
    serveRun(m_begun);
    m_begun.clear();
  }
  return run.rest;
}

std::span<unsigned char> BridgeWorker::serveFront(std::span<unsigned char> frames) {
  Run run{frames};
  std::size_t whole = 0;
  bool isForThread = false;
  while (!isForThread && !run.rest.empty()) {
    const FrameHeader header = run.next()->header;
    isForThread = header.kind != FrameKind::kRequest || !m_serving.servesAtOnce(header);
    if (!isForThread && !header.hasMore()) whole = frames.size() - run.rest.size();
  }
  serveRun(frames.first(whole));
  const auto rest = frames.subspan(whole);
  if (isForThread || !mayKeep(rest.size())) return rest;
  m_begun.assign(rest.begin(), rest.end());
  return {};
}

std::span<unsigned char> BridgeWorker::serveAtOnce(std::span<unsigned char> frames) {
  if (!borrow()) return frames;
  std::optional<CS_Exception> end;
  try {
    if (!m_begun.empty()) frames = serveBegun(frames);
    if (m_begun.empty()) frames = serveFront(frames);
  } catch (...) {
    end = caught();
    frames = {};
  }
  m_run = {};
  giveBack(end);
  return frames;
}

void BridgeWorker::deliver(std::span<unsigned char> frames) {
  frames = serveAtOnce(frames);
  if (frames.empty()) return;
  std::vector<unsigned char> run;
  {
    std::unique_lock lock(m_load->lock);
    m_load->room.wait(lock, [&] { return m_stopped || hasRoomLocked(); });
    if (m_stopped) return;
    if (frames.size() >= kSmallest) run.swap(m_load->spare);
  }
  run.assign(m_begun.begin(), m_begun.end());
  run.insert(run.end(), frames.begin(), frames.end());
  m_begun.clear();
  {
    const std::lock_guard guard(m_load->lock);
    if (m_stopped) return;
    countBegunLocked(0);
    const std::size_t cost = costOf(run);
    m_arrivals.push_back(std::move(run));
    m_bytes += cost;
    m_load->bytes += cost;
  }
  m_arrived.notify_one();  // behind the lock, for which the woken thread would have to wait
}

std::optional<Frame> BridgeWorker::Run::next() {
  if (rest.empty()) return std::nullopt;
  FrameHeader header;
  const bool isWhole = rest.size() >= kFrameHeaderSize;
  if (isWhole) header = decodeHeader(rest.first<kFrameHeaderSize>());
  if (!isWhole || rest.size() < kFrameHeaderSize + header.length) {
    throw CS_Exception(kProtocolViolation, L"a packed frame that ends in the middle of another one");
  }
  const Frame frame{header, rest.first(kFrameHeaderSize + header.length)};
  rest = rest.subspan(frame.bytes.size());
  return frame;
}

void BridgeWorker::letGoOfRun() noexcept {
  const std::lock_guard guard(m_load->lock);
  if (m_held.empty()) return;
  m_bytes -= costOf(m_held);
  m_load->bytes -= costOf(m_held);
  // A new buffer of that size would be cleared by the system first.
  if (m_held.capacity() >= kSmallest) m_load->spare.swap(m_held);
  m_held = {};
  m_run = {};
  m_load->room.notify_one();
}

void BridgeWorker::takeRun() {
  m_serving.letGoOfPieces();
  letGoOfRun();
  std::unique_lock lock(m_load->lock);
  m_isIdle = !m_isInRequest;
  m_arrived.wait(lock, [&] { return !m_isBorrowed && (m_stopped || m_end || !m_arrivals.empty()); });
  m_isIdle = false;
  if (m_end) throw CS_Exception(*m_end);
  if (m_arrivals.empty()) return;
  m_held = std::move(m_arrivals.front());
  m_arrivals.pop_front();
  m_run.rest = m_held;
}

void BridgeWorker::throwIfStopped() {
  const std::lock_guard guard(m_load->lock);
  if (m_stopped) throw CS_Exception(kConnectionLost, L"%s", m_reason.c_str());
}

Frame BridgeWorker::next() {
  for (;;) {
    throwIfStopped();
    if (const auto frame = m_unpacked.next()) return *frame;
    const auto frame = m_run.next();
    if (!frame) {
      takeRun();
    } else if (frame->header.kind != FrameKind::kPacked) {
      return *frame;
    } else {
      if (m_unpacker == nullptr) m_unpacker = m_load->packing->makeUnpacker();
      m_serving.letGoOfPieces();
      m_opened.clear();
      m_unpacker->unpack(frame->payload(), frame->header.beginsAnew(), m_opened);
      m_unpacked.rest = m_opened;
    }
  }
}

void BridgeWorker::stop(const wchar_t* reason) {
  const std::lock_guard guard(m_load->lock);
  if (m_stopped) return;
  m_stopped = true;
  try {
    m_reason = reason;
  } catch (const std::bad_alloc&) {
    // The end is what counts.
  }
  for (const auto& run : m_arrivals) {
    m_bytes -= costOf(run);
    m_load->bytes -= costOf(run);
  }
  m_arrivals.clear();
  countBegunLocked(0);
  m_arrived.notify_one();
  m_load->room.notify_one();
}

CS_Exception BridgeWorker::serveAll() noexcept {
  try {
    for (;;)
      serveOne(next());
  } catch (...) {
    return caught();
  }
}

// What ends a bridge may be that there is no memory: its end takes none.
void BridgeWorker::run(const EndHandler& onEnd) noexcept {
  const CS_Exception end = serveAll();
  const wchar_t* const failure = end.number() == kConnectionLost ? L"" : end.detail();
  if (*failure != L'\0') {
    LocalMonitor::instance().writeLine(L"bridge", failure);
    stop(failure);
  }
  m_serving.letGoOfPieces();
  letGoOfRun();
  try {
    onEnd(failure);
  } catch (const std::exception&) {
    // One of its components had no memory for its part of the end; the others have done theirs.
  }
}

void BridgeWorker::serveOne(const Frame& frame) {
  const FrameHeader& header = frame.header;
  switch (header.kind) {
    case FrameKind::kCreate:
      m_serving.create(header, frame.payload());
      return;
    case FrameKind::kRequest:
      m_isInRequest = true;
      m_serving.request(header, header.hasMore() ? ValueReader(std::make_unique<Source>(*this, frame))
                                                 : ValueReader(frame.payload()));
      m_isInRequest = false;
      return;
    case FrameKind::kRelease:
      m_serving.release(header, readReason(frame.payload()));
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
