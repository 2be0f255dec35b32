#include "admin/spooler/spooler_port.h"

#include "admin/base/failure.h"
#include "admin/base/places.h"
#include "admin/spooler/spooler_list.h"
#include "admin/spooler/spooler_printer.h"
#include "admin/spooler/wine_spooler.h"
#include "corvane/base/text.h"
#include "programs/text.h"
#include "util/win_handle.h"

#include <winspool.h>

#include <algorithm>
#include <fmt/format.h>
#include <fmt/xchar.h>

namespace admin {

void sendToMonitor(const wchar_t* command, std::wstring port, const std::string& tried) {
  const DWORD size = static_cast<DWORD>((port.size() + 1) * sizeof(wchar_t));
  BYTE* const name = reinterpret_cast<BYTE*>(port.data());
  if (isWine()) {
    requireStatus(static_cast<LSTATUS>(askMonitorInWine(command, name, size)), tried);
    return;
  }
  std::wstring channel = fmt::format(L",XcvMonitor {}", kMonitorName);
  PRINTER_DEFAULTSW defaults = {nullptr, nullptr, SERVER_ACCESS_ADMINISTER};
  mg::PrinterHandle monitor;
  require(OpenPrinterW(channel.data(), monitor.receive(), &defaults), tried);
  DWORD needed = 0;
  DWORD status = 0;
  require(XcvDataW(monitor.get(), command, name, size, nullptr, 0, &needed, &status), tried);
  requireStatus(static_cast<LSTATUS>(status), tried);
}

namespace {

// The monitor stores a name in this many characters, including the terminator.
constexpr std::size_t kNameRoom = 260;

bool isControl(wchar_t c) {
  return c < 0x20 || (c >= 0x7F && c < 0xA0);
}

void requireName(const std::wstring& name) {
  const std::string refusal = portNameRefusal(name);
  if (!refusal.empty()) throw Failure(ExitCode::kUsage, refusal, "The port of session 5 is named CPP5, for example.");
}

}  // namespace

std::vector<std::wstring> monitorPorts() {
  const SpoolerList<PORT_INFO_2W> ports("the ports cannot be listed",
                                        [](BYTE* buffer, DWORD size, DWORD* needed, DWORD* count) {
                                          return EnumPortsW(nullptr, 2, buffer, size, needed, count);
                                        });
  std::vector<std::wstring> names;
  for (const PORT_INFO_2W& port : ports) {
    if (port.pMonitorName != nullptr && std::wstring(port.pMonitorName) == kMonitorName) {
      names.emplace_back(port.pPortName);
    }
  }
  return names;
}

bool hasPort(const std::wstring& name) {
  const std::vector<std::wstring> ports = monitorPorts();
  return std::find(ports.begin(), ports.end(), name) != ports.end();
}

std::string portNameRefusal(const std::wstring& name) {
  if (name.empty()) return "a port needs a name";
  if (name.size() >= kNameRoom) {
    return fmt::format("a port name of {} characters is too long: {} are possible", name.size(), kNameRoom - 1);
  }
  if (std::any_of(name.begin(), name.end(), isControl)) return "a port name may not hold control characters";
  if (name.find_first_of(L"\\/") != std::wstring::npos) {
    return fmt::format("the port name {} holds a path: the spooler reads such a name as a file",
                       programs::quoted(name));
  }
  if (name.find(L',') != std::wstring::npos) {
    return fmt::format("the port name {} holds a comma: the spooler reads what follows as something else",
                       programs::quoted(name));
  }
  if (name.front() == L' ' || name.back() == L' ') {
    return fmt::format("the port name {} begins or ends with a space", programs::quoted(name));
  }
  return "";
}

bool addPort(const std::wstring& name) {
  requireName(name);
  const bool wasThere = hasPort(name);
  if (!wasThere) {
    sendToMonitor(L"AddPort", name, fmt::format("port {} cannot be added", programs::quoted(name)));
    // The monitor returns the same whether or not it could store the port.
    if (!hasPort(name)) {
      throw Failure(ExitCode::kFailed,
                    fmt::format("port {} was not added, although the monitor says so", programs::quoted(name)),
                    "The module's log says why (mgprintmon status shows its last lines).");
    }
  }
  if (isWine()) registerPortInWine(name);
  return !wasThere;
}

Failure portInUse(const std::wstring& name, const std::vector<SpoolerPrinter>& users) {
  std::string stay;
  std::string going;
  for (const SpoolerPrinter& printer : users) {
    std::string& names = printer.isGoing ? going : stay;
    names += fmt::format("{}{}", names.empty() ? "" : ", ", programs::quoted(printer.name));
  }
  if (!stay.empty()) {
    return Failure(ExitCode::kInUse, fmt::format("port {} is used by {}", programs::quoted(name), stay),
                   "Remove these printers or give them another port first.");
  }
  return Failure(
      ExitCode::kInUse,
      fmt::format(
          "port {} is used by {}, already deleted, which the spooler keeps until the last job has left its queue",
          programs::quoted(name), going),
      "Let these jobs print, or delete them there, and repeat the command.");
}

bool deletePort(const std::wstring& name) {
  if (!hasPort(name)) return false;
  const std::vector<SpoolerPrinter> users = printersOn({name});
  if (!users.empty()) throw portInUse(name, users);
  sendToMonitor(L"DeletePort", name, fmt::format("port {} cannot be deleted", programs::quoted(name)));
  if (isWine()) forgetPortInWine(name);
  if (hasPort(name)) {
    throw Failure(ExitCode::kFailed,
                  fmt::format("port {} was not deleted, although the monitor says so", programs::quoted(name)),
                  "The module's log says why (mgprintmon status shows its last lines).");
  }
  return true;
}

std::wstring sessionPort(unsigned session) {
  return fmt::format(L"CPP{}", session);
}

}  // namespace admin
