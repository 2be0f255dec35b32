#pragma once

#include "tests/support/scripted_peer.h"

#include <map>
#include <string>
#include <vector>

// One connection of a ScriptedPeer. Everything but hangUp() runs on the connection's own thread.
class ScriptedConnection : public corvane::FrameHandler {
 public:
  ScriptedConnection(ScriptedPeer& peer, int number, corvane::Socket socket)
      : m_peer(peer), m_number(number), m_link(std::move(socket)) {}

  void serve();
  void hangUp() { m_link.end(L"the script hangs up"); }

  void onFrame(corvane::Frame& frame) override;
  void onBatchEnd() override {}
  void onBatchAbandoned() noexcept override {}
  void onLinkEnd(const std::wstring& reason) override;

 private:
  using Address = std::pair<std::uint32_t, std::uint32_t>;  // bridge and component

  void onRequest(const corvane::FrameHeader& header, std::vector<unsigned char> payload);
  std::string describeValues(std::vector<unsigned char> payload);

  ScriptedPeer& m_peer;
  int m_number;
  corvane::Link m_link;
  std::map<Address, std::string> m_classes;
  std::map<Address, std::vector<unsigned char>> m_collected;
};
