#include "corvane/components/class.h"

#include "corvane/base/limits.h"
#include "corvane/components/channel.h"
#include "corvane/records/exception.h"
#include "corvane/records/messages.h"
#include "corvane/wire/value_reader.h"
#include "corvane/wire/value_writer.h"

#include <algorithm>
#include <new>

int CS_Class::getSchema(int peerSchema) const {
  return std::min(currentSchema(), peerSchema);
}

std::optional<CS_Version> CS_ClassVersionMap::find(const std::wstring& className) const {
  const auto found = m_versions.find(className);
  if (found == m_versions.end()) return std::nullopt;
  return found->second;
}

void CS_ClassVersionMap::write(corvane::ValueWriter& to) const {
  to.writeInt(static_cast<int>(m_versions.size()));
  for (const auto& [name, version] : m_versions) {
    to.writeText(name.c_str());
    to.writeInt(version.major);
    to.writeInt(version.minor);
    to.writeInt(version.revision);
    to.writeInt(version.build);
  }
}

void CS_ClassVersionMap::read(corvane::ValueReader& from) {
  const int count = from.readInt();
  if (count < 0 || count > kMaxClasses) throw CS_Exception(corvane::kLimitExceeded, L"a map of %d classes", count);
  std::map<std::wstring, CS_Version> versions;
  for (int i = 0; i < count; ++i) {
    std::wstring name = from.readText();
    if (name.size() > corvane::kMaxClassNameUnits) {
      throw CS_Exception(corvane::kLimitExceeded, L"a class name of %d characters", static_cast<int>(name.size()));
    }
    CS_Version version;
    version.major = static_cast<short>(from.readInt());
    version.minor = static_cast<short>(from.readInt());
    version.revision = static_cast<short>(from.readInt());
    version.build = static_cast<short>(from.readInt());
    versions[std::move(name)] = version;
  }
  m_versions = std::move(versions);
}

void CS_ClassVersionMap::operator>>(CS_Channel& channel) const {
  write(channel.writer());
}

void CS_ClassVersionMap::operator<<(CS_Channel& channel) {
  read(channel.reader());
}

namespace corvane {

// Never destroyed: components may still be destroyed by their classes while the process ends.
ClassRegistry& ClassRegistry::instance() {
  alignas(ClassRegistry) static unsigned char storage[sizeof(ClassRegistry)];
  static auto* const instance = new (storage) ClassRegistry;
  return *instance;
}

bool ClassRegistry::add(const wchar_t* name, CS_Class* componentClass) {
  std::unique_ptr<CS_Class> taken(componentClass);
  if (name == nullptr || taken == nullptr) return false;
  const std::lock_guard guard(m_lock);
  m_owned.push_front(std::move(taken));
  m_classes[name] = componentClass;
  return true;
}

bool ClassRegistry::offer(const wchar_t* name) {
  const std::lock_guard guard(m_lock);
  if (name == nullptr || !m_classes.contains(name)) return false;
  m_offered.insert(name);
  return true;
}

CS_Class* ClassRegistry::find(const wchar_t* name) {
  if (name == nullptr) return nullptr;
  const std::lock_guard guard(m_lock);
  const auto found = m_classes.find(name);
  return found == m_classes.end() ? nullptr : found->second;
}

CS_Class* ClassRegistry::findOffered(const wchar_t* name) {
  {
    const std::lock_guard guard(m_lock);
    if (name == nullptr || !m_offered.contains(name)) return nullptr;
  }
  return find(name);
}

void ClassRegistry::copyVersions(CS_ClassVersionMap& map) {
  const std::lock_guard guard(m_lock);
  for (const auto& [name, componentClass] : m_classes)
    map.set(name, componentClass->version());
}

}  // namespace corvane
