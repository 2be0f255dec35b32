#pragma once

#include <fstream>
#include <string>
#include <vector>

namespace mg::converter {

// A PDF with plain reference tables, as Ghostscript writes it on request, also one that is arranged for fast web view
// (two tables). Read as a reader reads it: from "startxref" at the tail. Whatever is not whole is a ConversionError
// (kIncomplete) that says what is missing. Belongs to one thread.
class PdfFile {
 public:
  explicit PdfFile(const std::wstring& path);

  // The trailer that the last table has, as text from "<<" on.
  const std::string& trailer() const { return m_trailer; }
  // The numbers of all objects that the tables name.
  std::vector<unsigned long long> objects() const;
  // Where an object stands in the file.
  unsigned long long offset(unsigned long long number) const;
  // An object's text from its number to "endobj", or to "stream" where it has one.
  std::string object(unsigned long long number);
  // Bytes of the file; fewer at its end.
  std::string read(unsigned long long at, size_t size);

 private:
  struct Section {
    unsigned long long first;
    unsigned long long count;
    unsigned long long at;
  };

  void readTail();
  // Reads one table and gives where the one before it stands, 0 when there is none.
  unsigned long long readTable(unsigned long long at, bool isLast);
  void readSection(const Section& section);

  std::ifstream m_file;
  unsigned long long m_size = 0;
  std::string m_trailer;
  std::vector<unsigned long long> m_offsets;  // 0 for an object that is not there
};

// The number behind a key of a dictionary's text, as of "/Count 12" or "/Root 3 0 R"; without the key a
// ConversionError with `otherwise`.
unsigned long long numberOf(const std::string& text, const char* key, const wchar_t* otherwise);

// Throws the ConversionError of a PDF that is not whole.
[[noreturn]] void throwNotWhole(const wchar_t* what);

}  // namespace mg::converter
