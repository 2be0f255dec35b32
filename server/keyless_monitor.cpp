#include "server/keyless_monitor.h"

#ifdef _WIN32

#include <windows.h>

namespace aps {
namespace {

bool hasValue(const wchar_t* key, const wchar_t* name) {
  return RegGetValueW(HKEY_LOCAL_MACHINE, key, name, RRF_RT_ANY, nullptr, nullptr, nullptr) == ERROR_SUCCESS;
}

}  // namespace

bool hasKeylessMonitor() {
  return hasValue(L"SOFTWARE\\Quillfern\\Marrowgate", L"RootPath") &&
         !hasValue(L"SOFTWARE\\Quillfern\\Corvane", L"KeyFile");
}

}  // namespace aps

#else

namespace aps {

bool hasKeylessMonitor() {
  return false;
}

}  // namespace aps

#endif
