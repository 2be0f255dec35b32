#pragma once

#include "ports/tag_port.h"
#include "util/win_handle.h"

#include <windows.h>

// Where the list of ports outlives the process: one REG_SZ value per port, named after the port and holding its name
// again, in one key of HKEY_LOCAL_MACHINE. Only the names of the values are ever read back. The functions pass on the
// result codes of the registry; their caller decides what a failure means. Any thread may call them.
namespace ports {

inline constexpr wchar_t kPortsKey[] = L"SOFTWARE\\Quillfern\\Marrowgate\\Printers\\Ports";

// Opens the key, creating it when it is missing.
LSTATUS createPortsKey(REGSAM access, mg::RegistryKey& key);

// Opens the key as it is, with every right that deleting a value may need.
LSTATUS openPortsKey(mg::RegistryKey& key);

// The number of values, 0 when that cannot be found out.
DWORD countPortValues(const mg::RegistryKey& key);

// The name of the value at index. A name that does not fit counts as a failure.
LSTATUS readPortName(const mg::RegistryKey& key, DWORD index, wchar_t (&name)[kPortNameSize]);

LSTATUS writePortValue(const mg::RegistryKey& key, const wchar_t* name);
LSTATUS deletePortValue(const mg::RegistryKey& key, const wchar_t* name);

}  // namespace ports
