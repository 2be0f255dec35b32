#include "protocol/printer.h"

namespace protocol {

const DataFormatNames* namesOf(DataFormat format) {
  for (const DataFormatNames& names : kDataFormats) {
    if (names.format == format) return &names;
  }
  return nullptr;
}

std::optional<DataFormat> dataFormatOf(std::string_view word) {
  for (const DataFormatNames& names : kDataFormats) {
    if (names.word == word) return names.format;
  }
  return std::nullopt;
}

const std::wstring& Printer::text(std::size_t index) const {
  static const std::wstring kNone;
  return texts[index] ? *texts[index] : kNone;
}

}  // namespace protocol
