#include "server/application.h"

#include "corvane/bridge.h"
#include "corvane/bridge_router.h"
#include "corvane/component_server.h"
#include "programs/administration.h"
#include "programs/component_class.h"
#include "programs/session_registration.h"
#include "server/administration_server.h"
#include "server/port_monitor_client.h"
#include "server/program_monitor_server.h"
#include "server/session_host.h"

namespace aps {
namespace {

template <class Component>
void registerAndOffer(const wchar_t* name, const std::shared_ptr<Application>& application) {
  CS_ComponentServer* server = CS_ComponentServer::getServer();
  server->registerClass(name, new programs::ComponentClass<Component>(programs::kProgramsVersion, application));
  server->offerClass(name);
}

}  // namespace

void registerClasses(const std::shared_ptr<Application>& application) {
  registerAndOffer<PortMonitorClient>(programs::kPortMonitorClientClass, application);
  registerAndOffer<SessionHost>(programs::kSessionHostClass, application);
  registerAndOffer<ProgramMonitorServer>(L"Quillfern::ComponentServer::ProgramMonitor_s", application);
  registerAndOffer<AdministrationServer>(programs::kAdministrationServerClass, application);
  CS_ComponentServer::getServer()->offerClass(CS_Bridge::m_className);
  CS_ComponentServer::getServer()->offerClass(CS_BridgeRouter::getClassName());
}

}  // namespace aps
