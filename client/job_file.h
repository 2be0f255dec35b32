#pragma once

#include <cstddef>
#include <filesystem>
#include <memory>
#include <span>
#include <string>
#include <string_view>
#include <vector>

namespace printclient {

class DiskFile;

// Bytes of UTF-8 that a file name made here may have without its extension: leaves room for an extension and a number
// within the 255 bytes of common file systems.
inline constexpr std::size_t kMaxFileNameBytes = 200;

// A document's name as the name of a file, without directory, as UTF-8, safe on Windows and elsewhere: separators and
// other characters that Windows refuses become "-", what cannot be seen vanishes (corvane/base/text.h), so that the
// name reads as it is stored, dots and blanks at either end are taken off, a reserved device name gets "_" in front,
// and a name that is too long is cut between characters. An extension equal to the given one (".pdf") is taken off, so
// that it does not stand twice. A name of which nothing is left is the fallback made safe in the same way, or "job".
std::string fileNameFor(std::wstring_view documentName, std::wstring_view fallback, std::string_view extension);

// The name with a number, for when the plain one is taken: number 1 is "name.pdf", number 2 is "name (2).pdf".
std::string numberedName(std::string_view name, std::string_view extension, int number);

// The file of one job: written under a temporary name in the folder, and given its final name only when every byte is
// on the disk. Destroying the object before that removes the temporary file. It is written in whole blocks of
// kBlockBytes, which the system puts down fastest, and what is not a whole one is kept in memory. Failures are those of
// DiskFile. Used by one thread.
class JobFile {
 public:
  JobFile(const std::filesystem::path& folder, const std::string& temporaryName);
  ~JobFile();
  JobFile(const JobFile&) = delete;
  JobFile& operator=(const JobFile&) = delete;

  void append(std::span<const unsigned char> bytes);
  // The same for bytes that stay where they are until the next call of another operation, so that several pieces are
  // written at once. letGo() writes their whole blocks and keeps the rest.
  void refer(std::span<const unsigned char> bytes);
  void letGo();
  // Completes the file under a free name among "name.ext", "name (2).ext", ... and returns that name: the first free
  // one up to kInOrder, and behind a free one whose number is found by doubling, so that a folder with a long day's
  // jobs of one name costs some dozens of looks and not one for each of them.
  std::string keepAs(std::string_view name, std::string_view extension);

  // Writes all that was appended so far to another file; before share() and keepAs().
  void copyTo(DiskFile& other);

  // Returns when all that was appended is on the disk, with the path of the file as it is. Nothing more is appended.
  std::filesystem::path settle();

  // Completes the file for other programs to read, under its temporary name with the extension behind it, and returns
  // its path. It goes with this object. Nothing more is appended.
  std::filesystem::path share(std::string_view extension);

  static constexpr std::size_t kBlockBytes = 64 * 1024;
  static constexpr std::size_t kMostReferred = 64;  // pieces that are written at once
  static constexpr int kInOrder = 100;

 private:
  void flush();
  // A number above kInOrder whose name was free a moment ago, while the name of the number before it was taken.
  int freeNumber(std::string_view name, std::string_view extension) const;
  std::filesystem::path pathOf(const std::string& name) const;

  const std::filesystem::path m_folder;
  const std::string m_temporaryName;
  std::unique_ptr<DiskFile> m_file;
  std::vector<unsigned char> m_rest;                       // of what was appended, less than a block
  std::vector<std::span<const unsigned char>> m_referred;  // what follows it
  std::size_t m_referredBytes = 0;
};

}  // namespace printclient
