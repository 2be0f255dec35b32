#include "corvane/components/component_server.h"

#include "corvane/components/bridge.h"
#include "corvane/components/bridge_router.h"
#include "corvane/components/program_monitor_c.h"
#include "corvane/net/socket.h"
#include "corvane/records/host_properties.h"
#include "corvane/records/operation.h"
#include "corvane/records/program_monitor.h"

namespace {

// Once per process, and again for what an earlier call had no memory for.
template <class Component>
void registerBuiltIn(const wchar_t* name) {
  CS_ComponentServer* server = CS_ComponentServer::getServer();
  if (server->findClass(name) == nullptr) {
    server->registerClass(name, new corvane::ComponentClass<Component>(CS_Version(1, 0, 0, 0)));
  }
}

void registerBuiltIns() {
  registerBuiltIn<CS_Bridge>(CS_Bridge::m_className);
  registerBuiltIn<CS_BridgeRouter>(CS_BridgeRouter::getClassName());
  registerBuiltIn<CS_ProgramMonitor_c>(CS_ProgramMonitor_c::m_className);
}

}  // namespace

bool CS_ComponentServer::initialize(unsigned, unsigned) {
  try {
    if (!corvane::initializeNetwork()) return false;
    CS_TraceEntry::enable(HostProperties::getInstance().trace());
    registerBuiltIns();
    return true;
  } catch (...) {
    return false;
  }
}

CS_ComponentServer* CS_ComponentServer::getServer() {
  static CS_ComponentServer server;
  return &server;
}

bool CS_ComponentServer::registerClass(const wchar_t* name, CS_Class* componentClass) {
  return corvane::ClassRegistry::instance().add(name, componentClass);
}

bool CS_ComponentServer::offerClass(const wchar_t* name) {
  return corvane::ClassRegistry::instance().offer(name);
}

CS_Class* CS_ComponentServer::findClass(const wchar_t* name) {
  return corvane::ClassRegistry::instance().find(name);
}

CS_Class* CS_ComponentServer::findOfferedClass(const wchar_t* name) {
  return corvane::ClassRegistry::instance().findOffered(name);
}

void CS_ComponentServer::copyRegisteredClassVersionMap(CS_ClassVersionMap& map) {
  corvane::ClassRegistry::instance().copyVersions(map);
}
