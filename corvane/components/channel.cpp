#include "corvane/components/channel.h"

#include "corvane/records/exception.h"
#include "corvane/records/messages.h"

CS_Channel::CS_Channel(std::shared_ptr<corvane::Link> link, std::uint32_t bridge, std::uint32_t component)
    : m_link(std::move(link)), m_bridge(bridge), m_component(component) {}

corvane::ValueWriter& CS_Channel::writer() const {
  if (m_writer == nullptr) throw CS_Exception(corvane::kMissingObject, nullptr);
  return *m_writer;
}

corvane::ValueReader& CS_Channel::reader() const {
  if (m_reader == nullptr) throw CS_Exception(corvane::kMissingObject, nullptr);
  return *m_reader;
}

CS_Channel CS_Channel::withWriter(corvane::ValueWriter& writer) const {
  CS_Channel channel = *this;
  channel.m_writer = &writer;
  return channel;
}

CS_Channel CS_Channel::withReader(corvane::ValueReader& reader) const {
  CS_Channel channel = *this;
  channel.m_reader = &reader;
  return channel;
}
