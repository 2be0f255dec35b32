#pragma once

#include "protocol/values.h"

#include <array>
#include <cstdint>
#include <optional>
#include <string>
#include <string_view>

namespace protocol {

// What data a client's printer wants. The value is the number on the wire; a peer may send any other one, which is kept
// and passed on as it is, and refused where it is to be acted upon.
enum class DataFormat : std::int32_t {
  kRaw = 1,         // as the application printed it
  kPostScript = 2,  // PostScript, as it comes
  kPdf = 3,         // collected as PostScript and converted
};

struct DataFormatNames {
  DataFormat format;
  std::string_view word;   // in options and output of programs
  std::wstring_view name;  // in sentences
};

inline constexpr std::array<DataFormatNames, 3> kDataFormats = {{
    {DataFormat::kRaw, "raw", L"raw"},
    {DataFormat::kPostScript, "ps", L"PostScript"},
    {DataFormat::kPdf, "pdf", L"PDF"},
}};

// Null for any other number.
inline const DataFormatNames* namesOf(DataFormat format) {
  for (const DataFormatNames& names : kDataFormats) {
    if (names.format == format) return &names;
  }
  return nullptr;
}
// Nothing for any other word.
inline std::optional<DataFormat> dataFormatOf(std::string_view word) {
  for (const DataFormatNames& names : kDataFormats) {
    if (names.word == word) return names.format;
  }
  return std::nullopt;
}

// A printer that a session's client brings along, as the client describes it. A plain value.
struct Printer {
  static constexpr std::size_t kTexts = 8;
  static constexpr std::size_t kNameText = 0;  // as the client knows the printer
  static constexpr std::size_t kCommentText = 1;
  static constexpr std::size_t kDriverText = 3;

  std::array<std::optional<std::wstring>, kTexts> texts;
  bool isDefault = false;  // the client's default printer
  DataFormat format = DataFormat::kRaw;
  int resolution = 0;  // dots per inch; 0 when the client does not say

  // Empty when the client says none.
  const std::wstring& name() const { return text(kNameText); }
  const std::wstring& driver() const { return text(kDriverText); }

  static void layout(auto& self, auto& wire) { wire(self.texts, self.isDefault, self.format, self.resolution); }

 private:
  const std::wstring& text(std::size_t index) const {
    static const std::wstring kNone;
    return texts[index] ? *texts[index] : kNone;
  }
};

}  // namespace protocol
