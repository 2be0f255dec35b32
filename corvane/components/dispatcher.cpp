#include "corvane/components/dispatcher.h"

#include "corvane/components/bridge_end.h"
#include "corvane/components/bridge_worker.h"
#include "corvane/records/exception.h"
#include "corvane/records/messages.h"
#include "corvane/wire/value_reader.h"

namespace corvane {

Dispatcher::Dispatcher(CS_Component& connection, Link& link, EndHandler onEnd)
    : m_connection(connection),
      m_link(link),
      m_onEnd(std::move(onEnd)),
      m_load(std::make_shared<BridgeLoad>()),
      m_serving(connection, m_load) {}

void Dispatcher::tellTaken(const Packing* packing) {
  m_load->packing = packing;
  m_tellsTaken = true;
}

void Dispatcher::onFrame(Frame& frame) {
  if (frame.header.kind == FrameKind::kBeat) {
    if (m_line != nullptr) m_line->taken(frame.header.correlation);
  } else if (frame.header.bridge != 0) {
    onBridgeFrame(frame);
    if (!m_tellsTaken) return;
    m_link.took(frame.bytes.size());
    m_hasTaken = true;
  } else {
    flushRun();
    onConnectionFrame(frame);
  }
}

void Dispatcher::onBatchEnd() {
  // In front of the delivery, which may write to a disk: how long that takes says nothing about the line.
  if (std::exchange(m_hasTaken, false)) m_link.tellTaken();
  flushRun();
  m_link.sendGathered();
  letGo();
}

void Dispatcher::onBatchAbandoned() noexcept {
  try {
    m_link.sendGathered();
  } catch (...) {
    // The connection has ended, and with it every request that waited.
  }
  letGo();
}

void Dispatcher::letGo() noexcept {
  m_run = {};
  m_bridgeEnd = nullptr;
  m_bridge = nullptr;  // it holds the connection, which holds this
}

void Dispatcher::onLinkEnd(const std::wstring& reason) {
  m_onEnd(reason);
}

void Dispatcher::onBridgeFrame(Frame& frame) {
  if (frame.header.kind == FrameKind::kPacked && m_load->packing == nullptr) {
    throw CS_Exception(kProtocolViolation, L"a packed frame, which was not agreed on");
  }
  if (!m_bridge || m_bridge->getIdentifier() != frame.header.bridge) {
    flushRun();
    m_bridge = m_connection.getChild(frame.header.bridge);
    m_bridgeEnd = m_bridge ? m_bridge->bridgeEnd() : nullptr;
  }
  const bool isAnswer = frame.header.kind == FrameKind::kReply || frame.header.kind == FrameKind::kFailure;
  if (isAnswer && (m_bridgeEnd == nullptr || !m_bridgeEnd->forwards())) {
    m_link.complete(frame);
  } else if (m_bridgeEnd == nullptr) {
    refuseOnBridge(frame.header);
  } else if (!m_run.empty() && m_run.data() + m_run.size() == frame.bytes.data()) {
    m_run = std::span(m_run.data(), m_run.size() + frame.bytes.size());
  } else {
    flushRun();
    m_run = frame.bytes;
  }
}

// The bridge was refused, or has ended here while the peer was still sending.
void Dispatcher::refuseOnBridge(const FrameHeader& header) {
  if (header.kind != FrameKind::kRequest || !header.wantsReply() || header.hasMore()) return;
  FrameHeader answer = header;
  answer.kind = FrameKind::kFailure;
  answer.flags = 0;
  m_link.sendText(answer, m_serving.refusalOr(header.bridge, L"the bridge does not exist any more").c_str());
}

void Dispatcher::onConnectionFrame(Frame& frame) {
  const FrameHeader& header = frame.header;
  switch (header.kind) {
    case FrameKind::kReply:
    case FrameKind::kFailure:
      m_link.complete(frame);
      return;
    case FrameKind::kCreate:
      m_link.sendGathered();
      m_serving.create(header, frame.payload());
      return;
    case FrameKind::kRelease: {
      m_link.sendGathered();
      const std::wstring reason = readReason(frame.payload());
      const CS_RCPtr<CS_Component> ended = m_connection.getChild(header.component);
      if (BridgeEnd* bridge = ended ? ended->bridgeEnd() : nullptr) bridge->endedByPeer(reason);
      m_link.endBridge(header.component, reason);
      m_serving.release(header, reason);
      return;
    }
    case FrameKind::kRequest:
      if (!m_collecting && !header.hasMore()) {
        m_serving.request(header, ValueReader(frame.payload()));
      } else {
        collect(frame);
      }
      return;
    case FrameKind::kHello:
    case FrameKind::kWelcome:
    case FrameKind::kProof:
    case FrameKind::kBeat:
    case FrameKind::kPacked:
      throw CS_Exception(kProtocolViolation, L"a second greeting");
  }
}

void Dispatcher::collect(const Frame& frame) {
  if (!m_collecting) {
    m_first = frame.header;
    m_collecting = true;
  }
  if (frame.header.correlation != m_first.correlation || frame.header.component != m_first.component) {
    throw CS_Exception(kProtocolViolation, L"frames of two requests are mixed");
  }
  m_collected.insert(m_collected.end(), frame.payload().begin(), frame.payload().end());
  if (m_collected.size() > kMaxCollectedRequest) {
    throw CS_Exception(kLimitExceeded, L"a request of more than %u bytes", static_cast<unsigned>(kMaxCollectedRequest));
  }
  if (frame.header.hasMore()) return;
  m_collecting = false;
  std::vector<unsigned char> bytes;
  bytes.swap(m_collected);
  m_serving.request(frame.header, ValueReader(std::move(bytes)));
}

void Dispatcher::flushRun() {
  if (m_run.empty()) return;
  m_link.sendGathered();  // the delivery may wait
  const std::span<unsigned char> run = std::exchange(m_run, {});
  m_bridgeEnd->deliver(run);
}

}  // namespace corvane
