#pragma once

#include <string>
#include <vector>

namespace admin {

// What installing has made on this machine, kept in a registry key of its own, so that removing takes away exactly that
// and nothing that was there before. Each entry is written before the thing itself is made: an installation that was
// cut off leaves nothing unnamed. One thread.
class InstallationRecord {
 public:
  // What is remembered, one registry value each.
  static constexpr wchar_t kKeys[] = L"Keys";
  static constexpr wchar_t kValues[] = L"Values";  // key, a tab, name
  static constexpr wchar_t kFolders[] = L"Folders";
  static constexpr wchar_t kFiles[] = L"Files";
  static constexpr wchar_t kMonitors[] = L"Monitors";

  // Reads the record in that key; empty when there is none.
  explicit InstallationRecord(std::wstring key);

  bool exists() const;
  const std::vector<std::wstring>& entries(const wchar_t* kind) const;
  bool holds(const wchar_t* kind, const std::wstring& entry) const;
  // Adds an entry that is not there yet, and writes the record when its key exists.
  void add(const wchar_t* kind, const std::wstring& entry);
  void remove(const wchar_t* kind, const std::wstring& entry);
  // Writes everything that was added before the key existed.
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

}  // namespace admin
