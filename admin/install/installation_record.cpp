#include "admin/install/installation_record.h"

#include "admin/base/registry_value.h"

#include <algorithm>
#include <cwchar>
#include <stdexcept>

namespace admin {

InstallationRecord::InstallationRecord(std::wstring key) : m_key(std::move(key)) {
  for (const wchar_t* kind : {kKeys, kValues, kFolders, kFiles, kMonitors, kDrivers, kServices}) {
    const auto value = readValue(m_key, kind);
    m_lists.push_back({kind, value ? value->texts() : std::vector<std::wstring>()});
  }
}

bool InstallationRecord::exists() const {
  return std::any_of(m_lists.begin(), m_lists.end(), [](const List& list) { return !list.entries.empty(); });
}

InstallationRecord::List& InstallationRecord::list(const wchar_t* kind) {
  for (List& list : m_lists) {
    if (std::wcscmp(list.kind, kind) == 0) return list;
  }
  throw std::logic_error("no such kind of entry");
}

const std::vector<std::wstring>& InstallationRecord::entries(const wchar_t* kind) const {
  return const_cast<InstallationRecord*>(this)->list(kind).entries;
}

bool InstallationRecord::holds(const wchar_t* kind, const std::wstring& entry) const {
  const auto& all = entries(kind);
  return std::find(all.begin(), all.end(), entry) != all.end();
}

void InstallationRecord::add(const wchar_t* kind, const std::wstring& entry) {
  if (holds(kind, entry)) return;
  List& changed = list(kind);
  changed.entries.push_back(entry);
  try {
    if (keyExists(m_key)) writeList(changed);
  } catch (...) {
    changed.entries.pop_back();
    throw;
  }
}

void InstallationRecord::remove(const wchar_t* kind, const std::wstring& entry) {
  List& changed = list(kind);
  std::erase(changed.entries, entry);
  if (keyExists(m_key)) writeList(changed);
}

void InstallationRecord::write() const {
  for (const List& list : m_lists)
    writeList(list);
}

void InstallationRecord::writeList(const List& list) const {
  if (list.entries.empty()) {
    deleteValue(m_key, list.kind);
  } else {
    writeValue(m_key, list.kind, RegistryValue::ofTexts(list.entries));
  }
}

void removeKeysWithoutRecord(const Places& places) {
  for (const std::wstring& key : {places.recordKey(), places.productKey(), places.vendorKey}) {
    if (keyExists(key) && isKeyEmpty(key)) deleteKey(key);
  }
}

}  // namespace admin
