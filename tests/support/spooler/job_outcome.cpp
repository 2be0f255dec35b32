#include "tests/support/spooler/job_outcome.h"

#include "tests/support/spooler/system_failure.h"

#include <filesystem>
#include <fstream>

namespace mg::support {
namespace {

constexpr wchar_t kKey[] = L"SOFTWARE\\Quillfern\\Marrowgate\\TestPrintProcessor";

std::filesystem::path outcomePath(DWORD job) {
  wchar_t folder[MAX_PATH] = {};
  DWORD size = sizeof folder;
  const LSTATUS status = RegGetValueW(HKEY_LOCAL_MACHINE, kKey, L"Folder", RRF_RT_REG_SZ, nullptr, folder, &size);
  if (status != ERROR_SUCCESS) throw SystemFailure("the print processor is not set up", static_cast<DWORD>(status));
  return std::filesystem::path(folder) /
         (std::to_wstring(GetCurrentProcessId()) + L"-" + std::to_wstring(job) + L".txt");
}

}  // namespace

void configureOutcomeFolder(const std::wstring& folder) {
  std::filesystem::create_directories(folder);
  const LSTATUS status = RegSetKeyValueW(HKEY_LOCAL_MACHINE, kKey, L"Folder", REG_SZ, folder.c_str(),
                                         static_cast<DWORD>((folder.size() + 1) * sizeof(wchar_t)));
  if (status != ERROR_SUCCESS) throw SystemFailure("the registry cannot be written", static_cast<DWORD>(status));
}

void writeOutcome(DWORD job, const std::string& outcome) {
  std::ofstream(outcomePath(job)) << outcome;
}

std::string takeOutcome(DWORD job) {
  const std::filesystem::path path = outcomePath(job);
  std::string outcome;
  {
    std::ifstream file(path);
    std::getline(file, outcome);
  }
  std::error_code ignored;
  std::filesystem::remove(path, ignored);
  return outcome;
}

}  // namespace mg::support
