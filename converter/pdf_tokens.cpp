#include "converter/pdf_tokens.h"

#include <cctype>

namespace mg::converter {
namespace {

bool isBlank(char c) {
  return c == ' ' || c == '\n' || c == '\r' || c == '\t' || c == '\f' || c == '\0';
}

// A switch, because a search in a text would be a call of the C library for each character.
bool isRegular(char c) {
  switch (c) {
    case '(':
    case ')':
    case '<':
    case '>':
    case '[':
    case ']':
    case '{':
    case '}':
    case '/':
    case '%':
      return false;
    default:
      return !isBlank(c);
  }
}

int hexValue(char c) {
  if (c >= '0' && c <= '9') return c - '0';
  if (c >= 'a' && c <= 'f') return c - 'a' + 10;
  if (c >= 'A' && c <= 'F') return c - 'A' + 10;
  return -1;
}

}  // namespace

void PdfTokens::skipBlanks() {
  while (m_at < m_text.size()) {
    if (m_text[m_at] == '%') {
      while (m_at < m_text.size() && m_text[m_at] != '\n' && m_text[m_at] != '\r')
        ++m_at;
    } else if (isBlank(m_text[m_at])) {
      ++m_at;
    } else {
      return;
    }
  }
}

// Each begins at the token's first character; false when the text ends within the token.
bool PdfTokens::readName(std::string& text) {
  for (++m_at; m_at < m_text.size() && isRegular(m_text[m_at]); ++m_at) {
    if (peek() == '#' && hexValue(peek(1)) >= 0 && hexValue(peek(2)) >= 0) {
      text += static_cast<char>(hexValue(peek(1)) * 16 + hexValue(peek(2)));
      m_at += 2;
    } else {
      text += m_text[m_at];
    }
  }
  return m_at < m_text.size();
}

bool PdfTokens::readString(std::string& text) {
  int depth = 1;
  for (++m_at; m_at < m_text.size(); ++m_at) {
    char c = m_text[m_at];
    if (c == '(') ++depth;
    if (c == ')' && --depth == 0) return ++m_at, true;
    if (c == '\\') {
      c = peek(1);
      if (c >= '0' && c <= '7') {
        int value = 0;
        for (int i = 0; i < 3 && peek(1) >= '0' && peek(1) <= '7'; ++i, ++m_at)
          value = value * 8 + (peek(1) - '0');
        text += static_cast<char>(value);
        continue;
      }
      ++m_at;
      if (c == '\r' && peek(1) == '\n') ++m_at;
      if (c == '\r' || c == '\n') continue;
      const size_t letter = std::string_view("nrtbf").find(c);
      if (letter != std::string_view::npos) c = "\n\r\t\b\f"[letter];
    }
    text += c;
  }
  return false;
}

bool PdfTokens::readHexString(std::string& text) {
  int digits = 0;
  int value = 0;
  for (++m_at; m_at < m_text.size(); ++m_at) {
    if (m_text[m_at] == '>') {
      if (digits % 2 == 1) text += static_cast<char>(value * 16);
      return ++m_at, true;
    }
    const int digit = hexValue(m_text[m_at]);
    if (digit < 0) continue;
    value = digits % 2 == 0 ? digit : value * 16 + digit;
    if (++digits % 2 == 0) text += static_cast<char>(value);
  }
  return false;
}

PdfTokenKind PdfTokens::readMark() {
  const char c = m_text[m_at++];
  if (c == '[') return PdfTokenKind::kArrayBegin;
  if (c == ']') return PdfTokenKind::kArrayEnd;
  if (c == '<' && peek() == '<') return ++m_at, PdfTokenKind::kDictBegin;
  if (c == '>' && peek() == '>') return ++m_at, PdfTokenKind::kDictEnd;
  return PdfTokenKind::kWord;
}

PdfToken PdfTokens::next() {
  skipBlanks();
  PdfToken token;
  token.at = m_at;
  if (m_at >= m_text.size()) return token;
  const char c = peek();
  bool isWhole = true;
  if (c == '/') {
    token.kind = PdfTokenKind::kName;
    isWhole = readName(token.text);
  } else if (c == '(') {
    token.kind = PdfTokenKind::kString;
    isWhole = readString(token.text);
  } else if (c == '<' && peek(1) != '<') {
    token.kind = PdfTokenKind::kString;
    isWhole = m_at + 1 < m_text.size() && readHexString(token.text);
  } else if (isRegular(c)) {
    while (m_at < m_text.size() && isRegular(m_text[m_at]))
      token.text += m_text[m_at++];
    const bool isNumber = std::isdigit(static_cast<unsigned char>(c)) || c == '-' || c == '+' || c == '.';
    token.kind = isNumber ? PdfTokenKind::kNumber : PdfTokenKind::kWord;
    isWhole = m_at < m_text.size() || token.text == "endobj";
  } else {
    token.kind = readMark();
  }
  token.size = m_at - token.at;
  if (!isWhole) token.kind = PdfTokenKind::kEnd;
  return token;
}

}  // namespace mg::converter
