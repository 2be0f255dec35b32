#include "tests/support/server_address.h"

#include "tests/support/import_seam.h"

#include <cstring>
#include <cwchar>

MG_IMPORT_SEAM(L"advapi32.dll", RegGetValueW, ERROR_FILE_NOT_FOUND)

ServerAddress::ServerAddress(std::uint16_t port, const std::wstring& keyFile) {
  RegGetValueWSeam.replacement = [port, keyFile](HKEY, LPCWSTR, LPCWSTR name, DWORD, LPDWORD, PVOID data,
                                                 LPDWORD) -> LSTATUS {
    if (std::wcscmp(name, L"KeyFile") == 0 && !keyFile.empty()) {
      std::wcscpy(static_cast<wchar_t*>(data), keyFile.c_str());
      return ERROR_SUCCESS;
    }
    if (std::wcscmp(name, L"Port") != 0) return ERROR_FILE_NOT_FOUND;
    const DWORD value = port;
    std::memcpy(data, &value, sizeof value);
    return ERROR_SUCCESS;
  };
}

ServerAddress::~ServerAddress() {
  RegGetValueWSeam.restore();
}
