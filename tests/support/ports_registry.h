#pragma once

#include <windows.h>

#include <map>
#include <string>
#include <vector>

// The registry key of the port list as a test sees it: without values at the start, and gone at the end. Tests that
// use it must not run beside each other in one Wine prefix; their ctest entries share the lock "ports_registry".
class PortsRegistry {
 public:
  struct Value {
    DWORD type;
    std::vector<BYTE> data;
  };

  static constexpr wchar_t kKey[] = L"SOFTWARE\\Quillfern\\Marrowgate\\Printers\\Ports";

  PortsRegistry() { remove(); }
  ~PortsRegistry() { remove(); }
  PortsRegistry(const PortsRegistry&) = delete;
  PortsRegistry& operator=(const PortsRegistry&) = delete;

  static void remove() { RegDeleteTreeW(HKEY_LOCAL_MACHINE, kKey); }

  static bool exists() {
    HKEY key = nullptr;
    if (RegOpenKeyExW(HKEY_LOCAL_MACHINE, kKey, 0, KEY_READ, &key) != ERROR_SUCCESS) return false;
    RegCloseKey(key);
    return true;
  }

  static void set(const wchar_t* name, DWORD type = REG_SZ, const std::wstring& data = L"") {
    HKEY key = nullptr;
    RegCreateKeyExW(HKEY_LOCAL_MACHINE, kKey, 0, nullptr, 0, KEY_ALL_ACCESS, nullptr, &key, nullptr);
    RegSetValueExW(key, name, 0, type, reinterpret_cast<const BYTE*>(data.c_str()),
                   static_cast<DWORD>((data.size() + 1) * sizeof(wchar_t)));
    RegCloseKey(key);
  }

  static void addSubkey(const wchar_t* name) {
    HKEY key = nullptr;
    RegCreateKeyExW(HKEY_LOCAL_MACHINE, (std::wstring(kKey) + L"\\" + name).c_str(), 0, nullptr, 0, KEY_ALL_ACCESS,
                    nullptr, &key, nullptr);
    RegCloseKey(key);
  }

  static std::map<std::wstring, Value> values() {
    std::map<std::wstring, Value> found;
    HKEY key = nullptr;
    if (RegOpenKeyExW(HKEY_LOCAL_MACHINE, kKey, 0, KEY_READ, &key) != ERROR_SUCCESS) return found;
    std::vector<wchar_t> name(16384);
    std::vector<BYTE> data(65536);
    for (DWORD index = 0;; ++index) {
      auto nameSize = static_cast<DWORD>(name.size());
      auto dataSize = static_cast<DWORD>(data.size());
      DWORD type = 0;
      if (RegEnumValueW(key, index, name.data(), &nameSize, nullptr, &type, data.data(), &dataSize) != ERROR_SUCCESS) {
        break;
      }
      found[name.data()] = Value{type, std::vector<BYTE>(data.begin(), data.begin() + dataSize)};
    }
    RegCloseKey(key);
    return found;
  }
};
