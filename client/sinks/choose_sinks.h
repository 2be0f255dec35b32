#pragma once

#include "client/job_output.h"
#include "client/options.h"
#include "client/sinks/printer/printer_sink.h"

#include <filesystem>
#include <memory>

namespace printclient {

// The sink for the jobs of printers that say no queue or address; null where the options name none. Throws
// std::runtime_error with what is wrong.
std::shared_ptr<Sink> sinkOfOthers(const Options& options);
// How long the sinks of those that do wait.
PrinterPatience patienceOf(const Options& options);

// The folder for the temporary files of jobs, which is made when it is not there. Throws std::runtime_error.
std::filesystem::path temporaryFolder(const Options& options);

}  // namespace printclient
