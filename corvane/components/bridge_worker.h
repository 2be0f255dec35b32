#pragma once

#include "corvane/components/serving.h"
#include "corvane/wire/frame.h"
#include "corvane/wire/packing.h"

#include <condition_variable>
#include <deque>
#include <functional>
#include <memory>
#include <mutex>
#include <optional>
#include <string>
#include <vector>

namespace corvane {

// What the bridges of one connection share, so that their number does not multiply what one may hold. Owned by the
// connection's dispatcher and by each thread.
struct BridgeLoad {
  const Packing* packing = nullptr;  // how packed frames were packed; null when none may come. Not changed any more
  std::mutex lock;                   // guards what follows, and the frames of every bridge of the connection
  std::condition_variable room;      // something was taken out, or a bridge was stopped; the connection's reader waits
  std::size_t bytes = 0;             // of the frames that wait, with what holding one costs
  int threads = 0;
  std::vector<std::vector<unsigned char>> spare;  // buffers to use again
};

// The thread that serves one bridge, and the frames that wait for it. The connection's reader delivers; when a bound is
// reached it waits, and so does the sender at the other end of the connection.
class BridgeWorker : public std::enable_shared_from_this<BridgeWorker> {
 public:
  BridgeWorker(CS_Component& bridge, std::shared_ptr<BridgeLoad> load);

  // Called by the thread when it has served its last request, with why the bridge cannot go on; empty when it was
  // stopped.
  using EndHandler = std::function<void(const std::wstring& failure)>;
  // Starts the thread, which holds the bridge until it ends; false when the system has no thread, or the connection
  // kMaxServedBridges of them.
  bool start(const CS_RCPtr<CS_Component>& bridge, EndHandler onEnd);
  void deliver(const Frame& frame);
  // No further frame comes. What waits is dropped, because the request that it belongs to was cut, and the thread ends
  // as soon as the component it is in returns.
  void stop(const std::wstring& reason);

  static bool waitForAll(unsigned timeoutMilliseconds);

 private:
  struct OwnedFrame {
    FrameHeader header;
    std::vector<unsigned char> payload;
  };
  class Source;

  void run(const EndHandler& onEnd);
  // Why the bridge cannot go on; empty when it was stopped.
  std::wstring serveAll();
  void serveOne(OwnedFrame frame);
  // The next frame; throws CS_Exception (3102) with the reason once the bridge is stopped.
  OwnedFrame next();
  // The same, as it came.
  OwnedFrame take();
  // The next one of those that came packed in one; nothing when there is none left.
  std::optional<OwnedFrame> nextUnpacked();
  void recycle(OwnedFrame& frame);

  static std::size_t costOf(const OwnedFrame& frame);
  bool hasRoomLocked() const;

  // Used by the thread only.
  Serving m_serving;
  std::unique_ptr<Unpacker> m_unpacker;
  std::vector<unsigned char> m_unpacked;
  std::size_t m_unpackedFrom = 0;

  const std::shared_ptr<BridgeLoad> m_load;  // its lock guards what follows
  std::condition_variable m_arrived;
  std::deque<OwnedFrame> m_frames;
  std::size_t m_bytes = 0;
  bool m_stopped = false;
  std::wstring m_reason;
};

}  // namespace corvane
