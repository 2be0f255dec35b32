#pragma once

#include "admin/base/places.h"

#include <string>
#include <vector>

namespace admin {

// What an installation has made on this machine, kept in its own registry key, so that uninstalling removes exactly
// that and nothing that existed before. Each entry is written before its object is made, so an interrupted installation
// leaves nothing unrecorded but the empty keys that the record is about to stand in. Belongs to one thread.
class InstallationRecord {
 public:
  // The kinds of entries, one registry value each.
  static constexpr wchar_t kKeys[] = L"Keys";
  static constexpr wchar_t kValues[] = L"Values";  // key, a tab, name
  static constexpr wchar_t kFolders[] = L"Folders";
  static constexpr wchar_t kFiles[] = L"Files";
  static constexpr wchar_t kMonitors[] = L"Monitors";
  static constexpr wchar_t kDrivers[] = L"Drivers";
  static constexpr wchar_t kServices[] = L"Services";

  // Reads the record in that key; empty when there is none.
  explicit InstallationRecord(std::wstring key);

  bool exists() const;
  const std::vector<std::wstring>& entries(const wchar_t* kind) const;
  bool holds(const wchar_t* kind, const std::wstring& entry) const;
  // Adds an entry unless it exists, and writes the record when its key exists.
  void add(const wchar_t* kind, const std::wstring& entry);
  void remove(const wchar_t* kind, const std::wstring& entry);
  // Writes all entries that were added before the key existed.
  void write() const;

 private:
  struct List {
    const wchar_t* kind;
    std::vector<std::wstring> entries;
  };
  List& list(const wchar_t* kind);
  void writeList(const List& list) const;

  std::wstring m_key;
  std::vector<List> m_lists;
};

// Removes the empty keys that an installation leaves that was killed before its record was there, and a removal after
// it was gone. Where there is no record.
void removeKeysWithoutRecord(const Places& places);

}  // namespace admin
