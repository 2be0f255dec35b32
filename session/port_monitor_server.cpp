#include "session/port_monitor_server.h"

#include "corvane/base/process.h"
#include "corvane/base/text.h"
#include "corvane/components/bridge.h"
#include "corvane/components/component.h"
#include "corvane/components/program_monitor_c.h"
#include "corvane/records/exception.h"
#include "corvane/records/host_properties.h"
#include "corvane/records/messages.h"
#include "corvane/records/operation.h"
#include "corvane/records/program_monitor.h"
#include "session/make_component.h"
#include "util/win_handle.h"

#include <windows.h>

#include <array>
#include <cstdlib>

namespace {

// The administrator's choice of how the server is dialled; anything unreadable is the default.
unsigned connectionFlags(mg::RegistryKey& key) {
  const corvane::ProcessIdentity identity;
  constexpr DWORD kDualStackOption = 0x40000;
  if (RegOpenKeyExA(HKEY_LOCAL_MACHINE, "SOFTWARE\\Quillfern\\Marrowgate\\AppServer", 0, KEY_QUERY_VALUE,
                    key.receive()) != ERROR_SUCCESS) {
    return CS_Connection::kDirect;
  }
  DWORD options = 0;
  DWORD size = sizeof options;
  if (RegQueryValueExA(key.get(), "ConnectionOptions", nullptr, nullptr, reinterpret_cast<BYTE*>(&options), &size) !=
      ERROR_SUCCESS) {
    return CS_Connection::kDirect;
  }
  return (options & kDualStackOption) != 0 ? CS_Connection::kDualStack : CS_Connection::kDirect;
}

bool attempt(CS_Connection& connection, int hostValue, unsigned flags, int number) {
  CS_TraceEntry trace(L"PortMonitorServer::connectToLocalhost() (attempt = %d)", number);
  try {
    connection.connect(L"localhost", hostValue, flags, false);
    return true;
  } catch (const CS_Exception& exception) {
    // No server can make up for a key that is missing or unusable here: the job fails and says why. One that does not
    // prove itself may be another program in the server's place, and the job waits for the server itself.
    if (exception.number() == corvane::kKeyNeeded) throw;
    return false;
  }
}

}  // namespace

CS_RCPtr<CS_Connection> PortMonitorServer::connectToLocalhost() {
  CS_TraceEntry trace(L"PortMonitorServer::connectToLocalhost()");
  Operation operation(L"Failed to connect to localhost.", corvane::kLevelConnectionFailure);
  mg::RegistryKey key;
  CS_RCPtr<CS_Connection> connection;
  operation.run([&] {
    connection = CS_Connection::create();
    const std::wstring keyFile = HostProperties::getInstance().keyFile();
    if (!keyFile.empty()) connection->useKey(corvane::Identity::monitor(), corvane::toUtf8(keyFile));
    const unsigned flags = connectionFlags(key);
    const int hostValue = HostProperties::getInstance().hostValue();
    for (int number = 1; !attempt(*connection, hostValue, flags, number); ++number)
      Sleep(kConnectPause);
  });
  if (operation.succeeded()) return connection;
  if (connection) CS_Connection::destroy(connection, true);
  return nullptr;
}

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
    const CS_RCPtr<CS_Connection> connection = owner->getConnection();
    if (!connection) operation.fail(corvane::kLevelFailure, L"failed to get connection");
    ended = CS_Connection::destroy(connection, true);
  });
  return ended;
}

namespace {

char presentMark;

// Holds the port monitor lock over a scope. There is none before the module is initialised and during its end, when no
// other thread is left.
class PortMonitorLockHold {
 public:
  explicit PortMonitorLockHold(LPCRITICAL_SECTION lock) : m_lock(lock) {
    if (m_lock != nullptr) EnterCriticalSection(m_lock);
  }
  ~PortMonitorLockHold() {
    if (m_lock != nullptr) LeaveCriticalSection(m_lock);
  }
  PortMonitorLockHold(const PortMonitorLockHold&) = delete;
  PortMonitorLockHold& operator=(const PortMonitorLockHold&) = delete;

 private:
  LPCRITICAL_SECTION m_lock;
};

// Nobody reads an idle connection, so that an application server which has ended, or was started again, is noticed
// here: release() then empties the holder. The connection is checked through a reference of its own.
void seeEndOfConnection(const CS_RCPtr<CS_Component>& instance) {
  if (!instance) return;
  const CS_RCPtr<CS_Connection> connection = instance->getConnection();
  if (connection) connection->lookForNews();
}

}  // namespace

void* const PortMonitorServer::kPresent = &presentMark;
LPCRITICAL_SECTION PortMonitorServer::s_lock = nullptr;
CS_RCPtr<PortMonitorServer> PortMonitorServer::s_instance;

PortMonitorServer::~PortMonitorServer() = default;

bool PortMonitorServer::initialize(LPCRITICAL_SECTION& lock) {
  try {
    lock = new CRITICAL_SECTION{};
    InitializeCriticalSection(lock);
  } catch (...) {
    // No memory: whether there is a lock from an earlier call decides.
  }
  return lock != nullptr;
}

CS_RCPtr<PortMonitorServer> PortMonitorServer::getInstance() {
  CS_TraceEntry trace(L"PortMonitorServer::getInstance()");
  CS_RCPtr<PortMonitorServer> instance;
  {
    const PortMonitorLockHold hold(s_lock);
    seeEndOfConnection(s_instance);
    if (!s_instance) InitComponent();
    instance = s_instance;
  }
  if (!instance) {
    throw CS_Exception(CS_ProgramMonitor::getDefaultMonitor()->recordText(
        corvane::kLevelFailure, corvane::kCategory,
        L"PortMonitorServer::getInstance - failed to initalize the component"));
  }
  return instance;
}

bool PortMonitorServer::release() {
  CS_TraceEntry trace(L"PortMonitorServer::release()");
  const PortMonitorLockHold hold(s_lock);
  if (s_instance.get() == this) s_instance = nullptr;
  return true;
}
