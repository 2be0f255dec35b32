#include "session/make_component.h"
#include "tests/support/monitor_world.h"

#include <gtest/gtest.h>
#include <utility>

namespace {

// A component whose owner ends between the two start operations.
class Orphan : public CS_Component {
 public:
  explicit Orphan(CS_Channel* channel) : m_channel(channel) {}
  CS_Channel* getChannel(bool) override { return std::exchange(m_channel, nullptr); }

 private:
  CS_Channel* m_channel;
};

int failureOf(CS_Component& component) {
  try {
    mg::startChannel(component);
    return 0;
  } catch (const CS_Exception& exception) {
    return exception.number();
  }
}

TEST(StartChannel, StartsSendingAndReceiving) {
  MonitorWorld world;
  CS_Channel* channel = world.portMonitor()->getChannel(true);
  EXPECT_TRUE(channel->isSending());
  EXPECT_TRUE(channel->isReceiving());
}

TEST(StartChannel, NeedsAComponentWithAnOwner) {
  const RecordingScope records;
  PortMonitorServer alone;
  EXPECT_EQ(failureOf(alone), corvane::kMissingObject);
}

TEST(StartChannel, AnOwnerThatEndsInBetweenLeavesAChannelThatReceivesNothing) {
  const RecordingScope records;
  CS_Channel channel(nullptr, 0, 0);
  Orphan orphan(&channel);
  EXPECT_EQ(failureOf(orphan), corvane::kMissingObject);
  EXPECT_TRUE(channel.isSending());
  EXPECT_FALSE(channel.isReceiving());
}

}  // namespace
