#pragma once

#include "admin/sessions/application_server.h"
#include "protocol/session.h"

#include <cstddef>
#include <string>
#include <vector>

namespace admin {

// What has become of a job since its print client took it, from a notice about that. A plain value.
struct JobPaper {
  protocol::PaperState state = protocol::PaperState::kUnknown;
  std::wstring cause, remedy;  // a sentence each; empty when there is nothing to say

  static JobPaper of(const protocol::Notice& notice);
  bool operator==(const JobPaper&) const = default;
  // "is being printed", "is held up: The printer has no paper."
  std::string text() const;
};

// Whether the notice is about what became of that job. The process is not known there: under Wine, two processes that
// print on one printer at the same time may each have a job of that number.
bool isPaperOf(const AwaitedJob& job, const protocol::Notice& notice);

// The latest notice about each job that went to a printer, oldest first; no more than that many, the latest ones.
std::vector<protocol::Notice> latestPaper(const std::vector<protocol::Notice>& notices, std::size_t most);

}  // namespace admin
