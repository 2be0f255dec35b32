#include "session/port_monitor_server.h"

#include "corvane/exception.h"
#include "corvane/levels.h"
#include "corvane/trace_entry.h"

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
// here: release() then empties the holder. The connection is looked at through a reference of its own.
void seeEndOfConnection(const CS_RCPtr<CS_Component>& instance) {
  if (!instance) return;
  const CS_RCPtr<CS_Component> root = instance->getRootOwner();
  if (auto* connection = dynamic_cast<CS_Connection*>(root.get())) connection->lookForNews();
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
