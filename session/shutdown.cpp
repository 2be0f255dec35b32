#include "corvane/operation.h"
#include "session/port_monitor_server.h"

bool PortMonitorServer::shutdown() {
  CS_TraceEntry trace(L"PortMonitorServer::shutdown()");
  if (s_lock != nullptr) {
    DeleteCriticalSection(s_lock);
    delete s_lock;
    s_lock = nullptr;
  }
  if (!s_instance) return true;
  Operation operation(L"Stack Trace: PortMonitorServer::shutdown()");
  bool ended = false;
  operation.run([&] {
    const CS_RCPtr<PortMonitorServer> instance = s_instance;
    const CS_RCPtr<CS_Component> owner = instance->getRootOwner();
    if (!owner) operation.fail(corvane::kLevelFailure, L"failed to get root owner");
    const CS_RCPtr<CS_Connection> connection(dynamic_cast<CS_Connection*>(owner.get()));
    if (!connection) operation.fail(corvane::kLevelFailure, L"failed to get connection");
    ended = CS_Connection::destroy(connection, true);
  });
  return ended;
}
