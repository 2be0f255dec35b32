#include "converter/pdf_check.h"

#include "converter/conversion_error.h"

#include <cstdlib>
#include <filesystem>
#include <fstream>

namespace mg::converter {
namespace {

constexpr size_t kEntrySize = 20;
// The root of the page tree lists its children in place; more than this is no page tree of pdfwrite's.
constexpr size_t kMostObjectSize = 16u << 20;

[[noreturn]] void throwIncomplete(const wchar_t* what) {
  throw ConversionError(ExitCode::kIncomplete, std::wstring(L"Ghostscript left a PDF that is not whole: ") + what +
                                                   L". Check the free space of the disk and print again.");
}

class PdfFile {
 public:
  explicit PdfFile(const std::wstring& path) : m_file(std::filesystem::path(path), std::ios::binary) {
    if (!m_file) throwIncomplete(L"there is no file");
    m_file.seekg(0, std::ios::end);
    m_size = static_cast<unsigned long long>(m_file.tellg());
    if (read(0, 5) != "%PDF-") throwIncomplete(L"it does not begin with \"%PDF-\"");
    readTail();
  }

  int pageCount() {
    const std::string trailer = read(m_table + kEntrySize * m_count, 4096);
    const std::string catalog = object(number(trailer, "/Root", L"it has no catalog"));
    const std::string pages = object(number(catalog, "/Pages", L"it has no page tree"));
    return static_cast<int>(number(pages, "/Count", L"it has no page count"));
  }

 private:
  std::string read(unsigned long long at, size_t size) {
    std::string bytes(size, '\0');
    m_file.clear();
    m_file.seekg(static_cast<std::streamoff>(at));
    m_file.read(bytes.data(), static_cast<std::streamsize>(size));
    bytes.resize(static_cast<size_t>(m_file.gcount()));
    return bytes;
  }

  // Finds the reference table through the last lines of the file.
  void readTail() {
    const std::string tail = read(m_size > 1024 ? m_size - 1024 : 0, 1024);
    const size_t end = tail.rfind("%%EOF");
    if (end == std::string::npos || tail.find_first_not_of("\r\n", end + 5) != std::string::npos) {
      throwIncomplete(L"it does not end with \"%%EOF\"");
    }
    const size_t start = tail.rfind("startxref");
    if (start == std::string::npos) throwIncomplete(L"it has no reference table");
    const unsigned long long at = std::strtoull(tail.c_str() + start + 9, nullptr, 10);
    const std::string head = read(at, 64);
    char* cursor = nullptr;
    if (head.compare(0, 6, "xref\n0") != 0) throwIncomplete(L"its reference table is not where it should be");
    m_count = std::strtoull(head.c_str() + 6, &cursor, 10);
    m_table = at + static_cast<size_t>(cursor - head.c_str()) + 1;
    if (m_count > m_size / kEntrySize) throwIncomplete(L"its reference table is cut");
  }

  std::string object(unsigned long long number) {
    if (number == 0 || number >= m_count) throwIncomplete(L"an object is missing");
    const unsigned long long at = std::strtoull(read(m_table + kEntrySize * number, 10).c_str(), nullptr, 10);
    size_t size = 4096;
    std::string text = read(at, size);
    while (text.find("endobj") == std::string::npos) {
      if (text.size() < size || size > kMostObjectSize) throwIncomplete(L"an object is cut");
      size *= 4;
      text = read(at, size);
    }
    text.resize(text.find("endobj"));
    if (std::strtoull(text.c_str(), nullptr, 10) != number) throwIncomplete(L"an object is not where it should be");
    return text;
  }

  static unsigned long long number(const std::string& text, const char* key, const wchar_t* otherwise) {
    const size_t at = text.find(key);
    if (at == std::string::npos) throwIncomplete(otherwise);
    return std::strtoull(text.c_str() + at + std::char_traits<char>::length(key), nullptr, 10);
  }

  std::ifstream m_file;
  unsigned long long m_size = 0;
  unsigned long long m_table = 0;
  unsigned long long m_count = 0;
};

}  // namespace

int countPdfPages(const std::wstring& path) {
  return PdfFile(path).pageCount();
}

}  // namespace mg::converter
