#pragma once

#include <windows.h>

#include <optional>
#include <string>
#include <vector>

namespace admin {

// One value below HKEY_LOCAL_MACHINE, with its type. Every registry operation that fails throws a SystemFailure that
// names key and value.
struct RegistryValue {
  DWORD type = REG_NONE;
  std::vector<BYTE> data;

  bool operator==(const RegistryValue&) const = default;
  static RegistryValue ofText(const std::wstring& text);
  static RegistryValue ofNumber(DWORD number);
  static RegistryValue ofTexts(const std::vector<std::wstring>& texts);
  // The value; empty when it has another type.
  std::optional<std::wstring> text() const;
  std::optional<DWORD> number() const;
  std::vector<std::wstring> texts() const;
};

// Empty when the key or the value does not exist.
std::optional<RegistryValue> readValue(const std::wstring& key, const std::wstring& name);
// The key must exist.
void writeValue(const std::wstring& key, const std::wstring& name, const RegistryValue& value);
// Succeeds when it does not exist.
void deleteValue(const std::wstring& key, const std::wstring& name);

bool keyExists(const std::wstring& key);
// Creates a key and all its missing parents.
void createKey(const std::wstring& key);
// Deletes a key with its values; succeeds when it does not exist and fails when it has subkeys.
void deleteKey(const std::wstring& key);
// The same, with all subkeys.
void deleteKeyTree(const std::wstring& key);
// It has no values and no subkeys.
bool isKeyEmpty(const std::wstring& key);
// The names of the values, in alphabetical order; empty when the key does not exist. A value without a name is left
// out.
std::vector<std::wstring> valueNames(const std::wstring& key);
// The names of the direct subkeys; empty when the key does not exist.
std::vector<std::wstring> subkeys(const std::wstring& key);

}  // namespace admin
