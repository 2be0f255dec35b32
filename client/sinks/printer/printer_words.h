#pragma once

#include "client/sinks/sink.h"

#include <filesystem>
#include <string>

namespace printclient {

// A job's title as a printer shows it: one line of UTF-8, at most kMaxTitleBytes long and never empty.
std::string printableTitle(const protocol::JobStart& ticket);
inline constexpr std::size_t kMaxTitleBytes = 255;

// What a job's data are, in a sentence.
std::string kindOf(const ContentProbe& content);

// How many copies are to be asked for beside the data, and what the person is told of them: ", 3 copies", also where
// the data ask for them; empty for one.
struct Copies {
  int asked = 1;
  std::string words;
};
// A count below one is one; what the data say themselves is not asked for again (copies_in_data.h). The file is the
// job's.
Copies copiesOf(const protocol::JobStart& ticket, const std::filesystem::path& file);

}  // namespace printclient
