#pragma once

#include "corvane/wire/frame.h"

#include <memory>
#include <span>
#include <string>

namespace corvane {

struct BridgeLoad;

// What a bridge is to the connection that it stands on: it takes the frames that carry its identifier. The component
// itself, which owns it; called by the thread that reads the connection.
class BridgeEnd {
 public:
  // The peer has made this bridge, in two steps: before it is added to its owner, where another thread may release it
  // at once, and after. False when it cannot be served.
  virtual void prepareServing(const std::shared_ptr<BridgeLoad>&) {}
  virtual bool startServing() { return true; }

  // Whether frames are passed on as they came, replies included.
  virtual bool forwards() const = 0;
  // Complete frames that have come together, one behind the other; it may change them.
  virtual void deliver(std::span<unsigned char> frames) = 0;

  // The peer has let this bridge go: first, before those who wait for a reply on it are failed with the reason, and
  // then, when it has left its owner.
  virtual void endedByPeer(const std::wstring&) {}
  virtual void releasedByPeer(const std::wstring& reason) = 0;

 protected:
  ~BridgeEnd() = default;
};

}  // namespace corvane
