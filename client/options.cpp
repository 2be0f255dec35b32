#include "client/options.h"

#include "client/sinks/command/command_sink.h"
#include "corvane/base/text.h"
#include "programs/host_and_port.h"
#include "programs/rate.h"
#include "protocol/session.h"
#include "protocol/version_text.h"

#include <CLI/CLI.hpp>
#include <algorithm>
#include <fmt/format.h>
#include <limits>
#include <sstream>
#include <stdexcept>
#include <tuple>
#include <vector>

namespace printclient {
namespace {

void readServer(const std::string& text, Options& options) try {
  const auto server = programs::HostAndPort::parse(text);
  options.host = server.host;
  options.port = server.port;
} catch (const std::invalid_argument& failure) {
  throw std::invalid_argument(fmt::format("--server {}", failure.what()));
}

bool isThisMachine(const std::string& host) {
  return host == "localhost" || host == "::1" || host.starts_with("127.");
}

// What leaves this machine is encrypted, and only the server that has the session's key can read it.
void chooseTls(Options& options) {
  if (!isThisMachine(options.host)) options.usesTls = true;
  if (options.rate != 0 && options.session != 0 && !options.usesTls) {
    throw std::invalid_argument(
        "--rate is for a server of another machine, or one that is reached with --tls; leave out the one or add the "
        "other");
  }
  if (!options.usesTls || !options.keyFile.empty()) return;
  throw std::invalid_argument(
      fmt::format("{} is reached under TLS only, with the key of the session: give the file with it with --key (the "
                  "server makes it: aps --new-key FILE)",
                  options.host));
}

void takePrinters(const std::vector<std::string>& texts, Options& options) {
  for (const std::string& text : texts) {
    PrinterOption read = parsePrinterOption(text);
    const PrinterTarget& target = read.target;
    if (!target.queue.empty() || !target.uri.empty()) options.targets[read.printer.name()] = target;
    options.printers.push_back(std::move(read.printer));
  }
}

// Throws std::invalid_argument when the options leave a job no place to go, or two.
void checkOutputs(const Options& options) {
  if (!options.printers.empty() && (!options.only.empty() || !options.except.empty())) {
    throw std::invalid_argument(
        "--only and --except choose among this user's own printers, which come along without any "
        "--printer; leave out the one or the other");
  }
  const bool hasCommand = !options.command.empty();
  const auto isForOthers = [&](const protocol::Printer& printer) { return options.targets.count(printer.name()) == 0; };
  const auto other = std::find_if(options.printers.begin(), options.printers.end(), isForOthers);
  if (hasCommand && !options.output.empty()) {
    throw std::invalid_argument("--output and --command both say where jobs go; give one of them");
  }
  if (!hasCommand && (!options.commandArguments.empty() || options.commandLimit != 0)) {
    throw std::invalid_argument("--command-argument and --command-limit belong to a --command; name a program there");
  }
  if (hasCommand && other == options.printers.end()) {
    throw std::invalid_argument(
        "--command gets no jobs, as each printer has a queue or a uri; leave out the one or the "
        "other");
  }
  if (!hasCommand && options.output.empty() && other != options.printers.end()) {
    throw std::invalid_argument(
        fmt::format("the jobs of the printer \"{}\" have no place to go; give --output FOLDER, --command PROGRAM, or "
                    "the printer a queue",
                    corvane::toUtf8(other->name())));
  }
}

void addServer(CLI::App& app, Options& options, std::string& server) {
  app.add_option("--server", server, "where the application server listens")->capture_default_str();
  app.add_flag("--tls", options.usesTls,
               "encrypts the connection to a server on this machine, too, as behind a forwarder; to other machines it "
               "always is");
  app.add_option(
         "--invitation", options.invitations,
         "a line or a file that an administrator gave you: from then on printclient knows the server, the session "
         "and its key by itself; repeatable")
      ->expected(1)
      ->multi_option_policy(CLI::MultiOptionPolicy::TakeAll);
  app.add_option("--session", options.session, "number of the session")
      ->check(CLI::Range(1, std::numeric_limits<int>::max()));
  app.add_option("--key", options.keyFile, "file with the key of the session, where the server wants one")
      ->check(CLI::Validator([](std::string& text) { return text.empty() ? "it names no file" : ""; }, ""));
  app.add_option_function<std::string>(
         "--rate",
         [&options](const std::string& text) {
           try {
             options.rate = programs::parseRate(text);
           } catch (const std::invalid_argument& wrong) {
             throw CLI::ValidationError("--rate", wrong.what());
           }
         },
         "bytes a second, as in 250KB, that a server of another machine is to send at most, so that printing leaves "
         "some "
         "of the line for other things")
      ->expected(1);
  app.add_option("--pace", options.pace)->check(CLI::Range(1, 1000))->group("");
}

// Which of the person's printers come along, and where jobs end.
void addPlaces(CLI::App& app, Options& options, std::vector<std::string>& printers) {
  const CLI::Validator isNamed([](std::string& text) { return text.empty() ? "it is empty" : ""; }, "");
  app.add_option("--printer", printers,
                 "a printer to register, NAME,key=value,...; may be repeated. Keys: driver, format (raw, ps, pdf), "
                 "comment, location, port, manufacturer, model, share, default (yes, no), resolution, and where its "
                 "jobs are printed: queue (a printer of this machine) or uri (ipp://HOST/ipp/print, on Linux). Without "
                 "any, the printers that this user has come along")
      ->expected(1)
      ->multi_option_policy(CLI::MultiOptionPolicy::TakeAll);
  for (const auto& [name, list, what] :
       {std::tuple("--only", &options.only,
                   "of this user's printers bring along those of this name; * and ? stand for "
                   "any text and any character; may be repeated"),
        std::tuple("--except", &options.except,
                   "of this user's printers leave out those of this name; may be repeated")})
    app.add_option(name, *list, what)
        ->check(isNamed)
        ->expected(1)
        ->multi_option_policy(CLI::MultiOptionPolicy::TakeAll);
  app.add_option(
         "--output", options.output,
         "folder for the jobs of printers without a queue or uri, and for unfinished ones; it is created when it "
         "does not exist")
      ->check(isNamed);
  app.add_option(
         "--command", options.command,
         "a program for the jobs of printers without a queue or uri, by its path. It gets the file's path behind "
         "its other arguments, and PRINTCLIENT_TITLE, _COPIES, _PRINTER and _USER in its environment")
      ->check(isNamed);
  app.add_option("--command-argument", options.commandArguments, "an argument for that program; may be repeated")
      ->expected(1)
      ->multi_option_policy(CLI::MultiOptionPolicy::TakeAll);
  const auto longest = static_cast<int>(CommandSink::kLongestLimit.count());
  app.add_option("--command-limit", options.commandLimit,
                 fmt::format("seconds after which that program is ended, up to {}; {} unless it is given", longest,
                             CommandSink::kDefaultLimit.count()))
      ->check(CLI::Range(1, longest));
}

// What the person sees of the jobs.
void addView(CLI::App& app, Options& options) {
  app.add_flag("--show", options.showsPage,
               "opens the page with your print jobs in the browser, of the print client that you have started already, "
               "and ends");
  app.add_flag("!--no-page", options.hasPage, "has no such page, and keeps no documents for it");
  app.add_option(
         "--keep-documents", options.keptDocuments,
         "how many documents are kept for the page, to be looked at and printed again: 0 for none, 20 unless it "
         "is given. They are this user's alone, at most 16 MiB each and 64 MiB together, and go after 8 hours and when "
         "printclient ends")
      ->check(CLI::Range(0, 100));
  app.add_flag("!--no-notices", options.hasNotices,
               "shows no notice on the desktop when a job fails or its printer needs somebody");
}

}  // namespace

std::wstring Options::nameThere(const std::wstring& printer) const {
  const std::size_t length = corvane::toUtf16(printer).size() + corvane::toUtf16(place).size();
  return length <= protocol::Registration::kLongestName ? printer + place : printer;
}

void tellApart(std::vector<Options>& servers) {
  if (servers.size() < 2) return;
  for (Options& server : servers) {
    const auto hasItsHost = [&](const Options& other) { return other.host == server.host; };
    const std::string address = programs::HostAndPort{server.host, server.port}.text();
    const bool isOnlyOne = std::count_if(servers.begin(), servers.end(), hasItsHost) == 1;
    server.label = address + ": ";
    server.place = L" on " + corvane::fromUtf8(isOnlyOne ? server.host : address);
  }
}

ParsedOptions parseOptions(std::vector<std::string> arguments) {
  ParsedOptions result;
  Options& options = result.options;
  std::string server = "127.0.0.1:4711";
  std::vector<std::string> printers;
  CLI::App app("A session's print client: registers printers and prints their jobs, or puts them into a folder.",
               "printclient");
  app.set_version_flag("--version", protocol::versionLine("printclient"), protocol::kVersionHelp);
  addServer(app, options, server);
  addPlaces(app, options, printers);
  addView(app, options);
  std::reverse(arguments.begin(), arguments.end());
  try {
    app.parse(arguments);
    readServer(server, options);
    if (options.session == 0 && (app.count("--server") > 0 || !options.keyFile.empty())) {
      throw std::invalid_argument("--server and --key are for a --session: give its number as well");
    }
    chooseTls(options);
    takePrinters(printers, options);
    checkOutputs(options);
  } catch (const CLI::ParseError& error) {
    std::ostringstream out;
    result.exitCode = app.exit(error, out, out) == 0 ? 0 : 2;
    result.message = out.str();
  } catch (const std::invalid_argument& error) {
    result.exitCode = 2;
    result.message = fmt::format("{}\n", error.what());
  }
  return result;
}

}  // namespace printclient
