#include "corvane/components/component_server.h"

#include "corvane/components/bridge.h"
#include "corvane/components/bridge_router.h"
#include "corvane/components/component_class.h"
#include "corvane/components/program_monitor_c.h"
#include "corvane/net/socket.h"
#include "corvane/records/host_properties.h"
#include "corvane/records/local_monitor.h"

#include <forward_list>
#include <map>
#include <memory>
#include <mutex>
#include <new>
#include <set>
#include <string>

namespace {

// Never destroyed: components may still be destroyed by their classes while the process ends.
struct Registry {
  std::mutex lock;  // guards what follows
  std::map<std::wstring, CS_Class*> classes;
  std::set<std::wstring> offered;
  // Taking a class over takes the same memory however many there are.
  std::forward_list<std::unique_ptr<CS_Class>> owned;
};

Registry& registry() {
  alignas(Registry) static unsigned char storage[sizeof(Registry)];
  static auto* const instance = new (storage) Registry;
  return *instance;
}

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
  std::unique_ptr<CS_Class> taken(componentClass);
  if (name == nullptr || taken == nullptr) return false;
  const std::lock_guard guard(registry().lock);
  registry().owned.push_front(std::move(taken));
  registry().classes[name] = componentClass;
  return true;
}

bool CS_ComponentServer::offerClass(const wchar_t* name) {
  const std::lock_guard guard(registry().lock);
  if (name == nullptr || !registry().classes.contains(name)) return false;
  registry().offered.insert(name);
  return true;
}

CS_Class* CS_ComponentServer::findClass(const wchar_t* name) {
  if (name == nullptr) return nullptr;
  const std::lock_guard guard(registry().lock);
  const auto found = registry().classes.find(name);
  return found == registry().classes.end() ? nullptr : found->second;
}

CS_Class* CS_ComponentServer::findOfferedClass(const wchar_t* name) {
  {
    const std::lock_guard guard(registry().lock);
    if (name == nullptr || !registry().offered.contains(name)) return nullptr;
  }
  return findClass(name);
}

void CS_ComponentServer::copyRegisteredClassVersionMap(CS_ClassVersionMap& map) {
  const std::lock_guard guard(registry().lock);
  for (const auto& [name, componentClass] : registry().classes)
    map.set(name, componentClass->version());
}
