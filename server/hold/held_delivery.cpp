#include "server/hold/held_delivery.h"

#include "corvane/base/text.h"
#include "corvane/components/bridge.h"
#include "corvane/components/channel.h"
#include "corvane/components/component.h"
#include "corvane/records/exception.h"
#include "corvane/records/messages.h"
#include "corvane/trust/key.h"
#include "programs/text.h"
#include "protocol/exchange.h"
#include "protocol/names.h"
#include "protocol/print_job.h"
#include "server/client_news.h"
#include "server/hold/served_end.h"

#include <condition_variable>
#include <fmt/format.h>
#include <mutex>
#include <new>
#include <system_error>

namespace aps {
namespace {

constexpr unsigned kAskMilliseconds = 60000;
constexpr unsigned kEndMilliseconds = 600000;  // as the port monitor waits for it

CS_RCPtr<CS_Component> makeOn(CS_Component& owner, const wchar_t* local, const wchar_t* remote, bool isAnnounced) {
  const auto factory = owner.getClassFactory(local, remote, isAnnounced);
  if (!factory) throw CS_Exception(corvane::kRequestRefused, L"the print client has another version");
  const CS_RCPtr<CS_Component> component(factory->newInstance(0));
  if (!component) throw CS_Exception(corvane::kConnectionLost, nullptr);
  component->getChannel(true)->startSending();
  component->getChannel(true)->startReceiving();
  return component;
}

constexpr char kNoMemory[] = "out of memory";  // so short that a string of it takes none

constexpr char kTriedAgain[] =
    "; it is tried again when the print client comes back or its printers change, and can be canceled";

// A sentence of the record without its end.
std::string words(const std::wstring& sentence) {
  std::string text = programs::oneLine(sentence);
  while (!text.empty() && text.back() == '.')
    text.pop_back();
  return text;
}

HeldDelivery::Outcome unclear() {
  return {HeldDelivery::End::kFailed,
          "printing was interrupted when the print client handed the document on, and nobody can tell what came of it",
          "look whether the page is there, and print again if it is not"};
}

}  // namespace

struct HeldDelivery::RouteEnd {
  std::mutex lock;  // guards what follows
  std::condition_variable changed;
  bool isOver = false;
  bool isCanceled = false;
  bool isOfClient = false;  // the print client let the bridge go, or has gone
  std::wstring reason;
};

HeldDelivery::Outcome HeldDelivery::run() noexcept {
  Outcome outcome{End::kBusy, kNoMemory, ""};
  try {
    outcome = runOnce();
  } catch (const std::exception&) {
    // There was no memory for the words of a failure.
  }
  if (!m_router) return outcome;
  try {
    awaitRouteEnd();
    return behindRoute(std::move(outcome));
  } catch (const std::exception&) {
    return {End::kBusy, kNoMemory, ""};
  }
}

void HeldDelivery::awaitRouteEnd() {
  // It has ended with the connection, unless that had no memory to tell it.
  const bool isCutHere = m_router->cut(L"");
  // What the route's end tells is told now, and nobody uses this any more.
  std::unique_lock<std::mutex> lock(m_routeEnd->lock);
  m_routeEnd->changed.wait(lock, [this] { return m_routeEnd->isOver; });
  if (isCutHere) m_routeEnd->isOfClient = false;
}

HeldDelivery::Outcome HeldDelivery::behindRoute(Outcome outcome) const {
  if (m_routeEnd->isCanceled) return {End::kCanceled, "", ""};
  const CS_RCPtr<CS_Connection> client = m_context.sessions.clientOf(m_job.session);
  const bool isGivenUp = outcome.end == End::kAway && m_routeEnd->isOfClient && client && client.get() == m_client;
  if (!isGivenUp || !client->isConnected()) return outcome;
  return {End::kFailed, fmt::format("the print client let the job go: {}", programs::oneLine(m_routeEnd->reason)),
          "print again if it is still wanted"};
}

HeldDelivery::Outcome HeldDelivery::runOnce() try {
  const CS_RCPtr<CS_Connection> client = m_context.sessions.clientOf(m_job.session);
  if (!client || corvane::toHex(client->peerKeyMark()) != m_job.key) return {End::kAway, "", ""};
  const auto found = m_context.sessions.find(m_job.printer);
  if (!found || found->session != m_job.session) {
    return {End::kAside, fmt::format("the printer {} is not there any more", programs::quoted(m_job.printer)),
            fmt::format("let the print client of session {} bring it back, or cancel the job", m_job.session)};
  }
  if (found->client.get() != client.get()) return {End::kAway, "", ""};
  m_client = client.get();
  return deliver(*found);
} catch (const HeldFileDamage& damage) {
  return {End::kDamaged, damage.what(), "print again"};
} catch (const CS_Exception& failure) {
  if (failure.number() != corvane::kRequestRefused) return {End::kAway, "", ""};
  return {End::kAside, fmt::format("the print client refuses the job: {}", programs::describe(failure)),
          "install the same version of the print client and aps"};
} catch (const std::exception& failure) {
  return {End::kBusy, failure.what(), ""};
}

HeldDelivery::Outcome HeldDelivery::deliver(const SessionTable::Found& found) {
  const auto [caller, routed] = CS_Connection::makePair();
  const ServedEnd served(routed);
  try {
    Outcome outcome = deliverOver(caller, routed, found);
    ServedEnd::endConnection(caller);
    return outcome;
  } catch (...) {
    ServedEnd::endConnection(caller);
    throw;
  }
}

HeldDelivery::Outcome HeldDelivery::deliverOver(const CS_RCPtr<CS_Connection>& caller,
                                                const CS_RCPtr<CS_Connection>& routed,
                                                const SessionTable::Found& found) {
  const auto bridge = makeOn(*caller, CS_Bridge::m_className, CS_BridgeRouter::getClassName(), false);
  m_context.book.redeliver(m_known);
  if (!route(*routed, *bridge, found)) {
    m_context.book.tellHeld(m_known, protocol::JobState::kHeld);
    return {End::kAway, "", ""};
  }
  bridge->setVersionsOfClassesInPeerProcess(*found.versions, CS_Component::kSetVersionsOnOwnPeer);
  const auto sender = makeOn(*bridge, protocol::kPrintServerClass, protocol::kPrintClientClass, true);
  if (auto known = askWhether(sender)) return *known;
  m_context.clientNews.jobAttached(m_job.printer, found.client.get(), found.printer.name());
  return send(sender);
}

bool HeldDelivery::route(CS_Connection& routed, CS_Component& bridge, const SessionTable::Found& found) {
  const CS_RCPtr<CS_BridgeRouter> router = new CS_BridgeRouter;
  router->setIdentifier(bridge.getIdentifier());
  if (!routed.addChild(router.get())) return false;
  JobBook& book = m_context.book;
  router->onPass(
      [&book, number = m_job.number](const CS_BridgeRouter::Passing& passing) { book.passed(number, passing); });
  const auto end = std::make_shared<RouteEnd>();
  router->onEnd([&book, end, number = m_job.number](const CS_BridgeRouter::Ending& ending) {
    const bool isCanceled = book.ended(number, ending, false);
    std::wstring reason;
    try {
      reason = ending.reason;
    } catch (const std::bad_alloc&) {
      // The end is what is waited for.
    }
    const std::lock_guard<std::mutex> guard(end->lock);
    end->isOver = true;
    end->isCanceled = isCanceled;
    end->isOfClient = !ending.madeHere;
    end->reason = std::move(reason);
    end->changed.notify_all();
  });
  if (router->routeTo(found.client) != CS_BridgeRouter::Routing::kMade) return false;
  m_router = router;
  m_routeEnd = end;
  book.routed(m_job.number, router);
  return true;
}

std::optional<HeldDelivery::Outcome> HeldDelivery::askWhether(const CS_RCPtr<CS_Component>& sender) {
  const auto sentTo = m_context.store.sentTo(m_job.number);
  protocol::HeldJob::Answer answer;
  try {
    answer = protocol::ask(sender, protocol::HeldJob{m_job.id}, kAskMilliseconds);
  } catch (const CS_Exception& failure) {
    if (failure.number() != corvane::kRequestRefused) throw;
    // An older print client, which remembers nothing.
    return sentTo ? std::optional(unclear()) : std::nullopt;
  }
  m_device = answer.device;
  switch (answer.state) {
    case protocol::HeldJobState::kTaken:
      return Outcome{End::kAlreadyThere, "", ""};
    case protocol::HeldJobState::kBusy:
      return Outcome{End::kBusy, "the print client is still handing it on", ""};
    case protocol::HeldJobState::kNew:
      if (!sentTo || *sentTo == m_device) return std::nullopt;
      return Outcome{End::kAside,
                     "another device of the session may have it: the connection was lost when it was about to take it",
                     "start the print client there, or look whether the page is there and cancel the job"};
    case protocol::HeldJobState::kUnclear:
      break;
  }
  return unclear();
}

HeldDelivery::Outcome HeldDelivery::send(const CS_RCPtr<CS_Component>& sender) {
  protocol::tell(sender, m_job.start);
  HeldFileReader file(m_context.store.pathOf(m_job.number));
  for (auto piece = file.next(); !piece.empty(); piece = file.next()) {
    protocol::JobDataToSend data;
    data.jobName = m_job.start.jobName.c_str();
    data.length = static_cast<int>(piece.size());
    data.data = piece.data();
    protocol::tell(sender, data);
  }
  m_context.store.markSent(m_job.number, m_device);
  const auto result = protocol::ask(sender, protocol::JobEnd{m_job.start.jobName}, kEndMilliseconds).result;
  if (static_cast<int>(result) > 0) return {End::kDelivered, "", ""};
  m_context.store.unmarkSent(m_job.number);
  const auto said = m_context.book.refusalOf(m_job.number);
  if (said && said->state == protocol::JobState::kCanceled) return {End::kCanceled, "", ""};
  if (!said || said->remedy.empty()) return outcomeOf(result);
  return {End::kAside, words(said->cause), words(said->remedy) + kTriedAgain};
}

HeldDelivery::Outcome HeldDelivery::outcomeOf(protocol::PrintResult result) {
  const std::string cause = words(protocol::textOf(result));
  const bool isForGood = result == protocol::PrintResult::kNoData || result == protocol::PrintResult::kIncompletePdf;
  if (isForGood) return {End::kFailed, cause, "print again"};
  return {End::kAside, cause, std::string("see in the print client's output what it says about the job") + kTriedAgain};
}

}  // namespace aps
