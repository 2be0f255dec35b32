#include "converter/pdf_actions.h"

#include "converter/conversion_error.h"
#include "converter/pdf_file.h"
#include "converter/pdf_tokens.h"

#include <algorithm>
#include <cstdlib>
#include <filesystem>
#include <fmt/format.h>
#include <fmt/xchar.h>
#include <fstream>
#include <set>
#include <string_view>
#include <vector>

namespace mg::converter {
namespace {

// Dictionary keys that contain or refer to something that is removed.
const std::set<std::string_view> kKeys = {
    "OpenAction", "AA", "JS", "JavaScript", "EmbeddedFiles", "EF", "AF", "RichMediaContent", "XFA", "Collection"};
// Types of actions, annotations and objects; they occur as values.
const std::set<std::string_view> kKinds = {
    "Launch", "JavaScript", "GoToR",       "GoToE",      "ImportData", "SubmitForm",     "Rendition",
    "Movie",  "Sound",      "RichMedia",   "GoTo3DView", "Thread",     "FileAttachment", "RichMediaExecute",
    "Screen", "3D",         "EmbeddedFile"};
constexpr std::string_view kSchemes[] = {"http:", "https:", "ftp:", "mailto:", "tel:"};
constexpr size_t kMostStream = 1u << 20;  // bytes that are searched at a time for the end of a stream

bool isHarmlessAddress(const PdfToken& value) {
  if (value.kind != PdfTokenKind::kString) return false;
  std::string text = value.text.substr(0, 16);
  for (char& c : text)
    c = static_cast<char>(c >= 'A' && c <= 'Z' ? c - 'A' + 'a' : c);
  return std::any_of(std::begin(kSchemes), std::end(kSchemes),
                     [&](std::string_view scheme) { return text.compare(0, scheme.size(), scheme) == 0; });
}

// What must be overwritten in one object.
struct Finding {
  // Positions and sizes of names from the object's beginning, with the slash.
  std::vector<std::pair<size_t, size_t>> names;
  // The object is an embedded file itself.
  bool isEmbedded = false;
  // Objects that an "EF" names.
  std::vector<unsigned long long> embedded;
};

class Scan {
 public:
  explicit Scan(const std::string& object) : m_tokens(object) {}

  Finding run() {
    // The object's number, its generation and "obj".
    for (int i = 0; i < 3; ++i)
      m_tokens.next();
    m_token = m_tokens.next();
    while (m_token.kind != PdfTokenKind::kEnd && m_token.text != "endobj" && m_token.text != "stream")
      value(0, false);
    return m_finding;
  }

 private:
  // No ordinary document nests deeper than this; deeper objects are not examined and therefore refused.
  static constexpr int kDeepest = 200;

  void advance() { m_token = m_tokens.next(); }
  void overwrite(const PdfToken& name) { m_finding.names.emplace_back(name.at, name.size); }

  // Each consumes the tokens of one PDF object, beginning with the current one.
  void value(int depth, bool isEmbedding) {
    if (depth > kDeepest) throwIncomplete(L"an object is too deep");
    if (m_token.kind == PdfTokenKind::kDictBegin) return dictionary(depth, isEmbedding);
    if (m_token.kind == PdfTokenKind::kArrayBegin) return array(depth, isEmbedding);
    if (m_token.kind == PdfTokenKind::kNumber) return number(isEmbedding);
    // An object that is only a name may be the type of an object that refers to it.
    if (depth == 0) checkKind();
    advance();
  }

  void checkKind() {
    if (m_token.kind != PdfTokenKind::kName || kKinds.count(m_token.text) == 0) return;
    m_finding.isEmbedded = m_finding.isEmbedded || m_token.text == "EmbeddedFile";
    overwrite(m_token);
  }

  // A number, or the three tokens of a reference.
  void number(bool isEmbedding) {
    const unsigned long long first = std::strtoull(m_token.text.c_str(), nullptr, 10);
    advance();
    if (m_token.kind != PdfTokenKind::kNumber) return;
    const PdfTokens before = m_tokens;
    const PdfToken second = m_token;
    advance();
    if (m_token.kind == PdfTokenKind::kWord && m_token.text == "R") {
      if (isEmbedding) m_finding.embedded.push_back(first);
      return advance();
    }
    m_tokens = before;
    m_token = second;
  }

  void array(int depth, bool isEmbedding) {
    advance();
    while (m_token.kind != PdfTokenKind::kArrayEnd && m_token.kind != PdfTokenKind::kEnd)
      value(depth + 1, isEmbedding);
    advance();
  }

  void dictionary(int depth, bool isEmbedding, bool hasGlyphs = false) {
    if (depth > kDeepest) throwIncomplete(L"an object is too deep");
    advance();
    while (m_token.kind != PdfTokenKind::kDictEnd && m_token.kind != PdfTokenKind::kEnd) {
      if (m_token.kind != PdfTokenKind::kName) {
        value(depth + 1, isEmbedding);
        continue;
      }
      const PdfToken key = m_token;
      advance();
      const bool isLink = key.text == "URI" && !isHarmlessAddress(m_token);
      if (!hasGlyphs && (kKeys.count(key.text) != 0 || isLink)) overwrite(key);
      if (key.text == "S" || key.text == "Type" || key.text == "Subtype") checkKind();
      if (m_token.kind == PdfTokenKind::kDictBegin) {
        // The keys below "CharProcs" are the names of a font's characters.
        dictionary(depth + 1, isEmbedding || key.text == "EF", key.text == "CharProcs");
      } else if (m_token.kind != PdfTokenKind::kDictEnd) {
        value(depth + 1, isEmbedding || key.text == "EF");
      }
    }
    advance();
  }

  PdfTokens m_tokens;
  PdfToken m_token;
  Finding m_finding;
};

class Disarming {
 public:
  explicit Disarming(const std::wstring& path) : m_file(path), m_path(path) {}

  int run() {
    std::set<unsigned long long> embedded;
    for (const unsigned long long number : m_file.objects()) {
      const std::string object = m_file.object(number);
      const Finding finding = Scan(object).run();
      for (const auto& [at, size] : finding.names)
        overwrite(m_file.offset(number) + at + 1, std::string(size - 1, 'x'));
      m_count += static_cast<int>(finding.names.size());
      embedded.insert(finding.embedded.begin(), finding.embedded.end());
      if (finding.isEmbedded) embedded.insert(number);
    }
    for (const unsigned long long number : embedded)
      clearStream(number);
    return m_count;
  }

 private:
  [[noreturn]] void throwUnwritten() const {
    throw ConversionError(ExitCode::kFileSystem,
                          fmt::format(L"\"{}\" cannot be changed. Print the document again.", m_path));
  }

  void overwrite(unsigned long long at, const std::string& bytes) {
    if (!m_output.is_open())
      m_output.open(std::filesystem::path(m_path), std::ios::in | std::ios::out | std::ios::binary);
    m_output.seekp(static_cast<std::streamoff>(at));
    if (!m_output.write(bytes.data(), static_cast<std::streamsize>(bytes.size())).flush()) throwUnwritten();
  }

  // Zeros up to "endstream"; an embedded file that contains that word itself keeps the rest, which is harmless without
  // its beginning.
  void clearStream(unsigned long long number) {
    const std::string object = m_file.object(number);
    if (object.size() < 6 || object.compare(object.size() - 6, 6, "stream") != 0) return;
    for (unsigned long long at = m_file.offset(number) + object.size() + 1;;) {
      const std::string bytes = m_file.read(at, kMostStream);
      const size_t end = bytes.find("endstream");
      const bool isLast = end != std::string::npos || bytes.size() < kMostStream;
      const size_t size = end != std::string::npos ? end : isLast ? 0 : bytes.size() - 9;
      if (size > 1) overwrite(at, std::string(size - 1, '\0'));
      if (isLast) return;
      at += size;
    }
  }

  PdfFile m_file;
  const std::wstring m_path;
  std::fstream m_output;
  int m_count = 0;
};

}  // namespace

int disarmPdf(const std::wstring& path) {
  return Disarming(path).run();
}

}  // namespace mg::converter
