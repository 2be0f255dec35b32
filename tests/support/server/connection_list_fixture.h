#pragma once

#include "corvane/base/process.h"
#include "corvane/components/component_server.h"
#include "corvane/components/in_request.h"
#include "corvane/components/out_request.h"
#include "corvane/records/exception.h"
#include "corvane/records/messages.h"
#include "programs/text.h"
#include "protocol/names.h"
#include "server/application.h"
#include "server/connection_list.h"
#include "tests/support/connection_pair.h"

#include <filesystem>
#include <gtest/gtest.h>

namespace aps {

// What the answer to a request that no component serves looks like: the component is there.
inline const std::wstring kServed = L"the component serves no request 99";

// A peer of the list, with a component of one class.
class Peer {
 public:
  Peer(int port, const wchar_t* className) : m_connection(CS_Connection::create()) { dial(port, className); }
  Peer(int port, const wchar_t* className, const corvane::Identity& identity, const std::string& keyFile)
      : m_connection(CS_Connection::create()) {
    m_connection->useKey(identity, keyFile);
    dial(port, className);
  }
  ~Peer() { CS_Connection::destroy(m_connection, true); }
  Peer(const Peer&) = delete;
  Peer& operator=(const Peer&) = delete;

  // What becomes of a request to its component, or to one of another class that it asks for.
  std::wstring ask() { return ask(m_component); }
  std::wstring askFor(const wchar_t* className) { return ask(makeComponent(*m_connection, L"Asker", className)); }

 private:
  void dial(int port, const wchar_t* className) {
    m_connection->connect(OwnListener::wideHost().c_str(), port, CS_Connection::kDirect, false);
    m_component = makeComponent(*m_connection, L"Asker", className);
  }
  static std::wstring ask(const CS_RCPtr<CS_Component>& component) {
    if (!component) return L"no component";
    try {
      CS_OutRequest request(component, 99);
      CS_InRequest reply(request);
      request.execute(reply, 60000);
    } catch (const CS_Exception& failure) {
      return failure.number() == corvane::kConnectionLost ? L"closed" : failure.detail();
    }
    return L"an answer";
  }

  CS_RCPtr<CS_Connection> m_connection;
  CS_RCPtr<CS_Component> m_component;
};

inline constexpr const wchar_t* kClient = protocol::kSessionHostClass;
inline constexpr const wchar_t* kMonitor = protocol::kPortMonitorClientClass;
inline constexpr const wchar_t* kTool = protocol::kAdministrationServerClass;

class ConnectionListTest : public ::testing::Test {
 protected:
  ConnectionListTest() {
    CS_ComponentServer::initialize(0, 0);
    m_application = std::make_shared<Application>(m_log, SessionTable::Limits{}, Launcher::Settings{});
    registerClasses(m_application);
    CS_ComponentServer::getServer()->registerClass(L"Asker",
                                                   new corvane::ComponentClass<CS_Component>(protocol::kVersion));
    m_places.lookEvery = std::chrono::milliseconds(20);
  }
  ~ConnectionListTest() override {
    stop();
    std::error_code ignored;
    std::filesystem::remove(m_logFile, ignored);
  }

  void start(const corvane::KeyFolder* keys = nullptr, const corvane::Patience& patience = {}) {
    const auto isNeeded = [this](const CS_Connection& connection) {
      ++m_looks;
      return m_allNeeded || m_application->jobs.isNeeded(&connection);
    };
    m_list = std::make_unique<ConnectionList>(m_log, m_places, keys, isNeeded, patience);
    m_acceptor = std::jthread([this] {
      while (auto socket = m_listener.accept())
        m_list->serve(std::make_unique<corvane::Socket>(std::move(*socket)));
    });
  }
  void stop() {
    m_listener.stop();
    if (m_acceptor.joinable()) m_acceptor.join();
    m_list.reset();
  }

  int port() const { return m_listener.port(); }
  corvane::Socket silent() const { return corvane::Socket::connect(OwnListener::host(), m_listener.port(), false); }
  static bool isClosed(corvane::Socket& socket) {
    unsigned char byte;
    return socket.receive({&byte, 1}, corvane::after(0)).has_value();
  }
  static void waitUntilClosed(corvane::Socket& socket) {
    unsigned char byte;
    EXPECT_EQ(socket.receive({&byte, 1}, corvane::after(60000)), 0u);
  }
  std::string failures() const {
    std::string all;
    for (const std::string& line : m_log->failures().latest(1000))
      all += line + "\n";
    return all;
  }
  void awaitFailure(const std::string& text) const {
    while (failures().find(text) == std::string::npos)
      std::this_thread::yield();
  }

  const std::filesystem::path m_logFile = std::filesystem::temp_directory_path() /
                                          programs::toPath("mg_connections_" + std::to_string(corvane::processId()));
  std::shared_ptr<Log> m_log = std::make_shared<Log>(m_logFile);
  std::shared_ptr<Application> m_application;
  corvane::Listener m_listener{OwnListener::host() + ":0"};
  Places m_places;
  std::atomic<bool> m_allNeeded{false};
  std::atomic<int> m_looks{0};
  std::unique_ptr<ConnectionList> m_list;
  std::jthread m_acceptor;
};

}  // namespace aps
