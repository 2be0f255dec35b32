#include "programs/printer_registration.h"

#include "corvane/components/channel.h"
#include "corvane/components/component.h"
#include "corvane/components/component_server.h"
#include "corvane/records/exception.h"
#include "corvane/records/messages.h"
#include "protocol/exchange.h"
#include "protocol/names.h"

namespace programs {
namespace {

constexpr unsigned kRegistrationMilliseconds = 30000;

}  // namespace

void registerSessionClientClass() {
  CS_ComponentServer::getServer()->registerClass(protocol::kSessionClientClass,
                                                 new corvane::ComponentClass<CS_Component>(protocol::kVersion));
}

protocol::Registration::Answer registerPrinters(const CS_RCPtr<CS_Connection>& connection, int session,
                                                const std::vector<protocol::Printer>& printers) {
  const auto factory = connection->getClassFactory(protocol::kSessionClientClass, protocol::kSessionHostClass, true);
  if (!factory) throw CS_Exception(corvane::kMissingObject, L"no class for the registration");
  const CS_RCPtr<CS_Component> component(factory->newInstance(0));
  if (!component) throw CS_Exception(corvane::kConnectionLost, nullptr);
  component->getChannel(true)->startSending();
  component->getChannel(true)->startReceiving();

  protocol::Registration registration{session, printers, {}};
  CS_ComponentServer::getServer()->copyRegisteredClassVersionMap(registration.versions);
  protocol::Registration::Answer answer;
  answer.localNames.resize(printers.size());
  protocol::ask(component, registration, kRegistrationMilliseconds, answer);
  if (!answer.isAccepted && answer.refusal.empty()) answer.refusal = L"the server gave no reason";
  return answer;
}

}  // namespace programs
