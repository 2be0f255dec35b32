#pragma once

#include <string>
#include <string_view>

namespace mg::converter {

enum class PdfTokenKind {
  kName,        // text is decoded, without the slash
  kString,      // text is decoded, from (...) or <...>
  kNumber,      // text unchanged
  kWord,        // "R", "obj", "endobj", "stream", "true", ...
  kDictBegin,   // <<
  kDictEnd,     // >>
  kArrayBegin,  // [
  kArrayEnd,    // ]
  kEnd,         // the text is at its end, or ends within a token
};

struct PdfToken {
  PdfTokenKind kind = PdfTokenKind::kEnd;
  // Position and size of the token in the text, in bytes.
  size_t at = 0;
  size_t size = 0;
  std::string text;
};

// Splits the text of PDF objects into tokens. Never reads beyond its text, which must outlive it.
class PdfTokens {
 public:
  explicit PdfTokens(std::string_view text) : m_text(text) {}
  PdfToken next();

 private:
  char peek(size_t ahead = 0) const { return m_at + ahead < m_text.size() ? m_text[m_at + ahead] : '\0'; }
  void skipBlanks();
  bool readName(std::string& text);
  bool readString(std::string& text);
  bool readHexString(std::string& text);
  PdfTokenKind readMark();

  std::string_view m_text;
  size_t m_at = 0;
};

}  // namespace mg::converter
