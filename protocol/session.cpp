#include "protocol/session.h"

#include "corvane/components/channel.h"
#include "corvane/components/component_server.h"
#include "corvane/components/connection.h"
#include "corvane/records/exception.h"
#include "corvane/records/messages.h"
#include "protocol/exchange.h"
#include "protocol/names.h"

namespace protocol {
namespace {

constexpr unsigned kRegistrationMilliseconds = 30000;

}  // namespace

void registerSessionClientClass() {
  CS_ComponentServer::getServer()->registerClass(kSessionClientClass,
                                                 new corvane::ComponentClass<CS_Component>(kVersion));
}

CS_RCPtr<CS_Component> makeSessionClient(const CS_RCPtr<CS_Connection>& connection) {
  const auto factory = connection->getClassFactory(kSessionClientClass, kSessionHostClass, true);
  if (!factory) throw CS_Exception(corvane::kMissingObject, L"no class for the registration");
  const CS_RCPtr<CS_Component> component(factory->newInstance(0));
  if (!component) throw CS_Exception(corvane::kConnectionLost, nullptr);
  component->getChannel(true)->startSending();
  component->getChannel(true)->startReceiving();
  return component;
}

Registration::Answer registerPrinters(const CS_RCPtr<CS_Connection>& connection, int session,
                                      const std::vector<Printer>& printers) {
  return registerPrinters(makeSessionClient(connection), session, printers);
}

Registration::Answer registerPrinters(const CS_RCPtr<CS_Component>& sessionClient, int session,
                                      const std::vector<Printer>& printers) {
  Registration registration{session, printers, {}};
  CS_ComponentServer::getServer()->copyRegisteredClassVersionMap(registration.versions);
  Registration::Answer answer;
  answer.localNames.resize(printers.size());
  ask(sessionClient, registration, kRegistrationMilliseconds, answer);
  if (!answer.isAccepted && answer.refusal.empty()) answer.refusal = L"the server gave no reason";
  return answer;
}

}  // namespace protocol
