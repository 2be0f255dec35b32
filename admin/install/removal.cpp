#include "admin/base/failure.h"
#include "admin/base/files.h"
#include "admin/base/registry_value.h"
#include "admin/base/service.h"
#include "admin/install/installation.h"
#include "admin/install/installation_record.h"
#include "admin/spooler/monitor_module.h"
#include "admin/spooler/printer_driver.h"
#include "admin/spooler/spooler_port.h"
#include "admin/spooler/spooler_printer.h"
#include "admin/spooler/wine_spooler.h"
#include "corvane/base/text.h"

#include <algorithm>
#include <fmt/format.h>

namespace admin {
namespace {

using corvane::toUtf8;

class Removal {
 public:
  Removal(const Places& places, bool force) : m_places(places), m_record(places.recordKey()), m_force(force) {}

  RemovalResult run() {
    const bool registered = isMonitorRegistered();
    if (!m_record.exists()) {
      if (!registered && !fileExists(m_places.module())) {
        removeKeysWithoutRecord(m_places);
        return {};
      }
      assumeRecord();
    }
    refusePrinters(registered);
    // From here on nobody brings sessions up or serves them.
    removeServices();
    if (registered) {
      removePrintersAndPorts();
      if (!m_record.entries(InstallationRecord::kMonitors).empty()) {
        unregisterMonitor();
        m_result.done.push_back("removed the print monitor from the spooler");
      }
    }
    removeDrivers();
    releaseModule();
    removeFiles();
    removeFolders();
    removeValues();
    removeKeys();
    return std::move(m_result);
  }

 private:
  // An installation made by hand.
  void assumeRecord() {
    if (!m_force) {
      throw Failure(ExitCode::kFailed, "there is no record of what installing has made on this machine",
                    "It was not installed by this program. Remove it with --force: the monitor, MgPrintMon.dll, "
                    "ps2pdf.exe and the keys Marrowgate and Corvane; or run mgprintmon install first.");
    }
    m_record.add(InstallationRecord::kMonitors, kMonitorName);
    m_record.add(InstallationRecord::kFiles, m_places.converter());
    m_record.add(InstallationRecord::kFiles, m_places.module());
    for (const std::wstring& key :
         {m_places.vendorKey, m_places.productKey(), m_places.frameworkKey(), m_places.eventSourceKey}) {
      m_record.add(InstallationRecord::kKeys, key);
    }
  }

  void refusePrinters(bool registered) const {
    if (!registered || m_force) return;
    std::string names;
    for (const SpoolerPrinter& printer : printersOn(monitorPorts()))
      names += fmt::format("{}{}\" on {}", names.empty() ? "\"" : ", \"", toUtf8(printer.name), toUtf8(printer.port));
    if (names.empty()) return;
    throw Failure(ExitCode::kInUse, fmt::format("printers use ports of the monitor: {}", names),
                  "Remove them first (mgprintmon session down N), or remove them with the rest with --force.");
  }

  void removeServices() {
    std::vector<std::wstring> services = m_record.entries(InstallationRecord::kServices);
    std::reverse(services.begin(), services.end());
    for (const std::wstring& service : services) {
      stopService(service);
      deleteService(service);
      m_result.done.push_back(fmt::format("removed the service {}", toUtf8(service)));
    }
  }

  void removePrintersAndPorts() {
    const std::vector<std::wstring> ports = monitorPorts();
    const std::vector<SpoolerPrinter> printers = printersOn(ports);
    for (const SpoolerPrinter& printer : printers) {
      deletePrinter(printer.name);
      m_result.done.push_back(fmt::format("removed printer \"{}\"", toUtf8(printer.name)));
    }
    for (const std::wstring& port : ports) {
      deletePort(port);
      m_result.done.push_back(fmt::format("removed port {}", toUtf8(port)));
    }
  }

  // Their packages stay in the driver store, as Windows keeps them.
  void removeDrivers() {
    for (const std::wstring& driver : m_record.entries(InstallationRecord::kDrivers)) {
      if (deleteDriver(driver)) {
        m_result.done.push_back(fmt::format("removed the printer driver \"{}\"", toUtf8(driver)));
      } else {
        m_result.kept.push_back(fmt::format("the printer driver \"{}\" stays: other printers use it", toUtf8(driver)));
      }
    }
  }

  void removeFiles() {
    for (const std::wstring& file : m_record.entries(InstallationRecord::kFiles)) {
      const bool wasThere = fileExists(file);
      for (const wchar_t* suffix : {L"", L".old", L".new"})
        deleteFile(file + suffix);
      if (wasThere) m_result.done.push_back(fmt::format("removed \"{}\"", toUtf8(file)));
    }
  }

  void removeFolders() {
    std::vector<std::wstring> folders = m_record.entries(InstallationRecord::kFolders);
    std::reverse(folders.begin(), folders.end());
    for (const std::wstring& folder : folders) {
      // Nobody but the services had access to these.
      for (const std::wstring& own : {m_places.keyFolder(), m_places.stateFolder(), m_places.serviceLogFolder()}) {
        if (folder == own) deleteFilesIn(folder);
      }
      if (folder == m_places.logFolder()) {
        for (const wchar_t* log : {L"\\MgPrintMon.log", L"\\MgPrintMon.log.1"})
          deleteFile(folder + log);
      }
      const bool wasThere = folderExists(folder);
      try {
        deleteFolder(folder);
        if (wasThere) m_result.done.push_back(fmt::format("removed the folder \"{}\"", toUtf8(folder)));
      } catch (const SystemFailure& failure) {
        if (failure.error() != ERROR_DIR_NOT_EMPTY) throw;
        m_result.kept.push_back(
            fmt::format("the folder \"{}\" stays: it holds files that are not ours", toUtf8(folder)));
      }
    }
  }

  void removeValues() {
    for (const std::wstring& entry : m_record.entries(InstallationRecord::kValues)) {
      const std::size_t tab = entry.find(L'\t');
      if (tab != std::wstring::npos) deleteValue(entry.substr(0, tab), entry.substr(tab + 1));
    }
  }

  // A key of our own is removed with all its content, a key that others may use only when it is empty.
  bool isOurs(const std::wstring& key) const {
    for (const std::wstring& ours : {m_places.productKey(), m_places.frameworkKey(), m_places.eventSourceKey}) {
      if (key == ours || key.starts_with(ours + L"\\")) return true;
    }
    return false;
  }

  // The record is in one of the first keys that were made, so it is one of the last to be removed; together with the
  // product's key when that is ours.
  void removeKeys() {
    std::vector<std::wstring> keys = m_record.entries(InstallationRecord::kKeys);
    std::reverse(keys.begin(), keys.end());
    for (const std::wstring& key : keys) {
      if (!keyExists(key)) continue;
      if (key == m_places.recordKey() && m_record.holds(InstallationRecord::kKeys, m_places.productKey())) continue;
      if (isOurs(key)) {
        deleteKeyTree(key);
      } else if (isKeyEmpty(key)) {
        deleteKey(key);
      } else {
        m_result.kept.push_back(fmt::format("the registry key \"{}\" stays: it holds what is not ours", toUtf8(key)));
        continue;
      }
      m_result.done.push_back(fmt::format("removed the registry key \"{}\"", toUtf8(key)));
    }
  }

  const Places& m_places;
  InstallationRecord m_record;
  const bool m_force;
  RemovalResult m_result;
};

}  // namespace

RemovalResult uninstall(const Places& places, bool force) {
  return Removal(places, force).run();
}

}  // namespace admin
