#include "admin/base/places.h"

#include "admin/base/failure.h"
#include "admin/base/registry_value.h"
#include "corvane/base/text.h"
#include "programs/data_folder.h"

#include <windows.h>

#include <fmt/format.h>

namespace admin {
namespace {

// The module appends "Programs\ps2pdf.exe" and a document's path to the root.
constexpr std::size_t kMaxRoot = 180;

std::wstring folderOfTheSystem() {
  wchar_t path[MAX_PATH];
  const UINT length = GetSystemDirectoryW(path, MAX_PATH);
  require(length > 0 && length < MAX_PATH, "the system folder is unknown");
  return path;
}

std::wstring defaultRoot() {
  wchar_t path[MAX_PATH];
  const DWORD length = GetEnvironmentVariableW(L"ProgramFiles", path, MAX_PATH);
  return std::wstring(length > 0 && length < MAX_PATH ? path : L"C:\\Program Files") + L"\\Marrowgate";
}

std::wstring fullPath(const std::wstring& path) {
  wchar_t full[MAX_PATH];
  const DWORD length = GetFullPathNameW(path.c_str(), MAX_PATH, full, nullptr);
  if (length == 0 || length > kMaxRoot) {
    throw Failure(ExitCode::kUsage, fmt::format("\"{}\" is too long for an installation folder", corvane::toUtf8(path)),
                  fmt::format("Choose a folder of at most {} characters with --root.", kMaxRoot));
  }
  std::wstring root = full;
  while (root.size() > 3 && root.back() == L'\\')
    root.pop_back();
  if (root.size() <= 3) {
    throw Failure(ExitCode::kUsage, fmt::format("\"{}\" is a whole drive", corvane::toUtf8(path)),
                  "Choose a folder of its own with --root.");
  }
  return root;
}

}  // namespace

Places Places::ofThisMachine(const std::wstring& root) {
  Places places;
  places.systemFolder = folderOfTheSystem();
  places.dataFolder = corvane::fromUtf8(programs::dataFolder());
  if (!root.empty()) {
    places.root = fullPath(root);
    return places;
  }
  const auto present = readValue(places.productKey(), L"RootPath");
  const std::wstring known = present ? present->text().value_or(std::wstring()) : std::wstring();
  places.root = fullPath(known.empty() ? defaultRoot() : known);
  return places;
}

}  // namespace admin
