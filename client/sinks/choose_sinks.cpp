#include "client/sinks/choose_sinks.h"

#include "client/private_folder.h"
#include "client/sinks/command/command_sink.h"
#include "client/sinks/folder/folder_sink.h"
#include "client/sinks/printer/printer_sink.h"
#include "programs/text.h"

#include <chrono>
#include <fmt/format.h>
#include <stdexcept>
#include <system_error>

namespace printclient {

std::shared_ptr<Sink> sinkOfOthers(const Options& options) {
  if (!options.command.empty()) {
    CommandSink::Settings settings;
    settings.program = options.command;
    settings.arguments = options.commandArguments;
    if (options.commandLimit > 0) settings.limit = std::chrono::seconds(options.commandLimit);
    return std::make_shared<CommandSink>(std::move(settings));
  }
  if (options.output.empty()) return nullptr;
  return std::make_shared<FolderSink>();
}

PrinterPatience patienceOf(const Options& options) {
  PrinterPatience patience;
  patience.watch /= options.pace;
  return patience;
}

std::filesystem::path temporaryFolder(const Options& options) {
  if (options.output.empty()) return privateFolder();
  const std::filesystem::path folder = programs::toPath(options.output);
  std::error_code error;
  std::filesystem::create_directories(folder, error);
  if (!std::filesystem::is_directory(folder)) {
    throw std::runtime_error(
        fmt::format("--output \"{}\" is not a folder and cannot be created: {}", options.output, error.message()));
  }
  return folder;
}

}  // namespace printclient
