#include "client/server_choice.h"

#include "client/invitation_guest.h"
#include "client/known_servers.h"
#include "corvane/records/exception.h"
#include "programs/invitation.h"
#include "programs/text.h"

#include <cstdio>
#include <fmt/format.h>
#include <fstream>
#include <stdexcept>

namespace printclient {
namespace {

// The line itself, or what the file of that name holds.
std::string invitationText(const std::string& given) {
  if (given.starts_with(programs::Invitation::kScheme)) return given;
  std::ifstream file(programs::toPath(given), std::ios::binary);
  if (!file) {
    throw std::runtime_error(
        fmt::format("--invitation \"{}\" is neither an invitation, which begins with {}, nor a file that can be read",
                    given, programs::Invitation::kScheme));
  }
  std::string text(1024, '\0');
  file.read(text.data(), static_cast<std::streamsize>(text.size()));
  text.resize(static_cast<std::size_t>(file.gcount()));
  return text;
}

}  // namespace

std::vector<Options> chooseServers(const Options& options) try {
  const KnownServers known(KnownServers::ownFolder());
  for (const std::string& given : options.invitations) {
    const auto invitation = programs::Invitation::parse(invitationText(given));
    known.prepare();
    const auto server = known.add(invitation.server, invitation.session, redeem(invitation));
    std::printf("the invitation is redeemed: printclient knows session %d of %s from now on\n", server.session,
                server.address.text().c_str());
    std::fflush(stdout);
  }
  if (options.session != 0) return {options};
  std::vector<Options> chosen;
  for (const auto& server : known.all()) {
    Options& its = chosen.emplace_back(options);
    its.server = static_cast<int>(chosen.size()) - 1;
    its.host = server.address.host;
    its.port = server.address.port;
    its.session = server.session;
    its.keyFile = server.keyFile;
    its.usesTls = true;
  }
  tellApart(chosen);
  if (chosen.empty()) {
    throw std::runtime_error(
        "no server is known: give what an administrator gave you with --invitation, or the number of the session with "
        "--session (and --server)");
  }
  return chosen;
} catch (const CS_Exception& failure) {
  std::fprintf(stderr, "printclient: %s; ask for another invitation\n", programs::oneLine(failure.detail()).c_str());
  return {};
} catch (const std::exception& failure) {
  std::fprintf(stderr, "printclient: %s\n", failure.what());
  return {};
}

}  // namespace printclient
