#pragma once

#include "client/options.h"
#include "client/sinks/sink_table.h"

#include <filesystem>
#include <memory>

namespace printclient {

// The sinks that the options ask for. Throws std::runtime_error with what is wrong.
std::shared_ptr<SinkTable> chooseSinks(const Options& options);

// The folder for the temporary files of jobs, which is made when it is not there. Throws std::runtime_error.
std::filesystem::path temporaryFolder(const Options& options);

}  // namespace printclient
