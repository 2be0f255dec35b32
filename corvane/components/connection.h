#pragma once

#include "corvane/components/component.h"
#include "corvane/trust/key.h"

#include <chrono>
#include <functional>
#include <memory>
#include <optional>
#include <string>
#include <utility>

namespace corvane {
class Dispatcher;
class Heartbeat;
class JobLane;
class KeyFolder;
class Link;
class Packing;
class Socket;
class Stream;
class ThinLine;
}  // namespace corvane

// One TCP connection to another component server, and the owner of the components that use it.
//
// The side that dials has no thread of its own: a thread that waits for a reply reads the socket for all of them. The
// side that serves gives it a thread by calling serve(). When the connection ends, every waiting caller gets a
// CS_Exception at once and every component on it is released.
//
// A connection ends by destroy(), by the peer, or by an error; it is not enough to drop the references to it, because
// its components keep it alive.
class CS_Connection : public CS_Component {
 public:
  // What is to be known about a line that the other end may be far away on.
  struct Line {
    const corvane::Packing* packing = nullptr;  // how frames are packed; outlives the connection. Null: they are not
    std::uint64_t bytesPerSecond = 0;           // the most that is to be sent to the side that dials; 0 for any rate
  };
  // A connection that is not connected yet. Never null; throws std::bad_alloc.
  static CS_RCPtr<CS_Connection> create();
  // The two ends of a connection within this process, without a handshake: the first is that of the side that dials.
  // Neither has a peer that could prove anything, nor values of one. Throws std::bad_alloc.
  static std::pair<CS_RCPtr<CS_Connection>, CS_RCPtr<CS_Connection>> makePair();
  // A connection that a peer made. Carries out the server's side of the handshake; throws CS_Exception when the peer
  // does not speak the protocol within kHandshakeMilliseconds. With keys, the peer must also prove within that time
  // that it has the key of the identity it claims (3109); nothing of it is served before. With a heartbeat, which
  // outlives serve(), the link of a peer that offers signs of life ends when there are none.
  static CS_RCPtr<CS_Connection> accept(corvane::Socket socket, const corvane::KeyFolder* keys = nullptr,
                                        corvane::Heartbeat* heartbeat = nullptr);

  // The two steps of accept(), for a caller that may have to end the connection before the handshake, with destroy().
  // beforeRefusal is called before a peer is told that it has not proven itself, and may wait. A peer that has proven
  // itself to the stream is asked for nothing more.
  static CS_RCPtr<CS_Connection> arrive(std::unique_ptr<corvane::Stream> stream,
                                        corvane::Heartbeat* heartbeat = nullptr);
  void welcome(const corvane::KeyFolder* keys, const std::function<void()>& beforeRefusal = {});

  // From the next connect() on, this side proves to be that one with the key in the file (UTF-8), and refuses a server
  // that does not prove to have the same key. The file is read by each connect(), before anything is sent. The first
  // request is to follow within kHandshakeMilliseconds, because the proof travels with it.
  void useKey(const corvane::Identity& identity, std::string keyFile);

  // From the next connect() on, what this gives for the socket carries the connection; with a key in it instead of
  // useKey().
  using StreamMaker = std::function<std::unique_ptr<corvane::Stream>(corvane::Socket socket)>;
  void useStream(StreamMaker maker) { m_streamMaker = std::move(maker); }

  // The next connect() offers to take packed frames for the bridges that the other side makes, and to say what it has
  // taken of them; or, on the listening side before welcome(), that offer is taken: what is routed to the peer then
  // goes by a corvane::ThinLine.
  void useLine(const Line& line) { m_lineSettings = line; }
  // How the frames of a job are sent to the peer; null when they go as they come.
  std::shared_ptr<corvane::JobLane> makeLane() const;
  // The peer is sent so many bytes a second at most; 0 for as many as go.
  void limitRate(std::uint64_t bytesPerSecond);

  // The next connect() offers signs of life: when the server takes the offer, its silence ends the connection. Only for
  // a connection that is served; the heartbeat outlives serve().
  void useHeartbeat(corvane::Heartbeat* heartbeat) { m_heartbeat = heartbeat; }

  // Dials the port on that host and carries out the handshake. Flags: kDirect uses the numeric IPv4 loopback address
  // for "localhost", kDualStack tries IPv6 first. With keepTrying the attempt is repeated until it succeeds; without,
  // a failure throws CS_Exception after the one attempt: 3101; 3108 when this side's key cannot be used, or the server
  // wants one and there is none; 3109 when the server does not prove who it is.
  void connect(const wchar_t* host, int hostValue, unsigned flags, bool keepTrying);

  // Ends the connection: closes it both ways, fails the waiting requests and releases its components. Never blocks,
  // joins nothing, and may be called while the module is being unloaded. True when there was a connection to end.
  static bool destroy(const CS_RCPtr<CS_Connection>& connection, bool releaseComponents);

  // Reads the connection and serves what arrives, on the calling thread, until the connection ends. Returns why it
  // ended, in words for a log; empty when the peer closed it in order.
  std::wstring serve();

  // The same, but nothing where the peer has said nothing for that long and the connection is parked: it needs no
  // thread until idleHandle() becomes readable. Then one thread calls isStillIdle(), and this again when that is false,
  // or when isOverdue(); see corvane::Link. A connection that has ended is to be served once more, too.
  std::optional<std::wstring> serveUntilIdle(std::chrono::milliseconds idle);
  std::optional<int> idleHandle() const;
  bool isStillIdle();
  bool isOverdue() const;

  // Reads what has arrived while no thread read the connection, above all its end; does not wait. For the side that
  // dialed.
  void lookForNews();

  // Called once, with the reason, when the connection ends; set before serve().
  void onEnd(std::function<void(const std::wstring&)> handler);

  int getDataType() const override { return 1; }
  bool release() override;
  CS_RCPtr<CS_Component> getRootOwner() override;
  CS_Channel* getChannel(bool create) override;
  bool isConnected() const override;
  CS_Connection* getConnection() override { return this; }
  const std::shared_ptr<corvane::Link>& link() const override { return m_link; }
  // Odd on the side that dialed, even on the other.
  std::uint32_t nextIdentifier() override;

  // When the peer's bytes came last.
  std::chrono::steady_clock::time_point lastHeard() const;

  // Counts the bridges made here that lead to other connections; false when there are corvane::kMaxRoutes of them.
  bool beginRoute();
  void endRoute() { --m_routes; }
  // "127.0.0.1:40123", for logs.
  std::string peerName() const;
  // What the other side said about itself in the handshake: "process" is its process id.
  const std::map<std::wstring, std::wstring>& peerValues() const { return m_peerValues; }
  // Who the peer of an accepted connection is, proven; nothing where peers need no keys.
  const std::optional<corvane::Identity>& peerIdentity() const { return m_peerIdentity; }

  // Tells the key that proved it from every other one; see corvane::Key::mark().
  const corvane::Bytes32& peerKeyMark() const { return m_peerKeyMark; }

  // Asked with the name of the class before a component is made that the peer wants: an answer that is not empty
  // refuses it with that reason. Set before serve(); called by the threads that serve.
  using Admission = std::function<std::wstring(const std::wstring& className)>;
  void setAdmission(Admission admission) { m_admission = std::move(admission); }
  std::wstring refusalOf(const std::wstring& className) const override {
    return m_admission ? m_admission(className) : std::wstring();
  }

  static constexpr unsigned kDirect = 256;
  static constexpr unsigned kDualStack = 512;
  static constexpr unsigned kHandshakeMilliseconds = 10000;

  ~CS_Connection() override;

 private:
  CS_Connection();
  std::shared_ptr<corvane::Link> dial(const std::string& host, std::uint16_t port, bool preferIpv6);
  void take(const std::shared_ptr<corvane::Link>& link, std::uint32_t firstIdentifier);
  void linkEnded(const std::wstring& reason);
  std::map<std::wstring, std::wstring> ownHello() const;
  void takeOfferedLine();

  std::shared_ptr<corvane::Link> m_link;
  std::unique_ptr<corvane::Dispatcher> m_dispatcher;
  std::unique_ptr<CS_Channel> m_channel;
  std::atomic<std::uint32_t> m_nextIdentifier{1};
  std::atomic<int> m_routes{0};
  std::atomic<bool> m_releaseComponents{true};
  std::map<std::wstring, std::wstring> m_peerValues;
  std::optional<corvane::Identity> m_ownIdentity;
  std::string m_keyFile;
  std::optional<corvane::Identity> m_peerIdentity;
  corvane::Bytes32 m_peerKeyMark = {};
  StreamMaker m_streamMaker;
  std::optional<Line> m_lineSettings;
  std::shared_ptr<corvane::ThinLine> m_line;  // to a peer that wants one
  corvane::Heartbeat* m_heartbeat = nullptr;
  Admission m_admission;
  std::function<void(const std::wstring&)> m_onEnd;
};
