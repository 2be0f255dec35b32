#include "tests/sweeps/private_registry.h"

#include <gtest/gtest.h>
#include <string>

namespace {

std::wstring privateKey() {
  return L"SOFTWARE\\MgSweeps-" + std::to_wstring(GetCurrentProcessId());
}

}  // namespace

PrivateRegistry::PrivateRegistry() {
  HKEY key = nullptr;
  EXPECT_EQ(RegCreateKeyExW(HKEY_CURRENT_USER, privateKey().c_str(), 0, nullptr, REG_OPTION_NON_VOLATILE,
                            KEY_ALL_ACCESS, nullptr, &key, nullptr),
            ERROR_SUCCESS);
  EXPECT_EQ(RegOverridePredefKey(HKEY_LOCAL_MACHINE, key), ERROR_SUCCESS);
  RegCloseKey(key);
}

PrivateRegistry::~PrivateRegistry() {
  RegOverridePredefKey(HKEY_LOCAL_MACHINE, nullptr);
  RegDeleteTreeW(HKEY_CURRENT_USER, privateKey().c_str());
}
