#pragma once

#include "corvane/base/limits.h"
#include "corvane/components/bridge_end.h"
#include "corvane/components/component.h"

#include <atomic>
#include <memory>
#include <span>
#include <string>

namespace corvane {
class BridgeWorker;
}  // namespace corvane

// A component that other components stand on: everything between them and their peers carries the bridge's identifier,
// so that a router on the way can pass it on without looking inside.
//
// A bridge that the peer made serves the requests to its components on a thread of its own, in order; at most
// corvane::kMaxInboxBytes wait for it, then the connection's reader waits too. When such a bridge ends, its components
// are released on that thread too, after the request that they are in. One whose frames cannot be served ends alone,
// and the peer is told why. A bridge made here has no thread.
class CS_Bridge : public CS_Component, public corvane::BridgeEnd {
 public:
  static const wchar_t* const m_className;

  CS_Bridge() : CS_Component(corvane::kMaxComponentsOnBridge) {}
  ~CS_Bridge() override;

  int getDataType() const override { return 2; }
  bool release() override;
  corvane::BridgeEnd* bridgeEnd() override { return this; }
  void throwIfEnded() const override;

  void prepareServing(const std::shared_ptr<corvane::BridgeLoad>& load) override;
  bool startServing() override;
  bool forwards() const override { return false; }
  void deliver(std::span<unsigned char> frames) override;
  void endedByPeer(const std::wstring& reason) override;
  void releasedByPeer(const std::wstring&) override { release(); }

  // The bridge cannot go on: it leaves its connection, and the peer gets the reason. On its own thread.
  void leave(const wchar_t* reason);

  // Waits until the threads of all bridges of this process have ended; false when the time ran out first. For the end
  // of a program whose connections have been destroyed.
  static bool waitForThreads(unsigned timeoutMilliseconds);

 private:
  std::shared_ptr<corvane::BridgeWorker> m_worker;
  std::wstring m_endReason;  // not changed any more once m_endedByPeer is set
  std::atomic<bool> m_endedByPeer{false};
};
