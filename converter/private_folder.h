#pragma once

#include "util/win_handle.h"

#include <string>
#include <utility>

namespace mg::converter {

// Removes a folder of a run with all that is in it, whatever its names are: also those that Windows takes for devices
// or for nothing ("aux", "x."), and under Wine those that only the host can name ("a\nb", "q?"). Each entry is tried
// once, so it ends; what still stands then is left to the next run. Links are removed and not followed. False when the
// folder is still there. Throws nothing; may be called by any thread.
bool removeFolder(const std::wstring& path) noexcept;

// The same with the calls of Windows alone.
bool removeFolderWithWindows(const std::wstring& path) noexcept;

// A folder of one run, made empty under a name that nobody can guess and removed with all that is in it when the
// object goes. Ghostscript lets a PostScript job read, overwrite and delete whatever lies below its temporary folder,
// so that folder must hold nothing but this run's own files. Belongs to one thread.
//
// While the object lives it holds a file of the folder open that nobody else can open then. By that the next run knows
// a folder that a killed run has left from one that is in use.
class PrivateFolder {
 public:
  // Makes the folder beside `file`, on the same volume, so that a result can be renamed out of it. A failure is a
  // ConversionError (kFileSystem). Removes what killed runs have left there, at most kMostSwept folders of them.
  explicit PrivateFolder(const std::wstring& file);
  ~PrivateFolder();
  PrivateFolder(const PrivateFolder&) = delete;
  PrivateFolder& operator=(const PrivateFolder&) = delete;

  static constexpr int kMostSwept = 16;

  const std::wstring& path() const { return m_path; }
  // Where Ghostscript keeps its own temporary files: an empty folder inside, apart from the files below.
  std::wstring temporary() const { return m_path + L"\\tmp"; }
  std::wstring output() const { return m_path + L"\\out.pdf"; }
  // What Ghostscript runs, and its name in the folder.
  static constexpr wchar_t kScript[] = L"run.ps";
  std::wstring script() const { return m_path + L"\\" + kScript; }
  // What Ghostscript said on standard output and standard error.
  std::wstring said() const { return m_path + L"\\said.txt"; }

  // True when all files of the run together are larger than this many bytes. A file counts as 4,096 bytes at least, so
  // the bound is one of their number, too.
  bool holdsMoreThan(unsigned long long bytes) const;

  // Takes over what somebody outside waits for as the sign that the folder is needed no longer.
  void releaseAtEnd(FileHandle sign) { m_sign = std::move(sign); }
  // Gives that sign now.
  void release() { m_sign.reset(); }

 private:
  std::wstring m_path;
  FileHandle m_inUse;
  FileHandle m_sign;
};

// The names by which a run's folder is known: the prefix and 16 hexadecimal digits, and the file in it that the run
// holds open while it lives.
inline constexpr wchar_t kFolderPrefix[] = L"ps2pdf-";
inline constexpr wchar_t kInUseFile[] = L"\\in-use";

// Removes the folders in `parent` (with its backslash) that runs have left there which were killed: at most `most`, so
// that a run never pays for many. The folder of a living run is never touched, nor is one that a run may just be
// making: without its file a folder counts as left after an hour. Throws nothing.
void sweepFolders(const std::wstring& parent, int most) noexcept;

}  // namespace mg::converter
