#pragma once

#include <string>

namespace mg::converter {

// A folder of one run, made empty under a name that nobody can guess and removed with all that is in it when the
// object goes. Ghostscript lets a PostScript job read, overwrite and delete whatever lies below its temporary folder,
// so that folder must hold nothing but this run's own files.
class PrivateFolder {
 public:
  // Makes the folder beside `file`, on the same volume, so that a result can be renamed out of it. A failure is a
  // ConversionError (kFileSystem).
  explicit PrivateFolder(const std::wstring& file);
  ~PrivateFolder();
  PrivateFolder(const PrivateFolder&) = delete;
  PrivateFolder& operator=(const PrivateFolder&) = delete;

  const std::wstring& path() const { return m_path; }
  // Where Ghostscript keeps its own temporary files: an empty folder inside, apart from the files below.
  std::wstring temporary() const { return m_path + L"\\tmp"; }
  std::wstring output() const { return m_path + L"\\out.pdf"; }
  // What Ghostscript said on standard output and standard error.
  std::wstring said() const { return m_path + L"\\said.txt"; }

 private:
  std::wstring m_path;
};

}  // namespace mg::converter
