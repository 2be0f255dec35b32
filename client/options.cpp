#include "client/options.h"

#include "corvane/base/text.h"
#include "programs/host_and_port.h"

#include <CLI/CLI.hpp>
#include <algorithm>
#include <charconv>
#include <fmt/format.h>
#include <limits>
#include <sstream>
#include <stdexcept>
#include <vector>

namespace printclient {
namespace {

constexpr int kMaxResolution = 100000;

struct TextKey {
  std::string_view key;
  std::size_t text;
};
constexpr TextKey kTextKeys[] = {{"comment", 1}, {"location", 2},     {"driver", protocol::Printer::kDriverText},
                                 {"port", 4},    {"manufacturer", 5}, {"model", 6},
                                 {"share", 7}};

[[noreturn]] void refuse(std::string_view option, const std::string& why) {
  throw std::invalid_argument(fmt::format(
      "--printer \"{}\": {}\nAn example: --printer \"Laser-2,driver=HP LaserJet,format=pdf\"", option, why));
}

std::vector<std::string> splitAtCommas(std::string_view text) {
  std::vector<std::string> parts(1);
  for (std::size_t i = 0; i < text.size(); ++i) {
    if (text[i] != ',') {
      parts.back().push_back(text[i]);
    } else if (i + 1 < text.size() && text[i + 1] == ',') {
      parts.back().push_back(',');
      ++i;
    } else {
      parts.emplace_back();
    }
  }
  return parts;
}

// "raw, ps and pdf".
std::string formatWords() {
  std::string list;
  for (const protocol::DataFormatNames& names : protocol::kDataFormats) {
    if (!list.empty()) list += &names == &protocol::kDataFormats.back() ? " and " : ", ";
    list += names.word;
  }
  return list;
}

protocol::DataFormat readFormat(std::string_view option, const std::string& value) {
  const auto format = protocol::dataFormatOf(value);
  if (!format) refuse(option, fmt::format("there is no format \"{}\"; the formats are {}", value, formatWords()));
  return *format;
}

bool yesOrNo(std::string_view option, const std::string& key, const std::string& value) {
  if (value == "yes") return true;
  if (value == "no") return false;
  refuse(option, fmt::format("{} is yes or no, not \"{}\"", key, value));
}

int resolutionNumber(std::string_view option, const std::string& value) {
  int number = 0;
  const auto [end, error] = std::from_chars(value.data(), value.data() + value.size(), number);
  if (error != std::errc() || end != value.data() + value.size() || number < 1 || number > kMaxResolution) {
    refuse(option, fmt::format("resolution is a number from 1 to {}, not \"{}\"", kMaxResolution, value));
  }
  return number;
}

}  // namespace

protocol::Printer parsePrinterOption(std::string_view text) {
  const std::vector<std::string> parts = splitAtCommas(text);
  if (parts.front().empty()) refuse(text, "the printer's name is missing");
  if (const auto equals = parts.front().find('='); equals != std::string::npos && parts.size() == 1) {
    refuse(text, fmt::format("the printer's name comes first, before \"{}\"", parts.front()));
  }
  protocol::Printer printer;
  printer.texts[0] = corvane::fromUtf8(parts.front());
  std::vector<std::string> seen;
  for (std::size_t i = 1; i < parts.size(); ++i) {
    const std::size_t equals = parts[i].find('=');
    if (equals == std::string::npos) {
      refuse(text, fmt::format("\"{}\" is not key=value (a comma inside a name or value is written twice)", parts[i]));
    }
    const std::string key = parts[i].substr(0, equals);
    const std::string value = parts[i].substr(equals + 1);
    if (value.empty()) refuse(text, fmt::format("{} has no value", key));
    if (std::find(seen.begin(), seen.end(), key) != seen.end()) refuse(text, fmt::format("{} is given twice", key));
    seen.push_back(key);
    const auto* known = std::find_if(std::begin(kTextKeys), std::end(kTextKeys),
                                     [&key](const TextKey& candidate) { return candidate.key == key; });
    if (known != std::end(kTextKeys)) {
      printer.texts[known->text] = corvane::fromUtf8(value);
    } else if (key == "format") {
      printer.format = readFormat(text, value);
    } else if (key == "default") {
      printer.isDefault = yesOrNo(text, key, value);
    } else if (key == "resolution") {
      printer.resolution = resolutionNumber(text, value);
    } else {
      refuse(text, fmt::format("there is no key \"{}\"; the keys are driver, format, comment, location, port, "
                               "manufacturer, model, share, default and resolution",
                               key));
    }
  }
  return printer;
}

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
  if (!options.usesTls || !options.keyFile.empty()) return;
  throw std::invalid_argument(
      fmt::format("{} is reached under TLS only, with the key of the session: give the file with it with --key (the "
                  "server makes it: aps --new-key FILE)",
                  options.host));
}

}  // namespace

ParsedOptions parseOptions(std::vector<std::string> arguments) {
  ParsedOptions result;
  Options& options = result.options;
  std::string server = "127.0.0.1:4711";
  std::vector<std::string> printers;
  CLI::App app("A session's print client: registers printers and puts their jobs into a folder.", "printclient");
  const CLI::Option* const serverOption =
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
  app.add_option("--printer", printers,
                 "a printer to register, NAME,key=value,...; may be repeated. Keys: driver, format (raw, ps, pdf), "
                 "comment, location, port, manufacturer, model, share, default (yes, no), resolution")
      ->required()
      ->expected(1)
      ->multi_option_policy(CLI::MultiOptionPolicy::TakeAll);
  app.add_option("--pace", options.pace)->check(CLI::Range(1, 1000))->group("");
  app.add_option("--output", options.output, "folder for the jobs; it is created when it does not exist")->required();
  std::reverse(arguments.begin(), arguments.end());
  try {
    app.parse(arguments);
    readServer(server, options);
    if (options.session == 0 && (serverOption->count() > 0 || !options.keyFile.empty())) {
      throw std::invalid_argument("--server and --key are for a --session: give its number as well");
    }
    chooseTls(options);
    for (const std::string& printer : printers)
      options.printers.push_back(parsePrinterOption(printer));
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
