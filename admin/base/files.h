#pragma once

#include <array>
#include <compare>
#include <cstdint>
#include <optional>
#include <string>
#include <vector>

namespace admin {

// The version in a file's resource, ordered by its numbers from the left.
struct FileVersion {
  std::array<std::uint16_t, 4> numbers = {};

  auto operator<=>(const FileVersion&) const = default;
  // The numbers with full stops between them.
  std::string text() const;
};

// Nothing when the file is not there or has no version.
std::optional<FileVersion> fileVersion(const std::wstring& path);

// Makes a folder in one that exists; throws a SystemFailure that names it.
void createFolder(const std::wstring& path);
// Deletes a folder; fine when it is not there. Throws a SystemFailure when it is not empty or in use.
void deleteFolder(const std::wstring& path);
// The folder and those above it that are not there, the outermost first.
std::vector<std::wstring> missingFolders(std::wstring path);

// Files by path, as Windows has them. Everything here throws a SystemFailure that names the file.

bool fileExists(const std::wstring& path);
bool folderExists(const std::wstring& path);
// Both are there and hold the same bytes.
bool sameContent(const std::wstring& left, const std::wstring& right);
// Writes a new file with the content of another one, complete on disk when this returns; what it had written is gone
// when it fails. A file of the target's name is overwritten.
void copyFile(const std::wstring& from, const std::wstring& to);
void moveFile(const std::wstring& from, const std::wstring& to, bool mayReplace);
// Fine when it is not there.
void deleteFile(const std::wstring& path);
// Fails when somebody holds the file so that it cannot be replaced: the spooler, as a rule, a module that it has
// loaded.
void requireReplaceable(const std::wstring& path);
// The whole content as bytes; at most that many from its end.
std::string fileTail(const std::wstring& path, unsigned bytes);

// A page of PostScript for trying things out.
inline constexpr char kTestPage[] =
    "%!PS-Adobe-3.0\n/Helvetica findfont 24 scalefont setfont 72 700 moveto (mgprintmon test page) show showpage\n";

// The name of a file in the folder for temporary files that nobody else uses. What stands under it at the end of the
// object is deleted. Throws a SystemFailure.
class ScratchFile {
 public:
  explicit ScratchFile(const wchar_t* extension);
  ~ScratchFile();
  ScratchFile(const ScratchFile&) = delete;
  ScratchFile& operator=(const ScratchFile&) = delete;

  // The same name with another extension.
  ScratchFile sibling(const wchar_t* extension) const;

  const std::wstring& path() const { return m_path; }
  // Makes the file with that content.
  void write(const std::string& content) const;

  // With a backslash at its end.
  static std::wstring folder();

 private:
  ScratchFile(const std::wstring& stem, const wchar_t* extension) : m_stem(stem), m_path(stem + extension) {}

  std::wstring m_stem;
  std::wstring m_path;
};

}  // namespace admin
