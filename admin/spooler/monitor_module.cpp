#include "admin/spooler/monitor_module.h"

#include "admin/base/failure.h"
#include "admin/base/places.h"
#include "corvane/base/text.h"
#include "util/object_map.h"
#include "util/utl_string.h"

namespace admin {
namespace {

using Initialize = MONITOR2*(WINAPI*)(MONITORINIT*, HANDLE*);
using GetList = BOOL(WINAPI*)(unsigned int, void**);
using ReleaseList = void(WINAPI*)(void**);
using Show = BOOL(WINAPI*)(unsigned int, const wchar_t*);
using PrinterNames = TObjectMap<UTL_String, void*>;

}  // namespace

MonitorModule& MonitorModule::get() {
  static MonitorModule module;
  return module;
}

MonitorModule::MonitorModule() {
  const std::wstring path = Places::ofThisMachine().module();
  m_module = LoadLibraryW(path.c_str());
  if (m_module == nullptr) {
    const SystemFailure failure("\"" + corvane::toUtf8(path) + "\" cannot be loaded", GetLastError());
    throw Failure(failure.code(), failure.what(), "Install the print monitor: mgprintmon install.");
  }
  const auto initialize = reinterpret_cast<Initialize>(function("InitializePrintMonitor2"));
  // The module gives the address of this record back as its handle, so it must live as long as the module.
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
  throw Failure(ExitCode::kFailed, std::string("MgPrintMon.dll has no export ") + name,
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

}  // namespace admin
