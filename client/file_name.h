#pragma once

#include <cstddef>
#include <string>
#include <string_view>

namespace printclient {

// Bytes of UTF-8 that a file name made here may have without its extension: leaves room for an extension and a number
// within the 255 bytes of common file systems.
inline constexpr std::size_t kMaxFileNameBytes = 200;

// A document's name as the name of a file, without directory, as UTF-8, safe on Windows and elsewhere: separators and
// other characters that Windows refuses become "-", what cannot be seen vanishes (corvane/base/text.h), so that the
// name reads as it is stored, dots and blanks at either end are taken off, a reserved device name gets "_" in front,
// and a name that is too long is cut between characters. An extension equal to the given one (".pdf") is taken off, so
// that it does not stand twice. A name of which nothing is left is the fallback made safe in the same way, or "job".
std::string fileNameFor(std::wstring_view documentName, std::wstring_view fallback, std::string_view extension);

// The name with a number, for when the plain one is taken: number 1 is "name.pdf", number 2 is "name (2).pdf".
std::string numberedName(std::string_view name, std::string_view extension, int number);

}  // namespace printclient
