// Measures what the port list costs against the bare registry, in turns within one run:
//
//   bench_ports ROUNDS MEASUREMENTS      with MgPrintMon.dll beside it
//
// MEASUREMENTS is a list of "ports-1000", "ports-10000" and "open-port", separated by commas. Start-up: the module's
// list reads its ports, against the same loop over the values that keeps nothing. Opening a port: by names of one
// length, all of which share a bucket, through the loaded module's own entry. Replaces the ports of the Wine prefix
// that it runs in.

#include "bench/raw_peer.h"
#include "bench/samples.h"
#include "ports/port_list.h"
#include "tests/support/spooler/monitor_table.h"
#include "util/win_handle.h"

#include <windows.h>

#include <string>

namespace {

using bench::Clock;
using bench::secondsSince;

constexpr wchar_t kPortsKey[] = L"SOFTWARE\\Quillfern\\Marrowgate\\Printers\\Ports";
constexpr int kManyPorts = 10000;

std::wstring portName(int number) {
  return L"CPP" + std::to_wstring(10000 + number);
}

void makePorts(int count) {
  RegDeleteTreeW(HKEY_LOCAL_MACHINE, kPortsKey);
  mg::RegistryKey key;
  RegCreateKeyExW(HKEY_LOCAL_MACHINE, kPortsKey, 0, nullptr, 0, KEY_ALL_ACCESS, nullptr, key.receive(), nullptr);
  for (int i = 0; i < count; ++i) {
    const std::wstring name = portName(i);
    RegSetValueExW(key.get(), name.c_str(), 0, REG_SZ, reinterpret_cast<const BYTE*>(name.c_str()),
                   static_cast<DWORD>((name.size() + 1) * sizeof(wchar_t)));
  }
}

double bareLoop() {
  const auto start = Clock::now();
  mg::RegistryKey key;
  RegCreateKeyExW(HKEY_LOCAL_MACHINE, kPortsKey, 0, nullptr, 0, KEY_QUERY_VALUE, nullptr, key.receive(), nullptr);
  DWORD count = 0;
  RegQueryInfoKeyA(key.get(), nullptr, nullptr, nullptr, nullptr, nullptr, nullptr, &count, nullptr, nullptr, nullptr,
                   nullptr);
  for (DWORD index = 0; index < count; ++index) {
    wchar_t name[64];
    DWORD size = 64;
    RegEnumValueW(key.get(), index, name, &size, nullptr, nullptr, nullptr, nullptr);
  }
  return secondsSince(start);
}

double startUp() {
  auto* const list = new CPortList;  // its records stay, as those of a module that is unloaded
  CPortList::setInstance(list);
  const auto start = Clock::now();
  list->Load();
  const double seconds = secondsSince(start);
  CPortList::setInstance(nullptr);
  delete list;
  return seconds;
}

// The median of opening a thousand of them.
double openSome(const mg::support::MonitorTable& monitor) {
  std::vector<double> each;
  for (int i = 0; i < 1000; ++i) {
    std::wstring name = portName(i * 7919 % kManyPorts);
    HANDLE port = nullptr;
    const auto start = Clock::now();
    const BOOL isOpen = monitor.operations->pfnOpenPort(monitor.monitor, name.data(), &port);
    each.push_back(secondsSince(start));
    if (!isOpen) bench::giveUp("the module does not know a port");
    monitor.operations->pfnClosePort(port);
  }
  return bench::quantile(std::move(each), 0.5);
}

void measureOpening(int rounds) {
  makePorts(kManyPorts);
  const mg::support::MonitorTable& monitor = mg::support::loadMonitor();
  openSome(monitor);
  for (int round = 0; round < rounds; ++round)
    bench::sample("open-port", bench::kProduct, openSome(monitor));
}

}  // namespace

int wmain(int count, wchar_t** arguments) {
  if (count != 3) {
    std::fprintf(stderr, "usage: bench_ports ROUNDS MEASUREMENTS\n");
    return 2;
  }
  const int rounds = _wtoi(arguments[1]);
  const std::string wanted(arguments[2], arguments[2] + std::wcslen(arguments[2]));
  const int code = bench::runMeasurements([&] {
    for (const int ports : {1000, kManyPorts}) {
      const std::string name = "ports-" + std::to_string(ports);
      if (!bench::isAsked(wanted, name)) continue;
      makePorts(ports);
      bench::takeTurns(name, rounds, bareLoop, startUp);
    }
    if (bench::isAsked(wanted, "open-port")) measureOpening(rounds);
  });
  RegDeleteTreeW(HKEY_LOCAL_MACHINE, kPortsKey);
  return code;
}
