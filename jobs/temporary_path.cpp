#include "jobs/temporary_path.h"

#include <string>

namespace mg {

TemporaryDirectory::TemporaryDirectory() : m_length(GetTempPathW(MAX_PATH, m_text.data())) {}

void appendTemporaryPath(UTL_String& path, const TemporaryDirectory& directory, const UTL_String& jobName, DWORD ticks,
                         const wchar_t* extension) {
  path.append(directory.text());
  path.append(jobName);
  path.append(L"-");
  path.append(std::to_wstring(static_cast<int>(ticks)).c_str());
  path.append(extension);
}

}  // namespace mg
