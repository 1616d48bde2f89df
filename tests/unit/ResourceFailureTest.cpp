// Hardware that runs out at every point where the library takes some: the operation reports its
// failure value, leaves no half-made entry, meter, statistic or record behind, and a later try
// with room succeeds.

#include <gtest/gtest.h>

#include <functional>
#include <set>
#include <string>
#include <vector>

#include "unit/AgentBench.h"

namespace {

using AgentTest::AgentBench;
using AgentTest::Holdings;
using Key = Oskel::ModIdPortQueueKey;

constexpr int coppGroup = static_cast<int>(NimbalHost::Switch::efpCoppGroupId);
constexpr int defAndVxlanGroup = static_cast<int>(NimbalHost::Switch::efpCoppDefAndVxlanGroupId);
constexpr U32 base = NimbalHost::Switch::efpCoppDefAndVxlanBaseIndex;
constexpr U32 roomy = 4096;

NimbalHost::SwitchConfig vxlanSwitch() {
   NimbalHost::SwitchConfig config;
   config.vxlanWorkaround = true;
   return config;
}

// One programmed key more (or less): its entry, meter, policer, statistics and record.
Holdings withKernelKeys(Holdings h, int keys) {
   h.coppEntries += keys;
   h.coppMeters += keys;
   h.entries += keys;
   h.installed += keys;
   h.policers += keys;
   h.stats += keys;
   h.managedEntries += keys;
   h.kernelRecords += keys;
   return h;
}

// VXLAN entries more: source-port entries with their pool indices, or VXLAN default entries.
Holdings withVxlanEntries(Holdings h, int sourcePort, int defaults) {
   int const entries = sourcePort + defaults;
   h.defAndVxlanEntries += entries;
   h.defAndVxlanMeters += entries;
   h.entries += entries;
   h.installed += entries;
   h.policers += entries;
   h.stats += entries;
   h.managedEntries += entries;
   h.vxlanRecords += sourcePort;
   h.vxlanPoolInUse += sourcePort;
   h.vxlanDefaults += defaults;
   return h;
}

Holdings withClassInterfaces(Holdings h, int interfaces) {
   h.intfPolicers += interfaces;
   return h;
}

bool waiting(AgentBench const& b, Key const& key) {
   return b.kernel().failed().count(key) != 0;
}

// The entry and meter that programme a key, checked in the chip.
void expectProgrammed(AgentBench const& b, Key const& key, U32 rate, U32 burst) {
   auto const record = b.helper()->kernelDynamicCoppData(key);
   ASSERT_TRUE(record) << key;
   Shim::FieldEntry const* entry = b.sw().chip().entry(0, static_cast<int>(record->entry()));
   ASSERT_NE(entry, nullptr);
   EXPECT_TRUE(entry->installed);
   EXPECT_EQ(static_cast<U32>(entry->hw.policer[0]), record->policerId());
   Shim::Policer const* policer = b.sw().chip().policer(0, entry->hw.policer[0]);
   ASSERT_NE(policer, nullptr);
   EXPECT_EQ(policer->config.ckbits_sec(), rate);
   EXPECT_EQ(policer->config.ckbits_burst(), burst);
}

std::size_t logsStartingWith(AgentBench const& b, std::string const& prefix) {
   std::size_t n = 0;
   for (std::string const& line : b.logs()) {
      n += line.rfind(prefix, 0) == 0 ? 1 : 0;
   }
   return n;
}

// What runs out: a pool of a group, or one SDK call that answers BCM_E_RESOURCE.
struct Shortage {
   char const* name;
   std::function<void(AgentBench&)> runOut;
   std::function<void(AgentBench&)> roomBack;
   bool oneCall = false;  // only the next call fails
};

void PrintTo(Shortage const& s, std::ostream* os) {
   *os << s.name;
}

Shortage entryPoolOf(int group, char const* name) {
   return {name,
           [group](AgentBench& b) {
              b.sw().chip().entryPoolSizeIs(0, group, b.sw().chip().entriesInUse(0, group));
           },
           [group](AgentBench& b) { b.sw().chip().entryPoolSizeIs(0, group, roomy); }};
}

Shortage meterPoolOf(int group, char const* name) {
   return {name,
           [group](AgentBench& b) {
              b.sw().chip().meterPoolSizeIs(0, group, b.sw().chip().metersInUse(0, group));
           },
           [group](AgentBench& b) { b.sw().chip().meterPoolSizeIs(0, group, roomy); }};
}

Shortage injected(char const* call, char const* name) {
   return {name, [call](AgentBench& b) { b.sw().sdk().failNextCallIs(call, Shim::BCM_E_RESOURCE); },
           [](AgentBench&) {}, true};
}

// A new kernel key: a class on a dynamic queue is policed and the agent programmes its key.

class NewKernelKey : public ::testing::TestWithParam<Shortage> {};

TEST_P(NewKernelKey, ThatFindsNoRoomLeavesNothingAndIsProgrammedOnTheRetry) {
   AgentBench b;
   Key const key = b.key("Ethernet1", 40);
   Holdings const before = b.holdings();
   GetParam().runOut(b);

   ASSERT_EQ(b.police("Ethernet1", "user-telnet", 300, 30).cpuQ, 40u);
   EXPECT_TRUE(waiting(b, key));
   EXPECT_FALSE(b.helper()->kernelDynamicCoppDataHas(key));
   // Only the class's own record is new.
   EXPECT_EQ(b.holdings(), withClassInterfaces(before, 1));

   GetParam().roomBack(b);
   b.advance(1);
   EXPECT_FALSE(waiting(b, key));
   expectProgrammed(b, key, 300, 30);
   EXPECT_EQ(b.holdings(), withKernelKeys(withClassInterfaces(before, 1), 1));
}

INSTANTIATE_TEST_SUITE_P(EveryShortage, NewKernelKey,
                         ::testing::Values(entryPoolOf(coppGroup, "EntryPool"),
                                           meterPoolOf(coppGroup, "MeterPool"),
                                           injected("bcm_field_entry_create", "EntryCreate"),
                                           injected("bcm_field_entry_install", "EntryInstall")),
                         [](::testing::TestParamInfo<Shortage> const& info) {
                            return std::string(info.param.name);
                         });

// A class's rate changes: the agent destroys the key's entry and programmes a new one. Someone
// took the meter that the old entry gave back.
TEST(KernelKeyRateChange, ThatFindsNoMeterLeavesTheKeyWaitingAndTheRetryPolicesItAtTheNewRate) {
   AgentBench b;
   Key const key = b.key("Ethernet1", 1);
   b.police("Ethernet1", "copp-system-bgp", 300, 30);
   expectProgrammed(b, key, 300, 30);
   Holdings const before = b.holdings();
   b.resourcesIs(NimbalHost::SwitchResources{std::nullopt, before.coppMeters - 1, std::nullopt});

   b.police("Ethernet1", "copp-system-bgp", 400, 40);
   EXPECT_TRUE(waiting(b, key));
   EXPECT_EQ(b.holdings(), withKernelKeys(before, -1));

   b.resourcesIs(NimbalHost::SwitchResources{std::nullopt, roomy, std::nullopt});
   b.advance(1);
   EXPECT_FALSE(waiting(b, key));
   expectProgrammed(b, key, 400, 40);
   EXPECT_EQ(b.holdings(), before);
}

// The VXLAN source-port entry that a new kernel key gets while VXLAN is enabled.

class NewKernelKeyWithVxlan : public ::testing::TestWithParam<Shortage> {};

TEST_P(NewKernelKeyWithVxlan, KeepsItsEntryAndLeavesNoHalfMadeVxlanEntryUntilTheRetry) {
   AgentBench b(vxlanSwitch());
   b.vxlanIs(true);
   Key const key = b.key("Ethernet1", 40);
   b.logsDelAll();
   GetParam().runOut(b);
   Holdings const before = b.holdings();

   ASSERT_EQ(b.police("Ethernet1", "user-telnet", 300, 30).cpuQ, 40u);
   EXPECT_FALSE(waiting(b, key));
   expectProgrammed(b, key, 300, 30);
   EXPECT_FALSE(b.helper()->kernelDynamicCoppVxlanDataHas(key));
   EXPECT_EQ(b.holdings(), withKernelKeys(withClassInterfaces(before, 1), 1));
   EXPECT_TRUE(b.helper()->qosIntfCoppSm()->vxlanEntryExhausted());
   EXPECT_EQ(b.logs(), std::vector<std::string>({"QOS_COPP_HW_RESOURCE_FULL: Insufficient egress "
                                                 "TCAM resources to program the control plane "
                                                 "policer (vxlan) for class user-telnet on "
                                                 "Ethernet1."}));

   GetParam().roomBack(b);
   b.logsDelAll();
   Holdings const room = b.holdings();
   b.advance(60);
   EXPECT_TRUE(b.helper()->kernelDynamicCoppVxlanDataHas(key));
   EXPECT_FALSE(b.helper()->qosIntfCoppSm()->vxlanEntryExhausted());
   EXPECT_EQ(b.holdings(), withVxlanEntries(room, 1, 0));
   EXPECT_EQ(b.logs(), std::vector<std::string>({"QOS_COPP_HW_RESOURCE_NORMAL: default control "
                                                 "plane policer (vxlan) on Ethernet1 is "
                                                 "programmed in egress TCAM."}));
}

// Takes what is left of the VXLAN entry pool, through the pool's own collection; gives back
// what no VXLAN entry holds.
Shortage const fullVxlanPool{
    "VxlanPool",
    [](AgentBench& b) {
       for (U32 i = Nimbal::QosAclHelperV1::coppVxlanDynEntryOffset;
            i < Nimbal::QosAclHelperV1::coppVxlanDynEntryMax; ++i) {
          b.helper()->coppVxlanDynEntryInUseIs(base + i, true);
       }
    },
    [](AgentBench& b) {
       std::set<U32> held;
       for (auto const& [key, data] : b.helper()->kernelDynamicCoppVxlanDataCol()) {
          held.insert(data->entry());
       }
       for (U32 entry : b.helper()->coppVxlanDynEntryInUseCol().keys()) {
          if (!held.count(entry)) {
             b.helper()->coppVxlanDynEntryInUseDel(entry);
          }
       }
    }};

INSTANTIATE_TEST_SUITE_P(EveryShortage, NewKernelKeyWithVxlan,
                         ::testing::Values(entryPoolOf(defAndVxlanGroup, "EntryPool"),
                                           meterPoolOf(defAndVxlanGroup, "MeterPool"),
                                           fullVxlanPool,
                                           injected("bcm_field_entry_create_id", "EntryCreate")),
                         [](::testing::TestParamInfo<Shortage> const& info) {
                            return std::string(info.param.name);
                         });

// VXLAN enabled: the VXLAN default entries first, then the source-port entries.

class VxlanDefaults : public ::testing::TestWithParam<Shortage> {};

TEST_P(VxlanDefaults, ThatFindNoRoomLeaveNothingAndMakeNoSourcePortEntryUntilTheRetry) {
   AgentBench b(vxlanSwitch());
   Holdings const before = b.holdings();
   b.logsDelAll();
   GetParam().runOut(b);

   b.vxlanIs(true);
   EXPECT_EQ(b.holdings(), before);
   EXPECT_TRUE(b.helper()->qosIntfCoppSm()->vxlanEntryExhausted());
   ASSERT_EQ(b.logs().size(), 1u);
   EXPECT_EQ(logsStartingWith(b,
                              "QOS_COPP_HW_RESOURCE_FULL: Insufficient egress TCAM resources "
                              "to program the default control plane policer (vxlan) on "
                              "Ethernet"),
             1u);

   GetParam().roomBack(b);
   b.advance(60);
   EXPECT_FALSE(b.helper()->qosIntfCoppSm()->vxlanEntryExhausted());
   EXPECT_EQ(b.holdings(), withVxlanEntries(before, static_cast<int>(before.kernelRecords), 8));
}

INSTANTIATE_TEST_SUITE_P(EveryShortage, VxlanDefaults,
                         ::testing::Values(entryPoolOf(defAndVxlanGroup, "EntryPool"),
                                           meterPoolOf(defAndVxlanGroup, "MeterPool"),
                                           injected("bcm_field_entry_create_id", "EntryCreate"),
                                           injected("bcm_field_entry_install", "EntryInstall")),
                         [](::testing::TestParamInfo<Shortage> const& info) {
                            return std::string(info.param.name);
                         });

class VxlanSourcePortEntries : public ::testing::TestWithParam<Shortage> {};

TEST_P(VxlanSourcePortEntries, ThatFindNoRoomOnTheRetryLeaveNothingAndAreMadeOnTheNext) {
   AgentBench b(vxlanSwitch());
   Holdings const start = b.holdings();
   int const keys = static_cast<int>(start.kernelRecords);
   // The VXLAN default entries find meters, the source-port entries none: they wait for the
   // retry.
   b.resourcesIs(
       NimbalHost::SwitchResources{std::nullopt, std::nullopt, start.defAndVxlanMeters + 8});
   b.vxlanIs(true);
   Holdings const before = withVxlanEntries(start, 0, 8);
   ASSERT_EQ(b.holdings(), before);
   b.resourcesIs(NimbalHost::SwitchResources{std::nullopt, std::nullopt, roomy});
   b.logsDelAll();
   GetParam().runOut(b);
   Holdings const short_ = b.holdings();

   b.advance(60);
   int const failed = GetParam().oneCall ? 1 : keys;
   EXPECT_EQ(b.holdings(), withVxlanEntries(short_, keys - failed, 0));
   EXPECT_EQ(b.helper()->kernelDynamicCoppVxlanData(), static_cast<std::size_t>(keys - failed));
   EXPECT_EQ(logsStartingWith(b,
                              "QOS_COPP_HW_RESOURCE_FULL: Insufficient egress TCAM resources "
                              "to program the control plane policer (vxlan) for class "),
             static_cast<std::size_t>(failed));
   EXPECT_TRUE(b.helper()->qosIntfCoppSm()->vxlanEntryExhausted());

   GetParam().roomBack(b);
   Holdings const room = b.holdings();
   b.logsDelAll();
   b.advance(60);
   EXPECT_EQ(b.holdings(), withVxlanEntries(room, failed, 0));
   EXPECT_EQ(b.helper()->kernelDynamicCoppVxlanData(), static_cast<std::size_t>(keys));
   EXPECT_EQ(logsStartingWith(b, "QOS_COPP_HW_RESOURCE_NORMAL: "),
             static_cast<std::size_t>(failed));
   EXPECT_FALSE(b.helper()->qosIntfCoppSm()->vxlanEntryExhausted());
   // Everything goes with VXLAN.
   b.vxlanIs(false);
   EXPECT_EQ(b.holdings(), start);
}

INSTANTIATE_TEST_SUITE_P(EveryShortage, VxlanSourcePortEntries,
                         ::testing::Values(entryPoolOf(defAndVxlanGroup, "EntryPool"),
                                           meterPoolOf(defAndVxlanGroup, "MeterPool"),
                                           fullVxlanPool,
                                           injected("bcm_field_entry_create_id", "EntryCreate"),
                                           injected("bcm_field_entry_install", "EntryInstall")),
                         [](::testing::TestParamInfo<Shortage> const& info) {
                            return std::string(info.param.name);
                         });

// Dynamic CPU queues: a class that finds none is not programmed at all, and is once a queue is
// given back.
TEST(DynamicCpuQueues, AClassThatFindsNoneLeavesNothingAndGetsTheQueueGivenBack) {
   AgentBench b;
   for (int i = 0; i < 8; ++i) {
      ASSERT_TRUE(b.police("Ethernet1", "user-class" + std::to_string(i), 300, 30).cpuQ);
   }
   Holdings const before = b.holdings();
   Kiv::Ptr<Nimbal::MmuConfigSm> const mmu = b.sw().mmuSm();
   U32 const failures = mmu->cpuQSm()->allocationFailures();
   std::vector<U32> users;
   for (auto const& [id, q] : *mmu->cpuQColl()) {
      users.push_back(q->users());
   }

   EXPECT_FALSE(b.police("Ethernet2", "user-late", 300, 30).cpuQ);
   EXPECT_EQ(b.holdings(), before);
   EXPECT_EQ(mmu->cpuQSm()->allocationFailures(), failures + 1);
   std::vector<U32> usersAfter;
   for (auto const& [id, q] : *mmu->cpuQColl()) {
      usersAfter.push_back(q->users());
   }
   EXPECT_EQ(usersAfter, users);
   Kiv::Ptr<Qos::PolicyMapHwStatus> const status = mmu->pmapHwStatus()->pmapHwStatus(
       Qos::PolicyMapHwStatusKey("copp-system-policy", Qos::mapControlPlane_, Qos::input_));
   EXPECT_FALSE(status->cmapHas("user-late"));
   EXPECT_FALSE(b.helper()->coppIntfPolicerDataHas(Orvik::IntfId("Ethernet2")));

   // A queue comes back; the class is configured again, as the agent does on the next change.
   auto const given = b.unpolice("Ethernet1", "user-class3");
   ASSERT_TRUE(given.cpuQ);
   b.unpolice("Ethernet2", "user-late");
   auto const late = b.police("Ethernet2", "user-late", 300, 30);
   ASSERT_TRUE(late.cpuQ);
   EXPECT_EQ(*late.cpuQ, *given.cpuQ);
   expectProgrammed(b, b.key("Ethernet2", *late.cpuQ), 300, 30);
   EXPECT_TRUE(status->cmapHas("user-late"));
}

// The meter swap of a per-port default policer gives the old meter back before it takes the
// new: a full pool is enough.
TEST(PortDefaultMeterSwap, NeedsNoMeterMoreThanThePortAlreadyHolds) {
   AgentBench b(vxlanSwitch());
   b.vxlanIs(true);
   Holdings const before = b.holdings();
   b.resourcesIs(
       NimbalHost::SwitchResources{before.coppMeters, before.coppMeters, before.defAndVxlanMeters});
   b.sw().chip().entryPoolSizeIs(0, defAndVxlanGroup, before.defAndVxlanEntries);
   b.police("Ethernet1", "copp-system-bgp", 600, 60);

   Orvik::IntfId const intf("Ethernet1");
   Nimbal::NimbalQosPolicerHwData const hw = b.helper()->portDefaultCoppPolicerHwData(intf);
   Nimbal::NimbalQosPolicerHwData const twin = b.helper()->portDefaultCoppPolicerVxlanHwData(intf);
   EXPECT_EQ(hw.policerRate(), 1200u);
   EXPECT_EQ(twin.policerRate(), 1200u);
   for (U32 entry : {hw.entryId(), twin.entryId()}) {
      Shim::FieldEntry const* e = b.sw().chip().entry(0, static_cast<int>(entry));
      ASSERT_NE(e, nullptr);
      EXPECT_TRUE(e->installed);
      ASSERT_NE(b.sw().chip().policer(0, e->hw.policer[0]), nullptr);
      EXPECT_EQ(b.sw().chip().policer(0, e->hw.policer[0])->config.ckbits_sec(), 1200u);
   }
   // The class's own key was programmed again at its rate, with the meter it gave back.
   expectProgrammed(b, b.key("Ethernet1", 1), 600, 60);
   EXPECT_EQ(b.holdings(), withClassInterfaces(before, 1));
}

// The agent's start-up makes the per-port default entries with the library's primitives: a
// port that finds no meter has no entry either.
TEST(PortDefaultEntries, ThatFindNoMeterAtStartUpLeaveNoEntry) {
   NimbalHost::SwitchConfig config;
   config.resources.efpDefaultMeters = 3;
   AgentBench b(config);
   EXPECT_EQ(b.sw().interfacesWithoutDefaultPolicer().size(), 5u);
   EXPECT_EQ(b.helper()->portDefaultCoppPolicerHwData(), 3u);
   EXPECT_EQ(b.sw().chip().entriesInUse(0, defAndVxlanGroup), 3u);
   EXPECT_EQ(b.sw().chip().metersInUse(0, defAndVxlanGroup), 3u);
   EXPECT_EQ(b.sw().efpCoppDefAndVxlanEntryMgr()->entryCount(), 3u);
   Holdings const h = b.holdings();
   EXPECT_EQ(h.policers, h.kernelRecords + 3);
   EXPECT_EQ(h.stats, h.kernelRecords + 3);
}

}  // namespace
