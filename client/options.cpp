#include "client/options.h"

#include <CLI/CLI.hpp>
#include <algorithm>
#include <limits>
#include <sstream>
#include <stdexcept>

namespace printclient {
namespace {

void readServer(const std::string& text, Options& options) {
  const std::size_t colon = text.rfind(':');
  const std::string port = colon == std::string::npos ? "" : text.substr(colon + 1);
  const bool isNumber = !port.empty() && port.size() <= 5 && port.find_first_not_of("0123456789") == std::string::npos;
  if (colon == 0 || !isNumber || std::stoi(port) < 1 || std::stoi(port) > 65535) {
    throw std::invalid_argument("--server \"" + text + "\" is not host and port; an example is 127.0.0.1:4711");
  }
  std::string host = text.substr(0, colon);
  const bool hasBrackets = host.size() > 2 && host.front() == '[' && host.back() == ']';
  if (hasBrackets) host = host.substr(1, host.size() - 2);
  if (hasBrackets != (host.find(':') != std::string::npos) || host.find_first_of("[]") != std::string::npos) {
    throw std::invalid_argument("--server \"" + text +
                                "\" is not host and port; an IPv6 address stands in brackets, as in [::1]:4711");
  }
  options.host = host;
  options.port = std::stoi(port);
}

}  // namespace

ParsedOptions parseOptions(std::vector<std::string> arguments) {
  ParsedOptions result;
  Options& options = result.options;
  std::string server = "127.0.0.1:4711";
  std::vector<std::string> printers;
  CLI::App app("A session's print client: brings printers along and puts their jobs into a folder.", "printclient");
  app.add_option("--server", server, "where the application server listens")->capture_default_str();
  app.add_option("--session", options.session, "number of the session")
      ->required()
      ->check(CLI::Range(1, std::numeric_limits<int>::max()));
  app.add_option("--key", options.keyFile, "file with the key of the session, where the server wants one")
      ->check(CLI::Validator([](std::string& text) { return text.empty() ? "it names no file" : ""; }, ""));
  app.add_option("--printer", printers,
                 "a printer to bring along, NAME,key=value,...; may be repeated. Keys: driver, format (raw, ps, pdf), "
                 "comment, location, port, manufacturer, model, share, default (yes, no), resolution")
      ->required()
      ->expected(1)
      ->multi_option_policy(CLI::MultiOptionPolicy::TakeAll);
  app.add_option("--pace", options.pace)->check(CLI::Range(1, 1000))->group("");
  app.add_option("--output", options.output, "folder for the jobs; it is made when it does not exist")->required();
  std::reverse(arguments.begin(), arguments.end());
  try {
    app.parse(arguments);
    readServer(server, options);
    for (const std::string& printer : printers)
      options.printers.push_back(parsePrinterOption(printer));
  } catch (const CLI::ParseError& error) {
    std::ostringstream out;
    result.exitCode = app.exit(error, out, out) == 0 ? 0 : 2;
    result.message = out.str();
  } catch (const std::invalid_argument& error) {
    result.exitCode = 2;
    result.message = std::string(error.what()) + "\n";
  }
  return result;
}

}  // namespace printclient
