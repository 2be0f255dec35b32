#include "converter/private_folder.h"

#include "converter/conversion_error.h"

#include <windows.h>

#include <filesystem>
#include <random>
#include <system_error>

namespace mg::converter {
namespace {

std::wstring randomName() {
  std::random_device random;
  std::wstring name;
  for (int i = 0; i < 16; ++i)
    name += L"0123456789abcdef"[random() % 16];
  return name;
}

void makeFolder(const std::wstring& path) {
  if (CreateDirectoryW(path.c_str(), nullptr)) return;
  throw ConversionError(ExitCode::kFileSystem, L"The temporary folder \"" + path + L"\" cannot be made: " +
                                                   systemErrorText(GetLastError()) +
                                                   L". The folder of the PostScript file must be writable.");
}

}  // namespace

PrivateFolder::PrivateFolder(const std::wstring& file)
    : m_path(file.substr(0, file.find_last_of(L'\\') + 1) + L"ps2pdf-" + randomName()) {
  makeFolder(m_path);
  try {
    makeFolder(temporary());
  } catch (...) {
    RemoveDirectoryW(m_path.c_str());
    throw;
  }
}

PrivateFolder::~PrivateFolder() {
  std::error_code ignored;
  std::filesystem::remove_all(std::filesystem::path(m_path), ignored);
}

}  // namespace mg::converter
