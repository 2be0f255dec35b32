#pragma once

#include "corvane/records/exception.h"
#include "corvane/records/messages.h"

#include <cstdint>
#include <memory>
#include <utility>

namespace corvane {
class Link;
class ValueReader;
class ValueWriter;
}  // namespace corvane

// The way from a component to its peer: the connection's link, the addresses on it, and for the channel of a request
// the values that travel. A component's own channel carries no values; a request's channel is a copy of it with the
// request's values attached.
class CS_Channel {
 public:
  // bridge is 0 for a component that stands directly on its connection.
  CS_Channel(std::shared_ptr<corvane::Link> link, std::uint32_t bridge, std::uint32_t component)
      : m_link(std::move(link)), m_bridge(bridge), m_component(component) {}

  // The two start operations of a new remote component, in this order. The first lets requests leave: until then the
  // peer does not know the component, and the announcement then travels together with the first request, in the
  // same send. The second lets what the peer sends back reach the component.
  void startSending() { m_sending = true; }
  void startReceiving() { m_receiving = true; }
  bool isSending() const { return m_sending; }
  bool isReceiving() const { return m_receiving; }

  corvane::Link& link() const { return *m_link; }
  const std::shared_ptr<corvane::Link>& sharedLink() const { return m_link; }
  std::uint32_t bridge() const { return m_bridge; }
  std::uint32_t component() const { return m_component; }

  // The values of the request that this channel belongs to; CS_Exception (3014) when it has none of that direction.
  corvane::ValueWriter& writer() const { return needed(m_writer); }
  corvane::ValueReader& reader() const { return needed(m_reader); }
  CS_Channel withWriter(corvane::ValueWriter& writer) const {
    CS_Channel channel = *this;
    channel.m_writer = &writer;
    return channel;
  }
  CS_Channel withReader(corvane::ValueReader& reader) const {
    CS_Channel channel = *this;
    channel.m_reader = &reader;
    return channel;
  }

 private:
  template <class Values>
  static Values& needed(Values* values) {
    if (values == nullptr) throw CS_Exception(corvane::kMissingObject, nullptr);
    return *values;
  }

  std::shared_ptr<corvane::Link> m_link;
  std::uint32_t m_bridge;
  std::uint32_t m_component;
  bool m_sending = false;
  bool m_receiving = false;
  corvane::ValueWriter* m_writer = nullptr;
  corvane::ValueReader* m_reader = nullptr;
};
