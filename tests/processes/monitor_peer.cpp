#include "tests/processes/monitor_peer.h"

#include "corvane/components/bridge.h"
#include "corvane/components/bridge_router.h"
#include "corvane/components/channel.h"
#include "corvane/components/component.h"
#include "corvane/components/component_server.h"
#include "corvane/components/in_request.h"
#include "corvane/components/out_request.h"
#include "corvane/components/program_monitor_c.h"
#include "corvane/records/exception.h"
#include "corvane/records/messages.h"
#include "protocol/names.h"

#include <mutex>
#include <new>

namespace tests {
namespace {

class SenderClass : public CS_Class {
 public:
  SenderClass() : CS_Class(protocol::kVersion) {}
  int currentSchema() const override { return 1; }
  CS_Component* createInstance() override { return new (std::nothrow) CS_Component; }
  bool destroyInstance(CS_Component* component) override {
    delete component;
    return true;
  }
};

void registerClasses() {
  static std::once_flag once;
  std::call_once(once, [] {
    CS_ComponentServer::initialize(0, 0);
    CS_ComponentServer::getServer()->registerClass(protocol::kPortMonitorServerClass, new SenderClass);
    CS_ComponentServer::getServer()->registerClass(protocol::kPrintServerClass, new SenderClass);
  });
}

void writeOptional(CS_OutRequest& request, const std::wstring& text) {
  request.writeBoolean(!text.empty());
  if (!text.empty()) request.writeUTF(text.c_str());
}

constexpr unsigned kReplyMilliseconds = 60000;

}  // namespace

MonitorPeer::MonitorPeer(int port) : m_connection(CS_Connection::create()) {
  dial(port);
}

MonitorPeer::MonitorPeer(int port, const corvane::Identity& identity, const std::string& keyFile)
    : m_connection(CS_Connection::create()) {
  m_connection->useKey(identity, keyFile);
  dial(port);
}

void MonitorPeer::dial(int port) {
  registerClasses();
  m_connection->connect(L"localhost", port, CS_Connection::kDirect, false);
  m_bridge = makeComponent(*m_connection, CS_Bridge::m_className, CS_BridgeRouter::getClassName());
  m_portMonitor = makeComponent(*m_connection, protocol::kPortMonitorServerClass, protocol::kPortMonitorClientClass);
}

MonitorPeer::~MonitorPeer() {
  CS_Connection::destroy(m_connection, true);
}

CS_RCPtr<CS_Component> MonitorPeer::makeComponent(CS_Component& owner, const wchar_t* local, const wchar_t* remote) {
  const auto factory = owner.getClassFactory(local, remote, true);
  if (!factory) throw CS_Exception(corvane::kMissingObject, L"no factory for %s", remote);
  CS_RCPtr<CS_Component> component(factory->newInstance(0));
  if (!component) throw CS_Exception(corvane::kMissingObject, L"no component for %s", remote);
  component->getChannel(true)->startSending();
  component->getChannel(true)->startReceiving();
  return component;
}

bool MonitorPeer::attach(const std::wstring& printer, int processId) {
  CS_OutRequest request(m_portMonitor, 4);
  request.writeUTF(printer.c_str());
  request.writeInt(processId);
  request.writeInt(static_cast<int>(m_bridge->getIdentifier()));
  CS_ClassVersionMap versions;
  CS_ComponentServer::getServer()->copyRegisteredClassVersionMap(versions);
  versions >> request.getChannel();
  CS_InRequest reply(request);
  request.execute(reply, kReplyMilliseconds);
  if (!reply.readBoolean()) return false;
  CS_ClassVersionMap clientVersions;
  clientVersions << reply.getChannel();
  if (!m_bridge->setVersionsOfClassesInPeerProcess(clientVersions, CS_Component::kSetVersionsOnOwnPeer)) {
    throw CS_Exception(corvane::kMissingObject, L"an empty map of the client's classes");
  }
  return true;
}

std::optional<MonitorPeer::PrinterInfo> MonitorPeer::printerInfo(const std::wstring& printer) {
  CS_OutRequest request(m_portMonitor, 5);
  request.writeUTF(printer.c_str());
  CS_InRequest reply(request);
  request.execute(reply, kReplyMilliseconds);
  if (!reply.readBoolean()) return std::nullopt;
  PrinterInfo info;
  for (auto& text : info.texts) {
    if (reply.readBoolean()) text = reply.readUTF();
  }
  info.flag = reply.readBoolean();
  info.value = reply.readInt();
  info.secondValue = reply.readInt();
  return info;
}

std::vector<std::wstring> MonitorPeer::printerList(int session) {
  CS_OutRequest request(m_portMonitor, 6);
  request.writeInt(session);
  CS_InRequest reply(request);
  request.execute(reply, kReplyMilliseconds);
  if (!reply.readBoolean()) throw CS_Exception(corvane::kRequestRefused, L"no list");
  std::vector<std::wstring> names;
  while (reply.readBoolean())
    names.emplace_back(reply.readUTF());
  return names;
}

bool MonitorPeer::launch(const std::wstring& program, const std::wstring& arguments, const wchar_t* extra) {
  CS_OutRequest request(m_portMonitor, 7);
  request.writeUTF(program.c_str());
  request.writeUTF(arguments.c_str());
  request.writeBoolean(extra != nullptr);
  if (extra != nullptr) request.writeUTF(extra);
  CS_InRequest reply(request);
  request.execute(reply, kReplyMilliseconds);
  return reply.readBoolean();
}

void MonitorPeer::startJob(const Names& names, const std::array<int, 4>& settings, int copies) {
  m_printServer = makeComponent(*m_bridge, protocol::kPrintServerClass, protocol::kPrintClientClass);
  m_jobName = names.job;
  CS_OutRequest request(m_printServer, 1);
  for (const std::wstring* text : {&names.job, &names.printer, &names.document, &names.dataType}) {
    writeOptional(request, *text);
  }
  for (const int setting : settings)
    request.writeInt(setting);
  request.writeInt(copies);
  request.execute();
}

void MonitorPeer::writeJob(const std::string& data) {
  writeBrokenPiece(data, static_cast<int>(data.size()));
}

void MonitorPeer::writeBrokenPiece(const std::string& data, int saidLength) {
  CS_OutRequest request(m_printServer, 2);
  writeOptional(request, m_jobName);
  request.writeInt(saidLength);
  if (!data.empty()) {
    request.write(reinterpret_cast<const unsigned char*>(data.data()), static_cast<int>(data.size()));
  }
  request.execute();
}

int MonitorPeer::endJob(unsigned timeoutMilliseconds) {
  CS_OutRequest request(m_printServer, 3);
  writeOptional(request, m_jobName);
  CS_InRequest reply(request);
  request.execute(reply, timeoutMilliseconds);
  return reply.readInt();
}

CS_RCPtr<CS_ProgramMonitor> MonitorPeer::makeMonitor(unsigned long processId, const wchar_t* module) {
  const auto component =
      makeComponent(*m_connection, CS_ProgramMonitor_c::m_className, L"Quillfern::ComponentServer::ProgramMonitor_s");
  const CS_RCPtr<CS_ProgramMonitor_c> monitor(dynamic_cast<CS_ProgramMonitor_c*>(component.get()));
  if (!monitor || !monitor->setProcessInfo(processId, module)) {
    throw CS_Exception(corvane::kRequestRefused, L"the server does not take records");
  }
  return monitor.get();
}

void MonitorPeer::record(unsigned long processId, const wchar_t* module, int level, const wchar_t* text) {
  makeMonitor(processId, module)->recordText(level, 0x80080000LL, L"%s", text);
}

void MonitorPeer::recordThrown(unsigned long processId, const wchar_t* module, const wchar_t* text) {
  const auto report = makeMonitor(processId, module)->recordText(0x4000000a, 0x80080000LL, L"%s", text);
  report->recordText(10, 0x80080000LL, L"%s", text);
}

void MonitorPeer::notify(unsigned long processId, const wchar_t* module, const CS_Notice& notice) {
  makeMonitor(processId, module)->notify(notice);
}

}  // namespace tests
