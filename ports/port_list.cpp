#include "ports/port_list.h"

#include "corvane/message_numbers.h"
#include "corvane/operation.h"
#include "ports/registry_store.h"
#include "util/synchronized.h"

#include <cstdlib>
#include <cwchar>
#include <new>

namespace {

const wchar_t* orEmpty(const wchar_t* text) {
  return text == nullptr ? L"" : text;
}

}  // namespace

CPortList::CPortList(const wchar_t* monitorName, const wchar_t* description) {
  CS_TraceEntry trace(L"CPortList::CPortList()");
  Operation operation(L"Stack Trace: CPortList::CPortList()");
  operation.run([&] {
    m_description = _wcsdup(description);
    m_monitorName = _wcsdup(monitorName);
    m_ports.setBucketCount(20);
    if (m_description == nullptr || m_monitorName == nullptr) throw CS_Exception(corvane::kAllocationFailed, nullptr);
  });
}

CPortList::~CPortList() {
  CS_TraceEntry trace(L"CPortList::~CPortList()");
  const Synchronized guard(m_lock);
  std::free(m_description);
  std::free(m_monitorName);
  m_ports.clear();
}

void CPortList::Load() {
  CS_TraceEntry trace(L"CPortList::Load()");
  Operation operation(L"Stack Trace: CPortList::Load()");
  mg::RegistryKey key;
  operation.run([&] {
    const Synchronized guard(m_lock);
    const LSTATUS error = ports::createPortsKey(KEY_QUERY_VALUE, key);
    if (error != ERROR_SUCCESS) {
      operation.fail(corvane::kLevelFailure, L"Failed to create the printer port registry key. error: %d.", error);
    }
    const DWORD count = ports::countPortValues(key);
    for (DWORD index = 0; index < count; ++index) {
      wchar_t name[kPortNameSize];
      if (ports::readPortName(key, index, name) == ERROR_SUCCESS) AddPort(name, 0);
    }
  });
}

DWORD CPortList::AddNewPort(const wchar_t* name) {
  CS_TraceEntry trace(L"CPortList::AddNewPort()");
  Operation operation(L"Stack Trace: CPortList::AddNewPort()");
  name = orEmpty(name);
  DWORD result = 0;
  mg::RegistryKey key;
  operation.runAndPassOn([&] {
    const Synchronized guard(m_lock);
    result = AddPort(name, 0);
    if (result != 1) return;
    const LSTATUS error = ports::createPortsKey(KEY_READ | KEY_SET_VALUE, key);
    if (error != ERROR_SUCCESS) {
      operation.fail(corvane::kLevelFailure, L"Failed to create the printer port registry key: %s error: %d.", name,
                     error);
    }
    if (ports::writePortValue(key, name) != ERROR_SUCCESS) {
      operation.fail(corvane::kLevelFailure, L"Failed to create a new port: %s.", name);
    }
  });
  return result;
}

DWORD CPortList::AddPort(const wchar_t* name, DWORD /*unused*/) {
  CS_TraceEntry trace(L"CPortList::AddPort()");
  Operation operation(L"Stack Trace: CPortList::AddPort()");
  name = orEmpty(name);
  operation.run([&] {
    std::unique_ptr<tagPort> port(new (std::nothrow) tagPort());
    std::unique_ptr<CriticalSection> lock(new (std::nothrow) CriticalSection());
    if (port == nullptr || lock == nullptr) {
      operation.fail(corvane::kLevelFailure, L"Failed to create a new port: %s.", name);
    }
    // The rest of the field is zero already, so a name that is cut is still terminated.
    std::wcsncpy(port->portName, name, kPortNameSize - 1);
    port->lock = lock.get();
    if (!m_ports.insert(UTL_String(name), port.get())) {
      operation.fail(corvane::kLevelFailure, L"Failed to create a new port: %s.", name);
    }
    port.release();
    lock.release();
  });
  return operation.succeeded() ? 1 : 0;
}

tagPort* CPortList::FindPort(const wchar_t* name) {
  CS_TraceEntry trace(L"CPortList::FindPort()");
  Operation operation(L"Stack Trace: CPortList::FindPort()");
  tagPort* port = nullptr;
  operation.run([&] {
    const Synchronized guard(m_lock);
    if (m_ports.find(UTL_String(name), &port) && port != nullptr) port->lock->lock();
  });
  return port;
}

DWORD CPortList::DeletePort(const wchar_t* name) {
  CS_TraceEntry trace(L"CPortList::DeletePort()");
  Operation operation(L"Stack Trace: CPortList::DeletePort()");
  name = orEmpty(name);
  DWORD result = 0;
  operation.run([&] {
    std::unique_ptr<CriticalSection> portLock;
    mg::RegistryKey key;
    {
      const Synchronized guard(m_lock);
      try {
        portLock = takeOutLocked(name, result, operation);
      } catch (...) {
        // The registry forgets the port even when the list could not be asked.
        operation.recordCurrentException();
      }
      if (ports::openPortsKey(key) != ERROR_SUCCESS) {
        operation.note(corvane::kLevelFailure, L"Failed to find the printer ports registry key.");
      } else if (ports::deletePortValue(key, name) != ERROR_SUCCESS) {
        operation.note(corvane::kLevelFailure, L"Failed to delete the printer port registry value: %s.", name);
      }
    }
    key.reset();
    if (portLock != nullptr) portLock->unlock();
  });
  return result;
}

std::unique_ptr<CriticalSection> CPortList::takeOutLocked(const wchar_t* name, DWORD& found, Operation& operation) {
  tagPort* port = nullptr;
  found = m_ports.remove(UTL_String(name), &port) ? 1 : 0;
  if (found == 0) {
    operation.note(corvane::kLevelFailure, L"Failed to remove the printer port %s", name);
    return nullptr;
  }
  if (port == nullptr) return nullptr;
  std::unique_ptr<CriticalSection> lock(port->lock);
  lock->lock();
  port->printServer = CS_RCPtr<CS_Component>();
  delete port->cachedPrinters;
  delete port;
  return lock;
}
