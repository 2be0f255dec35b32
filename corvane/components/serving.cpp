#include "corvane/components/serving.h"

#include "corvane/base/limits.h"
#include "corvane/base/text.h"
#include "corvane/components/bridge_end.h"
#include "corvane/components/channel.h"
#include "corvane/components/in_request.h"
#include "corvane/records/exception.h"
#include "corvane/records/messages.h"
#include "corvane/wire/link.h"
#include "corvane/wire/value_reader.h"

namespace corvane {
namespace {

// The owner's own channel with the address of one of its components.
CS_Channel channelTo(CS_Component& owner, const FrameHeader& header) {
  CS_Channel* channel = owner.getChannel(true);
  if (channel == nullptr) throw CS_Exception(kConnectionLost, L"the connection has ended");
  return CS_Channel(channel->sharedLink(), header.bridge, header.component);
}

}  // namespace

void Serving::refuse(const FrameHeader& header, const std::wstring& reason) {
  if (m_refused.size() >= kMaxRefusedComponents) {
    throw CS_Exception(kLimitExceeded, L"more than %u refused components",
                       static_cast<unsigned>(kMaxRefusedComponents));
  }
  m_refused[header.component] = reason;
}

void Serving::create(const FrameHeader& header, std::span<const unsigned char> payload) {
  const std::wstring name = readReason(payload);
  CS_Component* made = make(header, name);
  if (made == nullptr) return;
  const CS_RCPtr<CS_Component> component = made;
  BridgeEnd* bridge = made->bridgeEnd();
  if (m_load == nullptr && bridge != nullptr) {
    refuse(header, L"a bridge stands on a connection, not on a bridge");
    return;
  }
  if (bridge != nullptr) bridge->prepareServing(m_load);
  if (!m_owner.addChild(made)) {
    throw CS_Exception(kLimitExceeded, L"component %u exists already, or there are %u of them", header.component,
                       static_cast<unsigned>(m_owner.maxChildren()));
  }
  start(header, name, *made);
}

CS_Component* Serving::make(const FrameHeader& header, const std::wstring& className) {
  if (const std::wstring refusal = m_owner.refusalOf(className); !refusal.empty()) {
    refuse(header, refusal);
    return nullptr;
  }
  CS_Class* componentClass = ClassRegistry::instance().findOffered(className.c_str());
  if (componentClass == nullptr) {
    refuse(header, formatText(L"this side offers no components of the class %s", className.c_str()));
    return nullptr;
  }
  CS_Component* made = componentClass->createInstance();
  if (made == nullptr) {
    refuse(header, formatText(L"no component of the class %s could be made", className.c_str()));
    return nullptr;
  }
  made->setClass(componentClass);
  made->setIdentifier(header.component);
  return made;
}

void Serving::start(const FrameHeader& header, const std::wstring& className, CS_Component& made) {
  BridgeEnd* bridge = made.bridgeEnd();
  CS_Channel* channel = made.getChannel(true);
  if (channel != nullptr) {
    channel->startSending();
    channel->startReceiving();
  }
  if (channel == nullptr || !made.initialize()) {
    m_owner.removeChild(&made);
    refuse(header, formatText(L"a component of the class %s could not be started", className.c_str()));
  } else if (bridge != nullptr && !bridge->startServing()) {
    m_owner.removeChild(&made);
    refuse(header, formatText(L"this side has no thread for the bridge, or serves %d of this connection already",
                              kMaxServedBridges));
  }
}

std::wstring Serving::refusalOr(std::uint32_t identifier, const wchar_t* otherwise) const {
  const auto refused = m_refused.find(identifier);
  return refused != m_refused.end() ? refused->second : otherwise;
}

bool Serving::servesAtOnce(const FrameHeader& header) const {
  const CS_RCPtr<CS_Component> component = m_owner.getChild(header.component);
  return component && component->servesAtOnce(header.number);
}

// What was gathered does not wait for a request that may take its time.
void Serving::gatherAnswer(const CS_Component& component, CS_InRequest& request) {
  component.answersTogether(request.number()) ? request.answerTogether() : request.getChannel().link().sendGathered();
}

void Serving::letGoOfPieces() noexcept {
  if (m_served) m_served->letGoOfPieces();
  if (!m_isInRequest) m_served = nullptr;
}

void Serving::request(const FrameHeader& header, ValueReader values) {
  CS_InRequest request(channelTo(m_owner, header), header.number, header.wantsReply() ? header.correlation : 0,
                       std::move(values));
  m_isInRequest = true;
  // On a connection what was read may go with the request.
  const struct End {
    Serving& serving;
    ~End() {
      serving.m_isInRequest = false;
      if (serving.m_load != nullptr) serving.letGoOfPieces();
    }
  } end{*this};
  std::wstring failure;
  try {
    const CS_RCPtr<CS_Component> component = m_owner.getChild(header.component);
    if (!component) {
      failure = refusalOr(header.component, L"the component does not exist any more");
    } else if (component->isSuspended()) {
      failure = L"the component is suspended";
    } else {
      if (m_served.get() != component.get()) {
        if (m_served) m_served->letGoOfPieces();
        m_served = component;
      }
      if (m_load != nullptr) gatherAnswer(*component, request);
      if (!component->processRequest(request)) {
        failure = formatText(L"the component serves no request %d", static_cast<int>(header.number));
      }
    }
  } catch (const CS_Exception& exception) {
    failure = exception.detail()[0] != L'\0' ? exception.detail() : messageText(exception.number());
  } catch (...) {
    failure = messageText(kUnknownException);
  }
  if (!failure.empty()) request.sendFailure(failure.c_str());
  request.skipRest();
}

void Serving::release(const FrameHeader& header, const std::wstring& reason) {
  m_refused.erase(header.component);
  const CS_RCPtr<CS_Component> component = m_owner.getChild(header.component);
  if (!component) return;
  m_owner.removeChild(component.get());
  if (BridgeEnd* bridge = component->bridgeEnd()) {
    bridge->releasedByPeer(reason);
  } else {
    component->release();
  }
}

}  // namespace corvane
