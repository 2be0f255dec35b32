#pragma once

#include <string>

namespace admin {

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
