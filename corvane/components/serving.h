#pragma once

#include "corvane/components/component.h"
#include "corvane/wire/frame.h"
#include "corvane/wire/value_reader.h"

#include <map>
#include <memory>
#include <string>

namespace corvane {

struct BridgeLoad;

// Serves what a peer asks of the components on one owner, a connection or a bridge: makes components, hands them their
// requests, lets them go. Used by the one thread that reads the owner's frames.
class Serving {
 public:
  // With what bridges that the peer makes here share; null where it can make none, on a bridge.
  Serving(CS_Component& owner, std::shared_ptr<BridgeLoad> load) : m_owner(owner), m_load(std::move(load)) {}

  // A component that cannot be made is remembered until the peer lets it go, and requests to it are answered with the
  // reason. More than kMaxRefusedComponents of them end the owner, as CS_Exception (3107).
  void create(const FrameHeader& header, std::span<const unsigned char> payload);
  // A request whose component does not exist, refuses, or throws is answered as failed. What the component did not read
  // is skipped. Throws CS_Exception only when the connection ended.
  void request(const FrameHeader& header, ValueReader values);
  // Whether the request that begins so is served at once; see CS_Component::servesAtOnce.
  bool servesAtOnce(const FrameHeader& header) const;
  // What the requests have read becomes invalid; see CS_Component::letGoOfPieces. Before a buffer with requests
  // changes, on a bridge; on a connection each request does it itself.
  void letGoOfPieces() noexcept;
  void release(const FrameHeader& header, const std::wstring& reason);
  // Why the component with that identifier was refused; the other text when it was not.
  std::wstring refusalOr(std::uint32_t identifier, const wchar_t* otherwise) const;

 private:
  // Null after refusing to make one.
  CS_Component* make(const FrameHeader& header, const std::wstring& className);
  void start(const FrameHeader& header, const std::wstring& className, CS_Component& made);
  static void gatherAnswer(const CS_Component& component, CS_InRequest& request);
  void refuse(const FrameHeader& header, const std::wstring& reason);

  CS_Component& m_owner;
  std::shared_ptr<BridgeLoad> m_load;
  std::map<std::uint32_t, std::wstring> m_refused;
  CS_RCPtr<CS_Component> m_served;  // has what it read; null when it was told to let go of it behind its request
  bool m_isInRequest = false;
};

}  // namespace corvane
