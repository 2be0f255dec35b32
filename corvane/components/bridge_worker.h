#pragma once

#include "corvane/base/lock.h"
#include "corvane/components/serving.h"
#include "corvane/records/exception.h"
#include "corvane/wire/frame.h"
#include "corvane/wire/packing.h"

#include <deque>
#include <functional>
#include <memory>
#include <optional>
#include <span>
#include <string>
#include <vector>

namespace corvane {

// What the bridges of one connection share, so that their number does not multiply what one may hold. Owned by the
// connection's dispatcher and by each thread.
struct BridgeLoad {
  const Packing* packing = nullptr;  // how packed frames were packed; null when none may come. Not changed any more
  Lock lock;                         // guards what follows, and the frames of every bridge of the connection
  Condition room;                    // something was taken out, or a bridge was stopped; the connection's reader waits
  std::size_t bytes = 0;             // of the frames that are held, with what holding them costs
  int threads = 0;
  std::vector<unsigned char> spare;  // a buffer to use again
};

// The thread that serves one bridge, and the frames that wait for it, in the runs in which they have come: each costs
// one copy and wakes the thread once. The connection's reader delivers; when a bound is reached it waits, and so does
// the sender at the other end of the connection. While the thread has nothing to do, the reader itself serves requests
// that their component serves at once, when they have come whole: they wait for no thread, and most are not copied.
class BridgeWorker : public std::enable_shared_from_this<BridgeWorker> {
 public:
  BridgeWorker(CS_Component& bridge, std::shared_ptr<BridgeLoad> load);

  // Called by the thread when it has served its last request, with why the bridge cannot go on; empty when it was
  // stopped.
  using EndHandler = std::function<void(const wchar_t* failure)>;
  // Starts the thread, which holds the bridge until it ends; false when the system has no thread, or the connection
  // kMaxServedBridges of them.
  bool start(const CS_RCPtr<CS_Component>& bridge, EndHandler onEnd);
  // Complete frames that have come together. Waits while too many are held. By one thread at a time.
  void deliver(std::span<unsigned char> frames);
  // No further frame comes. What waits is dropped, because the request that it belongs to was cut, and the thread ends
  // as soon as the component it is in returns.
  void stop(const wchar_t* reason);

  static bool waitForAll(unsigned timeoutMilliseconds);

 private:
  class Source;

  void run(const EndHandler& onEnd) noexcept;
  // What ended it: kConnectionLost when it was stopped, and otherwise why the bridge cannot go on.
  CS_Exception serveAll() noexcept;
  void serveOne(const Frame& frame);
  // The next frame, valid until the next call; throws CS_Exception (3102) with the reason once the bridge is stopped.
  Frame next();
  void throwIfStopped();
  // Replaces the run that has been served by the next one that has come.
  void takeRun();
  void letGoOfRun() noexcept;

  // By the reader, instead of the thread: serves what it can of the frames and keeps the beginning of a request whose
  // rest is still to come. Returns what is for the thread, behind such a beginning.
  std::span<unsigned char> serveAtOnce(std::span<unsigned char> frames);
  std::span<unsigned char> serveFront(std::span<unsigned char> frames);
  std::span<unsigned char> serveBegun(std::span<unsigned char> frames);
  void serveRun(std::span<unsigned char> frames);
  bool mayKeep(std::size_t bytes) const;
  bool borrow();
  void giveBack(const std::optional<CS_Exception>& end);

  // Complete frames one behind the other, of which those in front have been served and are gone from it.
  struct Run {
    std::span<unsigned char> rest;
    std::optional<Frame> next();
  };
  static std::size_t costOf(const std::vector<unsigned char>& run);
  bool hasRoomLocked() const;
  void countBegunLocked(std::size_t bytes);

  // Used by the thread, and by the reader while it has borrowed them.
  Serving m_serving;
  std::unique_ptr<Unpacker> m_unpacker;
  std::vector<unsigned char> m_held;  // the run that is served, where it was copied
  Run m_run;
  std::vector<unsigned char> m_opened;  // what came packed in one frame of it
  Run m_unpacked;
  bool m_isInRequest = false;
  std::vector<unsigned char> m_begun;  // the frames of a request that is served at once and has not come whole

  const std::shared_ptr<BridgeLoad> m_load;  // its lock guards what follows
  Condition m_arrived;
  std::deque<std::vector<unsigned char>> m_arrivals;  // runs that wait
  std::size_t m_bytes = 0;                            // of those, of the one that is served and of what has begun
  std::size_t m_begunBytes = 0;
  bool m_isIdle = false;  // the thread waits for a run, between two requests
  bool m_isBorrowed = false;
  std::optional<CS_Exception> m_end;  // what ended the serving while it was borrowed
  bool m_stopped = false;
  std::wstring m_reason;
};

}  // namespace corvane
