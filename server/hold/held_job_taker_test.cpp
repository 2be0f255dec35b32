#include "server/hold/held_job_taker.h"

#include "corvane/components/bridge.h"
#include "corvane/components/channel.h"
#include "corvane/components/component_server.h"
#include "protocol/exchange.h"
#include "protocol/names.h"
#include "server/hold/job_hold.h"
#include "tests/support/own_folder.h"

#include <algorithm>
#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <string>

namespace aps {
namespace {

namespace fs = std::filesystem;
using protocol::PrintResult;
using ::testing::ElementsAre;

// Jobs come over the connection on which they are held, with no server around it.
class HeldJobTakerTest : public ::testing::Test {
 protected:
  struct Hold {
    std::unique_ptr<JobHold> hold;
    HeldJobTaker::Context context{hold};
  };

  HeldJobTakerTest() {
    CS_ComponentServer::initialize(0, 0);
    CS_ComponentServer* const server = CS_ComponentServer::getServer();
    server->registerClass(protocol::kPrintServerClass, new corvane::ComponentClass<CS_Component>(protocol::kVersion));
    server->registerClass(protocol::kPrintClientClass, new corvane::ComponentClass<HeldJobTaker, HeldJobTaker::Context>(
                                                           protocol::kVersion, {m_hold, &m_hold->context}));
    server->offerClass(protocol::kPrintClientClass);
    server->offerClass(CS_Bridge::m_className);
    m_hold->hold = std::make_unique<JobHold>(JobHold::Settings{folder(), {}, true, std::chrono::milliseconds(50)},
                                             JobHold::Context{m_log, m_sessions, m_news, m_book, m_notices, m_keys});
  }
  ~HeldJobTakerTest() override {
    m_hold->hold.reset();
    m_history.finish();
  }
  fs::path folder() const { return m_folder.path() / "held"; }

  static CS_RCPtr<CS_Component> makeOn(CS_Component& owner, const wchar_t* local, const wchar_t* remote) {
    const CS_RCPtr<CS_Component> component(owner.getClassFactory(local, remote, true)->newInstance(0));
    component->getChannel(true)->startSending();
    component->getChannel(true)->startReceiving();
    return component;
  }
  // What the port monitor sends the requests of a job with.
  CS_RCPtr<CS_Component> begin() {
    SessionTable::Found found;
    found.session = 5;
    found.key = {1};
    const auto place = m_hold->hold->prepare(7, found, L"Laser (session 5)", 77);
    const auto bridge = makeOn(*place->connection, CS_Bridge::m_className, CS_Bridge::m_className);
    place->expect(bridge->getIdentifier());
    bridge->setVersionsOfClassesInPeerProcess(place->versions, CS_Component::kSetVersionsOnOwnPeer);
    return makeOn(*bridge, protocol::kPrintServerClass, protocol::kPrintClientClass);
  }
  static void start(const CS_RCPtr<CS_Component>& sender, protocol::DeliveryMode mode, const wchar_t* document = L"A") {
    protocol::JobStart start;
    start.documentName = document;
    start.settings[protocol::kDeliverySetting] = static_cast<std::int32_t>(mode);
    protocol::tell(sender, start);
  }
  static void write(const CS_RCPtr<CS_Component>& sender, const std::string& bytes) {
    write(sender, bytes, static_cast<int>(bytes.size()));
  }
  static void write(const CS_RCPtr<CS_Component>& sender, const std::string& bytes, int saidLength) {
    CS_OutRequest request(sender, static_cast<int>(protocol::PrintRequest::kData));
    protocol::JobData data;
    data.length = saidLength;
    protocol::write(request.values(), data);
    if (!bytes.empty()) {
      request.write(reinterpret_cast<const unsigned char*>(bytes.data()), static_cast<int>(bytes.size()));
    }
    request.execute();
  }
  static PrintResult end(const CS_RCPtr<CS_Component>& sender) {
    return protocol::ask(sender, protocol::JobEnd{L"job"}, 60000).result;
  }
  std::vector<std::string> files() const {
    std::vector<std::string> names;
    for (const auto& entry : fs::directory_iterator(folder()))
      names.push_back(entry.path().filename().string());
    std::sort(names.begin(), names.end());
    return names;
  }
  // The data of the held job.
  std::string data() const {
    HeldFileReader reader(folder() / "000000000001.job");
    std::string all;
    for (auto piece = reader.next(); !piece.empty(); piece = reader.next())
      all.append(piece.begin(), piece.end());
    return all;
  }

  static constexpr auto kDirect = protocol::DeliveryMode::kDirect;
  static constexpr auto kCollected = protocol::DeliveryMode::kCollected;
  const OwnFolder m_folder{"held_job_taker"};
  const corvane::KeyFolder m_keys{(m_folder.path() / "keys").string()};
  Log m_log{m_folder.path() / "log"};
  SessionTable m_sessions{SessionTable::Limits{}};
  ClientNews m_news;
  NoticeList m_notices;
  JobHistory m_history{{}, {}, m_log};
  JobBook m_book{m_history, {L"srv", true}};
  const std::shared_ptr<Hold> m_hold = std::make_shared<Hold>();
};

TEST_F(HeldJobTakerTest, AWholeJobIsKeptAsItCame) {
  const auto sender = begin();
  start(sender, kDirect, L"Letter");
  write(sender, "hello, ");
  write(sender, "world");
  EXPECT_EQ(end(sender), PrintResult::kPrinted);
  const HeldJob job = HeldFileReader(folder() / "000000000001.job").job();
  EXPECT_EQ(job.number, 7);
  EXPECT_EQ(job.session, 5);
  EXPECT_EQ(job.printer, L"Laser (session 5)");
  EXPECT_EQ(job.process, 77);
  EXPECT_EQ(job.start.documentName, L"Letter");
  EXPECT_EQ(job.bytes, 12);
  EXPECT_EQ(data(), "hello, world");
}

TEST_F(HeldJobTakerTest, APieceWithoutBytesIsOneLikeAnyOther) {
  const auto sender = begin();
  start(sender, kDirect);
  write(sender, "");
  write(sender, "x");
  write(sender, "");
  EXPECT_EQ(end(sender), PrintResult::kPrinted);
  EXPECT_EQ(data(), "x");
}

TEST_F(HeldJobTakerTest, OfAJobWithAPieceThatIsNotAsLongAsItSaysNothingStays) {
  for (const int said : {-1, 2, 4}) {
    const auto sender = begin();
    start(sender, kDirect);
    write(sender, "xyz", said);
    write(sender, "whole");
    EXPECT_EQ(end(sender), PrintResult::kBrokenData) << said;
    EXPECT_THAT(files(), ElementsAre("in-use")) << said;
  }
}

TEST_F(HeldJobTakerTest, OfAJobThatBeginsTwiceNothingStays) {
  const auto sender = begin();
  start(sender, kDirect);
  write(sender, "one");
  start(sender, kDirect);
  write(sender, "two");
  EXPECT_EQ(end(sender), PrintResult::kBrokenData);
  EXPECT_THAT(files(), ElementsAre("in-use"));
}

TEST_F(HeldJobTakerTest, OnlyAConvertedJobNeedsData) {
  const auto direct = begin();
  start(direct, kDirect);
  EXPECT_EQ(end(direct), PrintResult::kPrinted);
  EXPECT_EQ(data(), "");
  const auto collected = begin();
  start(collected, kCollected);
  EXPECT_EQ(end(collected), PrintResult::kNoData);
  EXPECT_THAT(files(), ElementsAre("000000000001.job", "in-use"));
}

TEST_F(HeldJobTakerTest, WithoutItsStartThereIsNoJob) {
  const auto sender = begin();
  write(sender, "x");
  EXPECT_EQ(end(sender), PrintResult::kNoJob);
  EXPECT_THAT(files(), ElementsAre("in-use"));
}

TEST_F(HeldJobTakerTest, WhatComesBehindTheEndIsNoJobAndChangesNothing) {
  const auto sender = begin();
  start(sender, kDirect);
  write(sender, "x");
  EXPECT_EQ(end(sender), PrintResult::kPrinted);
  start(sender, kDirect);
  write(sender, "y");
  EXPECT_EQ(end(sender), PrintResult::kNoJob);
  EXPECT_THAT(files(), ElementsAre("000000000001.job", "in-use"));
  EXPECT_EQ(data(), "x");
}

}  // namespace
}  // namespace aps
