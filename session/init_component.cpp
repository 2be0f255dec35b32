#include "corvane/bridge.h"
#include "corvane/class_factory.h"
#include "corvane/exception.h"
#include "corvane/message_numbers.h"
#include "corvane/operation.h"
#include "corvane/program_monitor_c.h"
#include "session/make_component.h"
#include "session/port_monitor_server.h"
#include "session/start_channel.h"

#include <windows.h>

#include <array>
#include <cstdlib>

namespace {

[[noreturn]] void failWithLastError(int number) {
  const DWORD error = GetLastError();
  throw CS_Exception(CS_ProgramMonitor::getDefaultMonitor()->recordNumber(corvane::kLevelException, corvane::kCategory,
                                                                          number, L"%d", error));
}

template <class T>
T& required(T* object) {
  if (object == nullptr) throw CS_Exception(corvane::kMissingObject, nullptr);
  return *object;
}

// From here on the process's records go to the application server as well.
CS_RCPtr<CS_ProgramMonitor_c> installProgramMonitor(CS_Connection& connection) {
  const CS_RCPtr<CS_ClassFactory> factory =
      connection.getClassFactory(CS_ProgramMonitor_c::m_className, CS_ProgramMonitor_c::m_peerClassName, true);
  auto* made = dynamic_cast<CS_ProgramMonitor_c*>(required(factory.get()).newInstance(0));
  CS_RCPtr<CS_ProgramMonitor_c> monitor(&required(made));
  CS_ProgramMonitor::setDefaultMonitor(monitor);
  connection.setProgramMonitor(monitor);
  return monitor;
}

void tellProcess(CS_ProgramMonitor_c& monitor) {
  const HMODULE program = GetModuleHandleA(nullptr);
  if (program == nullptr) failWithLastError(corvane::kModuleHandleFailed);
  std::array<wchar_t, MAX_PATH + 1> path{};
  if (GetModuleFileNameW(program, path.data(), MAX_PATH) == 0) failWithLastError(corvane::kModuleNameFailed);
  std::array<wchar_t, _MAX_FNAME> name{};
  _wsplitpath(path.data(), nullptr, nullptr, name.data(), nullptr);
  if (!monitor.setProcessInfo(GetCurrentProcessId(), name.data())) {
    // The records travel all the same, only without the program's name.
    CS_ProgramMonitor::getDefaultMonitor()->recordText(corvane::kLevelException, corvane::kCategory,
                                                       L"Failed to set program monitor process info.");
  }
}

CS_RCPtr<PortMonitorServer> makePortMonitor(Operation& operation, CS_Connection& connection) {
  const CS_RCPtr<CS_Component> bridge =
      mg::makeComponent(operation, connection,
                        {CS_Bridge::m_className, CS_Bridge::m_className, corvane::kLevelFailure,
                         L"Failed to get bridge class factory.", L"Failed to create bridge"});
  auto server = mg::makeOwnComponent<PortMonitorServer>(operation, *bridge, mg::kPortMonitorServerKind);
  mg::startChannel(*server);
  return server;
}

}  // namespace

void PortMonitorServer::InitComponent() {
  if (s_instance) return;
  CS_TraceEntry trace(L"PortMonitorServer::InitComponent()");
  Operation operation(L"Stack Trace: PortMonitorServer::InitComponent()");
  CS_RCPtr<CS_Connection> connection;
  operation.run([&] {
    connection = connectToLocalhost();
    tellProcess(*installProgramMonitor(required(connection.get())));
    s_instance = makePortMonitor(operation, *connection);
  });
  if (!operation.succeeded() && connection) CS_Connection::destroy(connection, true);
}
