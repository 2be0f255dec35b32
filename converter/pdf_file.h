#pragma once

#include <fstream>
#include <string>
#include <vector>

namespace mg::converter {

// A PDF with plain reference tables, as Ghostscript writes it on request, including the two tables of fast web view.
// Read as a viewer reads it: from "startxref" at the end. An incomplete file is a ConversionError (kIncomplete) that
// names what is missing. Belongs to one thread.
class PdfFile {
 public:
  explicit PdfFile(const std::wstring& path);

  // The trailer of the last table, as text from "<<" on.
  const std::string& trailer() const { return m_trailer; }
  // The numbers of all objects in the tables, in the order in which they stand in the file: so it is read once.
  std::vector<unsigned long long> objects() const;
  // An object's position in the file.
  unsigned long long offset(unsigned long long number) const;
  // An object's text from its number to "endobj", or to "stream" when it has a stream.
  std::string object(unsigned long long number);
  // Bytes of the file; fewer at its end.
  std::string read(unsigned long long at, size_t size);

 private:
  struct Section {
    unsigned long long first;
    unsigned long long count;
    unsigned long long at;
  };

  std::string readFile(unsigned long long at, size_t size);
  void readTail();
  // Reads one table and returns the position of the previous one, 0 when there is none.
  unsigned long long readTable(unsigned long long at, bool isLast);
  void readSection(const Section& section);

  std::ifstream m_file;
  unsigned long long m_size = 0;
  std::string m_window;  // of the file, from m_windowAt on: most objects are small and stand close together
  unsigned long long m_windowAt = 0;
  std::string m_trailer;
  std::vector<unsigned long long> m_offsets;  // 0 for an object that does not exist
};

// The number after a key in a dictionary's text, as in "/Count 12" or "/Root 3 0 R"; without the key throws a
// ConversionError with the text `otherwise`.
unsigned long long numberOf(const std::string& text, const char* key, const wchar_t* otherwise);

// Throws the ConversionError of an incomplete PDF.
[[noreturn]] void throwIncomplete(const wchar_t* what);

}  // namespace mg::converter
