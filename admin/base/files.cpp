#include "admin/base/files.h"

#include "admin/base/failure.h"
#include "corvane/base/text.h"
#include "programs/text.h"
#include "util/win_handle.h"

#include <windows.h>

#include <algorithm>
#include <atomic>
#include <cstring>
#include <fmt/format.h>
#include <fmt/xchar.h>
#include <vector>

namespace admin {

std::string FileVersion::text() const {
  return fmt::format("{}", fmt::join(numbers, "."));
}

std::optional<FileVersion> fileVersion(const std::wstring& path) {
  DWORD ignored = 0;
  const DWORD size = GetFileVersionInfoSizeW(path.c_str(), &ignored);
  if (size == 0) return std::nullopt;
  std::vector<BYTE> block(size);
  void* found = nullptr;
  UINT length = 0;
  if (!GetFileVersionInfoW(path.c_str(), 0, size, block.data()) ||
      !VerQueryValueW(block.data(), L"\\", &found, &length) || length < sizeof(VS_FIXEDFILEINFO)) {
    return std::nullopt;
  }
  const auto& information = *static_cast<const VS_FIXEDFILEINFO*>(found);
  return FileVersion{{HIWORD(information.dwFileVersionMS), LOWORD(information.dwFileVersionMS),
                      HIWORD(information.dwFileVersionLS), LOWORD(information.dwFileVersionLS)}};
}

void createFolder(const std::wstring& path) {
  require(CreateDirectoryW(path.c_str(), nullptr),
          fmt::format("the folder \"{}\" cannot be made", corvane::toUtf8(path)));
}

void deleteFolder(const std::wstring& path) {
  if (RemoveDirectoryW(path.c_str())) return;
  const DWORD error = GetLastError();
  if (error == ERROR_FILE_NOT_FOUND || error == ERROR_PATH_NOT_FOUND) return;
  throw SystemFailure(fmt::format("the folder \"{}\" cannot be deleted", corvane::toUtf8(path)), error);
}

void deleteFilesIn(const std::wstring& folder) {
  WIN32_FIND_DATAW found{};
  const mg::FindHandle search(FindFirstFileW((folder + L"\\*").c_str(), &found));
  if (!search) return;
  do {
    if ((found.dwFileAttributes & FILE_ATTRIBUTE_DIRECTORY) == 0) deleteFile(folder + L"\\" + found.cFileName);
  } while (FindNextFileW(search.get(), &found));
}

std::vector<std::wstring> missingFolders(std::wstring path) {
  std::vector<std::wstring> missing;
  while (path.size() > 3 && !folderExists(path)) {
    missing.push_back(path);
    const std::size_t end = path.rfind(L'\\');
    if (end == std::wstring::npos) break;
    path.resize(end);
  }
  std::reverse(missing.begin(), missing.end());
  return missing;
}

namespace {

constexpr DWORD kPiece = 65536;

// INVALID_FILE_ATTRIBUTES when the path does not exist; an inaccessible path is a failure.
DWORD attributesOf(const std::wstring& path) {
  const DWORD attributes = GetFileAttributesW(path.c_str());
  if (attributes != INVALID_FILE_ATTRIBUTES) return attributes;
  const DWORD error = GetLastError();
  if (error == ERROR_FILE_NOT_FOUND || error == ERROR_PATH_NOT_FOUND) return INVALID_FILE_ATTRIBUTES;
  throw SystemFailure(fmt::format("{} cannot be accessed", programs::quoted(path)), error);
}

mg::FileHandle openForReading(const std::wstring& path) {
  mg::FileHandle file(CreateFileW(path.c_str(), GENERIC_READ, FILE_SHARE_READ | FILE_SHARE_WRITE | FILE_SHARE_DELETE,
                                  nullptr, OPEN_EXISTING, FILE_ATTRIBUTE_NORMAL, nullptr));
  require(static_cast<bool>(file), fmt::format("{} cannot be opened", programs::quoted(path)));
  return file;
}

DWORD readPiece(HANDLE file, const std::wstring& path, std::vector<BYTE>& piece) {
  piece.resize(kPiece);
  DWORD size = 0;
  require(ReadFile(file, piece.data(), kPiece, &size, nullptr),
          fmt::format("{} cannot be read", programs::quoted(path)));
  piece.resize(size);
  return size;
}

void writeCopy(const std::wstring& from, const std::wstring& to) {
  const mg::FileHandle source = openForReading(from);
  const std::string tried = fmt::format("{} cannot be written", programs::quoted(to));
  const mg::FileHandle target(
      CreateFileW(to.c_str(), GENERIC_WRITE, 0, nullptr, CREATE_ALWAYS, FILE_ATTRIBUTE_NORMAL, nullptr));
  require(static_cast<bool>(target), tried);
  std::vector<BYTE> piece;
  while (readPiece(source.get(), from, piece) > 0) {
    DWORD written = 0;
    require(WriteFile(target.get(), piece.data(), static_cast<DWORD>(piece.size()), &written, nullptr), tried);
    // A full disk stores what still fits and reports success.
    if (written != piece.size()) throw SystemFailure(tried, ERROR_DISK_FULL);
  }
  require(FlushFileBuffers(target.get()), tried);
}

}  // namespace

bool fileExists(const std::wstring& path) {
  const DWORD attributes = attributesOf(path);
  return attributes != INVALID_FILE_ATTRIBUTES && (attributes & FILE_ATTRIBUTE_DIRECTORY) == 0;
}

bool folderExists(const std::wstring& path) {
  const DWORD attributes = attributesOf(path);
  return attributes != INVALID_FILE_ATTRIBUTES && (attributes & FILE_ATTRIBUTE_DIRECTORY) != 0;
}

bool sameContent(const std::wstring& left, const std::wstring& right) {
  if (!fileExists(left) || !fileExists(right)) return false;
  const mg::FileHandle one = openForReading(left);
  const mg::FileHandle other = openForReading(right);
  std::vector<BYTE> ours;
  std::vector<BYTE> theirs;
  do {
    readPiece(one.get(), left, ours);
    readPiece(other.get(), right, theirs);
    if (ours != theirs) return false;
  } while (!ours.empty());
  return true;
}

void copyFile(const std::wstring& from, const std::wstring& to) try { writeCopy(from, to); } catch (...) {
  DeleteFileW(to.c_str());
  throw;
}

void moveFile(const std::wstring& from, const std::wstring& to, bool mayReplace) {
  require(MoveFileExW(from.c_str(), to.c_str(), mayReplace ? MOVEFILE_REPLACE_EXISTING : 0),
          fmt::format("{} cannot be renamed to {}", programs::quoted(from), programs::quoted(to)));
}

void deleteFile(const std::wstring& path) {
  if (DeleteFileW(path.c_str())) return;
  const DWORD error = GetLastError();
  if (error == ERROR_FILE_NOT_FOUND || error == ERROR_PATH_NOT_FOUND) return;
  // For a loaded module Windows reports a missing right.
  if (error == ERROR_ACCESS_DENIED) requireReplaceable(path);
  throw SystemFailure(fmt::format("{} cannot be deleted", programs::quoted(path)), error);
}

void requireReplaceable(const std::wstring& path) {
  const mg::FileHandle file(CreateFileW(path.c_str(), GENERIC_READ | GENERIC_WRITE | DELETE, 0, nullptr, OPEN_EXISTING,
                                        FILE_ATTRIBUTE_NORMAL, nullptr));
  require(static_cast<bool>(file), fmt::format("{} cannot be replaced", programs::quoted(path)));
}

std::string fileTail(const std::wstring& path, unsigned bytes) {
  const mg::FileHandle file = openForReading(path);
  LARGE_INTEGER size = {};
  const std::string tried = fmt::format("{} cannot be read", programs::quoted(path));
  require(GetFileSizeEx(file.get(), &size), tried);
  LARGE_INTEGER begin = {};
  begin.QuadPart = std::max<long long>(0, size.QuadPart - bytes);
  require(SetFilePointerEx(file.get(), begin, nullptr, FILE_BEGIN), tried);
  std::string tail;
  std::vector<BYTE> piece;
  while (tail.size() < bytes && readPiece(file.get(), path, piece) > 0)
    tail.append(piece.begin(), piece.end());
  return tail;
}

namespace {

std::wstring freshStem() {
  static std::atomic<unsigned> last{0};
  return fmt::format(L"{}mgprintmon-{}-{}", ScratchFile::folder(), GetCurrentProcessId(), ++last);
}

}  // namespace

ScratchFile::ScratchFile(const wchar_t* extension) : ScratchFile(freshStem(), extension) {}

ScratchFile::~ScratchFile() {
  DeleteFileW(m_path.c_str());
}

ScratchFile ScratchFile::sibling(const wchar_t* extension) const {
  return ScratchFile(m_stem, extension);
}

void ScratchFile::write(const std::string& content) const {
  const std::string tried = fmt::format("\"{}\" cannot be written", corvane::toUtf8(m_path));
  const mg::FileHandle file(
      CreateFileW(m_path.c_str(), GENERIC_WRITE, 0, nullptr, CREATE_ALWAYS, FILE_ATTRIBUTE_NORMAL, nullptr));
  require(static_cast<bool>(file), tried);
  DWORD written = 0;
  require(WriteFile(file.get(), content.data(), static_cast<DWORD>(content.size()), &written, nullptr), tried);
  if (written != content.size()) throw SystemFailure(tried, ERROR_DISK_FULL);
}

std::wstring ScratchFile::folder() {
  wchar_t path[MAX_PATH + 1];
  const DWORD length = GetTempPathW(MAX_PATH + 1, path);
  require(length > 0 && length <= MAX_PATH, "the folder for temporary files is unknown");
  return path;
}

}  // namespace admin
