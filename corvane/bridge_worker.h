#pragma once

#include "corvane/frame_reader.h"
#include "corvane/rc_ptr.h"
#include "corvane/serving.h"

#include <condition_variable>
#include <deque>
#include <memory>
#include <mutex>
#include <string>
#include <vector>

class CS_Bridge;

namespace corvane {

// The thread that serves one bridge, and the frames that wait for it. The connection's reader delivers; when the bound
// is reached it waits, and so does the sender at the other end of the connection.
class BridgeWorker : public std::enable_shared_from_this<BridgeWorker> {
 public:
  explicit BridgeWorker(CS_Bridge& bridge);

  // Starts the thread, which holds the bridge until it ends; false when the system has no thread.
  bool start(const CS_RCPtr<CS_Bridge>& bridge);
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

  void run(const CS_RCPtr<CS_Bridge>& bridge);
  void serveOne(OwnedFrame frame);
  // The next frame; throws CS_Exception (3102) with the reason once the bridge is stopped.
  OwnedFrame take();
  void recycle(OwnedFrame& frame);

  Serving m_serving;  // used by the thread only

  std::mutex m_lock;  // guards what follows
  std::condition_variable m_changed;
  std::deque<OwnedFrame> m_frames;
  std::vector<std::vector<unsigned char>> m_spare;  // buffers to use again
  std::size_t m_bytes = 0;
  bool m_stopped = false;
  std::wstring m_reason;
};

}  // namespace corvane
