#include <gtest/gtest.h>

#include <algorithm>
#include <string>
#include <vector>

#include "Kiv/Allocator.h"
#include "Kiv/Clock.h"
#include "Kiv/Type.h"
#include "NimbalCentral/ChipInfo.h"
#include "unit/CoppHelperFixture.h"
#include "unit/SwitchFixture.h"

namespace {

using CoppTest::AttributeSpy;
using CoppTest::CoppPlatform;
using CoppTest::TraceCapture;

// The machine drives the helper only on chips that need the VXLAN source-port workaround, so
// that is the chip here; the helper's operations trace what they were asked.
class IntfCoppSm : public ::testing::Test {
  protected:
   void SetUp() override {
      NimbalCentral::nimbalAttributes().vxlanCoppSrcPortWorkAroundNeededIs(true);
      helper = platform.helper();
   }
   void TearDown() override {
      if (helper) {
         helper->qosIntfCoppSmDel();
      }
      NimbalCentral::nimbalAttributes().vxlanCoppSrcPortWorkAroundNeededIs(false);
   }

   Kiv::Ptr<Nimbal::QosIntfCoppSm> machine() {
      return helper->qosIntfCoppSmIs(platform.scsd, helper.ptr());
   }

   static std::size_t count(std::vector<std::string> const& lines, std::string const& text) {
      return static_cast<std::size_t>(std::count(lines.begin(), lines.end(), text));
   }

   double now() const { return Kiv::activityClock()->now(); }

   CoppPlatform platform;
   Kiv::Ptr<Nimbal::QosAclHelperV1> helper;
   TraceCapture traces{{"NimbalQosSm"}, 4};
};

TEST_F(IntfCoppSm, ConstructionInitialisesAndSynchronisesOnce) {
   platform.scsd->vxlanEnabledIs(true);
   auto sm = machine();
   EXPECT_TRUE(sm->initialized());
   EXPECT_FALSE(sm->vxlanEntryExhausted());
   ASSERT_NE(sm->vxlanEntryRetryTimer(), nullptr);
   EXPECT_EQ(sm->vxlanEntryRetryTimer()->timeMin(), Kiv::never);
   // The reactors' first calls come before initialisation and program nothing.
   EXPECT_EQ(
       traces.texts(),
       std::vector<std::string>(
           {"QosIntfCoppSm::handleVxlanEnabled vxlan enabled: 1",
            "QosIntfCoppSm::handleVxlanEntryRetryTimer", "QosIntfCoppSm::handleInitialized",
            "QosIntfCoppSm::handleVxlanEnabled vxlan enabled: 1",
            "syncCoppVxlanEntries vxlan enabled: 1", "syncCoppVxlanDefaultPolicer vxlan enabled: 1",
            "QosIntfCoppSm::handleVxlanRecircIntf"}));
}

TEST_F(IntfCoppSm, VxlanEnabledChangeSynchronisesTheEntries) {
   machine();
   traces.clear();
   platform.scsd->vxlanEnabledIs(true);
   platform.scsd->vxlanEnabledIs(false);
   EXPECT_EQ(traces.texts(),
             std::vector<std::string>({"QosIntfCoppSm::handleVxlanEnabled vxlan enabled: 1",
                                       "syncCoppVxlanEntries vxlan enabled: 1",
                                       "syncCoppVxlanDefaultPolicer vxlan enabled: 1",
                                       "QosIntfCoppSm::handleVxlanEnabled vxlan enabled: 0",
                                       "syncCoppVxlanEntries vxlan enabled: 0",
                                       "syncCoppVxlanDefaultPolicer vxlan enabled: 0"}));
}

TEST_F(IntfCoppSm, ExhaustionArmsTheTimerOnceAMinuteAfterTheFirstFailure) {
   auto sm = machine();
   double const firstFailure = now();
   sm->vxlanEntryExhaustedIs(true);
   EXPECT_EQ(sm->vxlanEntryRetryTimer()->timeMin(), firstFailure + 60.0);
   Kiv::activityClock()->advance(10.0);
   sm->vxlanEntryExhaustedIs(true);
   // A later failure of the same pass, with the flag briefly down, does not push it back.
   sm->vxlanEntryExhaustedIs(false);
   sm->vxlanEntryExhaustedIs(true);
   EXPECT_EQ(sm->vxlanEntryRetryTimer()->timeMin(), firstFailure + 60.0);
   EXPECT_EQ(count(traces.texts(), "QosIntfCoppSm::handleVxlanEntryExhausted entry exhausted: 1"),
             2u);
   EXPECT_EQ(count(traces.texts(), "QosIntfCoppSm::handleVxlanEntryExhausted entry exhausted: 0"),
             1u);
}

TEST_F(IntfCoppSm, TimerClearsTheFlagAndRetries) {
   auto sm = machine();
   sm->vxlanEntryExhaustedIs(true);
   traces.clear();
   Kiv::activityClock()->advance(59.0);
   EXPECT_TRUE(traces.lines().empty());
   Kiv::activityClock()->advance(1.0);
   EXPECT_FALSE(sm->vxlanEntryExhausted());
   EXPECT_EQ(sm->vxlanEntryRetryTimer()->timeMin(), Kiv::never);
   EXPECT_EQ(traces.texts(), std::vector<std::string>(
                                 {"QosIntfCoppSm::handleVxlanEntryRetryTimer",
                                  "QosIntfCoppSm::handleVxlanEntryExhausted entry exhausted: 0",
                                  "syncCoppVxlanEntries vxlan enabled: 0",
                                  "syncCoppVxlanDefaultPolicer vxlan enabled: 0"}));
   traces.clear();
   Kiv::activityClock()->advance(120.0);
   EXPECT_TRUE(traces.lines().empty());
}

TEST_F(IntfCoppSm, FailureAfterARetryArmsTheTimerAgain) {
   auto sm = machine();
   sm->vxlanEntryExhaustedIs(true);
   Kiv::activityClock()->advance(60.0);
   double const retry = now();
   sm->vxlanEntryExhaustedIs(true);
   EXPECT_EQ(sm->vxlanEntryRetryTimer()->timeMin(), retry + 60.0);
}

TEST_F(IntfCoppSm, NothingIsProgrammedBeforeInitialisation) {
   auto sm = machine();
   sm->vxlanEntryExhaustedIs(true);
   sm->initializedIs(false);
   traces.clear();
   platform.scsd->vxlanEnabledIs(true);
   platform.scsd->vxlanRecircIntfIs("Ethernet1", true);
   Kiv::activityClock()->advance(60.0);
   EXPECT_EQ(traces.texts(),
             std::vector<std::string>({"QosIntfCoppSm::handleVxlanEnabled vxlan enabled: 1",
                                       "QosIntfCoppSm::handleVxlanRecircIntf intf: Ethernet1",
                                       "QosIntfCoppSm::handleVxlanEntryRetryTimer"}));
   EXPECT_TRUE(sm->vxlanEntryExhausted());
}

TEST_F(IntfCoppSm, NullSharedStateGivesNoReactorAndAnEmptyRecirculationPass) {
   platform.scsd->vxlanRecircIntfIs("Ethernet1", true);
   auto sm = helper->qosIntfCoppSmIs(nullptr, helper.ptr());
   EXPECT_FALSE(sm->scsd());
   EXPECT_FALSE(platform.scsd->hasObservers());
   EXPECT_EQ(
       traces.texts(),
       std::vector<std::string>(
           {"QosIntfCoppSm::handleVxlanEntryRetryTimer", "QosIntfCoppSm::handleInitialized",
            "QosIntfCoppSm::handleVxlanEnabled vxlan enabled: 0",
            "syncCoppVxlanEntries vxlan enabled: 0", "syncCoppVxlanDefaultPolicer vxlan enabled: 0",
            "QosIntfCoppSm::handleVxlanRecircIntf"}));
   traces.clear();
   platform.scsd->vxlanEnabledIs(true);
   EXPECT_TRUE(traces.lines().empty());
}

TEST_F(IntfCoppSm, WithoutTheWorkaroundTheHelperProgramsNothing) {
   NimbalCentral::nimbalAttributes().vxlanCoppSrcPortWorkAroundNeededIs(false);
   EXPECT_FALSE(helper->vxlanCoppSrcPortWorkAroundNeeded());
   machine();
   platform.scsd->vxlanEnabledIs(true);
   for (auto const& line : traces.texts()) {
      EXPECT_EQ(line.rfind("QosIntfCoppSm::", 0), 0u) << line;
   }
   NimbalCentral::nimbalAttributes().vxlanCoppSrcPortWorkAroundNeededIs(true);
   EXPECT_TRUE(helper->vxlanCoppSrcPortWorkAroundNeeded());
}

TEST_F(IntfCoppSm, DetachedMachineNotifiesNobody) {
   auto sm = machine();
   auto removed = helper->qosIntfCoppSmDel();
   AttributeSpy spy(removed.ptr());
   removed->vxlanEntryExhaustedIs(true);
   removed->initializedIs(false);
   EXPECT_FALSE(removed->hasNotificationActive());
   EXPECT_TRUE(spy.events().empty());
}

TEST_F(IntfCoppSm, SettersNotifyTheMachinesObserversOnChange) {
   auto sm = machine();
   AttributeSpy spy(sm.ptr());
   sm->vxlanEntryExhaustedIs(false);
   sm->initializedIs(true);
   EXPECT_TRUE(spy.events().empty());
   sm->vxlanEntryExhaustedIs(true);
   sm->initializedIs(false);
   EXPECT_EQ(spy.attrs(), std::vector<std::string>({"vxlanEntryExhausted", "initialized"}));
}

TEST_F(IntfCoppSm, DeletersReleaseTheReactors) {
   auto sm = machine();
   sm->scsdDel();
   EXPECT_FALSE(sm->scsd());
   EXPECT_FALSE(platform.scsd->hasObservers());
   sm->vxlanEntryRetryTimerDel();
   EXPECT_EQ(sm->vxlanEntryRetryTimer(), nullptr);
   // With no timer, exhaustion arms nothing and time passes without a retry.
   sm->vxlanEntryExhaustedIs(true);
   traces.clear();
   Kiv::activityClock()->advance(60.0);
   EXPECT_TRUE(traces.lines().empty());
   EXPECT_TRUE(sm->vxlanEntryExhausted());
}

TEST_F(IntfCoppSm, InactiveTimerDoesNotFire) {
   auto sm = machine();
   sm->vxlanEntryExhaustedIs(true);
   sm->vxlanEntryRetryTimer()->isActiveIs(false);
   traces.clear();
   Kiv::activityClock()->advance(60.0);
   EXPECT_TRUE(traces.lines().empty());
   EXPECT_TRUE(sm->vxlanEntryExhausted());
}

TEST_F(IntfCoppSm, AttributesByName) {
   auto sm = machine();
   EXPECT_EQ(sm->fwkType()->fullName(), "Nimbal::QosIntfCoppSm");
   EXPECT_EQ(sm->fwkType()->attributeNames(),
             std::vector<std::string>({"scsd", "qosAclHelper", "vxlanEntryRetryTimer",
                                       "vxlanEntryExhausted", "initialized"}));
   EXPECT_EQ(Kiv::attributeValue(*sm, "scsd"), "set");
   EXPECT_EQ(Kiv::attributeValue(*sm, "qosAclHelper"), "set");
   EXPECT_EQ(Kiv::attributeValue(*sm, "vxlanEntryRetryTimer"), "never");
   EXPECT_EQ(Kiv::attributeValue(*sm, "initialized"), "true");
   double const armedAt = now() + 60.0;
   Kiv::attributeValueIs(*sm, "vxlanEntryExhausted", "true");
   EXPECT_TRUE(sm->vxlanEntryExhausted());
   EXPECT_EQ(sm->vxlanEntryRetryTimer()->timeMin(), armedAt);
   EXPECT_EQ(Kiv::attributeValue(*sm, "vxlanEntryRetryTimer"), Kiv::toString(armedAt));
   EXPECT_THROW(Kiv::attributeValueIs(*sm, "scsd", "null"), std::invalid_argument);
   EXPECT_EQ(Kiv::attributeValue(*helper, "qosIntfCoppSm"), "set");
}

// The machine driving a real helper on a chip that needs the VXLAN workaround

class IntfCoppSmOnSwitch : public SwitchTest::SwitchFixture {
  protected:
   static constexpr U32 base = NimbalHost::Switch::efpCoppDefAndVxlanBaseIndex;

   NimbalHost::SwitchConfig switchConfig() const override {
      NimbalHost::SwitchConfig config;
      config.vxlanWorkaround = true;
      return config;
   }

   Kiv::Ptr<Nimbal::NimbalCommonSmData> scsd() const { return sw().scsd(); }
   Kiv::Ptr<Nimbal::QosIntfCoppSm> machine() const { return helper()->qosIntfCoppSm(); }
   Kiv::Ptr<Nimbal::QosIntfCoppSm> newMachine() const {
      return helper()->qosIntfCoppSmIs(scsd(), helper().ptr());
   }
   double now() const { return Kiv::activityClock()->now(); }

   // The CPU queue mask of an interface's default entry in hardware.
   U32 defaultEntryQueueMask(std::string const& intf) const {
      U32 const id = sw().defaultEntry(Orvik::IntfId(intf));
      Shim::FieldEntry const* e = chip().entry(0, static_cast<Shim::bcm_field_entry_t>(id));
      return e ? e->hw.qualifier(Shim::QualKind::CpuQueue).value_or(Shim::Qualifier{}).mask : 0xBAD;
   }

   void kernelKeysIs(std::vector<Oskel::ModIdPortQueueKey> const& keys) {
      for (auto const& key : keys) {
         ASSERT_TRUE(helper()->createCoppPolicerByPortQueue(key));
      }
   }
   // Every dynamic VXLAN index taken behind the helper's back.
   void poolFill() {
      for (U32 i = 0; i < 512; ++i) {
         helper()->coppVxlanDynEntryInUseIs(base + 256 + i, true);
      }
   }
   void poolEmpty() {
      for (U32 i = 0; i < 512; ++i) {
         helper()->freeCoppVxlanEntry(base + 256 + i);
      }
   }
   std::size_t logged(CoppTest::LogCapture const& logs, std::string const& key) const {
      return static_cast<std::size_t>(
          std::count_if(logs.messages().begin(), logs.messages().end(),
                        [&key](auto const& m) { return m.first == key; }));
   }
   static std::size_t count(std::vector<std::string> const& lines, std::string const& text) {
      return static_cast<std::size_t>(std::count(lines.begin(), lines.end(), text));
   }

   std::vector<Oskel::ModIdPortQueueKey> const threeKeys{{0, 2, 9}, {0, 3, 9}, {0, 4, 9}};
};

// The agent may call qosIntfCoppSmIs again with the same arguments: that builds no machine and
// runs no first pass, so nothing is programmed again.
TEST_F(IntfCoppSmOnSwitch, SecondQosIntfCoppSmIsBuildsNoMachineAndRunsNoFirstPass) {
   helper()->qosIntfCoppSmDel();
   scsd()->vxlanEnabledIs(true);
   scsd()->vxlanRecircIntfIs(Orvik::IntfId("Ethernet1"), true);
   kernelKeysIs(threeKeys);
   TraceCapture traces({"NimbalQosSm"}, 4);
   U64 const built = Kiv::allocations<Nimbal::QosIntfCoppSm>();
   std::size_t const callsBefore = sdk().journal().size();
   auto const first = newMachine();
   EXPECT_EQ(Kiv::allocations<Nimbal::QosIntfCoppSm>(), built + 1);
   std::size_t const firstPassCalls = sdk().journal().size() - callsBefore;
   EXPECT_GT(firstPassCalls, 0u);
   EXPECT_EQ(count(traces.texts(), "QosIntfCoppSm::handleInitialized"), 1u);

   auto const second = newMachine();
   EXPECT_EQ(Kiv::allocations<Nimbal::QosIntfCoppSm>(), built + 1);
   EXPECT_EQ(second.ptr(), first.ptr());
   EXPECT_EQ(sdk().journal().size(), callsBefore + firstPassCalls);
   EXPECT_EQ(count(traces.texts(), "QosIntfCoppSm::handleInitialized"), 1u);
}

TEST_F(IntfCoppSmOnSwitch, ExistingRecirculationInterfacesAreHandledAtInitialisation) {
   helper()->qosIntfCoppSmDel();
   scsd()->vxlanRecircIntfIs(Orvik::IntfId("Ethernet1"), true);
   scsd()->vxlanRecircIntfIs(Orvik::IntfId("Ethernet2"), false);
   EXPECT_EQ(defaultEntryQueueMask("Ethernet1"), 0u);
   TraceCapture traces({"NimbalQosSm"}, 4);
   newMachine();
   auto const lines = traces.texts();
   EXPECT_EQ(count(lines, "QosIntfCoppSm::handleVxlanRecircIntf intf: Ethernet1"), 1u);
   EXPECT_EQ(count(lines, "updateIntfCoppOnVxlanRecircIntfEnabled intf: Ethernet1 enabled: 1"), 1u);
   EXPECT_EQ(count(lines, "updateIntfCoppOnVxlanRecircIntfEnabled intf: Ethernet2 enabled: 0"), 1u);
   EXPECT_EQ(defaultEntryQueueMask("Ethernet1"), 0x3Fu);
   EXPECT_EQ(defaultEntryQueueMask("Ethernet2"), 0u);
}

TEST_F(IntfCoppSmOnSwitch, RecirculationChangesUpdateThePortDefaultEntry) {
   TraceCapture traces({"NimbalQosSm"}, 4);
   scsd()->vxlanRecircIntfIs(Orvik::IntfId("Ethernet3"), true);
   EXPECT_EQ(defaultEntryQueueMask("Ethernet3"), 0x3Fu);
   scsd()->vxlanRecircIntfIs(Orvik::IntfId("Ethernet3"), false);
   EXPECT_EQ(defaultEntryQueueMask("Ethernet3"), 0u);
   EXPECT_EQ(traces.texts(),
             std::vector<std::string>(
                 {"QosIntfCoppSm::handleVxlanRecircIntf intf: Ethernet3",
                  "updateIntfCoppOnVxlanRecircIntfEnabled intf: Ethernet3 enabled: 1",
                  "QosIntfCoppSm::handleVxlanRecircIntf intf: Ethernet3",
                  "updateIntfCoppOnVxlanRecircIntfEnabled intf: Ethernet3 enabled: 0"}));
}

TEST_F(IntfCoppSmOnSwitch, InterfaceRemovedFromRecirculationIsHandledAsDisabled) {
   scsd()->vxlanRecircIntfIs(Orvik::IntfId("Ethernet4"), true);
   ASSERT_EQ(defaultEntryQueueMask("Ethernet4"), 0x3Fu);
   TraceCapture traces({"NimbalQosSm"}, 4);
   scsd()->vxlanRecircIntfDel(Orvik::IntfId("Ethernet4"));
   EXPECT_EQ(defaultEntryQueueMask("Ethernet4"), 0u);
   EXPECT_EQ(traces.texts(),
             std::vector<std::string>(
                 {"QosIntfCoppSm::handleVxlanRecircIntf intf: Ethernet4",
                  "updateIntfCoppOnVxlanRecircIntfEnabled intf: Ethernet4 enabled: 0"}));
}

TEST_F(IntfCoppSmOnSwitch, AFailureInTheFirstPassReachesTheNewMachine) {
   helper()->qosIntfCoppSmDel();
   // Only the per-port default entries find a meter: no VXLAN default entry can be made.
   sw().resourcesIs(NimbalHost::SwitchResources{std::nullopt, std::nullopt, 8});
   scsd()->vxlanEnabledIs(true);
   CoppTest::LogCapture logs;
   double const failedAt = now();
   auto const sm = newMachine();
   EXPECT_EQ(logged(logs, "QOS_COPP_HW_RESOURCE_FULL"), 1u);
   EXPECT_TRUE(sm->initialized());
   EXPECT_TRUE(sm->vxlanEntryExhausted());
   EXPECT_EQ(sm->vxlanEntryRetryTimer()->timeMin(), failedAt + 60.0);
   EXPECT_EQ(helper()->qosIntfCoppSm(), sm);

   // And its retry programs what was missing.
   sw().resourcesIs(NimbalHost::SwitchResources{std::nullopt, std::nullopt, 100});
   Kiv::activityClock()->advance(60.0);
   EXPECT_FALSE(sm->vxlanEntryExhausted());
   EXPECT_EQ(helper()->portDefaultCoppPolicerVxlanHwData(), 8u);
}

TEST_F(IntfCoppSmOnSwitch, AFailureWhileReplacingTheMachineReachesTheNewOne) {
   Kiv::Ptr<Nimbal::QosIntfCoppSm> const old = machine();
   ASSERT_TRUE(old);
   // The old machine no longer follows the shared state, so the failure below is the new one's.
   old->scsdDel();
   sw().resourcesIs(NimbalHost::SwitchResources{std::nullopt, std::nullopt, 8});
   scsd()->vxlanEnabledIs(true);
   Kiv::Ptr<Nimbal::NimbalCommonSmData const> const otherScsd(new Nimbal::NimbalCommonSmData());
   auto const sm = helper()->qosIntfCoppSmIs(otherScsd, helper().ptr());
   ASSERT_NE(sm, old);
   EXPECT_TRUE(sm->vxlanEntryExhausted());
   EXPECT_FALSE(old->vxlanEntryExhausted());
   EXPECT_EQ(old->vxlanEntryRetryTimer()->timeMin(), Kiv::never);
}

TEST_F(IntfCoppSmOnSwitch, ThreeFailuresInOnePassArmTheTimerOnce) {
   kernelKeysIs(threeKeys);
   poolFill();
   TraceCapture traces({"NimbalQosSm"}, 4);
   CoppTest::LogCapture logs;
   double const firstFailure = now();
   scsd()->vxlanEnabledIs(true);
   EXPECT_EQ(logged(logs, "QOS_COPP_HW_RESOURCE_FULL"), 3u);
   EXPECT_TRUE(machine()->vxlanEntryExhausted());
   EXPECT_EQ(count(traces.texts(), "QosIntfCoppSm::handleVxlanEntryExhausted entry exhausted: 1"),
             1u);
   EXPECT_EQ(machine()->vxlanEntryRetryTimer()->timeMin(), firstFailure + 60.0);
   // Another failure later does not push the retry back.
   Kiv::activityClock()->advance(30.0);
   helper()->syncCoppVxlanEntries(false);
   EXPECT_EQ(logged(logs, "QOS_COPP_HW_RESOURCE_FULL"), 6u);
   EXPECT_EQ(machine()->vxlanEntryRetryTimer()->timeMin(), firstFailure + 60.0);
}

TEST_F(IntfCoppSmOnSwitch, ARetryThatSucceedsLeavesTheFlagDownAndTheTimerAtNever) {
   kernelKeysIs(threeKeys);
   poolFill();
   scsd()->vxlanEnabledIs(true);
   ASSERT_TRUE(machine()->vxlanEntryExhausted());
   poolEmpty();
   CoppTest::LogCapture logs;
   Kiv::activityClock()->advance(60.0);
   EXPECT_EQ(logged(logs, "QOS_COPP_HW_RESOURCE_NORMAL"), 3u);
   EXPECT_EQ(logged(logs, "QOS_COPP_HW_RESOURCE_FULL"), 0u);
   EXPECT_FALSE(machine()->vxlanEntryExhausted());
   EXPECT_EQ(machine()->vxlanEntryRetryTimer()->timeMin(), Kiv::never);
   EXPECT_EQ(helper()->kernelDynamicCoppVxlanData(), 3u);
   // Nothing more happens.
   Kiv::activityClock()->advance(600.0);
   EXPECT_EQ(logged(logs, "QOS_COPP_HW_RESOURCE_NORMAL"), 3u);
}

TEST_F(IntfCoppSmOnSwitch, TheRetryRepeatsEveryMinuteWhileEntriesAreMissing) {
   kernelKeysIs(threeKeys);
   poolFill();
   double const firstFailure = now();
   scsd()->vxlanEnabledIs(true);
   CoppTest::LogCapture logs;
   Kiv::activityClock()->advance(60.0);
   EXPECT_EQ(logged(logs, "QOS_COPP_HW_RESOURCE_FULL"), 3u);
   EXPECT_TRUE(machine()->vxlanEntryExhausted());
   EXPECT_EQ(machine()->vxlanEntryRetryTimer()->timeMin(), firstFailure + 120.0);
   Kiv::activityClock()->advance(60.0);
   EXPECT_EQ(logged(logs, "QOS_COPP_HW_RESOURCE_FULL"), 6u);
   EXPECT_EQ(machine()->vxlanEntryRetryTimer()->timeMin(), firstFailure + 180.0);
}

TEST_F(IntfCoppSmOnSwitch, VxlanChangesDoNotTouchTheFlagOrTheTimer) {
   kernelKeysIs(threeKeys);
   poolFill();
   double const firstFailure = now();
   scsd()->vxlanEnabledIs(true);
   ASSERT_TRUE(machine()->vxlanEntryExhausted());
   scsd()->vxlanEnabledIs(false);
   scsd()->vxlanRecircIntfIs(Orvik::IntfId("Ethernet1"), true);
   EXPECT_TRUE(machine()->vxlanEntryExhausted());
   EXPECT_EQ(machine()->vxlanEntryRetryTimer()->timeMin(), firstFailure + 60.0);
}

}  // namespace
