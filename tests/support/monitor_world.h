#pragma once

#include "corvane/components/component_server.h"
#include "corvane/components/connection.h"
#include "session/make_component.h"
#include "session/port_monitor_server.h"
#include "session/print_server.h"
#include "tests/support/recording_monitor.h"
#include "tests/support/scripted_peer.h"
#include "tests/support/server_address.h"

#include <algorithm>
#include <string>

// What a test of the monitor's components lives in: the framework with the monitor's classes, a scripted application
// server that the code finds by itself, records that are kept, and the port monitor lock.
class MonitorWorld {
 public:
  MonitorWorld() : MonitorWorld(0) {}
  explicit MonitorWorld(std::uint16_t port) : m_peer(port), m_address(m_peer.port()) {
    CS_ComponentServer::initialize(0, 0);
    CS_ComponentServer* server = CS_ComponentServer::getServer();
    const CS_Version version(4, 0, 1, 0);
    server->registerClass(L"Quillfern::NTR::PortMonitorServer", new PortMonitorServerClass(version));
    server->registerClass(L"Quillfern::NTR::PrintServer", new PrintServerClass(version));
    PortMonitorServer::initialize();
    m_peer.answer("ProgramMonitor_s", 1, [](corvane::ValueWriter& reply) { reply.writeBoolean(true); });
  }
  ~MonitorWorld() {
    PortMonitorServer::shutdown();
    CS_Connection::destroy(m_connection, true);
  }
  MonitorWorld(const MonitorWorld&) = delete;
  MonitorWorld& operator=(const MonitorWorld&) = delete;

  ScriptedPeer& peer() { return m_peer; }
  RecordingScope& records() { return m_records; }

  // Brings the process's instance up, and the test's records back in the place of the monitor that it installs.
  void bringUpInstance() {
    PortMonitorServer::getInstance();
    CS_ProgramMonitor::setDefaultMonitor(&m_records.monitor());
  }

  // From now on there is no instance, and none can be made.
  void losePeer() {
    const CS_RCPtr<PortMonitorServer> instance = PortMonitorServer::getInstance();
    m_peer.hangUpAt("ProgramMonitor_s", 1);
    CS_Connection::destroy(instance->getConnection(), true);
    CS_ProgramMonitor::setDefaultMonitor(&m_records.monitor());
  }
  // How many requests begin with these words.
  std::size_t countOf(const std::string& words) const {
    const ScriptedPeer::Lines lines = requests();
    return static_cast<std::size_t>(
        std::count_if(lines.begin(), lines.end(), [&](const std::string& line) { return line.find(words) == 0; }));
  }

  // A connection of the test's own; made once.
  CS_Connection& connection() {
    if (!m_connection) {
      m_connection = CS_Connection::create();
      m_connection->connect(L"localhost", m_peer.port(), CS_Connection::kDirect, false);
    }
    return *m_connection;
  }
  // Components on that connection, ready for requests.
  CS_RCPtr<PortMonitorServer> portMonitor() {
    return make<PortMonitorServer>(L"Quillfern::NTR::PortMonitorServer", L"Quillfern::NTR::PortMonitorClient");
  }
  CS_RCPtr<PrintServer> printServer() {
    return make<PrintServer>(L"Quillfern::NTR::PrintServer", L"Quillfern::NTR::PrintClient");
  }

  // The lines of what the peer saw of requests, without connections and creations.
  ScriptedPeer::Lines requests() const {
    ScriptedPeer::Lines requests;
    for (const std::string& line : m_peer.lines()) {
      if (line.find("request ") == 0 || line.find("one-way ") == 0) requests.push_back(line);
    }
    return requests;
  }

  static std::string processId() { return std::to_string(GetCurrentProcessId()); }

 private:
  template <class T>
  CS_RCPtr<T> make(const wchar_t* localClass, const wchar_t* remoteClass) {
    const CS_RCPtr<CS_ClassFactory> factory = connection().getClassFactory(localClass, remoteClass, true);
    const CS_RCPtr<CS_Component> component(factory->newInstance(0));
    mg::startChannel(*component);
    return static_cast<T*>(component.get());
  }

  RecordingScope m_records;
  ScriptedPeer m_peer;
  ServerAddress m_address;
  CS_RCPtr<CS_Connection> m_connection;
};
