#pragma once

#include "corvane/base/lock.h"
#include "corvane/components/bridge_end.h"
#include "corvane/components/component.h"

#include <cstdint>
#include <functional>
#include <memory>
#include <span>
#include <string>

class CS_Connection;

namespace corvane {
struct Route;
}  // namespace corvane

// One end of a bridge that continues on another connection. Frames for it are passed on as they came, with nothing but
// the bridge's identifier exchanged; they are never collected, and decoded only by who watches them (onPass). While the
// other connection takes nothing, the thread that reads this one waits, so the sender is held back and no more than one
// receive buffer is held here.
//
// When either connection ends, or either side lets the bridge go, the other side gets a release with the reason, and
// both ends leave their connections at once: a connection that lives for years holds the routes of today's jobs only.
class CS_BridgeRouter : public CS_Component, public corvane::BridgeEnd {
 public:
  static const wchar_t* getClassName();

  CS_BridgeRouter() = default;
  ~CS_BridgeRouter() override;

  int getDataType() const override { return 3; }
  bool release() override;
  corvane::BridgeEnd* bridgeEnd() override { return this; }

  enum class Routing {
    kMade,
    kGone,  // one of the two connections has ended, or the bridge is routed already
    kFull,  // corvane::kMaxRoutes bridges of this connection are routed, or the other one has all its components
  };
  // Continues this bridge on the given connection, whose peer gets a bridge announced. Once only.
  Routing routeTo(const CS_RCPtr<CS_Connection>& connection);
  bool isRouted() const;
  // The identifier that the bridge has on the connection where it continues; 0 without a route, and when it has ended.
  std::uint32_t continuedAs() const;

  // Passes on complete frames that stand one behind the other; their bridge identifiers are overwritten in place. A
  // request that wants a reply is answered as failed where the bridge leads nowhere yet; after the route's end it is
  // dropped, because the release fails it.
  bool forwards() const override { return true; }
  void deliver(std::span<unsigned char> frames) override;
  void releasedByPeer(const std::wstring& reason) override;

  // How a route ended.
  struct Passing {
    bool isReply = false;
    int number = 0;                          // of the request, or of the one that is replied to
    std::span<const unsigned char> payload;  // of its first frame; valid during the call
  };
  // Called when a request comes from here whose number is another one than that of the request before it, and for a
  // reply to the last request from here that wants one, before they are passed on. Set before routeTo(). Comes on the
  // threads of the two connections, which pass on nothing until it returns; it throws nothing.
  using PassHandler = std::function<void(const Passing& passing)>;
  void onPass(PassHandler handler) { m_onPass = std::move(handler); }
  // Of payload that has gone from here to the other side so far; 0 without a route, and when it has ended.
  std::uint64_t bytesPassed() const;
  // Ends the route: each side is told that the other one has gone, for that reason. False when there is none, or none
  // any more. Any thread.
  bool cut(const std::wstring& reason);

  struct Ending {
    std::uint64_t bytes = 0;  // of payload that went from here to the other side
    int answered = 0;         // the number of the last request from here that the other side has replied to; 0 for none
    bool madeHere = false;    // the side that made the bridge has gone, and not the one that it leads to
    std::wstring reason;      // why that side has gone; empty when it closed its connection between two frames
  };
  // Called once when the route ends. Set before routeTo(). Comes on the thread of either connection.
  using EndHandler = std::function<void(const Ending& ending)>;
  void onEnd(EndHandler handler);

 private:
  std::shared_ptr<corvane::Route> route() const;
  // Null when this does not stand on a connection itself.
  CS_Connection* ownConnection();
  // Tells the other side's peer of the bridge that this one continues on.
  Routing announce(const CS_Connection& connection, const CS_BridgeRouter& other);
  void answer(const corvane::FrameHeader& header, const wchar_t* failure);
  static void noteRequests(corvane::Route& through, std::uint64_t payload, const corvane::FrameHeader& question);
  static void tellRequest(corvane::Route& through, const corvane::FrameHeader& header,
                          std::span<const unsigned char> frame);
  static void tellReply(corvane::Route& through, std::uint32_t correlation, std::span<const unsigned char> payload);
  // The numbered end of the route has gone; false when it had ended before.
  bool end(int gone, const std::wstring& reason, const wchar_t* toldToOther);

  EndHandler m_onEnd;
  PassHandler m_onPass;
  int m_end = 0;                      // which end of the route this is
  mutable corvane::Lock m_routeLock;  // guards what follows
  std::shared_ptr<corvane::Route> m_route;
  bool m_routing = false;   // a thread is making the route, or has made it
  bool m_released = false;  // its connection has ended: no route may begin
};
