#include "converter/pdf_file.h"

#include "converter/conversion_error.h"
#include "converter/pdf_tokens.h"

#include <algorithm>
#include <cstdlib>
#include <filesystem>
#include <fmt/format.h>
#include <fmt/xchar.h>

namespace mg::converter {
namespace {

constexpr size_t kEntrySize = 20;
constexpr size_t kWindow = 64u << 10;
// The root of the page tree lists all its children; pdfwrite writes no object larger than this.
constexpr size_t kMostObjectSize = 16u << 20;
constexpr size_t kMostTrailerSize = 64u << 10;
// Fast web view has two tables. Only a document that writes into the file itself can add more.
constexpr int kMostTables = 4;

// True when `text` holds a whole object; gives its size up to "endobj" or "stream", that word included.
bool isWholeObject(const std::string& text, size_t& size) {
  PdfTokens tokens(text);
  for (PdfToken token = tokens.next(); token.kind != PdfTokenKind::kEnd; token = tokens.next()) {
    if (token.kind == PdfTokenKind::kWord && (token.text == "endobj" || token.text == "stream")) {
      size = token.at + token.size;
      return true;
    }
  }
  return false;
}

}  // namespace

void throwIncomplete(const wchar_t* what) {
  throw ConversionError(
      ExitCode::kIncomplete,
      fmt::format(L"Ghostscript left an incomplete PDF: {}. Check the free space of the disk and print again.", what));
}

unsigned long long numberOf(const std::string& text, const char* key, const wchar_t* otherwise) {
  PdfTokens tokens(text);
  for (PdfToken token = tokens.next(); token.kind != PdfTokenKind::kEnd; token = tokens.next()) {
    if (token.kind != PdfTokenKind::kName || token.text != key) continue;
    const PdfToken value = tokens.next();
    if (value.kind == PdfTokenKind::kNumber) return std::strtoull(value.text.c_str(), nullptr, 10);
  }
  throwIncomplete(otherwise);
}

PdfFile::PdfFile(const std::wstring& path) : m_file(std::filesystem::path(path), std::ios::binary) {
  if (!m_file) throwIncomplete(L"there is no file");
  m_file.seekg(0, std::ios::end);
  m_size = static_cast<unsigned long long>(m_file.tellg());
  if (read(0, 5) != "%PDF-") throwIncomplete(L"it does not begin with \"%PDF-\"");
  readTail();
}

std::string PdfFile::read(unsigned long long at, size_t size) {
  if (size > kWindow) return readFile(at, size);
  if (at < m_windowAt || at + size > m_windowAt + m_window.size()) {
    m_window = readFile(at, kWindow);
    m_windowAt = at;
  }
  return m_window.substr(static_cast<size_t>(at - m_windowAt), size);
}

std::string PdfFile::readFile(unsigned long long at, size_t size) {
  std::string bytes(size, '\0');
  m_file.clear();
  m_file.seekg(static_cast<std::streamoff>(at));
  m_file.read(bytes.data(), static_cast<std::streamsize>(size));
  bytes.resize(static_cast<size_t>(m_file.gcount()));
  return bytes;
}

void PdfFile::readTail() {
  const std::string tail = read(m_size > 1024 ? m_size - 1024 : 0, 1024);
  const size_t end = tail.rfind("%%EOF");
  if (end == std::string::npos || tail.find_first_not_of("\r\n", end + 5) != std::string::npos) {
    throwIncomplete(L"it does not end with \"%%EOF\"");
  }
  const size_t start = tail.rfind("startxref");
  if (start == std::string::npos) throwIncomplete(L"it has no reference table");
  unsigned long long at = std::strtoull(tail.c_str() + start + 9, nullptr, 10);
  for (int tables = 0; tables == 0 || at != 0; ++tables) {
    if (tables == kMostTables) throwIncomplete(L"it has too many reference tables");
    at = readTable(at, tables == 0);
  }
}

unsigned long long PdfFile::readTable(unsigned long long at, bool isLast) {
  if (read(at, 4) != "xref") throwIncomplete(L"its reference table is not where it should be");
  at += 4;
  for (;;) {
    const std::string head = read(at, 64);
    const size_t first = head.find_first_not_of("\r\n ");
    if (first == std::string::npos) throwIncomplete(L"its reference table is truncated");
    if (head.compare(first, 7, "trailer") == 0) {
      at += first + 7;
      break;
    }
    char* cursor = nullptr;
    Section section = {};
    section.first = std::strtoull(head.c_str() + first, &cursor, 10);
    section.count = std::strtoull(cursor, &cursor, 10);
    section.at = at + static_cast<size_t>(cursor - head.c_str());
    while (section.at < m_size && read(section.at, 1).find_first_of("\r\n ") == 0)
      ++section.at;
    if (section.count == 0 || section.count > m_size / kEntrySize || section.first > m_size / kEntrySize) {
      throwIncomplete(L"its reference table is truncated");
    }
    readSection(section);
    at = section.at + kEntrySize * section.count;
  }
  const std::string trailer = read(at, kMostTrailerSize);
  if (isLast) m_trailer = trailer;
  PdfTokens tokens(trailer);
  unsigned long long previous = 0;
  for (PdfToken token = tokens.next(); token.kind != PdfTokenKind::kEnd && token.text != "startxref";
       token = tokens.next()) {
    if (token.kind != PdfTokenKind::kName) continue;
    // A viewer would read objects that only such a table names, and this class would not.
    if (token.text == "XRefStm") throwIncomplete(L"it has a reference table of another type");
    if (token.text == "Prev") previous = std::strtoull(tokens.next().text.c_str(), nullptr, 10);
  }
  return previous;
}

void PdfFile::readSection(const Section& section) {
  const std::string entries = read(section.at, kEntrySize * section.count);
  if (entries.size() != kEntrySize * section.count) throwIncomplete(L"its reference table is truncated");
  if (m_offsets.size() < section.first + section.count) m_offsets.resize(section.first + section.count);
  for (size_t i = 0; i < section.count; ++i) {
    const std::string entry = entries.substr(i * kEntrySize, kEntrySize);
    unsigned long long& offset = m_offsets[section.first + i];
    // The table that is read first is the latest.
    if (offset == 0 && entry[17] == 'n') offset = std::strtoull(entry.c_str(), nullptr, 10);
  }
}

std::vector<unsigned long long> PdfFile::objects() const {
  std::vector<unsigned long long> numbers;
  for (size_t i = 1; i < m_offsets.size(); ++i) {
    if (m_offsets[i] != 0) numbers.push_back(i);
  }
  std::ranges::sort(numbers, {}, [&](unsigned long long number) { return m_offsets[number]; });
  return numbers;
}

unsigned long long PdfFile::offset(unsigned long long number) const {
  if (number >= m_offsets.size() || m_offsets[number] == 0) throwIncomplete(L"an object is missing");
  return m_offsets[number];
}

std::string PdfFile::object(unsigned long long number) {
  const unsigned long long at = offset(number);
  size_t size = 1024;
  size_t length = 0;
  std::string text = read(at, size);
  while (!isWholeObject(text, length)) {
    if (text.size() < size || size >= kMostObjectSize) throwIncomplete(L"an object is truncated");
    size *= 4;
    text = read(at, size);
  }
  text.resize(length);
  if (std::strtoull(text.c_str(), nullptr, 10) != number) throwIncomplete(L"an object is not where it should be");
  return text;
}

}  // namespace mg::converter
