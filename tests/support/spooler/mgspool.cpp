// Sets up Wine's spooler with our monitor and prints through it. See README.md of this folder.
#include "tests/support/spooler/job_outcome.h"
#include "tests/support/spooler/printing.h"
#include "tests/support/spooler/setup.h"
#include "tests/support/spooler/system_failure.h"

#include <windows.h>

#include <CLI/CLI.hpp>
#include <cstdio>
#include <filesystem>
#include <optional>
#include <string>
#include <vector>

namespace {

using mg::support::utf8;
using mg::support::wide;

struct Arguments {
  std::string from, root, log, ppd, outcomes, port, printer, processor, file, title;
  std::optional<std::string> keyFile, ghostscript;
  unsigned serverPort = 0, converterSeconds = 60;
  short copies = 1;
  DWORD writeSize = 0;
};

// The folder of this program, where the build puts both modules.
std::wstring programFolder() {
  wchar_t path[MAX_PATH];
  GetModuleFileNameW(nullptr, path, MAX_PATH);
  return std::filesystem::path(path).parent_path().wstring();
}

void writeSettings(const Arguments& arguments) {
  std::optional<std::wstring> keyFile;
  if (arguments.keyFile) keyFile = wide(*arguments.keyFile);
  std::optional<std::wstring> ghostscript;
  if (arguments.ghostscript) ghostscript = wide(*arguments.ghostscript);
  mg::support::writeSettings({wide(arguments.root), arguments.serverPort, wide(arguments.log), keyFile, ghostscript,
                              arguments.converterSeconds});
}

void setUpPrinting(const Arguments& arguments) {
  const std::wstring from = arguments.from.empty() ? programFolder() : wide(arguments.from);
  mg::support::configureOutcomeFolder(wide(arguments.outcomes));
  mg::support::installProcessor(from);
  mg::support::installDriver(wide(arguments.ppd));
  mg::support::addCaptureQueue();
  std::puts("the print processor and the driver are installed");
}

void setUp(const Arguments& arguments) {
  writeSettings(arguments);
  mg::support::installMonitor(arguments.from.empty() ? programFolder() : wide(arguments.from));
  setUpPrinting(arguments);
}

void printDocument(const Arguments& arguments) {
  mg::support::PrintRequest request;
  request.printer = wide(arguments.printer);
  request.file = wide(arguments.file);
  request.title =
      arguments.title.empty() ? std::filesystem::path(request.file).filename().wstring() : wide(arguments.title);
  request.copies = arguments.copies;
  request.writeSize = arguments.writeSize;
  const DWORD job = mg::support::printFile(request);
  std::printf("job %lu on \"%s\" was printed\n", static_cast<unsigned long>(job), arguments.printer.c_str());
}

void addSettings(CLI::App& command, Arguments& arguments) {
  command.add_option("--root", arguments.root, "installation root, above Programs\\ps2pdf.exe");
  command.add_option("--log", arguments.log, "log file of the module");
  command.add_option("--key-file", arguments.keyFile, "file with the monitor's key; an empty one takes the value away");
  command.add_option("--ghostscript", arguments.ghostscript,
                     "the converter's Ghostscript; an empty one takes its settings away");
  command.add_option("--converter-seconds", arguments.converterSeconds, "with --ghostscript: limit of one conversion");
  command.add_option("--server-port", arguments.serverPort, "TCP port of the application server");
}

void addPrintingOptions(CLI::App& command, Arguments& arguments) {
  command.add_option("--ppd", arguments.ppd, "PPD file of the driver")->required();
  command.add_option("--outcomes", arguments.outcomes, "folder in which outcomes of jobs are handed over")
      ->default_val("C:\\mgtestproc");
}

void addCommands(CLI::App& app, Arguments& arguments) {
  app.require_subcommand(1);
  CLI::App* const setup = app.add_subcommand("setup", "install monitor, print processor and driver");
  setup->add_option("--from", arguments.from, "folder of MgPrintMon.dll and mgtestproc.dll; default: of this program");
  addSettings(*setup, arguments);
  addPrintingOptions(*setup, arguments);
  setup->callback([&] { setUp(arguments); });

  CLI::App* const driver = app.add_subcommand("driver", "install print processor and driver only");
  driver->add_option("--from", arguments.from, "folder of mgtestproc.dll; default: of this program");
  addPrintingOptions(*driver, arguments);
  driver->callback([&] { setUpPrinting(arguments); });

  CLI::App* const settings = app.add_subcommand("settings", "change what the registry tells the module");
  addSettings(*settings, arguments);
  settings->callback([&] { writeSettings(arguments); });

  CLI::App* const addPort = app.add_subcommand("add-port", "add a port of the monitor");
  addPort->add_option("port", arguments.port, "name, as in CPP5")->required();
  addPort->callback([&] {
    mg::support::addMonitorPort(wide(arguments.port));
    std::printf("port %s is there\n", arguments.port.c_str());
  });

  CLI::App* const addPrinter = app.add_subcommand("add-printer", "add a printer on a port");
  addPrinter->add_option("name", arguments.printer)->required();
  addPrinter->add_option("port", arguments.port)->required();
  addPrinter->add_option("--processor", arguments.processor, "its print processor; that of the tests unless given");
  addPrinter->callback([&] {
    mg::support::addPrinterOnPort(wide(arguments.printer), wide(arguments.port), wide(arguments.processor));
    std::printf("printer \"%s\" is on port %s\n", arguments.printer.c_str(), arguments.port.c_str());
  });

  CLI::App* const removePrinter = app.add_subcommand("remove-printer", "remove a printer");
  removePrinter->add_option("name", arguments.printer)->required();
  removePrinter->callback([&] { mg::support::removePrinter(wide(arguments.printer)); });

  CLI::App* const print = app.add_subcommand("print", "print a file; fails unless the monitor took it to its end");
  print->add_option("printer", arguments.printer)->required();
  print->add_option("file", arguments.file)->required();
  print->add_option("--title", arguments.title, "document name; default: the file's name");
  print->add_option("--copies", arguments.copies)->check(CLI::Range(1, 9999));
  print->add_option("--write-size", arguments.writeSize, "bytes of one write to the port");
  print->callback([&] { printDocument(arguments); });
}

}  // namespace

int wmain(int count, wchar_t** words) {
  CLI::App app("Sets up the spooler with the print monitor and prints through it.", "mgspool");
  Arguments arguments;
  addCommands(app, arguments);
  // CLI11 takes the words last first.
  std::vector<std::string> reversed;
  for (int i = count - 1; i > 0; --i)
    reversed.push_back(utf8(words[i]));
  try {
    app.parse(reversed);
    return 0;
  } catch (const CLI::ParseError& error) {
    return app.exit(error);
  } catch (const std::exception& error) {
    std::fprintf(stderr, "mgspool: %s\n", error.what());
    return 1;
  }
}
