// Measures what the port list costs against the bare registry, in turns within one run:
//
//   bench_ports [ROUNDS]
//
// Start-up: the module's list reads its ports, against the same loop over the values that keeps nothing. Finding a
// port: by names of one length, all of which share a bucket. Replaces the ports of the Wine prefix that it runs in.

#include "ports/port_list.h"
#include "util/win_handle.h"

#include <windows.h>

#include <algorithm>
#include <chrono>
#include <cstdio>
#include <cstdlib>
#include <string>
#include <vector>

namespace {

using Clock = std::chrono::steady_clock;

constexpr wchar_t kPortsKey[] = L"SOFTWARE\\Quillfern\\Marrowgate\\Printers\\Ports";

double microsecondsSince(Clock::time_point start) {
  return std::chrono::duration<double, std::micro>(Clock::now() - start).count();
}

double median(std::vector<double> values) {
  std::nth_element(values.begin(), values.begin() + static_cast<std::ptrdiff_t>(values.size() / 2), values.end());
  return values[values.size() / 2];
}

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
  return microsecondsSince(start);
}

double findAll(CPortList& list, int count) {
  std::vector<double> each;
  for (int i = 0; i < 1000; ++i) {
    const std::wstring name = portName(static_cast<int>(static_cast<long long>(i) * 7919 % count));
    const auto start = Clock::now();
    const mg::HeldPort port(list, name.c_str());
    each.push_back(microsecondsSince(start));
    if (!port) std::fprintf(stderr, "bench_ports: no port %ls\n", name.c_str());
  }
  return median(each);
}

void compare(int count, int rounds) {
  makePorts(count);
  std::vector<double> raw, product, find;
  for (int round = 0; round < rounds; ++round) {
    raw.push_back(bareLoop());
    auto* const list = new CPortList;  // its records stay, as those of a module that is unloaded
    CPortList::setInstance(list);
    const auto start = Clock::now();
    list->Load();
    product.push_back(microsecondsSince(start));
    find.push_back(findAll(*list, count));
    CPortList::setInstance(nullptr);
    delete list;
  }
  std::printf("%6d ports: registry alone %.1f ms, start-up %.1f ms, ratio %.2f; finding a port %.1f us\n", count,
              median(raw) / 1000, median(product) / 1000, median(product) / median(raw), median(find));
}

}  // namespace

int main(int count, char** arguments) {
  const int rounds = count > 1 ? std::atoi(arguments[1]) : 9;
  for (const int ports : {1000, 10000, 20000})
    compare(ports, rounds);
  RegDeleteTreeW(HKEY_LOCAL_MACHINE, kPortsKey);
  return 0;
}
