#include "corvane/records/host_properties.h"

#ifdef _WIN32

#include "corvane/base/process.h"
#include "corvane/records/exception.h"
#include "corvane/records/messages.h"
#include "util/last_error.h"

#include <windows.h>

namespace {

constexpr wchar_t kKey[] = L"SOFTWARE\\Quillfern\\Corvane";

LSTATUS readValue(const wchar_t* name, DWORD flags, void* value, DWORD size) {
  const corvane::ProcessIdentity identity;
  return ::RegGetValueW(HKEY_LOCAL_MACHINE, kKey, name, flags, nullptr, value, &size);
}

unsigned long readNumber(const wchar_t* name, unsigned long defaultValue) {
  const mg::LastErrorKeeper keeper;
  DWORD value = 0;
  return readValue(name, RRF_RT_REG_DWORD, &value, sizeof value) == ERROR_SUCCESS ? value : defaultValue;
}

}  // namespace

int HostProperties::hostValue() const {
  const unsigned long port = readNumber(L"Port", kDefaultPort);
  return port > 0 && port < 65536 ? static_cast<int>(port) : kDefaultPort;
}

std::wstring HostProperties::logFile() const {
  const mg::LastErrorKeeper keeper;
  wchar_t path[MAX_PATH] = {};
  return readValue(L"LogFile", RRF_RT_REG_SZ, path, sizeof path) == ERROR_SUCCESS ? path : std::wstring();
}

unsigned long HostProperties::logLimit() const {
  return readNumber(L"LogLimit", kDefaultLogLimit);
}

bool HostProperties::trace() const {
  return readNumber(L"Trace", 0) != 0;
}

std::wstring HostProperties::keyFile() const {
  const mg::LastErrorKeeper keeper;
  wchar_t path[MAX_PATH] = {};
  const LSTATUS status = readValue(L"KeyFile", RRF_RT_REG_SZ, path, sizeof path);
  if (status == ERROR_FILE_NOT_FOUND) return {};
  if (status != ERROR_SUCCESS || path[0] == L'\0') {
    throw CS_Exception(corvane::kKeyNeeded, L"the registry value KeyFile in %s is no file name (%d)", kKey,
                       static_cast<int>(status));
  }
  return path;
}

#else

int HostProperties::hostValue() const {
  return kDefaultPort;
}
std::wstring HostProperties::logFile() const {
  return {};
}
unsigned long HostProperties::logLimit() const {
  return kDefaultLogLimit;
}
bool HostProperties::trace() const {
  return false;
}
std::wstring HostProperties::keyFile() const {
  return {};
}

#endif

const HostProperties& HostProperties::getInstance() {
  static const HostProperties instance;
  return instance;
}
