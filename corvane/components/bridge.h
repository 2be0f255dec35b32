#pragma once

#include "corvane/base/limits.h"
#include "corvane/components/component.h"

#include <atomic>
#include <memory>
#include <string>

namespace corvane {
class BridgeWorker;
struct BridgeLoad;
struct Frame;
}  // namespace corvane

// A component that other components stand on: everything between them and their peers carries the bridge's identifier,
// so that a router on the way can pass it on without looking inside.
//
// A bridge that the peer made serves the requests to its components on a thread of its own, in order; at most
// corvane::kMaxInboxBytes wait for it, then the connection's reader waits too. When such a bridge ends, its components
// are released on that thread too, after the request that they are in. One whose frames cannot be served ends alone,
// and the peer is told why. A bridge made here has no thread.
class CS_Bridge : public CS_Component {
 public:
  static const wchar_t* const m_className;

  CS_Bridge() : CS_Component(corvane::kMaxComponentsOnBridge) {}
  ~CS_Bridge() override;

  int getDataType() const override { return 2; }
  bool release() override;

  // Makes this the peer's bridge, in two steps: before it is added to its owner, where another thread may release it at
  // once, and after. False when its thread cannot be started.
  void prepareServing(std::shared_ptr<corvane::BridgeLoad> load);
  bool startServing();
  // Takes a frame for a component on this bridge; called by the thread that reads the connection.
  void deliver(const corvane::Frame& frame);
  // The bridge's thread cannot go on: the bridge leaves its connection, and the peer gets the reason; called by it.
  void leave(const std::wstring& reason);
  // The bridge's thread has served its last request; called by it.
  void served();
  // The peer has let this bridge go: from now on every request on it fails with the reason. Called by the thread that
  // reads the connection, before whoever waits on the bridge is failed.
  void endedByPeer(const std::wstring& reason);
  // Throws CS_Exception (3102) with the peer's reason once it has let this bridge go.
  void throwIfEnded() const;

  // Waits until the threads of all bridges of this process have ended; false when the time ran out first. For the end
  // of a program whose connections have been destroyed.
  static bool waitForThreads(unsigned timeoutMilliseconds);

 private:
  std::shared_ptr<corvane::BridgeWorker> m_worker;
  std::wstring m_endReason;  // not changed any more once m_endedByPeer is set
  std::atomic<bool> m_endedByPeer{false};
};
