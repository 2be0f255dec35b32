#include "client/invitation_guest.h"

#include "corvane/base/text.h"
#include "corvane/components/channel.h"
#include "corvane/components/component_server.h"
#include "corvane/components/connection.h"
#include "corvane/records/exception.h"
#include "corvane/records/messages.h"
#include "programs/text.h"
#include "protocol/exchange.h"
#include "protocol/invitation.h"
#include "protocol/names.h"
#include "tls/tls_stream.h"

#include <fmt/format.h>
#include <stdexcept>

namespace printclient {
namespace {

constexpr unsigned kAnswerMilliseconds = 30000;

// Closed on every way out.
class Connection {
 public:
  ~Connection() { CS_Connection::destroy(m_connection, true); }
  CS_Connection* operator->() const { return m_connection.get(); }

 private:
  const CS_RCPtr<CS_Connection> m_connection = CS_Connection::create();
};

std::runtime_error failed(const programs::Invitation& invitation, const CS_Exception& failure) {
  if (failure.number() == corvane::kNotProven) {
    return std::runtime_error(
        fmt::format("the server at {} does not take the invitation: it was used, is older than ten minutes or was "
                    "replaced by a newer one; ask for another one",
                    invitation.server.text()));
  }
  return std::runtime_error(fmt::format(
      "the invitation was not redeemed at {}: {}; see that this machine reaches the address, and try again, or ask for "
      "another invitation",
      invitation.server.text(), programs::describe(failure)));
}

protocol::Redeem::Answer ask(const programs::Invitation& invitation) try {
  CS_ComponentServer::getServer()->registerClass(protocol::kInvitationGuestClass,
                                                 new corvane::ComponentClass<CS_Component>(protocol::kVersion));
  const Connection connection;
  const auto identity = corvane::Identity::invitation(invitation.session);
  connection->useStream([&](corvane::Socket socket) {
    return std::make_unique<tls::TlsStream>(std::move(socket), corvane::toUtf8(identity.name()),
                                            programs::Invitation::keyOf(invitation.code));
  });
  connection->connect(corvane::fromUtf8(invitation.server.host).c_str(), invitation.server.port, CS_Connection::kDirect,
                      false);
  const auto factory =
      connection->getClassFactory(protocol::kInvitationGuestClass, protocol::kInvitationHostClass, true);
  if (!factory) throw CS_Exception(corvane::kMissingObject, nullptr);
  const CS_RCPtr<CS_Component> guest(factory->newInstance(0));
  if (!guest) throw CS_Exception(corvane::kConnectionLost, nullptr);
  guest->getChannel(true)->startSending();
  guest->getChannel(true)->startReceiving();
  return protocol::ask(guest, protocol::Redeem(), kAnswerMilliseconds);
} catch (const CS_Exception& failure) {
  throw failed(invitation, failure);
}

}  // namespace

corvane::Key redeem(const programs::Invitation& invitation) {
  const auto answer = ask(invitation);
  if (!answer.isGiven) {
    throw std::runtime_error(
        fmt::format("the server at {} refuses: {}", invitation.server.text(), programs::oneLine(answer.refusal)));
  }
  const auto bytes = corvane::fromHex(answer.key);
  if (!bytes) throw std::runtime_error(fmt::format("the server at {} gave no key", invitation.server.text()));
  return corvane::Key(*bytes);
}

}  // namespace printclient
