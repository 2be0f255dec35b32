#pragma once

#include "corvane/class.h"

#include <map>
#include <optional>
#include <string>

class CS_Channel;
namespace corvane {
class ValueReader;
class ValueWriter;
}  // namespace corvane

// The versions of the component classes that a process has registered, by class name. A plain value: copied freely, one
// object is not shared between threads without a lock.
class CS_ClassVersionMap {
 public:
  void set(const std::wstring& className, const CS_Version& version) { m_versions[className] = version; }
  std::optional<CS_Version> find(const std::wstring& className) const;
  bool isEmpty() const { return m_versions.empty(); }
  const std::map<std::wstring, CS_Version>& entries() const { return m_versions; }

  // Writes the map: the count, then for each class its name and four numbers.
  void write(corvane::ValueWriter& to) const;
  // Replaces the map by the one that is read. Throws CS_Exception when there is something else, more than kMaxClasses
  // classes, or a name of more than corvane::kMaxClassNameUnits.
  void read(corvane::ValueReader& from);
  // The same to and from a request's channel.
  void operator>>(CS_Channel& channel) const;
  void operator<<(CS_Channel& channel);

  static constexpr int kMaxClasses = 1024;

 private:
  std::map<std::wstring, CS_Version> m_versions;
};
