#pragma once

#include <windows.h>

#include <optional>
#include <string>
#include <vector>

namespace admin {

// One value below HKEY_LOCAL_MACHINE, with its type. All operations on the registry that fail throw a SystemFailure
// that names key and value.
struct RegistryValue {
  DWORD type = REG_NONE;
  std::vector<BYTE> data;

  bool operator==(const RegistryValue&) const = default;
  static RegistryValue ofText(const std::wstring& text);
  static RegistryValue ofNumber(DWORD number);
  static RegistryValue ofTexts(const std::vector<std::wstring>& texts);
  // What it holds; nothing when it is of another type.
  std::optional<std::wstring> text() const;
  std::optional<DWORD> number() const;
  std::vector<std::wstring> texts() const;
};

// Nothing when key or value is not there.
std::optional<RegistryValue> readValue(const std::wstring& key, const std::wstring& name);
// The key must exist.
void writeValue(const std::wstring& key, const std::wstring& name, const RegistryValue& value);
// Fine when it is not there.
void deleteValue(const std::wstring& key, const std::wstring& name);

bool keyExists(const std::wstring& key);
// Makes one key below one that exists; keys above it that are missing are made as well.
void createKey(const std::wstring& key);
// Deletes a key with its values; fine when it is not there, a failure when keys stand below it.
void deleteKey(const std::wstring& key);
// The same with everything below it.
void deleteKeyTree(const std::wstring& key);
// No value and no key in it.
bool isKeyEmpty(const std::wstring& key);
// Names of the keys right below; empty when the key is not there.
std::vector<std::wstring> subkeys(const std::wstring& key);

}  // namespace admin
