#pragma once

#include "corvane/records/program_monitor.h"
#include "protocol/session.h"

#include <cstddef>
#include <string>

namespace aps {

// The notice (protocol/names.h) of what a session's print client says about a job: the session and the printer, by its
// name on this server, are what this server knows and not what the client says. The client's texts are cut at
// kMaxPaperText characters.
CS_Notice paperNotice(const protocol::PaperNews& news, int session, const std::wstring& localName);
inline constexpr std::size_t kMaxPaperText = 300;

// The spooler's number at the end of the name under which a job travels ("Laser-2 - Job #17"); empty when there is
// none.
std::wstring jobNumberOf(const std::wstring& jobName);

}  // namespace aps
