// Sets up Wine's spooler with our monitor and prints through it. See README.md of this folder.
#include "tests/support/spooler/job_outcome.h"
#include "tests/support/spooler/printing.h"
#include "tests/support/spooler/setup.h"
#include "tests/support/spooler/system_failure.h"

#include <windows.h>

#include <CLI/CLI.hpp>
#include <cstdio>
#include <filesystem>
#include <string>
#include <vector>

namespace {

using mg::support::Utf8;
using mg::support::Wide;

struct Arguments {
  std::string from, root, log, ppd, outcomes, port, printer, file, title;
  unsigned server_port = 0;
  short copies = 1;
  DWORD write_size = 0;
};

// The folder of this program, where the build puts both modules.
std::wstring ProgramFolder() {
  wchar_t path[MAX_PATH];
  GetModuleFileNameW(nullptr, path, MAX_PATH);
  return std::filesystem::path(path).parent_path().wstring();
}

void WriteSettings(const Arguments& arguments) {
  mg::support::WriteSettings({Wide(arguments.root), arguments.server_port, Wide(arguments.log)});
}

void SetUp(const Arguments& arguments) {
  const std::wstring from = arguments.from.empty() ? ProgramFolder() : Wide(arguments.from);
  WriteSettings(arguments);
  mg::support::ConfigureOutcomeFolder(Wide(arguments.outcomes));
  mg::support::InstallMonitor(from);
  mg::support::InstallProcessor(from);
  mg::support::InstallDriver(Wide(arguments.ppd));
  std::puts("the print monitor, the print processor and the driver are installed");
}

void Print(const Arguments& arguments) {
  mg::support::PrintRequest request;
  request.printer = Wide(arguments.printer);
  request.file = Wide(arguments.file);
  request.title =
      arguments.title.empty() ? std::filesystem::path(request.file).filename().wstring() : Wide(arguments.title);
  request.copies = arguments.copies;
  request.write_size = arguments.write_size;
  const DWORD job = mg::support::PrintFile(request);
  std::printf("job %lu on \"%s\" was printed\n", static_cast<unsigned long>(job), arguments.printer.c_str());
}

void AddSettings(CLI::App& command, Arguments& arguments) {
  command.add_option("--root", arguments.root, "installation root, above Programs\\ps2pdf.exe");
  command.add_option("--log", arguments.log, "log file of the module");
  command.add_option("--server-port", arguments.server_port, "TCP port of the application server");
}

void AddCommands(CLI::App& app, Arguments& arguments) {
  app.require_subcommand(1);
  CLI::App* const setup = app.add_subcommand("setup", "install monitor, print processor and driver");
  setup->add_option("--from", arguments.from, "folder of MgPrintMon.dll and mgtestproc.dll; default: of this program");
  AddSettings(*setup, arguments);
  setup->add_option("--ppd", arguments.ppd, "PPD file of the driver")->required();
  setup->add_option("--outcomes", arguments.outcomes, "folder in which outcomes of jobs are handed over")
      ->default_val("C:\\mgtestproc");
  setup->callback([&] { SetUp(arguments); });

  CLI::App* const settings = app.add_subcommand("settings", "change what the registry tells the module");
  AddSettings(*settings, arguments);
  settings->callback([&] { WriteSettings(arguments); });

  CLI::App* const add_port = app.add_subcommand("add-port", "add a port of the monitor");
  add_port->add_option("port", arguments.port, "name, as in CPP5")->required();
  add_port->callback([&] {
    mg::support::AddMonitorPort(Wide(arguments.port));
    std::printf("port %s is there\n", arguments.port.c_str());
  });

  CLI::App* const add_printer = app.add_subcommand("add-printer", "add a printer on a port");
  add_printer->add_option("name", arguments.printer)->required();
  add_printer->add_option("port", arguments.port)->required();
  add_printer->callback([&] {
    mg::support::AddPrinterOnPort(Wide(arguments.printer), Wide(arguments.port));
    std::printf("printer \"%s\" is on port %s\n", arguments.printer.c_str(), arguments.port.c_str());
  });

  CLI::App* const print = app.add_subcommand("print", "print a file; fails unless the monitor took it to its end");
  print->add_option("printer", arguments.printer)->required();
  print->add_option("file", arguments.file)->required();
  print->add_option("--title", arguments.title, "document name; default: the file's name");
  print->add_option("--copies", arguments.copies)->check(CLI::Range(1, 9999));
  print->add_option("--write-size", arguments.write_size, "bytes of one write to the port");
  print->callback([&] { Print(arguments); });
}

}  // namespace

int wmain(int count, wchar_t** words) {
  CLI::App app("Sets up the spooler with the print monitor and prints through it.", "mgspool");
  Arguments arguments;
  AddCommands(app, arguments);
  // CLI11 takes the words last first.
  std::vector<std::string> reversed;
  for (int i = count - 1; i > 0; --i)
    reversed.push_back(Utf8(words[i]));
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
