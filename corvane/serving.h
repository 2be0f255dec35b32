#pragma once

#include "corvane/component.h"
#include "corvane/frame.h"
#include "corvane/value_reader.h"

#include <map>
#include <memory>
#include <string>

namespace corvane {

// Serves what a peer asks of the components on one owner, a connection or a bridge: makes components, hands them their
// requests, lets them go. Used by the one thread that reads the owner's frames.
class Serving {
 public:
  explicit Serving(CS_Component& owner) : m_owner(owner) {}

  // A component that cannot be made is remembered, and the first request to it is answered with the reason.
  void create(const FrameHeader& header, std::span<const unsigned char> payload);
  // A request whose component does not exist, refuses, or throws is answered as failed. What the component did not read
  // is skipped. Throws CS_Exception only when the connection ended.
  void request(const FrameHeader& header, std::unique_ptr<FrameSource> source);
  void release(const FrameHeader& header, const std::wstring& reason);

 private:
  void refuse(const FrameHeader& header, const std::wstring& reason);

  CS_Component& m_owner;
  std::map<std::uint32_t, std::wstring> m_refused;
};

}  // namespace corvane
