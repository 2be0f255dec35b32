#include "admin/base/registry_value.h"

#include "admin/base/failure.h"
#include "corvane/base/text.h"
#include "util/win_handle.h"

#include <algorithm>
#include <cstring>
#include <fmt/format.h>

namespace admin {
namespace {

constexpr DWORD kMaxKeyName = 256;
constexpr DWORD kMaxValueName = 16384;

std::string quoted(const std::wstring& key) {
  return fmt::format("\"HKEY_LOCAL_MACHINE\\{}\"", corvane::toUtf8(key));
}

std::string quoted(const std::wstring& key, const std::wstring& name) {
  return fmt::format("the registry value \"{}\" of {}", corvane::toUtf8(name), quoted(key));
}

bool isMissing(LSTATUS status) {
  return status == ERROR_FILE_NOT_FOUND || status == ERROR_PATH_NOT_FOUND;
}

}  // namespace

RegistryValue RegistryValue::ofText(const std::wstring& text) {
  const auto* const bytes = reinterpret_cast<const BYTE*>(text.c_str());
  return {REG_SZ, {bytes, bytes + (text.size() + 1) * sizeof(wchar_t)}};
}

RegistryValue RegistryValue::ofNumber(DWORD number) {
  const auto* const bytes = reinterpret_cast<const BYTE*>(&number);
  return {REG_DWORD, {bytes, bytes + sizeof number}};
}

RegistryValue RegistryValue::ofTexts(const std::vector<std::wstring>& texts) {
  std::wstring all;
  for (const std::wstring& text : texts)
    all += text + L'\0';
  RegistryValue value = ofText(all);
  value.type = REG_MULTI_SZ;
  return value;
}

std::optional<std::wstring> RegistryValue::text() const {
  if (type != REG_SZ) return std::nullopt;
  std::wstring text(data.size() / sizeof(wchar_t), L'\0');
  std::memcpy(text.data(), data.data(), text.size() * sizeof(wchar_t));
  return text.substr(0, text.find(L'\0'));
}

std::optional<DWORD> RegistryValue::number() const {
  if (type != REG_DWORD || data.size() != sizeof(DWORD)) return std::nullopt;
  DWORD number = 0;
  std::memcpy(&number, data.data(), sizeof number);
  return number;
}

std::vector<std::wstring> RegistryValue::texts() const {
  std::vector<std::wstring> texts;
  if (type != REG_MULTI_SZ) return texts;
  std::wstring all(data.size() / sizeof(wchar_t), L'\0');
  std::memcpy(all.data(), data.data(), all.size() * sizeof(wchar_t));
  for (std::size_t at = 0; at < all.size() && all[at] != L'\0';) {
    const std::size_t end = std::min(all.find(L'\0', at), all.size());
    texts.push_back(all.substr(at, end - at));
    at = end + 1;
  }
  return texts;
}

std::optional<RegistryValue> readValue(const std::wstring& key, const std::wstring& name) {
  mg::RegistryKey opened;
  LSTATUS status = RegOpenKeyExW(HKEY_LOCAL_MACHINE, key.c_str(), 0, KEY_QUERY_VALUE, opened.receive());
  if (isMissing(status)) return std::nullopt;
  requireStatus(status, fmt::format("{} cannot be opened", quoted(key)));
  RegistryValue value;
  DWORD size = 0;
  do {
    value.data.resize(size);
    status = RegQueryValueExW(opened.get(), name.c_str(), nullptr, &value.type,
                              value.data.empty() ? nullptr : value.data.data(), &size);
  } while (status == ERROR_MORE_DATA || (status == ERROR_SUCCESS && size > value.data.size()));
  if (isMissing(status)) return std::nullopt;
  requireStatus(status, fmt::format("{} cannot be read", quoted(key, name)));
  value.data.resize(size);
  return value;
}

void writeValue(const std::wstring& key, const std::wstring& name, const RegistryValue& value) {
  mg::RegistryKey opened;
  const std::string tried = fmt::format("{} cannot be written", quoted(key, name));
  requireStatus(RegOpenKeyExW(HKEY_LOCAL_MACHINE, key.c_str(), 0, KEY_SET_VALUE, opened.receive()), tried);
  requireStatus(RegSetValueExW(opened.get(), name.c_str(), 0, value.type, value.data.data(),
                               static_cast<DWORD>(value.data.size())),
                tried);
}

void deleteValue(const std::wstring& key, const std::wstring& name) {
  mg::RegistryKey opened;
  const std::string tried = fmt::format("{} cannot be deleted", quoted(key, name));
  LSTATUS status = RegOpenKeyExW(HKEY_LOCAL_MACHINE, key.c_str(), 0, KEY_SET_VALUE, opened.receive());
  if (isMissing(status)) return;
  requireStatus(status, tried);
  status = RegDeleteValueW(opened.get(), name.c_str());
  if (!isMissing(status)) requireStatus(status, tried);
}

bool keyExists(const std::wstring& key) {
  mg::RegistryKey opened;
  const LSTATUS status = RegOpenKeyExW(HKEY_LOCAL_MACHINE, key.c_str(), 0, KEY_QUERY_VALUE, opened.receive());
  if (isMissing(status)) return false;
  requireStatus(status, fmt::format("{} cannot be opened", quoted(key)));
  return true;
}

void createKey(const std::wstring& key) {
  mg::RegistryKey created;
  requireStatus(
      RegCreateKeyExW(HKEY_LOCAL_MACHINE, key.c_str(), 0, nullptr, 0, KEY_READ, nullptr, created.receive(), nullptr),
      fmt::format("{} cannot be made", quoted(key)));
}

void deleteKey(const std::wstring& key) {
  const LSTATUS status = RegDeleteKeyW(HKEY_LOCAL_MACHINE, key.c_str());
  if (!isMissing(status)) requireStatus(status, fmt::format("{} cannot be deleted", quoted(key)));
}

void deleteKeyTree(const std::wstring& key) {
  const LSTATUS status = RegDeleteTreeW(HKEY_LOCAL_MACHINE, key.c_str());
  if (!isMissing(status)) requireStatus(status, fmt::format("{} cannot be deleted", quoted(key)));
}

bool isKeyEmpty(const std::wstring& key) {
  mg::RegistryKey opened;
  const std::string tried = fmt::format("{} cannot be read", quoted(key));
  requireStatus(RegOpenKeyExW(HKEY_LOCAL_MACHINE, key.c_str(), 0, KEY_READ, opened.receive()), tried);
  DWORD keys = 0;
  DWORD values = 0;
  requireStatus(RegQueryInfoKeyW(opened.get(), nullptr, nullptr, nullptr, &keys, nullptr, nullptr, &values, nullptr,
                                 nullptr, nullptr, nullptr),
                tried);
  return keys == 0 && values == 0;
}

std::vector<std::wstring> valueNames(const std::wstring& key) {
  std::vector<std::wstring> names;
  mg::RegistryKey opened;
  LSTATUS status = RegOpenKeyExW(HKEY_LOCAL_MACHINE, key.c_str(), 0, KEY_READ, opened.receive());
  if (isMissing(status)) return names;
  requireStatus(status, fmt::format("{} cannot be read", quoted(key)));
  std::wstring room(kMaxValueName, L'\0');
  for (DWORD index = 0;; ++index) {
    DWORD length = kMaxValueName;
    status = RegEnumValueW(opened.get(), index, room.data(), &length, nullptr, nullptr, nullptr, nullptr);
    if (status == ERROR_NO_MORE_ITEMS) break;
    requireStatus(status, fmt::format("{} cannot be read", quoted(key)));
    if (length > 0) names.push_back(room.substr(0, length));
  }
  std::sort(names.begin(), names.end());
  return names;
}

std::vector<std::wstring> subkeys(const std::wstring& key) {
  std::vector<std::wstring> names;
  mg::RegistryKey opened;
  LSTATUS status = RegOpenKeyExW(HKEY_LOCAL_MACHINE, key.c_str(), 0, KEY_READ, opened.receive());
  if (isMissing(status)) return names;
  requireStatus(status, fmt::format("{} cannot be read", quoted(key)));
  for (DWORD index = 0;; ++index) {
    wchar_t name[kMaxKeyName];
    DWORD length = kMaxKeyName;
    status = RegEnumKeyExW(opened.get(), index, name, &length, nullptr, nullptr, nullptr, nullptr);
    if (status == ERROR_NO_MORE_ITEMS) return names;
    requireStatus(status, fmt::format("{} cannot be read", quoted(key)));
    names.emplace_back(name, length);
  }
}

}  // namespace admin
