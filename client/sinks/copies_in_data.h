#pragma once

#include <cstddef>
#include <filesystem>
#include <optional>
#include <string_view>

namespace printclient {

// How many copies a job's data ask for themselves; nothing where they say nothing. A driver that was told of the copies
// writes them into what it sends, and one that writes 1 has left them to the print processor, which has then repeated
// the pages: in both cases the data hold all copies that are wanted. Understood are PostScript's NumCopies and #copies
// in front of the first page, COPIES and QTY of PJL, and in data that begin with an escape the copies of PCL; the last
// one said in the first kCopiesBytes counts. Of a PDF nothing, whose pages a printer prints as often as it is asked to.
std::optional<int> copiesInData(std::string_view head);
// The same of a file; nothing where it cannot be read.
std::optional<int> copiesInFile(const std::filesystem::path& file);
inline constexpr std::size_t kCopiesBytes = 256 * 1024;

}  // namespace printclient
