#pragma once

#include "util/win_handle.h"

#include <string>
#include <utility>

namespace mg::converter {

// Removes the folder of a run with everything in it, including names that Windows reads as devices or cannot address
// ("aux", "x."), and under Wine those that only the host can address ("a\nb", "q?"). Each entry is tried once, so the
// call ends; what remains is left to the next run. Links are removed and not followed. False when the folder still
// exists. Throws nothing; may be called by any thread.
bool removeFolder(const std::wstring& path) noexcept;

// The same with Windows calls only.
bool removeFolderWithWindows(const std::wstring& path) noexcept;

// A folder of one run, created empty under an unguessable name and removed with everything in it by the destructor.
// Ghostscript lets a PostScript job read, overwrite and delete everything below its temporary folder, so that folder
// must contain only this run's own files. Belongs to one thread.
//
// While the object lives it holds a file in the folder open exclusively. By that the next run distinguishes a folder
// that a killed run left behind from one that is in use.
class PrivateFolder {
 public:
  // Makes the folder beside `file`, on the same volume, so that a result can be renamed out of it. A failure is a
  // ConversionError (kFileSystem). Removes at most kMostSwept folders that killed runs left there.
  explicit PrivateFolder(const std::wstring& file);
  ~PrivateFolder();
  PrivateFolder(const PrivateFolder&) = delete;
  PrivateFolder& operator=(const PrivateFolder&) = delete;

  static constexpr int kMostSwept = 16;

  const std::wstring& path() const { return m_path; }
  // Where Ghostscript keeps its own temporary files: an empty folder inside, apart from the files below.
  std::wstring temporary() const { return m_path + L"\\tmp"; }
  std::wstring output() const { return m_path + L"\\out.pdf"; }
  // The script that Ghostscript runs: its name in the folder, and its path.
  static constexpr wchar_t kScript[] = L"run.ps";
  std::wstring script() const { return m_path + L"\\" + kScript; }
  // Ghostscript's standard output and standard error.
  std::wstring said() const { return m_path + L"\\said.txt"; }

  // True when all files of the run together are larger than this many bytes. A file counts as at least 4,096 bytes, so
  // their number is bounded, too.
  bool holdsMoreThan(unsigned long long bytes) const;

  // Takes over the handle whose closing tells a waiting process that the folder is no longer needed.
  void releaseAtEnd(FileHandle sign) { m_sign = std::move(sign); }
  // Closes that handle now.
  void release() { m_sign.reset(); }

 private:
  std::wstring m_path;
  FileHandle m_inUse;
  FileHandle m_sign;
};

// The name of a run's folder is this prefix and 16 hexadecimal digits; kInUseFile is the file in it that the run holds
// open.
inline constexpr wchar_t kFolderPrefix[] = L"ps2pdf-";
inline constexpr wchar_t kInUseFile[] = L"\\in-use";

// Removes folders in `parent` (with a trailing backslash) that killed runs left there: at most `most`, which bounds the
// time that one run spends on it. The folder of a running process is never touched, nor one that is just being made: a
// folder without kInUseFile counts as left behind after an hour. Throws nothing.
void sweepFolders(const std::wstring& parent, int most) noexcept;

}  // namespace mg::converter
