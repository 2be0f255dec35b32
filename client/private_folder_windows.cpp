#include "client/private_folder.h"
#include "programs/text.h"

#include <windows.h>

#include <fmt/format.h>
#include <stdexcept>
#include <string>
#include <system_error>

namespace printclient {

std::filesystem::path privateFolder() {
  std::wstring data(32768, L'\0');
  data.resize(GetEnvironmentVariableW(L"LOCALAPPDATA", data.data(), static_cast<DWORD>(data.size())));
  if (data.empty()) {
    throw std::runtime_error(
        "there is no folder for unfinished jobs, as LOCALAPPDATA is not set; give one with "
        "--output");
  }
  const std::filesystem::path folder = std::filesystem::path(data) / L"printclient";
  std::error_code error;
  std::filesystem::create_directories(folder, error);
  if (!std::filesystem::is_directory(folder)) {
    throw std::runtime_error(
        fmt::format("the folder {} for unfinished jobs cannot be made: {}; give another with "
                    "--output",
                    programs::fromPath(folder), error.message()));
  }
  return folder;
}

}  // namespace printclient
