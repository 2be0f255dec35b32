#pragma once

#include "client/sinks/sink.h"

#include <string>

namespace printclient {

// A job's title as a printer shows it: one line of UTF-8, at most kMaxTitleBytes long and never empty.
std::string printableTitle(const protocol::JobStart& ticket);
inline constexpr std::size_t kMaxTitleBytes = 255;

// What a job's data are, in a sentence.
std::string kindOf(const ContentProbe& content);

// How many copies are to be asked for, beside what the data say themselves: a count below one is one.
int copiesFor(const ArrivedJob& job);

}  // namespace printclient
