#include "converter/announcement.h"

#include <algorithm>
#include <charconv>
#include <cstdint>
#include <cstring>
#include <string>
#include <string_view>

namespace mg::converter {
namespace {

// A structuring comment has at most 255 characters; only the beginning of a longer line is examined.
constexpr size_t kMostKept = 1024;

bool isBlankInLine(char c) {
  return c == ' ' || c == '\t';
}

// Removes the number at the beginning of the text, with the blanks around it, and returns it; -1 when there is none.
long long takeNumber(std::string_view& text) {
  while (!text.empty() && isBlankInLine(text.front()))
    text.remove_prefix(1);
  long long number = -1;
  const auto [end, error] = std::from_chars(text.data(), text.data() + text.size(), number);
  if (error != std::errc() || number < 0) return -1;
  text.remove_prefix(static_cast<size_t>(end - text.data()));
  return number;
}

bool isLineEnd(char c) {
  return c == '\n' || c == '\r';
}

// Goes over eight characters at a time as long as none of them is a control character, which a line end is.
const char* findLineEnd(const char* at, const char* end) {
  constexpr std::uint64_t kEach = 0x0101010101010101;
  for (std::uint64_t eight = 0; end - at >= 8; at += 8) {
    std::memcpy(&eight, at, 8);
    if (((eight - kEach * ('\r' + 1)) & ~eight & (kEach << 7)) != 0) break;
  }
  return std::find_if(at, end, isLineEnd);
}

class Reader {
 public:
  explicit Reader(std::istream& document) : m_document(document), m_block(kBlock, '\0') {}

  Announcement read() {
    std::string line;
    for (m_first = true; readLine(line); m_first = false)
      take(line);
    return m_result;
  }

 private:
  static constexpr size_t kBlock =
      64u << 10;  // a stream of the standard library asks the system for 512 bytes at a time

  // Whether there is something at m_at; false at the end of the document.
  bool hasMore() {
    if (m_at < m_end) return true;
    m_document.read(m_block.data(), static_cast<std::streamsize>(m_block.size()));
    m_at = 0;
    m_end = static_cast<size_t>(m_document.gcount());
    return m_end != 0;
  }

  // Reads up to a line feed, a carriage return or both; false at the end of the document.
  bool readLine(std::string& line) {
    line.clear();
    if (!hasMore()) return false;
    do {
      const char* const first = m_block.data() + m_at;
      const char* const end = m_block.data() + m_end;
      const char* const found = findLineEnd(first, end);
      line.append(first, std::min(static_cast<size_t>(found - first), kMostKept - line.size()));
      m_at += static_cast<size_t>(found - first);
      if (found != end) {
        takeLineEnd();
        break;
      }
    } while (hasMore());
    return true;
  }

  void takeLineEnd() {
    const bool isReturn = m_block[m_at++] == '\r';
    if (isReturn && hasMore() && m_block[m_at] == '\n') ++m_at;
  }

  static bool takeKeyword(std::string_view& line, std::string_view keyword) {
    if (line.substr(0, keyword.size()) != keyword) return false;
    line.remove_prefix(keyword.size());
    return true;
  }

  void take(std::string_view line) {
    if (takeKeyword(line, "%%BeginDocument")) {
      ++m_depth;
    } else if (takeKeyword(line, "%%EndDocument")) {
      if (m_depth > 0) --m_depth;
    } else if (takeKeyword(line, "%%BeginBinary:")) {
      skipBytes(takeNumber(line));
    } else if (takeKeyword(line, "%%BeginData:")) {
      takeData(line);
    } else if (m_depth == 0) {
      takeOwn(line);
    }
  }

  // "%%BeginData: 123 Hex Bytes" counts bytes unless it says "Lines".
  void takeData(std::string_view line) {
    const long long count = takeNumber(line);
    if (line.find("Lines") == std::string_view::npos) return skipBytes(count);
    std::string skipped;
    for (long long i = 0; i < count && readLine(skipped); ++i) {
    }
  }

  void skipBytes(long long count) {
    while (count > 0 && hasMore()) {
      const size_t skipped = std::min(m_end - m_at, static_cast<size_t>(count));
      m_at += skipped;
      count -= static_cast<long long>(skipped);
    }
  }

  void takeOwn(std::string_view line) {
    if (takeKeyword(line, "%!PS-Adobe-")) {
      // Embedded fonts and procedure sets begin like a document, but name their kind.
      if (!m_first && line.find("Resource-") == std::string_view::npos) m_result.isMixed = true;
    } else if (takeKeyword(line, "%%Pages:")) {
      takePages(line);
    } else if (takeKeyword(line, "%%Page:")) {
      takePage(line);
    } else if (takeKeyword(line, "%%EOF")) {
      m_result.hasEnd = true;
    }
  }

  void takePages(std::string_view line) {
    if (line.find("(atend)") != std::string_view::npos) {
      m_result.isPromised = m_result.pages < 0;
      return;
    }
    const long long pages = takeNumber(line);
    // The header takes precedence over what follows, except where it promises a later number.
    if (pages < 0 || pages > 1000000 || m_result.pages >= 0) return;
    m_result.pages = static_cast<int>(pages);
    m_result.isPromised = false;
  }

  // "%%Page: label ordinal": the ordinal is the last word; labels may hold blanks.
  void takePage(std::string_view line) {
    m_result.hasEnd = false;
    while (!line.empty() && isBlankInLine(line.back()))
      line.remove_suffix(1);
    const size_t blank = line.find_last_of(" \t");
    if (blank == std::string_view::npos) return;
    line.remove_prefix(blank + 1);
    if (takeNumber(line) == m_result.pageComments + 1) ++m_result.pageComments;
  }

  std::istream& m_document;
  std::string m_block;  // of the document; from m_at up to m_end not read yet
  size_t m_at = 0, m_end = 0;
  Announcement m_result;
  int m_depth = 0;
  bool m_first = true;
};

}  // namespace

int Announcement::expectedPages() const {
  if (isMixed) return -1;
  return pageComments > 0 ? pageComments : pages;
}

bool Announcement::isWhole() const {
  if (hasEnd || isMixed) return true;
  return !isPromised && pageComments >= pages;
}

Announcement readAnnouncement(std::istream& document) {
  return Reader(document).read();
}

}  // namespace mg::converter
