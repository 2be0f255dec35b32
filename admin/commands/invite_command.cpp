#include "admin/commands/invocation.h"
#include "admin/sessions/application_server.h"
#include "corvane/base/text.h"
#include "programs/text.h"

#include <CLI/CLI.hpp>
#include <limits>
#include <nlohmann/json.hpp>

namespace admin {
namespace {

struct InviteOptions {
  int session = 0;
  int serverPort = 0;
  bool isSameUser = false;
  std::string address;
};

ExitCode invite(const InviteOptions& options, Output& output) {
  const std::wstring line = ApplicationServer(options.serverPort)
                                .invite({options.session, options.isSameUser, corvane::fromUtf8(options.address)});
  output.line(programs::oneLine(line));
  output.facts({{"session", options.session}, {"invitation", corvane::toUtf8(line)}});
  return ExitCode::kDone;
}

}  // namespace

void addInviteCommand(CLI::App& app, Invocation& invocation) {
  auto options = std::make_shared<InviteOptions>();
  CLI::App& command =
      addCommand(app, invocation, "invite",
                 "Prints an invitation: a line by which somebody's print client on another machine gets the key of a "
                 "session. It is "
                 "good once and for ten minutes. The session gets a new key, and an older one opens nothing any more.",
                 {"invite 5", "invite 5 --same-user", "invite 5 --address print.example:4712"});
  command.add_option("session", options->session, "number of the session")
      ->required()
      ->check(CLI::Range(1, std::numeric_limits<int>::max()));
  command.add_flag("--same-user", options->isSameUser, "for a further device of the same user; the key stays as it is");
  command.add_option("--address", options->address,
                     "host and port where that print client reaches aps; default: as aps knows it");
  command.add_option("--server-port", options->serverPort, "TCP port of aps; default: the registry's")
      ->check(CLI::Range(1, 65535));
  command.callback(
      [options, &invocation] { invocation.run = [options](Output& output) { return invite(*options, output); }; });
}

}  // namespace admin
