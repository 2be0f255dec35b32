#include "admin/base/failure.h"

#include "corvane/base/process.h"
#include "corvane/base/text.h"

#include <fmt/format.h>
#include <iterator>

namespace admin {
namespace {

bool meansInUse(DWORD error) {
  return error == ERROR_SHARING_VIOLATION || error == ERROR_LOCK_VIOLATION || error == ERROR_USER_MAPPED_FILE ||
         error == ERROR_PRINT_MONITOR_IN_USE || error == ERROR_BUSY;
}

bool meansMissing(DWORD error) {
  return error == ERROR_FILE_NOT_FOUND || error == ERROR_PATH_NOT_FOUND || error == ERROR_INVALID_PRINTER_NAME ||
         error == ERROR_UNKNOWN_PORT || error == ERROR_UNKNOWN_PRINT_MONITOR || error == ERROR_UNKNOWN_PRINTER_DRIVER;
}

ExitCode codeFor(DWORD error) {
  if (error == ERROR_ACCESS_DENIED) return ExitCode::kAccessDenied;
  if (meansInUse(error)) return ExitCode::kInUse;
  return meansMissing(error) ? ExitCode::kNotFound : ExitCode::kFailed;
}

}  // namespace

std::string errorWords(DWORD error) {
  const std::string known = corvane::toUtf8(corvane::systemErrorWords(error));
  const std::string words = known.empty() ? "unknown error" : known;
  return words + " (" + std::to_string(error) + ")";
}

std::string remedyFor(DWORD error) {
  if (meansInUse(error)) {
    return "The spooler or another program uses it. Stop the spooler (net stop spooler), do this again, and start it "
           "(net start spooler); or restart the machine.";
  }
  switch (error) {
    case ERROR_ACCESS_DENIED:
      return "Run mgprintmon as administrator, from an elevated command prompt.";
    case ERROR_DISK_FULL:
    case ERROR_HANDLE_DISK_FULL:
      return "The disk is full: make room on it and do this again.";
    case ERROR_WRITE_PROTECT:
      return "The disk is write-protected: choose another folder, or lift the protection.";
    case RPC_S_SERVER_UNAVAILABLE:
      return "The spooler is not running: start it (net start spooler) and do this again.";
    case ERROR_UNKNOWN_PRINTPROCESSOR:
      return "Name a print processor that is installed with --processor.";
    case ERROR_UNKNOWN_PRINT_MONITOR:
      return "Install the print monitor first: mgprintmon install.";
    case ERROR_UNKNOWN_PORT:
      return "\"mgprintmon ports list\" shows the ports that are there.";
    case ERROR_INVALID_PRINTER_NAME:
      return "\"mgprintmon status\" shows the printers that are there.";
    default:
      return "";
  }
}

SystemFailure::SystemFailure(const std::string& tried, DWORD error)
    : Failure(codeFor(error), fmt::format("{}: {}", tried, errorWords(error)), remedyFor(error)), m_error(error) {}

void require(bool done, const std::string& tried) {
  if (!done) throw SystemFailure(tried, GetLastError());
}

void requireStatus(LSTATUS status, const std::string& tried) {
  if (status != ERROR_SUCCESS) throw SystemFailure(tried, static_cast<DWORD>(status));
}

}  // namespace admin
