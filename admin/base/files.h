#pragma once

#include <array>
#include <compare>
#include <cstdint>
#include <optional>
#include <string>
#include <vector>

namespace admin {

// The version in a file's resource, compared number by number from the left.
struct FileVersion {
  std::array<std::uint16_t, 4> numbers = {};

  auto operator<=>(const FileVersion&) const = default;
  // The numbers with full stops between them.
  std::string text() const;
};

// Empty when the file does not exist or has no version.
std::optional<FileVersion> fileVersion(const std::wstring& path);

// Creates a folder in an existing one; throws a SystemFailure that names it.
void createFolder(const std::wstring& path);
// Deletes a folder; succeeds when it does not exist. Throws a SystemFailure when it is not empty or in use.
void deleteFolder(const std::wstring& path);
// Deletes the files in a folder, and none below; succeeds when it does not exist.
void deleteFilesIn(const std::wstring& folder);
// The folder and its parents that do not exist, the outermost first.
std::vector<std::wstring> missingFolders(std::wstring path);

// Files by their paths. Every function throws a SystemFailure that names the file.

bool fileExists(const std::wstring& path);
bool folderExists(const std::wstring& path);
// Both exist and have the same content.
bool sameContent(const std::wstring& left, const std::wstring& right);
// Copies a file, completely to the disk when this returns; after a failure the target is deleted. An existing target is
// overwritten.
void copyFile(const std::wstring& from, const std::wstring& to);
void moveFile(const std::wstring& from, const std::wstring& to, bool mayReplace);
// Succeeds when it does not exist.
void deleteFile(const std::wstring& path);
// Fails when the file is open in a way that prevents its replacement: usually a module that the spooler has loaded.
void requireReplaceable(const std::wstring& path);
// The content as bytes; of a longer file only that many from its end.
std::string fileTail(const std::wstring& path, unsigned bytes);

// A PostScript page for tests of an installation.
inline constexpr char kTestPage[] =
    "%!PS-Adobe-3.0\n/Helvetica findfont 24 scalefont setfont 72 700 moveto (mgprintmon test page) show showpage\n";

// A unique file name in the folder for temporary files. The destructor deletes the file of that name. Throws a
// SystemFailure.
class ScratchFile {
 public:
  explicit ScratchFile(const wchar_t* extension);
  ~ScratchFile();
  ScratchFile(const ScratchFile&) = delete;
  ScratchFile& operator=(const ScratchFile&) = delete;

  // The same name with another extension.
  ScratchFile sibling(const wchar_t* extension) const;

  const std::wstring& path() const { return m_path; }
  // Creates the file with that content.
  void write(const std::string& content) const;

  // With a trailing backslash.
  static std::wstring folder();

 private:
  ScratchFile(const std::wstring& stem, const wchar_t* extension) : m_stem(stem), m_path(stem + extension) {}

  std::wstring m_stem;
  std::wstring m_path;
};

}  // namespace admin
