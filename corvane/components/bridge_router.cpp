#include "corvane/components/bridge_router.h"

#include "corvane/base/lock.h"
#include "corvane/components/bridge.h"
#include "corvane/components/channel.h"
#include "corvane/components/connection.h"
#include "corvane/records/exception.h"
#include "corvane/records/messages.h"
#include "corvane/wire/frame.h"
#include "corvane/wire/link.h"
#include "corvane/wire/thin_line.h"

#include <mutex>
#include <new>

namespace corvane {

// What the two ends of a routed bridge share.
struct Route {
  struct End {
    std::shared_ptr<Link> link;
    std::uint32_t bridge = 0;
    CS_RCPtr<CS_BridgeRouter> router;  // until the route ends
    std::shared_ptr<JobLane> lane;     // what goes there is sent by it, where there is one
  };
  Lock lock;    // guards what follows; not held while sending
  End ends[2];  // 0: where the bridge was made; 1: where it continues
  std::uint64_t bytes = 0;
  std::uint32_t asked = 0;  // correlation of the last request from end 0 that wants a reply
  int askedNumber = 0;      // and its number
  int passingNumber = 0;    // of the latest request from end 0, whose thread alone uses it
  int answered = 0;         // number of the last such request that was replied to
  bool ended = false;
  CS_BridgeRouter::EndHandler onEnd;
  CS_BridgeRouter::PassHandler onPass;  // stays as it is once the route is made
};

namespace {

constexpr wchar_t kGone[] = L"the other side of the bridge has gone";

// What the remaining side is told: why the other one has gone, unless its connection was closed in order.
std::wstring goneText(const std::wstring& reason) {
  if (reason.empty() || reason == kClosedInOrder || reason == kClosedHere) return kGone;
  return std::wstring(kGone) + L": " + reason;
}

// The text is no string, so that nothing takes memory, and can fail, outside of here.
void sendRelease(Link& link, std::uint32_t bridge, const wchar_t* reason) {
  FrameHeader header;
  header.kind = FrameKind::kRelease;
  header.component = bridge;
  try {
    link.sendText(header, reason);
  } catch (const CS_Exception&) {
    // That connection has ended as well, and its side knows.
  } catch (const std::exception&) {
    // Its side must not wait for one that has gone.
    link.end(L"not enough memory");
  }
}

void leave(CS_BridgeRouter& router) {
  if (CS_Component* owner = router.getOwner()) owner->removeChild(&router);
}

}  // namespace
}  // namespace corvane

using corvane::goneText;
using corvane::leave;
using corvane::Route;
using corvane::sendRelease;

const wchar_t* CS_BridgeRouter::getClassName() {
  return L"Quillfern::ComponentServer::BridgeRouter";
}

CS_BridgeRouter::~CS_BridgeRouter() = default;

void CS_BridgeRouter::onEnd(EndHandler handler) {
  m_onEnd = std::move(handler);
}

bool CS_BridgeRouter::isRouted() const {
  return route() != nullptr;
}

std::shared_ptr<Route> CS_BridgeRouter::route() const {
  const std::lock_guard guard(m_routeLock);
  return m_route;
}

CS_Connection* CS_BridgeRouter::ownConnection() {
  CS_Connection* connection = getConnection();
  return connection == getOwner() ? connection : nullptr;
}

CS_BridgeRouter::Routing CS_BridgeRouter::routeTo(const CS_RCPtr<CS_Connection>& connection) {
  CS_Channel* here = getChannel(true);
  CS_Connection* own = ownConnection();
  if (here == nullptr || own == nullptr || !connection || !connection->isConnected()) return Routing::kGone;
  {
    const std::lock_guard guard(m_routeLock);
    if (m_routing || m_released) return Routing::kGone;
    if (!own->beginRoute()) return Routing::kFull;
    m_routing = true;
  }

  auto route = std::make_shared<Route>();
  CS_RCPtr<CS_BridgeRouter> other = new CS_BridgeRouter;
  other->setIdentifier(connection->nextIdentifier());
  route->ends[0] = {here->sharedLink(), getIdentifier(), this, nullptr};
  route->ends[1] = {connection->link(), other->getIdentifier(), other, connection->makeLane()};
  route->onEnd = std::move(m_onEnd);
  route->onPass = std::move(m_onPass);
  other->m_route = route;
  other->m_end = 1;
  if (!connection->addChild(other.get())) {
    route->ends[0] = route->ends[1] = {};  // the two would keep each other alive
    own->endRoute();
    const std::lock_guard guard(m_routeLock);
    m_routing = false;
    return connection->isConnected() ? Routing::kFull : Routing::kGone;
  }
  bool released;
  {
    const std::lock_guard guard(m_routeLock);
    m_route = route;
    released = m_released;
  }
  if (released) {
    end(0, L"", nullptr);
    return Routing::kGone;
  }
  return announce(*connection, *other);
}

CS_BridgeRouter::Routing CS_BridgeRouter::announce(const CS_Connection& connection, const CS_BridgeRouter& other) {
  corvane::FrameHeader header;
  header.kind = corvane::FrameKind::kCreate;
  header.component = other.getIdentifier();
  corvane::ValueWriter values;
  values.writeText(CS_Bridge::m_className);
  try {
    connection.link()->announce(header, values);
  } catch (const CS_Exception&) {
    end(1, L"its connection has ended", nullptr);
    return Routing::kGone;
  }
  return Routing::kMade;
}

void CS_BridgeRouter::deliver(std::span<unsigned char> frames) {
  const std::shared_ptr<Route> through = route();
  Route::End to;
  if (through != nullptr) {
    const std::lock_guard guard(through->lock);
    if (through->ended) return;  // the release that says why is on its way, and fails the waiting requests
    to = through->ends[1 - m_end];
  }
  std::uint64_t payload = 0;
  corvane::FrameHeader question, reply;  // the last ones among the frames; no correlation when there are none
  std::span<const unsigned char> replied;
  for (std::size_t at = 0; at < frames.size();) {
    const auto bytes = frames.subspan(at);
    const corvane::FrameHeader header = corvane::decodeHeader(bytes.first<corvane::kFrameHeaderSize>());
    if (to.link == nullptr) answer(header, L"the bridge leads to no print client");
    corvane::storeLittleEndian32(&bytes[corvane::kFrameBridgeOffset], to.bridge);
    payload += header.length;
    if (header.kind == corvane::FrameKind::kRequest && header.wantsReply() && !header.hasMore()) question = header;
    if (header.kind == corvane::FrameKind::kReply && !header.hasMore()) {
      reply = header;
      replied = bytes.subspan(corvane::kFrameHeaderSize, header.length);
    }
    if (m_end == 0 && to.link != nullptr) tellRequest(*through, header, bytes);
    at += corvane::kFrameHeaderSize + header.length;
  }
  if (to.link == nullptr) return;
  if (m_end == 0) {
    noteRequests(*through, payload, question);
  } else if (reply.correlation != 0) {
    tellReply(*through, reply.correlation, replied);
  }
  try {
    to.lane != nullptr ? to.lane->send(frames) : to.link->sendFrames(frames);
  } catch (const CS_Exception&) {
    end(1 - m_end, to.link->reason(), nullptr);
    sendRelease(*getChannel(true)->sharedLink(), getIdentifier(), goneText(to.link->reason()).c_str());
  }
}

void CS_BridgeRouter::noteRequests(Route& through, std::uint64_t payload, const corvane::FrameHeader& question) {
  const std::lock_guard guard(through.lock);
  through.bytes += payload;
  if (question.correlation == 0) return;
  through.asked = question.correlation;
  through.askedNumber = question.number;
}

void CS_BridgeRouter::tellRequest(Route& through, const corvane::FrameHeader& header,
                                  std::span<const unsigned char> frame) {
  if (header.kind != corvane::FrameKind::kRequest || header.number == through.passingNumber) return;
  through.passingNumber = header.number;
  if (through.onPass) through.onPass({false, header.number, frame.subspan(corvane::kFrameHeaderSize, header.length)});
}

void CS_BridgeRouter::tellReply(Route& through, std::uint32_t correlation, std::span<const unsigned char> payload) {
  int number = 0;
  {
    const std::lock_guard guard(through.lock);
    if (correlation != through.asked) return;
    number = through.answered = through.askedNumber;
  }
  if (through.onPass) through.onPass({true, number, payload});
}

std::uint64_t CS_BridgeRouter::bytesPassed() const {
  const std::shared_ptr<Route> through = route();
  if (through == nullptr) return 0;
  const std::lock_guard guard(through->lock);
  return through->ended ? 0 : through->bytes;
}

std::uint32_t CS_BridgeRouter::continuedAs() const {
  const std::shared_ptr<Route> through = route();
  if (through == nullptr) return 0;
  const std::lock_guard guard(through->lock);
  return through->ends[1 - m_end].bridge;
}

bool CS_BridgeRouter::cut(const std::wstring& reason) {
  const std::shared_ptr<Route> through = route();
  if (through == nullptr) return false;
  Route::End here;
  {
    const std::lock_guard guard(through->lock);
    if (through->ended) return false;
    here = through->ends[m_end];
  }
  const std::wstring told = goneText(reason);
  if (!end(1 - m_end, reason, told.c_str())) return false;
  sendRelease(*here.link, here.bridge, told.c_str());
  return true;
}

void CS_BridgeRouter::answer(const corvane::FrameHeader& header, const wchar_t* failure) {
  if (header.kind != corvane::FrameKind::kRequest || !header.wantsReply() || header.hasMore()) return;
  corvane::FrameHeader reply = header;
  reply.kind = corvane::FrameKind::kFailure;
  reply.flags = 0;
  getChannel(true)->link().sendText(reply, failure);
}

bool CS_BridgeRouter::release() {
  std::shared_ptr<Route> through;
  {
    const std::lock_guard guard(m_routeLock);
    m_released = true;
    through = m_route;
  }
  if (through == nullptr) return true;
  std::shared_ptr<corvane::Link> here;
  {
    const std::lock_guard guard(through->lock);
    here = through->ends[m_end].link;
  }
  if (here == nullptr) return true;  // the route has ended
  std::wstring reason, told;
  try {
    // A side that is done closes its connection, so an orderly close is not passed on as a reason.
    told = goneText(here->reason());
    if (here->reason() != corvane::kClosedInOrder) reason = here->reason();
  } catch (const std::bad_alloc&) {
    // The end is what counts.
  }
  end(m_end, reason, told.empty() ? corvane::kGone : told.c_str());
  return true;
}

void CS_BridgeRouter::releasedByPeer(const std::wstring& reason) {
  end(m_end, reason, reason.c_str());
}

bool CS_BridgeRouter::end(int gone, const std::wstring& reason, const wchar_t* toldToOther) {
  const std::shared_ptr<Route> through = route();
  if (through == nullptr) return false;
  Route::End ends[2];  // hold both routers until this returns
  EndHandler onEnd;
  Ending ending;
  {
    const std::lock_guard guard(through->lock);
    if (through->ended) return false;
    through->ended = true;
    std::swap(ends, through->ends);
    onEnd = std::move(through->onEnd);
    ending.bytes = through->bytes;
    ending.answered = through->answered;
  }
  if (CS_Connection* maker = ends[0].router->ownConnection()) maker->endRoute();
  const Route::End& other = ends[1 - m_end];
  leave(*ends[m_end].router);
  // Told first: what still arrives there meanwhile is dropped, not answered as for a bridge that never was.
  if (toldToOther != nullptr) sendRelease(*other.link, other.bridge, toldToOther);
  leave(*other.router);
  ending.madeHere = gone == 0;
  try {
    ending.reason = reason;
  } catch (const std::bad_alloc&) {
    // The end is what counts.
  }
  if (onEnd) onEnd(ending);
  return true;
}
