#include "ports/registry_store.h"

#include <cwchar>

namespace ports {

LSTATUS createPortsKey(REGSAM access, mg::RegistryKey& key) {
  return RegCreateKeyExW(HKEY_LOCAL_MACHINE, kPortsKey, 0, nullptr, REG_OPTION_NON_VOLATILE, access, nullptr,
                         key.receive(), nullptr);
}

LSTATUS openPortsKey(mg::RegistryKey& key) {
  return RegOpenKeyExW(HKEY_LOCAL_MACHINE, kPortsKey, 0, KEY_ALL_ACCESS, key.receive());
}

DWORD countPortValues(const mg::RegistryKey& key) {
  DWORD count = 0;
  RegQueryInfoKeyA(key.get(), nullptr, nullptr, nullptr, nullptr, nullptr, nullptr, &count, nullptr, nullptr, nullptr,
                   nullptr);
  return count;
}

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

}  // namespace ports
