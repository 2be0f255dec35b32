#pragma once

#include "corvane/components/bridge.h"
#include "corvane/components/channel.h"
#include "corvane/components/component_server.h"
#include "corvane/components/connection.h"
#include "tests/support/joined_thread.h"
#include "tests/support/own_listener.h"

#include <functional>
#include <memory>
#include <optional>

// A dialed connection and its accepted other end, in one process over a real loopback socket. The accepted end is
// served on a thread of its own; both ends are destroyed, and that thread joined, at the end of the test.
class ConnectionPair {
 public:
  using StreamMaker = std::function<std::unique_ptr<corvane::Stream>(corvane::Socket)>;

  explicit ConnectionPair(const std::optional<CS_Connection::Line>& line = {})
      : ConnectionPair(line,
                       [](corvane::Socket socket) { return std::make_unique<corvane::Socket>(std::move(socket)); }) {}
  // With a line, the dialed end takes what is routed to it as over a long one. The accepted one uses the stream.
  ConnectionPair(const std::optional<CS_Connection::Line>& line, const StreamMaker& stream) {
    CS_ComponentServer::initialize(0, 0);
    OwnListener listener;
    JoinedThread acceptor(
        [&] {
          m_accepted = CS_Connection::arrive(stream(listener.accept()));
          if (line) m_accepted->useLine({line->packing, 0});
          m_accepted->welcome(nullptr);
        },
        [&] { listener.stop(); });
    m_dialed = CS_Connection::create();
    if (line) m_dialed->useLine(*line);
    m_dialed->connect(OwnListener::wideHost().c_str(), listener.port(), CS_Connection::kDirect, false);
    acceptor.join();
    m_server = JoinedThread([this] { m_reason = m_accepted->serve(); });
  }
  ~ConnectionPair() {
    CS_Connection::destroy(m_dialed, true);
    join();
    CS_Connection::destroy(m_accepted, true);
    CS_Bridge::waitForThreads(10000);
  }
  ConnectionPair(const ConnectionPair&) = delete;
  ConnectionPair& operator=(const ConnectionPair&) = delete;

  CS_Connection& dialed() { return *m_dialed; }
  const CS_RCPtr<CS_Connection>& dialedPointer() { return m_dialed; }
  const CS_RCPtr<CS_Connection>& accepted() { return m_accepted; }

  // Waits until the accepted end has ended, and says why it did.
  std::wstring join() {
    if (m_server.joinable()) m_server.join();
    return m_reason;
  }

 private:
  CS_RCPtr<CS_Connection> m_dialed;
  CS_RCPtr<CS_Connection> m_accepted;
  JoinedThread m_server;
  std::wstring m_reason;
};

// A component of the local class on the owner, with its start operations done; null when it cannot be made.
inline CS_RCPtr<CS_Component> makeComponent(CS_Component& owner, const wchar_t* localClass,
                                            const wchar_t* remoteClass) {
  const CS_RCPtr<CS_ClassFactory> factory = owner.getClassFactory(localClass, remoteClass, true);
  if (!factory) return nullptr;
  CS_RCPtr<CS_Component> component = factory->newInstance(0);
  if (component) {
    component->getChannel(true)->startSending();
    component->getChannel(true)->startReceiving();
  }
  return component;
}
