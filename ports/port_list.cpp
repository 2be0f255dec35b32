#include "ports/port_list.h"

#include "corvane/base/process.h"
#include "corvane/records/exception.h"
#include "corvane/records/messages.h"
#include "corvane/records/operation.h"
#include "util/mutex.h"
#include "util/win_handle.h"

#include <atomic>
#include <cstdlib>
#include <cwchar>
#include <memory>

namespace {

// Where the list outlives the process: one REG_SZ value per port, named after the port and holding its name again, in
// one key. Only the names of the values are ever read back. The functions pass on the result codes of the registry.
constexpr wchar_t kPortsKey[] = L"SOFTWARE\\Quillfern\\Marrowgate\\Printers\\Ports";

// Opens the key, creating it when it is missing.
LSTATUS createPortsKey(REGSAM access, mg::RegistryKey& key) {
  return RegCreateKeyExW(HKEY_LOCAL_MACHINE, kPortsKey, 0, nullptr, REG_OPTION_NON_VOLATILE, access, nullptr,
                         key.receive(), nullptr);
}

// Opens the key as it is, with every right that deleting a value may need.
LSTATUS openPortsKey(mg::RegistryKey& key) {
  return RegOpenKeyExW(HKEY_LOCAL_MACHINE, kPortsKey, 0, KEY_ALL_ACCESS, key.receive());
}

// The number of values, 0 when that cannot be found out.
DWORD countPortValues(const mg::RegistryKey& key) {
  DWORD count = 0;
  RegQueryInfoKeyA(key.get(), nullptr, nullptr, nullptr, nullptr, nullptr, nullptr, &count, nullptr, nullptr, nullptr,
                   nullptr);
  return count;
}

// The name of the value at index. A name that does not fit counts as a failure.
LSTATUS readPortName(const mg::RegistryKey& key, DWORD index, wchar_t (&name)[kPortNameSize]) {
  DWORD capacity = kPortNameSize;
  return RegEnumValueW(key.get(), index, name, &capacity, nullptr, nullptr, nullptr, nullptr);
}

LSTATUS writePortValue(const mg::RegistryKey& key, const wchar_t* name) {
  const auto bytes = static_cast<DWORD>((std::wcslen(name) + 1) * sizeof(wchar_t));
  return RegSetValueExW(key.get(), name, 0, REG_SZ, reinterpret_cast<const BYTE*>(name), bytes);
}

LSTATUS deletePortValue(const mg::RegistryKey& key, const wchar_t* name) {
  return RegDeleteValueW(key.get(), name);
}

const wchar_t* orEmpty(const wchar_t* text) {
  return text == nullptr ? L"" : text;
}

// Ends a record that did not make it into the list.
struct Remove {
  void operator()(tagPort* port) const noexcept { PortRecords::instance().remove(*port); }
};

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
    const corvane::ProcessIdentity identity;
    const Synchronized guard(m_lock);
    const LSTATUS error = createPortsKey(KEY_QUERY_VALUE, key);
    if (error != ERROR_SUCCESS) {
      operation.fail(corvane::kLevelFailure, L"Failed to create the printer port registry key. error: %d.", error);
    }
    const DWORD count = countPortValues(key);
    for (DWORD index = 0; index < count; ++index) {
      wchar_t name[kPortNameSize];
      if (readPortName(key, index, name) == ERROR_SUCCESS) AddPort(name, 0);
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
    const LSTATUS error = createPortsKey(KEY_READ | KEY_SET_VALUE, key);
    if (error != ERROR_SUCCESS) {
      operation.fail(corvane::kLevelFailure, L"Failed to create the printer port registry key: %s error: %d.", name,
                     error);
    }
    if (writePortValue(key, name) != ERROR_SUCCESS) {
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
    std::unique_ptr<tagPort, Remove> port(PortRecords::instance().make());
    if (port == nullptr) operation.fail(corvane::kLevelFailure, L"Failed to create a new port: %s.", name);
    // The rest of the field is zero already, so a name that is cut is still terminated.
    std::wcsncpy(port->portName, name, kPortNameSize - 1);
    if (!m_ports.insert(UTL_String(name), port.get())) {
      operation.fail(corvane::kLevelFailure, L"Failed to create a new port: %s.", name);
    }
    static_cast<void>(port.release());  // the list has it
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

DWORD CPortList::DeletePort(const wchar_t* name, PortRecords::JobEnd jobEnd) {
  CS_TraceEntry trace(L"CPortList::DeletePort()");
  Operation operation(L"Stack Trace: CPortList::DeletePort()");
  name = orEmpty(name);
  DWORD result = 0;
  operation.run([&] {
    tagPort* port = nullptr;
    mg::RegistryKey key;
    {
      const Synchronized guard(m_lock);
      try {
        port = takeOutLocked(name, result, operation);
      } catch (...) {
        // The registry forgets the port even when the list could not be asked.
        operation.recordCurrentException();
      }
      if (openPortsKey(key) != ERROR_SUCCESS) {
        operation.note(corvane::kLevelFailure, L"Failed to find the printer ports registry key.");
      } else if (deletePortValue(key, name) != ERROR_SUCCESS) {
        operation.note(corvane::kLevelFailure, L"Failed to delete the printer port registry value: %s.", name);
      }
    }
    key.reset();
    if (port != nullptr) endPort(*port, jobEnd);
  });
  return result;
}

tagPort* CPortList::takeOutLocked(const wchar_t* name, DWORD& found, Operation& operation) {
  tagPort* port = nullptr;
  found = m_ports.remove(UTL_String(name), &port) ? 1 : 0;
  if (found == 0) operation.note(corvane::kLevelFailure, L"Failed to remove the printer port %s", name);
  if (port == nullptr) return nullptr;
  port->lock->lock();
  delete port->cachedPrinters;
  port->cachedPrinters = nullptr;
  return port;
}

void CPortList::endPort(tagPort& port, PortRecords::JobEnd jobEnd) {
  port.lock->unlock();
  // From here on the record is the last call's that still works on it, if there is one.
  const PortRecords::Removed removed = PortRecords::instance().remove(port);
  if (removed.record != nullptr && jobEnd != nullptr) jobEnd(port);
  CS_Connection::destroy(removed.connection, true);
}

namespace {

std::atomic<CPortList*> theList{nullptr};

}  // namespace

CPortList* CPortList::instance() noexcept {
  return theList.load();
}

void CPortList::setInstance(CPortList* list) noexcept {
  theList.store(list);
}

namespace mg {

CPortList& portList() {
  CPortList* list = CPortList::instance();
  if (list == nullptr) throw CS_Exception(corvane::kMissingObject, nullptr);
  return *list;
}

HeldPort::HeldPort(CPortList& list, const wchar_t* name) : m_port(list.FindPort(name)) {}

HeldPort::~HeldPort() {
  if (m_port != nullptr && CPortList::instance() != nullptr) m_port->lock->unlock();
}

SessionPortName::SessionPortName(unsigned int sessionId) {
  // Session numbers are written as signed ones.
  std::swprintf(text, std::size(text), L"CPP%d", static_cast<int>(sessionId));
}

}  // namespace mg
