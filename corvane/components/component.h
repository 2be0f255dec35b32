#pragma once

#include "corvane/base/lock.h"
#include "corvane/base/rc_ptr.h"
#include "corvane/components/class.h"
#include "corvane/records/program_monitor.h"

#include <atomic>
#include <cstdint>
#include <map>
#include <memory>
#include <string>
#include <thread>
#include <vector>

class CS_Channel;
class CS_ClassFactory;
class CS_Component;
class CS_Connection;
class CS_InRequest;

namespace corvane {
class BridgeEnd;
class Link;
}  // namespace corvane

// Hears of the events of a component it was added to. Owned by the code that added it, which removes it before it dies.
class CS_Listener {
 public:
  virtual ~CS_Listener() = default;
  virtual bool onEvent(CS_Component& component, int event) = 0;
};

// One object that has a peer in another process. A component stands on an owner: a connection, or a bridge that stands
// on a connection; the owner keeps a reference to each of its components until it ends itself.
//
// Lifetime: counted references; the last one destroys the component through its class. A component keeps its owner
// alive, so a component that is still held after its connection has ended is safe to call: its requests fail
// with a CS_Exception.
//
// Threads: any thread may send requests on a component. Requests from the peer are processed one after another, on the
// thread that reads the connection or, for components on a bridge that the peer made, on that bridge's own thread.
class CS_Component {
 public:
  explicit CS_Component(std::size_t maxChildren = kMaxChildren);
  CS_Component(const CS_Component&) = delete;
  CS_Component& operator=(const CS_Component&) = delete;
  virtual ~CS_Component();

  // Tells kinds of components apart: 0 for a plain one, 1 a connection, 2 a bridge, 3 a router, 4 a program monitor.
  virtual int getDataType() const { return 0; }
  // Called once, when the component has its owner and address; false refuses the creation.
  virtual bool initialize() { return true; }
  // The framework lets go of the component because its owner or its peer ended. May be called more than once. True when
  // it was let go.
  virtual bool release();
  // Tells the peer that its half is no longer needed; false when that could not be sent.
  virtual bool releasePeer();
  virtual int addRef();
  virtual int removeRef();
  // A request from the peer. The default reads its number and passes it on to the form below; true when it was served.
  // Throwing CS_Exception answers the peer that the request failed, with the exception's text.
  virtual bool processRequest(CS_InRequest& request);
  virtual bool processRequest(int number, CS_Channel* channel);
  // Whether a request of that number takes no longer than a write to a file and waits for no peer. On a bridge such a
  // one may then be served by the thread that reads the connection; every other one is served by the bridge's own.
  virtual bool servesAtOnce(int) const { return false; }
  // What CS_InRequest::readPiece() gave in the requests before becomes invalid when this returns; until then it stays.
  // Called behind each request, or behind several that were served at once, and also in the middle of one.
  virtual void letGoOfPieces() noexcept {}
  // Whether the answer to a request of that number may leave together with those to the requests that came with it,
  // which saves a send for each. One that has to wait before it answers calls Link::sendGathered() first. On a bridge
  // each answer leaves by itself.
  virtual bool answersTogether(int) const { return false; }
  virtual void destroyChannel();
  // The component's channel; with create, it is made when it does not exist yet. Null without an owner.
  virtual CS_Channel* getChannel(bool create);
  virtual void releaseChannel();
  // The component with that identifier standing on this one, or null.
  virtual CS_RCPtr<CS_Component> getChild(std::uint32_t identifier);
  // How many components stand on this one, and how many may.
  std::size_t childCount();
  std::size_t maxChildren() const { return m_maxChildren; }
  // The connection at the end of the chain of owners; the component itself when it has no owner.
  virtual CS_RCPtr<CS_Component> getRootOwner();
  // The monitor set for this component, its owner's, or the default one; never null.
  virtual CS_RCPtr<CS_ProgramMonitor> getProgramMonitor();

  // Events: processEvent() calls onProcessEvent() and then the listeners; the others call their on...() here and on
  // every component standing on this one. Each answers whether all of them answered true.
  virtual bool onProcessEvent(int event);
  virtual bool onSuspend() { return true; }
  virtual bool onResume() { return true; }
  virtual bool onRefresh() { return true; }
  virtual bool onSoloClient(bool solo);
  virtual bool processEvent(int event);
  virtual bool refresh();
  virtual bool soloClient(bool solo);
  virtual bool resume();
  // While suspended, requests from the peer are answered as refused.
  virtual bool suspend();

  virtual bool isConnected() const;
  // Keeps the versions of the classes that the process at the other end has registered, for the components created on
  // this one from now on. Option kSetVersionsOnOwnPeer (1) is the only one; another answers false, as does a map that
  // lacks every class.
  virtual bool setVersionsOfClassesInPeerProcess(const CS_ClassVersionMap& versions, int option);
  // Waits until the reply of an executed request can be read, at most that long. A hook: CS_OutRequest::execute has
  // waited before it returns, so the default has nothing to do.
  virtual void waitForReply(CS_InRequest& reply, unsigned timeoutMilliseconds);
  // Takes a reference to the component and makes this its owner; false when the identifier is taken, the owner has
  // ended, or as many components stand on it already as may: kMaxChildren, fewer on a bridge.
  virtual bool addChild(CS_Component* child);
  virtual bool removeChild(CS_Component* child);
  virtual bool addListener(CS_Listener* listener);
  virtual bool lookupListener(CS_Listener* listener);
  virtual bool removeListener(CS_Listener* listener);

  // The connection at the end of the chain of owners, the component itself included; null when there is none. Lives as
  // long as this component.
  virtual CS_Connection* getConnection();
  // What a connection sends through; null for every other component, and before the connection is made.
  virtual const std::shared_ptr<corvane::Link>& link() const;
  // An identifier that no component of this side has had yet; 0 where this is not a connection.
  virtual std::uint32_t nextIdentifier() { return 0; }
  // What makes a component a bridge; null for every other one.
  virtual corvane::BridgeEnd* bridgeEnd() { return nullptr; }
  // Why the owner takes no component of that class that the peer wants; empty when it takes it.
  virtual std::wstring refusalOf(const std::wstring& className) const;
  // Throws CS_Exception (3102) with the peer's reason once the peer has let this component go with everything on it.
  virtual void throwIfEnded() const {}

  // A factory for pairs of components on this one: the local half of a class registered in this process, the remote
  // half of a class of the process at the other end. Null when the local class is not registered, when this is not a
  // connection or a bridge or has ended, or when the other process is known not to have the remote class in a version
  // that fits. With announce, the instances are announced to the peer together with their first request; without, the
  // peer half must exist already.
  CS_RCPtr<CS_ClassFactory> getClassFactory(const wchar_t* localClassName, const wchar_t* remoteClassName,
                                            bool announce);
  void setProgramMonitor(const CS_RCPtr<CS_ProgramMonitor>& monitor);
  // Unique among the components of one connection; 0 for a connection itself.
  std::uint32_t getIdentifier() const { return m_identifier; }
  CS_Component* getOwner() const { return m_owner.get(); }
  bool isSuspended() const { return m_suspended; }
  // The class that destroys this component; null for one that is destroyed with delete.
  void setClass(CS_Class* componentClass) { m_class = componentClass; }
  // Set before addChild().
  void setIdentifier(std::uint32_t identifier) { m_identifier = identifier; }

  static constexpr int kSetVersionsOnOwnPeer = 1;
  static constexpr std::size_t kMaxChildren = 1024;

 protected:
  // Lets go of every component standing on this one: each is removed, released and loses the owner's reference.
  void releaseChildren();
  std::vector<CS_RCPtr<CS_Component>> children();

 private:
  bool allChildren(bool (CS_Component::*operation)());

  const std::size_t m_maxChildren;
  corvane::RefCount m_references;
  CS_Class* m_class = nullptr;
  std::uint32_t m_identifier = 0;
  CS_RCPtr<CS_Component> m_owner;
  std::unique_ptr<CS_Channel> m_channel;
  std::atomic<bool> m_suspended{false};

  corvane::Lock m_lock;  // guards what follows; never held while another component is called
  bool m_ended = false;
  std::map<std::uint32_t, CS_RCPtr<CS_Component>> m_children;
  std::vector<CS_Listener*> m_listeners;
  CS_RCPtr<CS_ProgramMonitor> m_monitor;
  CS_ClassVersionMap m_peerVersions;
};

// Makes pairs of components on one owner; got from CS_Component::getClassFactory. Keeps its owner alive. Safe from any
// thread.
class CS_ClassFactory {
 public:
  CS_ClassFactory(const CS_RCPtr<CS_Component>& owner, CS_Class* localClass, std::wstring remoteClassName,
                  bool announce);

  int addRef() { return m_references.add(); }
  int removeRef();

  // A new component standing on the owner, which holds its first reference; null when it cannot be made, refuses to
  // initialise, or the owner has ended. The options are 0. Nothing is sent before the channel's start operations and
  // the first request, so the peer's refusal of the class shows in the reply of that request.
  //
  // The owner may end at any moment, on another thread. The factory therefore holds the component for the calling
  // thread as well, until that thread asks it for the next one or the factory dies: the caller takes its own reference
  // before either, and has a component that is safe to use.
  CS_Component* newInstance(unsigned options);

 private:
  void keep(CS_RCPtr<CS_Component> instance);

  corvane::RefCount m_references;
  CS_RCPtr<CS_Component> m_owner;
  CS_Class* m_class;
  std::wstring m_remoteClassName;
  bool m_announce;
  corvane::Lock m_lock;                                      // guards what follows
  std::map<std::thread::id, CS_RCPtr<CS_Component>> m_made;  // the last one of each thread
};
