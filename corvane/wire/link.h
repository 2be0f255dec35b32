#pragma once

#include "corvane/base/lock.h"
#include "corvane/net/socket.h"
#include "corvane/wire/frame.h"
#include "corvane/wire/value_writer.h"

#include <atomic>
#include <chrono>
#include <condition_variable>
#include <cstdint>
#include <map>
#include <memory>
#include <mutex>
#include <string>
#include <thread>
#include <vector>

namespace corvane {

// Gives the requests of one connection their numbers. They begin again after four billion; none is 0, which stands for
// a request that wants no reply, nor that of a request whose reply is still waited for. Its owner guards it.
class CorrelationCounter {
 public:
  explicit CorrelationCounter(std::uint32_t last = 0) : m_last(last) {}

  // The next number that is not a key of what is waited for.
  template <class Waiting>
  std::uint32_t next(const Waiting& waiting) {
    do {
      ++m_last;
    } while (m_last == 0 || waiting.contains(m_last));
    return m_last;
  }

 private:
  std::uint32_t m_last;
};

// Takes the frames that are not replies to a waiting request of this side. Called by the thread that reads the link.
class FrameHandler {
 public:
  virtual ~FrameHandler() = default;
  virtual void onFrame(Frame& frame) = 0;
  // No further frame of this receive follows; the frames handed over become invalid.
  virtual void onBatchEnd() = 0;
  // One of the two above threw: whatever is held of this receive is dropped.
  virtual void onBatchAbandoned() noexcept = 0;
  // The link has ended; called once, by whichever thread noticed, without any lock held.
  virtual void onLinkEnd(const std::wstring& reason) = 0;
};

// Why a link ended when the peer closed it between two frames.
inline constexpr const wchar_t* kClosedInOrder = L"the other side closed the connection";
// And when this program closed it.
inline constexpr const wchar_t* kClosedHere = L"the connection was closed on this side";

// A named value of the handshake.
using HelloValues = std::map<std::wstring, std::wstring>;

// The frames of one connection: sending in one gathered send each, and reading by turns. A thread that waits for a
// reply becomes the leader and reads for all of them, until its own reply is there; then another waiter leads. A thread
// in serve() leads for good. Any thread may send and wait; a thread that is handling a frame must not wait on the same
// link, because it is the one that reads it.
//
// The first failure, an end by the peer, or end() ends the link for good: every waiter gets a CS_Exception (3102).
class Link {
 public:
  explicit Link(std::unique_ptr<Stream> stream, const Patience& patience = {});
  explicit Link(Socket socket, const Patience& patience = {});
  Link(const Link&) = delete;
  Link& operator=(const Link&) = delete;

  // What the stream needs before the first frame; see Stream. By the thread that carries out the handshake.
  void open(Deadline deadline);
  std::optional<Stream::ProvenPeer> provenPeer() const { return m_stream->provenPeer(); }

  // The steps of the handshake; corvane/trust/handshake.h puts them together. Each that waits throws CS_Exception
  // (3101, 3105) when what it waits for does not come within the deadline. The dialing side says its values and returns
  // those of the answer; throws 3108 when that is a refusal for want of a key.
  HelloValues sayHello(const HelloValues& values, Deadline deadline);
  // The listening side: what the peer says, and the answer to it or, with a message number or 0, the refusal.
  HelloValues awaitHello(Deadline deadline);
  void welcome(const HelloValues& values);
  void refuseHello(int number, const wchar_t* reason);
  // The dialing side's proof goes out in front of its first request.
  void announceProof(const std::wstring& proof);
  std::wstring awaitProof(Deadline deadline);

  // Where frames go; null when they are not wanted any more.
  void setHandler(FrameHandler* handler);

  // Puts a frame in front of the next one that is sent: it costs no send of its own.
  void announce(const FrameHeader& header, const ValueWriter& values);
  // Sends the values as one frame or a few, together with what is gathered behind them: they leave with the next send,
  // with sendGathered(), or at once when kGathered bytes wait. By the thread that reads, which calls sendGathered()
  // before it waits for anything.
  void gather(const FrameHeader& header, const ValueWriter& values);
  void sendGathered();
  // Sends the values as one frame, or as several of the same header where they are longer; nothing else comes between.
  void send(FrameHeader header, const ValueWriter& values);
  // Sends the request of a Pending. While another thread is sending, it is left to that one, which sends what was left
  // to it in one send, and this returns at once: what goes wrong then shows in Pending::wait().
  void sendAwaited(const FrameHeader& header, const ValueWriter& values);
  // A sign of life, which also says how much took() was told of, as far as there is room for one at once: where there
  // is none, or another thread is sending, bytes are on their way that show the same. Never blocks; a failure ends the
  // socket, and the reading thread sees it.
  void beat() noexcept;
  // So many bytes for bridges have been taken.
  void took(std::size_t bytes) { m_taken += static_cast<std::uint32_t>(bytes); }
  // Says so at once, as far as there is room; waits for other threads that send. By the thread that reads; a failure as
  // in beat().
  void tellTaken() noexcept;
  // Makes serve() end the link when nothing at all has come for that long. Before serve().
  void expectBeats(std::chrono::milliseconds silence) { m_silence = silence; }
  // Sends complete frames as they are.
  void sendFrames(std::span<const unsigned char> frames);
  // A frame that carries nothing but a text.
  void sendText(const FrameHeader& header, const wchar_t* text);

  std::uint32_t nextCorrelation();

 private:
  struct Seat;

 public:
  // A reply that a thread waits for; registered for as long as it lives.
  class Pending {
   public:
    Pending(Link& link, std::uint32_t bridge);
    ~Pending();
    Pending(const Pending&) = delete;
    Pending& operator=(const Pending&) = delete;
    std::uint32_t correlation() const { return m_correlation; }
    // Waits until the reply is complete and returns its bytes. Throws CS_Exception: 3103 when the deadline passed, 3104
    // with the peer's words when it refused, 3102 when the link or the bridge ended.
    std::vector<unsigned char> wait(Deadline deadline);

   private:
    friend class Link;
    Link& m_link;
    std::uint32_t m_bridge;
    std::uint32_t m_correlation;
    bool m_done = false;
    bool m_failed = false;
    int m_failure = 0;
    std::wstring m_reason;
    std::vector<unsigned char> m_bytes;
    Seat* m_seat = nullptr;  // while its thread sleeps
  };

  // Takes a reply or failure for a waiting request; one that is not waited for any more is dropped.
  void complete(const Frame& frame);
  // Fails the requests that wait on the bridge.
  void endBridge(std::uint32_t bridge, const std::wstring& reason);

  // Handles what has come and not been read, without waiting; so an end is seen that happened while no thread was
  // reading. Leaves it to the thread that reads, where there is one.
  void lookForNews();
  // Reads and hands over frames until the link ends; returns the reason.
  std::wstring serve();
  // The same, but where nothing has come for that long it returns nothing, and the link is parked: no thread reads it,
  // and none may lead, until this is called again, by any thread. A link whose stream has no handle to wait for is
  // never parked.
  std::optional<std::wstring> serveUntilIdle(std::chrono::milliseconds idle);
  // Of a parked link, what becomes readable when it has to be served: when something has come, or it has ended.
  std::optional<int> idleHandle() const { return m_stream->idleHandle(); }
  // Takes the signs of life that have come to a parked link, without waiting. True when there was nothing else: it may
  // stay parked. By one thread, and not beside serveUntilIdle().
  bool isStillIdle();
  // Nothing has come for longer than expectBeats() allows; the thread that serves a parked link then finds out for
  // good.
  bool isOverdue() const;
  // Ends the link; the first reason stays, or none where there is no memory for it. Never blocks, needs no memory. The
  // socket is closed as soon as no thread is in a call with it, however long the link itself is held: a peer that waits
  // until it may send again would otherwise wait on.
  void end(const wchar_t* reason);
  bool hasEnded() const;
  std::wstring reason() const;
  // See Stream::peerHasClosed(): for a thread that handles a frame and so does not read meanwhile.
  bool peerHasClosed() noexcept;
  // When bytes came last, or when the link was made.
  Deadline lastHeard() const { return Deadline(Deadline::duration(m_lastHeard.load())); }
  const std::string& peerName() const { return m_peerName; }
  std::vector<unsigned char> localEndpoint() const { return m_stream->localEndpoint(); }
  std::vector<unsigned char> peerEndpoint() const { return m_stream->peerEndpoint(); }

  // How much is sent before a sender looks whether the peer has said something meanwhile.
  static constexpr std::size_t kLookEvery = 1024 * 1024;
  // Longer frames are not gathered, nor more of them.
  static constexpr std::size_t kGathered = 16 * 1024;

 private:
  // Where a thread sleeps until its reply is there or it is its turn to lead: each is called by itself, because with
  // many threads on one connection the others would be woken for every reply in vain. The link keeps those that were
  // used.
  struct Seat {
    Condition called;
    std::unique_ptr<Seat> nextFree;
  };
  // With the state lock held. Sleeps until somebody calls the seat of the reply; false when the deadline passed. Throws
  // std::bad_alloc when there is no seat.
  bool sleepFor(Pending& pending, std::unique_lock<Lock>& lock, Deadline deadline);
  // With the state lock held: somebody who waits is to lead, as nobody does. Whoever leaves without a leader calls.
  void callLeader();
  // Wakes everybody, with the state lock held.
  void callAll();

  // One use of the socket by a thread. The last one to leave after the end closes it: the handle's number must not be
  // given to another connection while a thread is still in a call with it. Throws 3102 once the link has ended. Without
  // a lock, as each send and each receive is one; the number of uses and the end are one word, so that no use can begin
  // between the one that is over and its look for the end.
  class Use {
   public:
    explicit Use(Link& link);
    ~Use();
    Use(const Use&) = delete;
    Use& operator=(const Use&) = delete;

   private:
    Link& m_link;
  };

  FrameReader::Fill fill(std::optional<Deadline> deadline);
  // False when nothing came until the deadline.
  bool readOnce(std::optional<Deadline> deadline);
  // Reads as the leader until the condition holds, the link has ended or nothing came until the deadline: then false.
  bool lead(std::unique_lock<Lock>& lock, const bool& done, Deadline deadline);
  bool readForService();
  void takeLead();
  bool park();
  void takeBeats();
  void heard() { m_lastHeard = std::chrono::steady_clock::now().time_since_epoch().count(); }
  // Of a Use.
  void leave() noexcept;
  void throwIfEnded();
  [[noreturn]] void endAndThrow(const wchar_t* reasonOfThisFailure);
  void sendBeatLocked();
  void sendPieces(std::span<const Stream::Piece> pieces);
  // Within a Use and the send lock; what fails ends the link.
  template <class Send>
  void withSendLock(Send&& send);
  bool leaveToSender(const FrameHeader& header, const ValueWriter& values);
  bool takeOver(bool more);
  Frame awaitFrame(Deadline deadline);
  HelloValues readHello(const Frame& frame, FrameKind kind);

  const std::unique_ptr<Stream> m_stream;  // used within a Use
  const std::string m_peerName;
  FrameReader m_reader;  // used by the leader only
  std::atomic<Deadline::rep> m_lastHeard{std::chrono::steady_clock::now().time_since_epoch().count()};
  std::optional<std::chrono::milliseconds> m_silence;
  bool m_returnsWhenIdle = false;  // the stream does, and so does readForService()
  std::atomic<std::uint32_t> m_taken{0};

  Lock m_sendLock;  // guards what follows, and the order of frames on the socket
  std::vector<unsigned char> m_announcements;
  std::atomic<bool> m_hasAnnouncements{false};  // without the lock, whether to take it for them
  std::size_t m_sentSinceLook = 0;
  std::vector<unsigned char> m_takenOver;  // of what was left, to be sent now

  std::atomic<bool> m_takesMore{false};  // a thread is sending and will send what is left to it
  Lock m_leftLock;                       // guards what follows, and that it does not any more
  std::vector<unsigned char> m_left;

  std::atomic<FrameHandler*> m_handler{nullptr};
  static constexpr std::uint32_t kEnded = 1u << 31;
  std::atomic<std::uint32_t> m_uses{0};  // and kEnded, which is set under the state lock, with the reason
  std::atomic<bool> m_isClosed{false};

  mutable Lock m_stateLock;  // guards what follows; never held while sending, receiving or handling
  Condition m_leadIsFree;    // for serve()
  std::unique_ptr<Seat> m_freeSeats;
  bool m_hasLeader = false;
  bool m_isParked = false;  // has a leader, which is whoever serves next, and a Use, which is that one's
  std::wstring m_reason;
  CorrelationCounter m_correlations;
  std::map<std::uint32_t, Pending*> m_pending;
  decltype(m_pending)::node_type m_sparePending;  // of the last one that left, for the next one
};

}  // namespace corvane
