#include "admin/spooler/monitor_module.h"

#include "admin/base/failure.h"
#include "admin/base/files.h"
#include "admin/base/places.h"
#include "admin/base/registry_value.h"
#include "admin/spooler/spooler_list.h"
#include "corvane/base/text.h"
#include "corvane/records/messages.h"
#include "programs/text.h"
#include "util/object_map.h"
#include "util/utl_string.h"

#include <algorithm>
#include <fmt/format.h>
#include <sstream>

namespace admin {
namespace {

using Initialize = MONITOR2*(WINAPI*)(MONITORINIT*, HANDLE*);
using GetList = BOOL(WINAPI*)(unsigned int, void**);
using ReleaseList = void(WINAPI*)(void**);
using Show = BOOL(WINAPI*)(unsigned int, const wchar_t*);
using PrinterNames = TObjectMap<UTL_String, void*>;

const std::wstring kMonitorKey = std::wstring(L"SYSTEM\\CurrentControlSet\\Control\\Print\\Monitors\\") + kMonitorName;
constexpr unsigned kTailBytes = 65536;

bool tellsOfFailure(const std::string& line) {
  return std::ranges::any_of(corvane::knownLevels(), [&](const corvane::LevelWords& known) {
    std::string word = " " + corvane::toUtf8(known.inOwnLog);
    if (known.level == corvane::kLevelConnectionFailure) word += ' ';  // not what only begins like it
    return known.meansFailure && line.find(word) != std::string::npos;
  });
}

}  // namespace

MonitorModule& MonitorModule::get() {
  static MonitorModule module;
  return module;
}

MonitorModule::MonitorModule() {
  const std::wstring path = Places::ofThisMachine().module();
  m_module = LoadLibraryW(path.c_str());
  if (m_module == nullptr) {
    const SystemFailure failure(fmt::format("\"{}\" cannot be loaded", corvane::toUtf8(path)), GetLastError());
    throw Failure(failure.code(), failure.what(), "Install the print monitor: mgprintmon install.");
  }
  const auto initialize = reinterpret_cast<Initialize>(function("InitializePrintMonitor2"));
  // The module returns the address of this record as its handle, so it must live as long as the module.
  static MONITORREG registry = {};
  static MONITORINIT init = {};
  registry.cbSize = sizeof registry;
  init.cbSize = sizeof init;
  init.pMonitorReg = &registry;
  init.bLocal = TRUE;
  HANDLE monitor = nullptr;
  m_operations = initialize(&init, &monitor);
  require(m_operations != nullptr, "MgPrintMon.dll cannot be initialised");
}

void* MonitorModule::function(const char* name) const {
  void* const address = reinterpret_cast<void*>(GetProcAddress(m_module, name));
  if (address != nullptr) return address;
  throw Failure(ExitCode::kFailed, fmt::format("MgPrintMon.dll has no export {}", name),
                "The file is not ours: install the print monitor again with mgprintmon install --force.");
}

bool MonitorModule::cachedPrinters(unsigned session, std::vector<std::wstring>& names) {
  const auto getList = reinterpret_cast<GetList>(function("GetCachedPrinterList"));
  const auto releaseList = reinterpret_cast<ReleaseList>(function("ReleaseCachedPrinterList"));
  void* list = nullptr;
  const bool delivered = getList(session, &list) != FALSE;
  if (list != nullptr) {
    for (const auto& entry : *static_cast<PrinterNames*>(list))
      names.emplace_back(entry.first.wide());
    releaseList(&list);
  }
  return delivered;
}

bool MonitorModule::showPrinter(unsigned session, const std::wstring& printer) {
  return reinterpret_cast<Show>(function("ShowPrinter"))(session, printer.c_str()) != FALSE;
}

bool isMonitorRegistered() {
  try {
    const SpoolerList<MONITOR_INFO_2W> monitors("the print monitors cannot be listed",
                                                [](BYTE* buffer, DWORD size, DWORD* needed, DWORD* count) {
                                                  return EnumMonitorsW(nullptr, 2, buffer, size, needed, count);
                                                });
    for (const MONITOR_INFO_2W& monitor : monitors) {
      if (std::wstring(monitor.pName) == kMonitorName) return true;
    }
    return false;
  } catch (const SystemFailure& failure) {
    if (failure.error() != RPC_S_SERVER_UNAVAILABLE) throw;
    return readValue(kMonitorKey, L"Driver").has_value();
  }
}

std::optional<std::wstring> registeredMonitorFile() {
  const auto file = readValue(kMonitorKey, L"Driver");
  return file ? file->text() : std::nullopt;
}

void registerMonitor() {
  std::wstring name = kMonitorName;
  std::wstring environment = kEnvironment;
  std::wstring file = kModuleFile;
  MONITOR_INFO_2W information = {name.data(), environment.data(), file.data()};
  if (AddMonitorW(nullptr, 2, reinterpret_cast<BYTE*>(&information))) return;
  const DWORD error = GetLastError();
  if (error == ERROR_PRINT_MONITOR_ALREADY_INSTALLED || error == ERROR_ALREADY_EXISTS) return;
  throw SystemFailure("the spooler refuses the print monitor", error);
}

void unregisterMonitor() {
  std::wstring name = kMonitorName;
  std::wstring environment = kEnvironment;
  if (DeleteMonitorW(nullptr, environment.data(), name.data())) return;
  const DWORD error = GetLastError();
  if (error == ERROR_UNKNOWN_PRINT_MONITOR) return;
  throw SystemFailure("the print monitor cannot be removed from the spooler", error);
}

std::vector<std::string> failuresInText(const std::string& text, std::size_t most) {
  std::vector<std::string> lines;
  std::istringstream in(text);
  for (std::string line; std::getline(in, line);) {
    if (!line.empty() && line.back() == '\r') line.pop_back();
    if (tellsOfFailure(line)) lines.push_back(programs::oneLine(corvane::fromUtf8(line)));
  }
  if (lines.size() > most) lines.erase(lines.begin(), lines.end() - static_cast<std::ptrdiff_t>(most));
  return lines;
}

std::vector<std::string> failuresInLog(const std::wstring& path, std::size_t most) {
  try {
    if (path.empty() || !fileExists(path)) return {};
    return failuresInText(fileTail(path, kTailBytes), most);
  } catch (const Failure&) {
    return {};
  }
}

}  // namespace admin
