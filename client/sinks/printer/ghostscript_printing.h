#pragma once

#include "client/sinks/command/command_sink.h"

#include <filesystem>
#include <optional>
#include <string>

namespace printclient {

// Prints PDF on a queue of Windows, which does not convert it: Ghostscript, as it installs itself below that folder of
// programs, draws it with the queue's own driver (its device mswinpr2). No shell is involved, and it has the time that
// a command has. Nothing where there is no Ghostscript, or where the queue's name holds a "%", which Ghostscript would
// read as something else.
std::optional<CommandSink::Settings> ghostscriptFor(const std::string& queue, const std::filesystem::path& folder);

// The folder of programs of this machine; empty where there is none.
std::filesystem::path programFolder();

}  // namespace printclient
