#include "programs/data_folder.h"

#ifdef _WIN32
#include "corvane/base/text.h"

#include <windows.h>
#endif

namespace programs {

#ifdef _WIN32

std::string dataFolder() {
  wchar_t path[MAX_PATH];
  const DWORD length = GetEnvironmentVariableW(L"ProgramData", path, MAX_PATH);
  return corvane::toUtf8(std::wstring(length > 0 && length < MAX_PATH ? path : L"C:\\ProgramData") + L"\\Marrowgate");
}

std::string keyFolder() {
  return dataFolder() + "\\Keys";
}

std::string serviceLog() {
  return dataFolder() + "\\Log\\aps.log";
}

#else

std::string dataFolder() {
  return "/var/lib/aps";
}

std::string keyFolder() {
  return dataFolder() + "/keys";
}

std::string serviceLog() {
  return "";
}

#endif

}  // namespace programs
