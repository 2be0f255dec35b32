#pragma once

#include "corvane/base/rc_ptr.h"
#include "corvane/components/serving.h"
#include "corvane/wire/link.h"
#include "corvane/wire/packing.h"
#include "corvane/wire/thin_line.h"

#include <functional>
#include <span>
#include <string>
#include <vector>

namespace corvane {

// Hands the frames of one connection to where they belong: replies to who waits for them, frames of a bridge or of a
// router to that, as one run where they stand one behind the other, and everything else to the components on the
// connection itself. Owned by the connection, which also owns the link; frames come from the one thread that reads the
// link.
class Dispatcher : public FrameHandler {
 public:
  using EndHandler = std::function<void(const std::wstring& reason)>;
  // onEnd is called once, when the link has ended.
  Dispatcher(CS_Component& connection, Link& link, EndHandler onEnd);

  // Before the first frame. The peer is told what was taken for the bridges, and may pack frames for them where there
  // is a packing, which outlives this.
  void tellTaken(const Packing* packing);
  // The peer says what it has taken, which is for this line. Before the first frame.
  void hearTaken(std::shared_ptr<ThinLine> line) { m_line = std::move(line); }

  void onFrame(Frame& frame) override;
  void onBatchEnd() override;
  void onBatchAbandoned() noexcept override;
  void onLinkEnd(const std::wstring& reason) override;

 private:
  void onBridgeFrame(Frame& frame);
  void refuseOnBridge(const FrameHeader& header);
  void onConnectionFrame(Frame& frame);
  void collect(const Frame& frame);
  void flushRun();
  void letGo() noexcept;

  CS_Component& m_connection;
  Link& m_link;
  EndHandler m_onEnd;
  const std::shared_ptr<BridgeLoad> m_load;
  std::shared_ptr<ThinLine> m_line;  // null when nothing is routed to the peer by one
  bool m_tellsTaken = false;
  bool m_hasTaken = false;  // something, which the peer was not told
  Serving m_serving;
  CS_RCPtr<CS_Component> m_bridge;         // the bridge of the last frame, kept for the frames that follow at once
  BridgeEnd* m_bridgeEnd = nullptr;        // of m_bridge; null when nobody takes its frames
  std::span<unsigned char> m_run;          // frames for it that were not delivered yet
  std::vector<unsigned char> m_collected;  // the request to a component of the connection that is still arriving
  bool m_collecting = false;
  FrameHeader m_first;
};

}  // namespace corvane
