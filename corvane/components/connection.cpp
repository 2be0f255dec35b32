#include "corvane/components/connection.h"

#include "corvane/base/limits.h"
#include "corvane/base/process.h"
#include "corvane/base/text.h"
#include "corvane/components/channel.h"
#include "corvane/components/dispatcher.h"
#include "corvane/net/local_stream.h"
#include "corvane/records/exception.h"
#include "corvane/records/messages.h"
#include "corvane/records/program_monitor.h"
#include "corvane/trust/handshake.h"
#include "corvane/wire/heartbeat.h"
#include "corvane/wire/link.h"
#include "corvane/wire/thin_line.h"

#include <new>
#include <thread>

namespace {

constexpr std::chrono::seconds kPauseBetweenAttempts{5};

constexpr wchar_t kHeartbeat[] = L"heartbeat";
constexpr wchar_t kTakes[] = L"takes";  // that it says what it has taken, and how the frames may be packed
constexpr wchar_t kRate[] = L"rate";    // bytes a second at most
constexpr wchar_t kUnpacked[] = L"unpacked";

// A text of digits, as a number; 0 for anything else.
std::uint64_t numberIn(const std::wstring& text) {
  std::uint64_t number = 0;
  for (const wchar_t digit : text.substr(0, 15)) {
    if (digit < L'0' || digit > L'9') return 0;
    number = 10 * number + static_cast<std::uint64_t>(digit - L'0');
  }
  return number;
}

corvane::Patience patienceOf(const corvane::Heartbeat* heartbeat) {
  return heartbeat != nullptr ? heartbeat->patience() : corvane::Patience();
}

}  // namespace

CS_Connection::CS_Connection() = default;
CS_Connection::~CS_Connection() {
  if (m_link != nullptr) m_link->setHandler(nullptr);
  if (m_line != nullptr) m_line->end(corvane::kClosedHere);
}

std::map<std::wstring, std::wstring> CS_Connection::ownHello() const {
  std::map<std::wstring, std::wstring> values = {{L"process", std::to_wstring(corvane::processId())}};
  if (m_heartbeat != nullptr) values[kHeartbeat] = L"1";
  if (!m_lineSettings) return values;
  values[kTakes] = m_lineSettings->packing == nullptr ? kUnpacked : m_lineSettings->packing->name();
  if (m_lineSettings->bytesPerSecond != 0) values[kRate] = std::to_wstring(m_lineSettings->bytesPerSecond);
  return values;
}

void CS_Connection::takeOfferedLine() {
  const auto offered = m_peerValues.find(kTakes);
  if (!m_lineSettings || offered == m_peerValues.end()) return;
  if (m_lineSettings->packing != nullptr && m_lineSettings->packing->name() != offered->second) {
    m_lineSettings->packing = nullptr;
  }
  m_line = std::make_shared<corvane::ThinLine>(m_link, patienceOf(m_heartbeat));
  m_line->limitRate(m_lineSettings->bytesPerSecond);
  const auto rate = m_peerValues.find(kRate);
  if (rate != m_peerValues.end()) m_line->limitRate(numberIn(rate->second));
}

std::shared_ptr<corvane::JobLane> CS_Connection::makeLane() const {
  return m_line == nullptr ? nullptr : std::make_shared<corvane::JobLane>(m_line, m_lineSettings->packing);
}

void CS_Connection::limitRate(std::uint64_t bytesPerSecond) {
  if (m_line != nullptr) m_line->limitRate(bytesPerSecond);
}

CS_RCPtr<CS_Connection> CS_Connection::create() {
  return new CS_Connection;
}

void CS_Connection::take(const std::shared_ptr<corvane::Link>& link, std::uint32_t firstIdentifier) {
  m_nextIdentifier = firstIdentifier;
  m_dispatcher =
      std::make_unique<corvane::Dispatcher>(*this, *link, [this](const std::wstring& reason) { linkEnded(reason); });
  m_channel = std::make_unique<CS_Channel>(link, 0, 0);
  if (m_line != nullptr) m_dispatcher->hearTaken(m_line);
  if (firstIdentifier == 1 && m_lineSettings) m_dispatcher->tellTaken(m_lineSettings->packing);
  link->setHandler(m_dispatcher.get());
  if (m_heartbeat != nullptr && m_peerValues.contains(kHeartbeat)) m_heartbeat->watch(link);
  if (m_link != link) m_link = link;  // one that has arrived may be ended meanwhile
}

std::pair<CS_RCPtr<CS_Connection>, CS_RCPtr<CS_Connection>> CS_Connection::makePair() {
  auto [dialed, accepted] = corvane::makeLocalStreams();
  const CS_RCPtr<CS_Connection> one = create(), other = create();
  one->take(std::make_shared<corvane::Link>(std::move(dialed)), 1);
  other->take(std::make_shared<corvane::Link>(std::move(accepted)), 2);
  return {one, other};
}

CS_RCPtr<CS_Connection> CS_Connection::accept(corvane::Socket socket, const corvane::KeyFolder* keys,
                                              corvane::Heartbeat* heartbeat) {
  CS_RCPtr<CS_Connection> connection = arrive(std::make_unique<corvane::Socket>(std::move(socket)), heartbeat);
  connection->welcome(keys);
  return connection;
}

CS_RCPtr<CS_Connection> CS_Connection::arrive(std::unique_ptr<corvane::Stream> stream, corvane::Heartbeat* heartbeat) {
  CS_RCPtr<CS_Connection> connection = create();
  connection->useHeartbeat(heartbeat);
  connection->m_link = std::make_shared<corvane::Link>(std::move(stream), patienceOf(heartbeat));
  return connection;
}

void CS_Connection::welcome(const corvane::KeyFolder* keys, const std::function<void()>& beforeRefusal) {
  if (m_link == nullptr) throw CS_Exception(corvane::kMissingObject, nullptr);
  const corvane::Deadline deadline = corvane::after(kHandshakeMilliseconds);
  m_link->open(deadline);
  const auto proven = m_link->provenPeer();
  corvane::Peer peer = corvane::acceptHandshake(*m_link, ownHello(), proven ? nullptr : keys, deadline, beforeRefusal);
  m_peerValues = std::move(peer.values);
  m_peerIdentity = proven ? corvane::Identity::parse(proven->identity) : peer.identity;
  m_peerKeyMark = proven ? proven->keyMark : peer.keyMark;
  takeOfferedLine();
  take(m_link, 2);
}

void CS_Connection::useKey(const corvane::Identity& identity, std::string keyFile) {
  m_ownIdentity = identity;
  m_keyFile = std::move(keyFile);
}

std::shared_ptr<corvane::Link> CS_Connection::dial(const std::string& host, std::uint16_t port, bool preferIpv6) {
  corvane::Socket socket = corvane::Socket::connect(host, port, preferIpv6);
  if (!m_streamMaker) return std::make_shared<corvane::Link>(std::move(socket), patienceOf(m_heartbeat));
  return std::make_shared<corvane::Link>(m_streamMaker(std::move(socket)), patienceOf(m_heartbeat));
}

void CS_Connection::connect(const wchar_t* host, int hostValue, unsigned flags, bool keepTrying) {
  if (host == nullptr || hostValue < 1 || hostValue > 65535 || m_link != nullptr) {
    throw CS_Exception(corvane::kBadArgument, nullptr);
  }
  for (bool said = false;; said = true) {
    try {
      std::optional<corvane::Credentials> credentials;
      if (m_ownIdentity) credentials.emplace(corvane::Credentials{*m_ownIdentity, corvane::Key::read(m_keyFile)});
      const corvane::Deadline deadline = corvane::after(kHandshakeMilliseconds);
      const auto link = dial(corvane::toUtf8(host), static_cast<std::uint16_t>(hostValue), (flags & kDualStack) != 0);
      link->open(deadline);
      m_peerValues = corvane::offerHandshake(*link, ownHello(), credentials ? &*credentials : nullptr, deadline);
      take(link, 1);
      return;
    } catch (const CS_Exception& exception) {
      if (!said) corvane::LocalMonitor::instance().writeLine(L"connection", exception.detail());
      if (!keepTrying) throw;
    }
    std::this_thread::sleep_for(kPauseBetweenAttempts);
  }
}

bool CS_Connection::destroy(const CS_RCPtr<CS_Connection>& connection, bool releaseComponents) {
  if (!connection || connection->m_link == nullptr) return false;
  connection->m_releaseComponents = releaseComponents;
  connection->m_link->end(corvane::kClosedHere);
  return true;
}

void CS_Connection::linkEnded(const std::wstring& reason) {
  const CS_RCPtr<CS_Connection> self = this;  // its components may hold the last references to it
  if (m_line != nullptr) m_line->end(reason);
  try {
    if (m_releaseComponents) releaseChildren();
  } catch (const std::bad_alloc&) {
    // One of them had no memory for its part of the end; what follows is due all the same.
  }
  // As a rule it stands on this connection: the two would keep each other alive.
  setProgramMonitor(nullptr);
  if (m_onEnd) m_onEnd(reason);
}

std::wstring CS_Connection::serve() {
  return *serveUntilIdle(std::chrono::milliseconds(0));
}

std::optional<std::wstring> CS_Connection::serveUntilIdle(std::chrono::milliseconds idle) {
  if (m_link == nullptr) throw CS_Exception(corvane::kMissingObject, nullptr);
  const CS_RCPtr<CS_Connection> self = this;
  auto reason = m_link->serveUntilIdle(idle);
  return reason == corvane::kClosedInOrder ? std::wstring() : reason;
}

std::optional<int> CS_Connection::idleHandle() const {
  return m_link->idleHandle();
}

bool CS_Connection::isStillIdle() {
  const CS_RCPtr<CS_Connection> self = this;  // its end may drop the last reference
  return m_link->isStillIdle();
}

bool CS_Connection::isOverdue() const {
  return m_link->isOverdue();
}

void CS_Connection::lookForNews() {
  const CS_RCPtr<CS_Connection> self = this;  // its end may drop the last reference
  if (m_link != nullptr) m_link->lookForNews();
}

void CS_Connection::onEnd(std::function<void(const std::wstring&)> handler) {
  m_onEnd = std::move(handler);
}

bool CS_Connection::release() {
  return destroy(this, true);
}

CS_RCPtr<CS_Component> CS_Connection::getRootOwner() {
  return this;
}

CS_Channel* CS_Connection::getChannel(bool) {
  return m_channel.get();
}

bool CS_Connection::isConnected() const {
  return m_link != nullptr && !m_link->hasEnded();
}

std::chrono::steady_clock::time_point CS_Connection::lastHeard() const {
  return m_link == nullptr ? std::chrono::steady_clock::time_point() : m_link->lastHeard();
}

std::uint32_t CS_Connection::nextIdentifier() {
  for (;;) {
    // 0 is the connection itself; the numbers begin again after two billion of them.
    if (const std::uint32_t next = m_nextIdentifier.fetch_add(2); next != 0) return next;
  }
}

bool CS_Connection::beginRoute() {
  if (++m_routes <= corvane::kMaxRoutes) return true;
  --m_routes;
  return false;
}

std::string CS_Connection::peerName() const {
  return m_link == nullptr ? std::string() : m_link->peerName();
}
