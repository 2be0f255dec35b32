#include "monitor/job_name.h"

#include "jobs/temporary_path.h"
#include "ports/tag_port.h"

#include <array>
#include <cwchar>
#include <string>

namespace mg {

UTL_String buildJobName(const wchar_t* printerName, DWORD jobId) {
  std::array<wchar_t, kPortNameSize> safe{};
  for (std::size_t i = 0; i + 1 < safe.size() && printerName[i] != L'\0'; ++i) {
    safe[i] = std::wcschr(kNotInJobNames, printerName[i]) != nullptr ? L'-' : printerName[i];
  }
  UTL_String name(safe.data());
  name.append(kJobNumber);
  name.append(std::to_wstring(jobId).c_str());
  return name;
}

}  // namespace mg
