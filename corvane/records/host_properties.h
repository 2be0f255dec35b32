#pragma once

#include <string>

// Where the application server listens and how this process logs: on Windows the values under
// HKEY_LOCAL_MACHINE "SOFTWARE\Quillfern\Corvane", elsewhere the defaults. Read anew by every query, so a change needs
// no restart. Read as the process, whomever the thread impersonates. Safe from any thread: a missing value, or one of
// another type or out of range, is its default.
class HostProperties {
 public:
  static const HostProperties& getInstance();

  // The TCP port of the application server on this machine ("Port", REG_DWORD, default 4711).
  int hostValue() const;
  // The file that records are written to ("LogFile", REG_SZ, or REG_EXPAND_SZ with environment
  // variables); empty when there is none.
  std::wstring logFile() const;
  // The size in bytes at which the log file is rotated ("LogLimit", REG_DWORD, default 8 MiB).
  unsigned long logLimit() const;
  // Whether trace entries are written ("Trace", REG_DWORD, default 0).
  bool trace() const;

  // The file with the key that this process proves itself with to the application server ("KeyFile", REG_SZ); empty
  // when the value does not exist. One that exists and holds no file name throws CS_Exception (3108): it is never taken
  // for none.
  std::wstring keyFile() const;

  static constexpr int kDefaultPort = 4711;
  static constexpr unsigned long kDefaultLogLimit = 8 * 1024 * 1024;
};
