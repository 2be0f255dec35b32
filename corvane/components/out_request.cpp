#include "corvane/components/out_request.h"

#include "corvane/components/in_request.h"
#include "corvane/records/exception.h"
#include "corvane/records/messages.h"
#include "corvane/wire/link.h"
#include "corvane/wire/value_reader.h"

namespace {

CS_Channel requestChannel(const CS_RCPtr<CS_Component>& component, corvane::ValueWriter& values) {
  if (!component) throw CS_Exception(corvane::kBadArgument, nullptr);
  const CS_Channel* channel = component->getChannel(true);
  if (channel == nullptr || !channel->isSending()) throw CS_Exception(corvane::kMissingObject, nullptr);
  return channel->withWriter(values);
}

}  // namespace

CS_OutRequest::CS_OutRequest(const CS_RCPtr<CS_Component>& component, int number)
    : m_component(component), m_number(number), m_channel(requestChannel(component, m_values)) {}

void CS_OutRequest::writeInt(int value) {
  m_values.writeInt(value);
}
void CS_OutRequest::writeBoolean(bool value) {
  m_values.writeBoolean(value);
}
void CS_OutRequest::writeUTF(const wchar_t* text) {
  m_values.writeText(text);
}
void CS_OutRequest::write(const unsigned char* data, int length) {
  m_values.writeBytes(data, length);
}

void CS_OutRequest::write(const unsigned char* data, int offset, int count) {
  if (data == nullptr || offset < 0) throw CS_Exception(corvane::kBadArgument, nullptr);
  m_values.writeBytes(data + offset, count);
}

corvane::FrameHeader CS_OutRequest::header() const {
  if (!m_component) throw CS_Exception(corvane::kMissingObject, nullptr);
  corvane::FrameHeader header;
  header.kind = corvane::FrameKind::kRequest;
  header.number = static_cast<std::uint16_t>(m_number);
  header.bridge = m_channel.bridge();
  header.component = m_channel.component();
  return header;
}

// A reply that is waited for is registered by now: a bridge that the peer lets go after this look fails it.
void CS_OutRequest::throwIfEnded() const {
  const CS_Component* owner = m_component ? m_component->getOwner() : nullptr;
  if (owner != nullptr) owner->throwIfEnded();
}

void CS_OutRequest::execute() {
  corvane::FrameHeader request = header();
  request.correlation = m_channel.link().nextCorrelation();
  throwIfEnded();
  m_channel.link().send(request, m_values);
}

void CS_OutRequest::execute(CS_InRequest& reply, unsigned timeoutMilliseconds) {
  const corvane::Deadline deadline = corvane::after(timeoutMilliseconds);
  corvane::FrameHeader request = header();
  corvane::Link::Pending pending(m_channel.link(), request.bridge);
  request.correlation = pending.correlation();
  request.flags = corvane::kFlagWantsReply;
  throwIfEnded();
  m_channel.link().sendAwaited(request, m_values);
  reply.setValues(corvane::ValueReader(pending.wait(deadline)));
}

void CS_OutRequest::release() {
  m_component = nullptr;
}
