#include "converter/private_folder.h"

#include "converter/conversion_error.h"
#include "converter/remove_folder.h"
#include "converter/sweep.h"

#include <windows.h>

#include <random>

namespace mg::converter {
namespace {

constexpr unsigned long long kLeastSize = 4096;

std::wstring randomName() {
  std::random_device random;
  std::wstring name;
  for (int i = 0; i < 16; ++i)
    name += L"0123456789abcdef"[random() % 16];
  return name;
}

[[noreturn]] void throwUnmade(const std::wstring& path) {
  throw ConversionError(ExitCode::kFileSystem, L"The temporary folder \"" + path + L"\" cannot be made: " +
                                                   systemErrorText(GetLastError()) +
                                                   L". The folder of the PostScript file must be writable.");
}

// Adds up the files of one folder until there are more bytes than asked for. Each file is asked itself, because what a
// search tells of files that are being written may be old.
void add(const std::wstring& folder, unsigned long long bytes, unsigned long long& sum) {
  WIN32_FIND_DATAW found;
  const FindHandle search(FindFirstFileW((folder + L"\\*").c_str(), &found));
  if (!search) return;
  do {
    if (found.dwFileAttributes & FILE_ATTRIBUTE_DIRECTORY) continue;
    WIN32_FILE_ATTRIBUTE_DATA data;
    if (!GetFileAttributesExW((folder + L"\\" + found.cFileName).c_str(), GetFileExInfoStandard, &data)) {
      data.nFileSizeHigh = found.nFileSizeHigh;
      data.nFileSizeLow = found.nFileSizeLow;
    }
    const unsigned long long size = (static_cast<unsigned long long>(data.nFileSizeHigh) << 32) | data.nFileSizeLow;
    sum += size < kLeastSize ? kLeastSize : size;
  } while (sum <= bytes && FindNextFileW(search.get(), &found));
}

}  // namespace

PrivateFolder::PrivateFolder(const std::wstring& file) {
  const std::wstring parent = file.substr(0, file.find_last_of(L'\\') + 1);
  sweepFolders(parent, kMostSwept);
  m_path = parent + kFolderPrefix + randomName();
  if (!CreateDirectoryW(m_path.c_str(), nullptr)) throwUnmade(m_path);
  m_inUse.reset(CreateFileW((m_path + kInUseFile).c_str(), GENERIC_READ | GENERIC_WRITE, 0, nullptr, CREATE_NEW,
                            FILE_ATTRIBUTE_NORMAL, nullptr));
  if (m_inUse && CreateDirectoryW(temporary().c_str(), nullptr)) return;
  const DWORD error = GetLastError();
  m_inUse.reset();
  removeFolder(m_path);
  SetLastError(error);
  throwUnmade(m_path);
}

PrivateFolder::~PrivateFolder() {
  m_inUse.reset();
  removeFolderWithWindows(m_path);
  m_sign.reset();
  removeFolder(m_path);
}

bool PrivateFolder::holdsMoreThan(unsigned long long bytes) const {
  unsigned long long sum = 0;
  add(m_path, bytes, sum);
  add(temporary(), bytes, sum);
  return sum > bytes;
}

}  // namespace mg::converter
