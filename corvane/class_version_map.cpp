#include "corvane/class_version_map.h"

#include "corvane/channel.h"
#include "corvane/exception.h"
#include "corvane/limits.h"
#include "corvane/message_numbers.h"
#include "corvane/value_reader.h"
#include "corvane/value_writer.h"

std::optional<CS_Version> CS_ClassVersionMap::find(const std::wstring& className) const {
  const auto found = m_versions.find(className);
  if (found == m_versions.end()) return std::nullopt;
  return found->second;
}

void CS_ClassVersionMap::operator>>(CS_Channel& channel) const {
  corvane::ValueWriter& writer = channel.writer();
  writer.writeInt(static_cast<int>(m_versions.size()));
  for (const auto& [name, version] : m_versions) {
    writer.writeText(name.c_str());
    writer.writeInt(version.major);
    writer.writeInt(version.minor);
    writer.writeInt(version.revision);
    writer.writeInt(version.build);
  }
}

void CS_ClassVersionMap::operator<<(CS_Channel& channel) {
  corvane::ValueReader& reader = channel.reader();
  const int count = reader.readInt();
  if (count < 0 || count > kMaxClasses) throw CS_Exception(corvane::kLimitExceeded, L"a map of %d classes", count);
  std::map<std::wstring, CS_Version> versions;
  for (int i = 0; i < count; ++i) {
    std::wstring name = reader.readText();
    if (name.size() > corvane::kMaxClassNameUnits) {
      throw CS_Exception(corvane::kLimitExceeded, L"a class name of %d characters", static_cast<int>(name.size()));
    }
    CS_Version version;
    version.major = static_cast<short>(reader.readInt());
    version.minor = static_cast<short>(reader.readInt());
    version.revision = static_cast<short>(reader.readInt());
    version.build = static_cast<short>(reader.readInt());
    versions[std::move(name)] = version;
  }
  m_versions = std::move(versions);
}
