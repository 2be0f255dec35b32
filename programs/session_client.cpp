#include "programs/session_client.h"

#include "corvane/channel.h"
#include "corvane/class_factory.h"
#include "corvane/component_server.h"
#include "corvane/exception.h"
#include "corvane/in_request.h"
#include "corvane/message_numbers.h"
#include "corvane/out_request.h"
#include "corvane/simple_class.h"

namespace programs {
namespace {

constexpr unsigned kRegistrationMilliseconds = 30000;

void writePrinter(CS_OutRequest& request, const BroughtPrinter& printer) {
  for (const auto& text : printer.texts) {
    request.writeBoolean(text.has_value());
    if (text) request.writeUTF(text->c_str());
  }
  request.writeBoolean(printer.isDefault);
  request.writeInt(printer.format);
  request.writeInt(printer.resolution);
}

}  // namespace

void registerSessionClientClass() {
  CS_ComponentServer::getServer()->registerClass(kSessionClientClass,
                                                 new corvane::SimpleClass<CS_Component>(kProgramsVersion));
}

Registration bringPrinters(const CS_RCPtr<CS_Connection>& connection, int session,
                           const std::vector<BroughtPrinter>& printers) {
  const auto factory = connection->getClassFactory(kSessionClientClass, kSessionHostClass, true);
  if (!factory) throw CS_Exception(corvane::kMissingObject, L"no class for the registration");
  const CS_RCPtr<CS_Component> component(factory->newInstance(0));
  if (!component) throw CS_Exception(corvane::kConnectionLost, nullptr);
  component->getChannel(true)->startSending();
  component->getChannel(true)->startReceiving();

  CS_OutRequest request(component, kBringPrinters);
  request.writeInt(session);
  request.writeInt(static_cast<int>(printers.size()));
  for (const BroughtPrinter& printer : printers)
    writePrinter(request, printer);
  CS_ClassVersionMap versions;
  CS_ComponentServer::getServer()->copyRegisteredClassVersionMap(versions);
  versions >> request.getChannel();
  CS_InRequest reply(request);
  request.execute(reply, kRegistrationMilliseconds);

  Registration registration;
  if (!reply.readBoolean()) {
    registration.refusal = reply.readUTF();
    if (registration.refusal.empty()) registration.refusal = L"the server gave no reason";
    return registration;
  }
  for (std::size_t i = 0; i < printers.size(); ++i)
    registration.localNames.emplace_back(reply.readUTF());
  return registration;
}

}  // namespace programs
