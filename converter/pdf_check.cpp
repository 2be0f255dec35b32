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

[[noreturn]] void ThrowIncomplete(const wchar_t* what) {
  throw ConversionError(ExitCode::kIncomplete, std::wstring(L"Ghostscript left a PDF that is not whole: ") + what +
                                                   L". Check the free space of the disk and print again.");
}

class PdfFile {
 public:
  explicit PdfFile(const std::wstring& path) : file_(std::filesystem::path(path), std::ios::binary) {
    if (!file_) ThrowIncomplete(L"there is no file");
    file_.seekg(0, std::ios::end);
    size_ = static_cast<unsigned long long>(file_.tellg());
    if (Read(0, 5) != "%PDF-") ThrowIncomplete(L"it does not begin with \"%PDF-\"");
    ReadTail();
  }

  int PageCount() {
    const std::string trailer = Read(table_ + kEntrySize * count_, 4096);
    const std::string catalog = Object(Number(trailer, "/Root", L"it has no catalog"));
    const std::string pages = Object(Number(catalog, "/Pages", L"it has no page tree"));
    return static_cast<int>(Number(pages, "/Count", L"it has no page count"));
  }

 private:
  std::string Read(unsigned long long at, size_t size) {
    std::string bytes(size, '\0');
    file_.clear();
    file_.seekg(static_cast<std::streamoff>(at));
    file_.read(bytes.data(), static_cast<std::streamsize>(size));
    bytes.resize(static_cast<size_t>(file_.gcount()));
    return bytes;
  }

  // Finds the reference table through the last lines of the file.
  void ReadTail() {
    const std::string tail = Read(size_ > 1024 ? size_ - 1024 : 0, 1024);
    const size_t end = tail.rfind("%%EOF");
    if (end == std::string::npos || tail.find_first_not_of("\r\n", end + 5) != std::string::npos) {
      ThrowIncomplete(L"it does not end with \"%%EOF\"");
    }
    const size_t start = tail.rfind("startxref");
    if (start == std::string::npos) ThrowIncomplete(L"it has no reference table");
    const unsigned long long at = std::strtoull(tail.c_str() + start + 9, nullptr, 10);
    const std::string head = Read(at, 64);
    char* cursor = nullptr;
    if (head.compare(0, 6, "xref\n0") != 0) ThrowIncomplete(L"its reference table is not where it should be");
    count_ = std::strtoull(head.c_str() + 6, &cursor, 10);
    table_ = at + static_cast<size_t>(cursor - head.c_str()) + 1;
    if (count_ > size_ / kEntrySize) ThrowIncomplete(L"its reference table is cut");
  }

  std::string Object(unsigned long long number) {
    if (number == 0 || number >= count_) ThrowIncomplete(L"an object is missing");
    const unsigned long long at = std::strtoull(Read(table_ + kEntrySize * number, 10).c_str(), nullptr, 10);
    size_t size = 4096;
    std::string text = Read(at, size);
    while (text.find("endobj") == std::string::npos) {
      if (text.size() < size || size > kMostObjectSize) ThrowIncomplete(L"an object is cut");
      size *= 4;
      text = Read(at, size);
    }
    text.resize(text.find("endobj"));
    if (std::strtoull(text.c_str(), nullptr, 10) != number) ThrowIncomplete(L"an object is not where it should be");
    return text;
  }

  static unsigned long long Number(const std::string& text, const char* key, const wchar_t* otherwise) {
    const size_t at = text.find(key);
    if (at == std::string::npos) ThrowIncomplete(otherwise);
    return std::strtoull(text.c_str() + at + std::char_traits<char>::length(key), nullptr, 10);
  }

  std::ifstream file_;
  unsigned long long size_ = 0;
  unsigned long long table_ = 0;
  unsigned long long count_ = 0;
};

}  // namespace

int CountPdfPages(const std::wstring& path) {
  return PdfFile(path).PageCount();
}

}  // namespace mg::converter
