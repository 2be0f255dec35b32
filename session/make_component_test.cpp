#include "session/make_component.h"

#include "corvane/components/component_server.h"
#include "corvane/records/operation.h"
#include "tests/support/barren_class.h"
#include "tests/support/monitor_world.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

namespace {

using testing::ElementsAre;
using testing::IsEmpty;

constexpr char kClosing[] = "0x40000008: Stack Trace: test()";

class MakeComponentTest : public testing::Test {
 protected:
  CS_RCPtr<CS_Component> make(const mg::ComponentKind& kind) {
    CS_RCPtr<CS_Component> made;
    Operation operation(L"Stack Trace: test()");
    operation.run([&] { made = mg::makeComponent(operation, m_world.connection(), kind); });
    return made;
  }
  ScriptedPeer::Lines records() { return m_world.records().lines(); }

  MonitorWorld m_world;
};

TEST_F(MakeComponentTest, StandsOnItsOwnerAndIsNotAnnouncedBeforeItsFirstRequest) {
  const CS_RCPtr<CS_Component> made = make(mg::kPortMonitorServerKind);
  ASSERT_TRUE(made);
  EXPECT_EQ(made->getOwner(), &m_world.connection());
  EXPECT_THAT(m_world.peer().waitForLines(1), ElementsAre("connect"));
  EXPECT_THAT(records(), IsEmpty());
}

TEST_F(MakeComponentTest, AnOwnerThatHasEndedGivesNoFactory) {
  CS_Connection::destroy(&m_world.connection(), true);
  EXPECT_FALSE(make(mg::kPortMonitorServerKind));
  EXPECT_THAT(records(), ElementsAre("10: Failed to get port monitor class factory.",
                                     "10: Failed to get port monitor class factory.", kClosing));
}

TEST_F(MakeComponentTest, AClassThatIsNotRegisteredGivesNoFactory) {
  EXPECT_FALSE(make({L"Nobody's class", L"Its peer", corvane::kLevelFailure, L"no factory", L"no instance"}));
  EXPECT_THAT(records(), ElementsAre("0x4000000a: no factory", "10: no factory", kClosing));
}

TEST_F(MakeComponentTest, AClassWithoutMemoryGivesNoInstance) {
  const BarrenClass barren(L"Quillfern::NTR::PortMonitorServer", new PortMonitorServerClass(CS_Version(4, 0, 1, 0)));
  EXPECT_FALSE(make(mg::kPortMonitorServerKind));
  EXPECT_THAT(records(), ElementsAre("10: Failed to create port monitor server instance.",
                                     "10: Failed to create port monitor server instance.", kClosing));
}

}  // namespace
