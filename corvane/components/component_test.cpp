#include "corvane/components/component.h"

#include "corvane/components/component_server.h"
#include "corvane/components/in_request.h"
#include "corvane/components/out_request.h"
#include "corvane/components/program_monitor_c.h"
#include "corvane/records/exception.h"
#include "tests/support/connection_pair.h"
#include "tests/support/recording_monitor.h"

#include <atomic>
#include <gtest/gtest.h>
#include <thread>
#include <vector>

namespace {

class Answering : public CS_Component {
 public:
  bool processRequest(CS_InRequest& request) override {
    request.reply().writeInt(7);
    request.sendReply();
    return true;
  }
};

class Watched : public CS_Component {
 public:
  explicit Watched(std::string name, std::vector<std::string>& events) : m_name(std::move(name)), m_events(events) {}
  ~Watched() override { m_events.push_back(m_name + " destroyed"); }
  bool onProcessEvent(int event) override { return note("event " + std::to_string(event)); }
  bool onSuspend() override { return note("suspend"); }
  bool onResume() override { return note("resume"); }
  bool onRefresh() override { return note("refresh"); }
  bool onSoloClient(bool solo) override { return note(solo ? "solo" : "together"); }
  bool release() override {
    note("release");
    return CS_Component::release();
  }

 private:
  bool note(const std::string& what) {
    m_events.push_back(m_name + " " + what);
    return true;
  }
  std::string m_name;
  std::vector<std::string>& m_events;
};

class Listener1 : public CS_Listener {
 public:
  bool onEvent(CS_Component&, int event) override { return event != 13; }
};

using Events = std::vector<std::string>;

// There is no memory for what it has to do.
class Poor : public CS_Component {
 public:
  bool release() override { throw std::bad_alloc(); }
};

TEST(Component, OneThatFailsItsReleaseKeepsTheOthersFromNothing) {
  Events events;
  const CS_RCPtr<Watched> parent(new Watched("parent", events));
  const CS_RCPtr<CS_Component> first(new Poor()), second(new Poor());
  const CS_RCPtr<Watched> last(new Watched("last", events));
  std::uint32_t identifier = 0;
  for (const CS_RCPtr<CS_Component>& child : {first, second, CS_RCPtr<CS_Component>(last.get())}) {
    child->setIdentifier(++identifier);
    ASSERT_TRUE(parent->addChild(child.get()));
  }
  EXPECT_THROW(parent->release(), std::bad_alloc);
  EXPECT_EQ(events, (Events{"parent release", "last release"}));
}

TEST(Component, PassesEventsToWhatStandsOnIt) {
  Events events;
  {
    CS_RCPtr<Watched> parent(new Watched("parent", events));
    auto* child = new Watched("child", events);
    child->setIdentifier(1);
    ASSERT_TRUE(parent->addChild(child));
    EXPECT_TRUE(parent->suspend());
    EXPECT_TRUE(child->isSuspended());
    EXPECT_TRUE(parent->resume());
    EXPECT_TRUE(parent->refresh());
    EXPECT_TRUE(parent->soloClient(true));
    EXPECT_EQ((Events{"parent suspend", "child suspend", "parent resume", "child resume", "parent refresh",
                      "child refresh", "parent solo", "child solo"}),
              events);
    events.clear();
    parent->release();
  }
  EXPECT_EQ((Events{"parent release", "child release", "child destroyed", "parent destroyed"}), events);
}

TEST(Component, KeepsOneChildForEachIdentifierAndNoneAfterItsEnd) {
  Events events;
  CS_RCPtr<Watched> parent(new Watched("parent", events));
  CS_RCPtr<Watched> first(new Watched("first", events));
  CS_RCPtr<Watched> second(new Watched("second", events));
  EXPECT_FALSE(parent->addChild(nullptr));
  EXPECT_TRUE(parent->addChild(first.get()));
  EXPECT_FALSE(parent->addChild(second.get()));
  EXPECT_EQ(first.get(), parent->getChild(0).get());
  EXPECT_FALSE(parent->removeChild(second.get()));
  EXPECT_TRUE(parent->removeChild(first.get()));
  EXPECT_FALSE(parent->getChild(0));
  parent->release();
  EXPECT_FALSE(parent->addChild(second.get()));
}

TEST(Component, AsksItsListenersAfterItself) {
  Events events;
  CS_RCPtr<Watched> component(new Watched("component", events));
  Listener1 listener;
  EXPECT_TRUE(component->addListener(&listener));
  EXPECT_FALSE(component->addListener(&listener));
  EXPECT_FALSE(component->addListener(nullptr));
  EXPECT_TRUE(component->lookupListener(&listener));
  EXPECT_TRUE(component->processEvent(1));
  EXPECT_FALSE(component->processEvent(13));
  EXPECT_TRUE(component->removeListener(&listener));
  EXPECT_FALSE(component->removeListener(&listener));
  EXPECT_TRUE(component->processEvent(13));
}

TEST(Component, UsesTheMonitorOfItsOwnerUnlessItHasOne) {
  RecordingScope records;
  Events events;
  CS_RCPtr<Watched> parent(new Watched("parent", events));
  CS_RCPtr<Watched> child(new Watched("child", events));
  parent->addChild(child.get());
  EXPECT_EQ(&records.monitor(), child->getProgramMonitor().get());
  CS_RCPtr<RecordingMonitor> own(new RecordingMonitor);
  parent->setProgramMonitor(own.get());
  EXPECT_EQ(own.get(), child->getProgramMonitor().get());
  parent->release();
}

TEST(Component, IsItsOwnRootAndNotConnectedWithoutAnOwner) {
  Events events;
  CS_RCPtr<Watched> component(new Watched("component", events));
  EXPECT_EQ(component.get(), component->getRootOwner().get());
  EXPECT_FALSE(component->isConnected());
  EXPECT_EQ(nullptr, component->getChannel(true));
  EXPECT_FALSE(component->releasePeer());
}

TEST(Component, RefusesRequestsWhileItIsSuspended) {
  CS_ComponentServer::initialize(0, 0);
  CS_ComponentServer::getServer()->registerClass(L"Answering", new corvane::ComponentClass<Answering>(CS_Version()));
  CS_ComponentServer::getServer()->offerClass(L"Answering");
  ConnectionPair pair;
  const auto component = makeComponent(pair.dialed(), L"Answering", L"Answering");
  const auto ask = [&] {
    CS_OutRequest request(component, 1);
    CS_InRequest reply(request);
    request.execute(reply, 20000);
    return reply.readInt();
  };
  EXPECT_EQ(7, ask());
  pair.accepted()->suspend();
  try {
    ask();
    FAIL() << "a suspended component must not answer";
  } catch (const CS_Exception& exception) {
    EXPECT_STREQ(L"the component is suspended", exception.detail());
  }
  pair.accepted()->resume();
  EXPECT_EQ(7, ask());
}

// Its owner ends while it is being made, at the latest moment at which that can happen to the one who makes it.
class Overtaken : public CS_Component {
 public:
  ~Overtaken() override { ++s_destroyed; }
  bool initialize() override {
    std::thread([this] { CS_Connection::destroy(getConnection(), true); }).join();
    return true;
  }
  static inline int s_destroyed = 0;
};

TEST(ClassFactory, WhatItMakesLivesUntilTheCallerHasTakenItThoughTheConnectionEnds) {
  CS_ComponentServer::initialize(0, 0);
  CS_ComponentServer::getServer()->registerClass(L"Overtaken", new corvane::ComponentClass<Overtaken>(CS_Version()));
  Overtaken::s_destroyed = 0;
  ConnectionPair pair;
  CS_RCPtr<CS_ClassFactory> factory = pair.dialed().getClassFactory(L"Overtaken", L"Overtaken", false);
  CS_Component* const made = factory->newInstance(0);
  ASSERT_NE(nullptr, made);
  EXPECT_FALSE(made->isConnected());
  EXPECT_EQ(0u, pair.dialed().childCount());
  ASSERT_EQ(0, Overtaken::s_destroyed);
  CS_RCPtr<CS_Component> taken(made);
  factory = nullptr;
  EXPECT_EQ(0, Overtaken::s_destroyed);
  taken = nullptr;
  EXPECT_EQ(1, Overtaken::s_destroyed);
}

TEST(ClassFactory, HoldsTheLastComponentOfAThreadAndNoMore) {
  CS_ComponentServer::initialize(0, 0);
  CS_ComponentServer::getServer()->registerClass(L"Answering", new corvane::ComponentClass<Answering>(CS_Version()));
  ConnectionPair pair;
  const CS_RCPtr<CS_ClassFactory> factory = pair.dialed().getClassFactory(L"Answering", L"Answering", true);
  std::vector<CS_Component*> made;
  for (int i = 0; i < 3; ++i) {
    made.push_back(factory->newInstance(0));
    const CS_RCPtr<CS_Component> taken(made.back());
    EXPECT_EQ(4, taken->addRef());  // ours, the owner's, the factory's and this one
    taken->removeRef();
  }
  EXPECT_EQ(2, made[0]->addRef());
  made[0]->removeRef();
  EXPECT_EQ(3, made[2]->addRef());
  made[2]->removeRef();
}

// Threads that share a factory each have their own component, while a further one ends the connection.
TEST(ClassFactory, ComponentsAreSafeWhileAnotherThreadEndsTheirConnection) {
  CS_ComponentServer::initialize(0, 0);
  CS_ComponentServer::getServer()->registerClass(L"Answering", new corvane::ComponentClass<Answering>(CS_Version()));
  for (int round = 0; round < 60; ++round) {
    ConnectionPair pair;
    const CS_RCPtr<CS_ClassFactory> factory = pair.dialed().getClassFactory(L"Answering", L"Answering", true);
    std::atomic<int> made{0};
    {
      std::vector<JoinedThread> threads;
      for (int t = 0; t < 3; ++t) {
        threads.emplace_back([&] {
          while (CS_Component* const raw = factory->newInstance(0)) {
            const CS_RCPtr<CS_Component> component(raw);
            EXPECT_NE(0u, component->getIdentifier());
            component->getChannel(true)->startSending();
            ++made;
          }
        });
      }
      while (made < round) {
      }
      CS_Connection::destroy(pair.dialedPointer(), true);
    }
    EXPECT_EQ(nullptr, factory->newInstance(0));
  }
}

TEST(OutRequest, HoldsItsComponentOnceAndUntilItIsReleased) {
  CS_ComponentServer::initialize(0, 0);
  CS_ComponentServer::getServer()->registerClass(L"Answering", new corvane::ComponentClass<Answering>(CS_Version()));
  ConnectionPair pair;
  const auto component = makeComponent(pair.dialed(), L"Answering", L"Answering");
  const auto references = [&] {
    const int count = component->addRef() - 1;
    component->removeRef();
    return count;
  };
  const int before = references();
  CS_OutRequest request(component, 1);
  EXPECT_EQ(before + 1, references());
  {
    CS_InRequest reply(request);
    EXPECT_EQ(before + 1, references());
  }
  request.release();
  EXPECT_EQ(before, references());
}

TEST(ComponentServer, RefusesToRegisterOrOfferWhatIsNotThere) {
  CS_ComponentServer::initialize(0, 0);
  CS_ComponentServer* server = CS_ComponentServer::getServer();
  EXPECT_FALSE(server->registerClass(L"Null", nullptr));
  EXPECT_FALSE(server->registerClass(nullptr, new corvane::ComponentClass<Answering>(CS_Version())));
  EXPECT_FALSE(server->offerClass(L"Never registered"));
  EXPECT_EQ(nullptr, server->findClass(L"Never registered"));
  EXPECT_NE(nullptr, server->findClass(CS_ProgramMonitor_c::m_className));
  EXPECT_EQ(nullptr, server->findOfferedClass(CS_ProgramMonitor_c::m_className));
}

}  // namespace
