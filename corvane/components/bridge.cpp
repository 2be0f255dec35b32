#include "corvane/components/bridge.h"

#include "corvane/components/bridge_worker.h"
#include "corvane/components/channel.h"
#include "corvane/records/exception.h"
#include "corvane/records/messages.h"
#include "corvane/wire/link.h"

const wchar_t* const CS_Bridge::m_className = L"Quillfern::ComponentServer::Bridge";

CS_Bridge::~CS_Bridge() = default;

void CS_Bridge::prepareServing(const std::shared_ptr<corvane::BridgeLoad>& load) {
  m_worker = std::make_shared<corvane::BridgeWorker>(*this, load);
}

bool CS_Bridge::startServing() {
  return m_worker->start(this, [this](const wchar_t* failure) {
    if (*failure != L'\0') leave(failure);
    releaseChildren();
  });
}

void CS_Bridge::deliver(std::span<unsigned char> frames) {
  if (m_worker != nullptr) m_worker->deliver(frames);
}

bool CS_Bridge::release() {
  if (m_worker == nullptr) {
    releaseChildren();
  } else {
    m_worker->stop(L"the bridge was released");
  }
  return true;
}

void CS_Bridge::leave(const wchar_t* reason) {
  CS_Component* owner = getOwner();
  if (owner == nullptr || !owner->removeChild(this)) return;  // the peer let it go meanwhile
  corvane::FrameHeader header;
  header.kind = corvane::FrameKind::kRelease;
  header.component = getIdentifier();
  corvane::Link& link = getChannel(true)->link();
  try {
    link.sendText(header, reason);
  } catch (const CS_Exception&) {
    // The connection has ended, and the peer knows.
  } catch (const std::exception&) {
    link.end(L"not enough memory");  // so that the peer does not wait for a bridge that is gone
  }
}

void CS_Bridge::endedByPeer(const std::wstring& reason) {
  if (m_endedByPeer) return;
  m_endReason = reason;
  m_endedByPeer = true;
}

void CS_Bridge::throwIfEnded() const {
  if (m_endedByPeer) throw CS_Exception(corvane::kConnectionLost, L"%s", m_endReason.c_str());
}

bool CS_Bridge::waitForThreads(unsigned timeoutMilliseconds) {
  return corvane::BridgeWorker::waitForAll(timeoutMilliseconds);
}
