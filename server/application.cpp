#include "server/application.h"

#include "corvane/components/bridge.h"
#include "corvane/components/bridge_router.h"
#include "corvane/components/component_server.h"
#include "corvane/components/program_monitor_c.h"
#include "protocol/names.h"

namespace aps {
namespace {

template <class Component>
void registerAndOffer(const wchar_t* name, const std::shared_ptr<Application>& application) {
  CS_ComponentServer* server = CS_ComponentServer::getServer();
  server->registerClass(name, new corvane::ComponentClass<Component, typename Component::Context>(
                                  protocol::kVersion, Application::contextOf<Component>(application)));
  server->offerClass(name);
}

}  // namespace

void registerClasses(const std::shared_ptr<Application>& application) {
  registerAndOffer<PortMonitorClient>(protocol::kPortMonitorClientClass, application);
  registerAndOffer<SessionHost>(protocol::kSessionHostClass, application);
  registerAndOffer<ProgramMonitorServer>(CS_ProgramMonitor_c::m_peerClassName, application);
  registerAndOffer<AdministrationServer>(protocol::kAdministrationServerClass, application);
  registerAndOffer<InvitationHost>(protocol::kInvitationHostClass, application);
  CS_ComponentServer::getServer()->offerClass(CS_Bridge::m_className);
  CS_ComponentServer::getServer()->offerClass(CS_BridgeRouter::getClassName());
}

void registerHoldClasses(const std::shared_ptr<Application>& application) {
  application->standIn = application->hold.get();
  registerAndOffer<HeldJobTaker>(protocol::kPrintClientClass, application);
  CS_ComponentServer::getServer()->registerClass(protocol::kPrintServerClass,
                                                 new corvane::ComponentClass<CS_Component>(protocol::kVersion));
}

}  // namespace aps
