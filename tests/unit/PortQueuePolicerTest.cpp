#include <gtest/gtest.h>

#include <algorithm>
#include <string>
#include <vector>

#include "Kiv/Exception.h"
#include "Kiv/Type.h"
#include "NimbalCentral/ChipInfo.h"
#include "unit/CoppHelperFixture.h"
#include "unit/SwitchFixture.h"

namespace {

using CoppTest::LogCapture;
using CoppTest::TraceCapture;
using Key = Oskel::ModIdPortQueueKey;
using Shim::Qualifier;
using Shim::QualKind;

constexpr int efpCoppGroup = static_cast<int>(NimbalHost::Switch::efpCoppGroupId);
constexpr int defAndVxlanGroup = static_cast<int>(NimbalHost::Switch::efpCoppDefAndVxlanGroupId);
constexpr U32 vxlanBase = NimbalHost::Switch::efpCoppDefAndVxlanBaseIndex;

class PortQueuePolicer : public SwitchTest::SwitchFixture {
  protected:
   Kiv::Ptr<Nimbal::NimbalUnboundedTcamEntryManager> entryMgr() const {
      return sw().efpCoppEntryMgr();
   }

   void coppInfoIs(Key const& key, U32 rate, U32 burst) {
      sw().kernelCoppConfig()->coppInfoIs(key, Oskel::CoppInfo(rate, burst * 2 / 3, burst, true));
   }

   // What the agent's request left in the chip and the helper.
   struct Allocated {
      U32 entries;
      std::size_t policers;
      std::size_t records;
      bool operator==(Allocated const&) const = default;
   };
   Allocated allocated() const {
      return Allocated{chip().entriesInUse(0, efpCoppGroup), chip().policers(0),
                       helper()->kernelDynamicCoppData()};
   }

   Qualifier hwQual(U32 id, QualKind kind) const {
      Shim::FieldEntry const* e = chip().entry(0, static_cast<Shim::bcm_field_entry_t>(id));
      return e ? e->hw.qualifier(kind).value_or(Qualifier{0xDEAD, 0xDEAD}) : Qualifier{0xBAD, 0};
   }

   U64 folded(std::string const& intf, U32 queue) const {
      auto const counters = helper()->coppIntfCounterData(Orvik::IntfId(intf));
      if (!counters) {
         return ~U64{0};
      }
      return counters->qCounterColCol()
          .value(queue)
          .value_or(Nimbal::NimbalQosCoppQCounterData(~U64{0}))
          .pktHits();
   }

   static std::size_t count(std::vector<std::string> const& lines, std::string const& text) {
      return static_cast<std::size_t>(std::count(lines.begin(), lines.end(), text));
   }
};

TEST_F(PortQueuePolicer, EntryMatchesTheExactSourcePortAndQueueAndIsMetered) {
   TraceCapture traces({"NimbalQosSm"}, 4);
   Key const key(0, 5, 9);
   coppInfoIs(key, 700, 70);
   ASSERT_TRUE(helper()->createCoppPolicerByPortQueue(key));

   Kiv::Ptr<Nimbal::NimbalQosKernelDynamicCoppData> const record =
       helper()->kernelDynamicCoppData(key);
   ASSERT_TRUE(record);
   U32 const id = record->entry();
   Shim::FieldEntry const* e = chip().entry(0, static_cast<Shim::bcm_field_entry_t>(id));
   ASSERT_NE(e, nullptr);
   EXPECT_EQ(e->group, efpCoppGroup);
   EXPECT_TRUE(e->installed);
   EXPECT_EQ(e->hw.priority, entryMgr()->coppPriority());
   EXPECT_EQ(hwQual(id, QualKind::InPort), (Qualifier{5, 0xFFFFFFFF}));
   EXPECT_EQ(hwQual(id, QualKind::CpuQueue), (Qualifier{9, 0x3F}));
   EXPECT_EQ(hwQual(id, QualKind::InnerVlanId), (Qualifier{0, 0}));
   EXPECT_EQ(hwQual(id, QualKind::InterfaceClassPort), (Qualifier{2, 2}));
   EXPECT_TRUE(e->hw.hasAction(Shim::bcmFieldActionRpDrop));
   EXPECT_EQ(static_cast<U32>(e->hw.policer[0]), record->policerId());
   Shim::Policer const* policer = chip().policer(0, e->hw.policer[0]);
   ASSERT_NE(policer, nullptr);
   EXPECT_EQ(policer->config.ckbits_sec(), 700u);
   EXPECT_EQ(policer->config.ckbits_burst(), 70u);
   EXPECT_EQ(policer->config.flags(), 0x84u);
   EXPECT_EQ(entryMgr()->entryDescription(0, id),
             "Dynamic Kernel Copp for Ethernet5, copp-system-arpresolver");
   EXPECT_EQ(chip().stat(0, e->statId)->types(),
             std::vector<int>({Shim::bcmFieldStatPackets, Shim::bcmFieldStatRedPackets}));

   // The queue is held by the CoPP policy map, a control-plane map (0), for its class.
   ASSERT_EQ(sw().mmuSm()->coppPMapName(), "copp-system-policy");
   std::string const entryText = std::to_string(id);
   std::string const policerText = std::to_string(record->policerId());
   EXPECT_EQ(
       traces.texts(),
       std::vector<std::string>(
           {"QosHelpercreateCoppPolicerByPortQueue modId: 0 port : 5 queue: 9",
            "installCoppPolicer install entry: " + entryText + " create policer: " + policerText +
                " CIR(pps): 700 BC(packet): 70",
            "QosHelper( copp-system-policy,0,copp-system-arpresolver )::"
            "createCoppPolicerByPortQueue on intf: Ethernet5 allocate entry: " +
                entryText + " create policer: " + policerText + " CIR(pps): 700 BC(packet): 70"}));
}

TEST_F(PortQueuePolicer, TheQueuesCounterIsReadyForTheHitsOfTheEntry) {
   Key const key(0, 5, 9);
   ASSERT_FALSE(helper()->coppIntfCounterData(Orvik::IntfId("Ethernet5")));
   ASSERT_TRUE(helper()->createCoppPolicerByPortQueue(key));
   EXPECT_EQ(folded("Ethernet5", 9), 0u);
   // A count left by an earlier entry of the queue is kept.
   helper()
       ->coppIntfCounterData(Orvik::IntfId("Ethernet5"))
       ->qCounterColIs(12, Nimbal::NimbalQosCoppQCounterData(41));
   ASSERT_TRUE(helper()->createCoppPolicerByPortQueue(Key(0, 5, 12)));
   EXPECT_EQ(folded("Ethernet5", 12), 41u);
   EXPECT_EQ(folded("Ethernet5", 9), 0u);
}

TEST_F(PortQueuePolicer, AProgrammedKeyIsNotProgrammedAgain) {
   Key const key(0, 5, 9);
   coppInfoIs(key, 700, 70);
   ASSERT_TRUE(helper()->createCoppPolicerByPortQueue(key));
   U32 const id = helper()->kernelDynamicCoppData(key)->entry();
   Allocated const before = allocated();
   coppInfoIs(key, 900, 90);
   sdk().journalDelAll();
   EXPECT_TRUE(helper()->createCoppPolicerByPortQueue(key));
   EXPECT_TRUE(sdk().journal().empty());
   EXPECT_EQ(allocated(), before);
   EXPECT_EQ(helper()->kernelDynamicCoppData(key)->entry(), id);
}

TEST_F(PortQueuePolicer, AnUnknownModuleNeedsNothing) {
   Allocated const before = allocated();
   sdk().journalDelAll();
   EXPECT_TRUE(helper()->createCoppPolicerByPortQueue(Key(9, 5, 9)));
   // Unknown before its range is looked at.
   EXPECT_TRUE(helper()->createCoppPolicerByPortQueue(Key(100, 5, 9)));
   EXPECT_TRUE(sdk().journal().empty());
   EXPECT_EQ(allocated(), before);
   EXPECT_FALSE(helper()->coppIntfCounterData(Orvik::IntfId("Ethernet5")));
}

TEST_F(PortQueuePolicer, APortWithoutAnInterfaceNeedsNothing) {
   Allocated const before = allocated();
   sdk().journalDelAll();
   EXPECT_TRUE(helper()->createCoppPolicerByPortQueue(Key(0, 30, 9)));
   EXPECT_TRUE(sdk().journal().empty());
   EXPECT_EQ(allocated(), before);
}

TEST_F(PortQueuePolicer, TheDebugAttributeMakesEveryCreateFail) {
   TraceCapture traces({"NimbalQosSm"}, 4);
   Kiv::attributeValueIs(*helper(), "createCoppPolicerAlwaysFalse", "true");
   ASSERT_TRUE(helper()->createCoppPolicerAlwaysFalse());
   Allocated const before = allocated();
   sdk().journalDelAll();
   EXPECT_FALSE(helper()->createCoppPolicerByPortQueue(Key(0, 5, 9)));
   EXPECT_FALSE(helper()->createCoppPolicerByPortQueue(Key(0, 6, 1)));
   // Even the drop queue and unknown modules: the switch comes first.
   EXPECT_FALSE(helper()->createCoppPolicerByPortQueue(Key(0, 5, 0)));
   EXPECT_FALSE(helper()->createCoppPolicerByPortQueue(Key(9, 5, 9)));
   EXPECT_TRUE(sdk().journal().empty());
   EXPECT_EQ(allocated(), before);
   EXPECT_EQ(count(traces.texts(),
                   "createCoppPolicerByPortQueue debug attribute set, copp entries always full: "),
             4u);
   helper()->createCoppPolicerAlwaysFalseIs(false);
   EXPECT_TRUE(helper()->createCoppPolicerByPortQueue(Key(0, 5, 9)));
}

TEST_F(PortQueuePolicer, NoEntryLeftFailsTheCreate) {
   TraceCapture traces({"NimbalQosSm"}, 4);
   sw().resourcesIs(NimbalHost::SwitchResources{0u, std::nullopt, std::nullopt});
   Allocated const before = allocated();
   EXPECT_FALSE(helper()->createCoppPolicerByPortQueue(Key(0, 5, 9)));
   EXPECT_EQ(allocated(), before);
   EXPECT_EQ(count(traces.texts(), "createCoppPolicerByPortQueue allocation failed for entry: 0"),
             1u);
}

TEST_F(PortQueuePolicer, AMeterFailureLeavesNeitherEntryNorRecord) {
   TraceCapture traces({"NimbalQosSm"}, 4);
   sw().resourcesIs(NimbalHost::SwitchResources{std::nullopt, 0u, std::nullopt});
   Allocated const before = allocated();
   EXPECT_FALSE(helper()->createCoppPolicerByPortQueue(Key(0, 5, 9)));
   EXPECT_EQ(allocated(), before);
   EXPECT_TRUE(chip().entries(0, efpCoppGroup).empty());
   EXPECT_EQ(
       count(traces.texts(), "createCoppPolicerByPortQueue meter allocation failed for entry: " +
                                 std::to_string(Shim::SimChip::firstAutoEntryId)),
       1u);
   // The agent's retry finds room once a meter is free.
   sw().resourcesIs(NimbalHost::SwitchResources{std::nullopt, 10u, std::nullopt});
   EXPECT_TRUE(helper()->createCoppPolicerByPortQueue(Key(0, 5, 9)));
}

TEST_F(PortQueuePolicer, TheDropQueueIsNeverPoliced) {
   EXPECT_DEATH(helper()->createCoppPolicerByPortQueue(Key(0, 5, 0)),
                "Assertion `cpuQ->cpuQId\\(\\) != cpuCosqDrop_'");
}

TEST_F(PortQueuePolicer, OutOfRangeKeysRaiseTheRangeError) {
   Allocated const before = allocated();
   try {
      helper()->createCoppPolicerByPortQueue(Key(0, 1024, 9));
      ADD_FAILURE() << "no range error for port 1024";
   } catch (Kiv::RangeException const& e) {
      EXPECT_STREQ(e.what(),
                   "NimbalPort::logicalPort < 0 or > NimbalPort::defaultPort not allowed");
   }
   // A module the agent knows although its id is out of range.
   sw().scsd()->nimbalModIdIs(65, Nimbal::NimbalModInfo(65, 0, NimbalCentral::ChipInfo(0)));
   try {
      helper()->createCoppPolicerByPortQueue(Key(65, 5, 9));
      ADD_FAILURE() << "no range error for module 65";
   } catch (Kiv::RangeException const& e) {
      EXPECT_STREQ(e.what(), "ModId::value < ModId::min or > ModId::null not allowed");
   }
   EXPECT_EQ(allocated(), before);
}

TEST_F(PortQueuePolicer, DestroyReleasesEntryMeterAndRecord) {
   TraceCapture traces({"NimbalQosSm"}, 4);
   Key const key(0, 5, 9);
   Allocated const before = allocated();
   ASSERT_TRUE(helper()->createCoppPolicerByPortQueue(key));
   U32 const id = helper()->kernelDynamicCoppData(key)->entry();
   U32 const policer = helper()->kernelDynamicCoppData(key)->policerId();
   traces.clear();
   helper()->destroyCoppPolicerByPortQueue(key);
   EXPECT_EQ(allocated(), before);
   EXPECT_EQ(chip().entry(0, static_cast<Shim::bcm_field_entry_t>(id)), nullptr);
   EXPECT_EQ(chip().policer(0, static_cast<Shim::bcm_policer_t>(policer)), nullptr);
   EXPECT_EQ(chip().metersInUse(0, efpCoppGroup), 0u);
   EXPECT_FALSE(entryMgr()->entryHas(0, id));
   std::vector<std::string> const lines = traces.texts();
   ASSERT_FALSE(lines.empty());
   EXPECT_EQ(lines.front(), "QosHelperdestroyCoppPolicerByPortQueue modId: 0 port : 5 queue: 9");
   EXPECT_EQ(count(lines, "QosHelperreleaseCoppPolicer entry : " + std::to_string(id) +
                              " policer: " + std::to_string(policer)),
             1u);
   // Programmed again from scratch.
   EXPECT_TRUE(helper()->createCoppPolicerByPortQueue(key));
   EXPECT_TRUE(helper()->kernelDynamicCoppDataHas(key));
}

TEST_F(PortQueuePolicer, DestroyingANeverProgrammedKeyTouchesOnlyTheVxlanPath) {
   TraceCapture traces({"NimbalQosSm"}, 4);
   sdk().journalDelAll();
   helper()->destroyCoppPolicerByPortQueue(Key(0, 5, 9));
   EXPECT_TRUE(sdk().journal().empty());
   EXPECT_EQ(traces.texts(),
             std::vector<std::string>(
                 {"QosHelperdestroyCoppPolicerByPortQueue modId: 0 port : 5 queue: 9"}));

   NimbalCentral::nimbalAttributes().vxlanCoppSrcPortWorkAroundNeededIs(true);
   traces.clear();
   helper()->destroyCoppPolicerByPortQueue(Key(0, 5, 9));
   EXPECT_TRUE(sdk().journal().empty());
   EXPECT_EQ(traces.texts(),
             std::vector<std::string>(
                 {"QosHelperdestroyCoppPolicerByPortQueue modId: 0 port : 5 queue: 9",
                  "destoryCoppVxlanSrcPortPolicerByPortQueue modId: 0 port : 5 queue: 9"}));
}

TEST_F(PortQueuePolicer, DestroyFoldsTheEntrysHitsIntoTheSoftwareCounter) {
   Key const key(0, 5, 9);
   coppInfoIs(key, 5, 5);
   ASSERT_TRUE(helper()->createCoppPolicerByPortQueue(key));
   double const t = Kiv::activityClock()->now();
   int dropped = 0;
   for (int i = 0; i < 7; ++i) {
      dropped += chip().sendToCpu(0, 5, 9, 0, t).dropped ? 1 : 0;
   }
   EXPECT_EQ(dropped, 2);
   // Another port and another queue are not this entry's.
   chip().sendToCpu(0, 6, 9, 0, t);
   chip().sendToCpu(0, 5, 10, 0, t);
   EXPECT_EQ(helper()->getIntfQueueCoppPolicerPktHits(sw().port(Orvik::IntfId("Ethernet5")), 9),
             7u);
   helper()->destroyCoppPolicerByPortQueue(key);
   EXPECT_EQ(folded("Ethernet5", 9), 7u);

   // A later entry of the same key adds to what the first one counted.
   ASSERT_TRUE(helper()->createCoppPolicerByPortQueue(key));
   EXPECT_EQ(folded("Ethernet5", 9), 7u);
   chip().sendToCpu(0, 5, 9, 0, t + 10.0);
   chip().sendToCpu(0, 5, 9, 0, t + 10.0);
   helper()->destroyCoppPolicerByPortQueue(key);
   EXPECT_EQ(folded("Ethernet5", 9), 9u);
}

// Where the chip needs the VXLAN workaround

class PortQueuePolicerVxlan : public PortQueuePolicer {
  protected:
   NimbalHost::SwitchConfig switchConfig() const override {
      NimbalHost::SwitchConfig config;
      config.vxlanWorkaround = true;
      return config;
   }
};

TEST_F(PortQueuePolicerVxlan, WithVxlanEnabledTheKeyGetsItsVxlanEntryToo) {
   sw().scsd()->vxlanEnabledIs(true);
   Key const key(0, 5, 9);
   coppInfoIs(key, 300, 30);
   ASSERT_TRUE(helper()->createCoppPolicerByPortQueue(key));
   Kiv::Ptr<Nimbal::NimbalQosKernelDynamicCoppData> const vxlan =
       helper()->kernelDynamicCoppVxlanData(key);
   ASSERT_TRUE(vxlan);
   EXPECT_EQ(vxlan->entry(), vxlanBase + 256);
   EXPECT_TRUE(helper()->coppVxlanDynEntryInUse(vxlanBase + 256));
   Shim::FieldEntry const* e =
       chip().entry(0, static_cast<Shim::bcm_field_entry_t>(vxlanBase + 256));
   ASSERT_NE(e, nullptr);
   EXPECT_EQ(e->group, defAndVxlanGroup);
   EXPECT_EQ(chip().policer(0, e->hw.policer[0])->config.ckbits_sec(), 300u);

   // Destroying the key takes both, and the hits of both are kept.
   double const t = Kiv::activityClock()->now();
   chip().sendToCpu(0, 5, 9, 0, t);
   chip().sendToCpu(0, 40, 9, 5, t);
   chip().sendToCpu(0, 40, 9, 5, t);
   helper()->destroyCoppPolicerByPortQueue(key);
   EXPECT_FALSE(helper()->kernelDynamicCoppVxlanDataHas(key));
   EXPECT_EQ(helper()->coppVxlanDynEntryInUse(), 0u);
   EXPECT_EQ(chip().entry(0, static_cast<Shim::bcm_field_entry_t>(vxlanBase + 256)), nullptr);
   EXPECT_EQ(folded("Ethernet5", 9), 3u);
}

TEST_F(PortQueuePolicerVxlan, WithVxlanDisabledNoVxlanEntryIsMade) {
   ASSERT_TRUE(helper()->createCoppPolicerByPortQueue(Key(0, 5, 9)));
   EXPECT_EQ(helper()->kernelDynamicCoppVxlanData(), 0u);
   EXPECT_EQ(helper()->coppVxlanDynEntryInUse(), 0u);
}

TEST_F(PortQueuePolicerVxlan, AFailedVxlanEntryLeavesTheKeyProgrammedAndTheRetryArmed) {
   sw().scsd()->vxlanEnabledIs(true);
   for (U32 i = 0; i < 512; ++i) {
      helper()->coppVxlanDynEntryInUseIs(vxlanBase + 256 + i, true);
   }
   LogCapture logs;
   double const failedAt = Kiv::activityClock()->now();
   Key const key(0, 5, 9);
   EXPECT_TRUE(helper()->createCoppPolicerByPortQueue(key));
   EXPECT_TRUE(helper()->kernelDynamicCoppDataHas(key));
   EXPECT_FALSE(helper()->kernelDynamicCoppVxlanDataHas(key));
   EXPECT_TRUE(helper()->qosIntfCoppSm()->vxlanEntryExhausted());
   EXPECT_EQ(helper()->qosIntfCoppSm()->vxlanEntryRetryTimer()->timeMin(), failedAt + 60.0);
   ASSERT_EQ(logs.messages().size(), 1u);
   EXPECT_EQ(logs.messages()[0].first, "QOS_COPP_HW_RESOURCE_FULL");
   EXPECT_EQ(logs.messages()[0].second,
             "Insufficient egress TCAM resources to program the control plane policer (vxlan) for "
             "class copp-system-arpresolver on Ethernet5.");

   // The retry makes it once there is room.
   for (U32 i = 0; i < 512; ++i) {
      helper()->freeCoppVxlanEntry(vxlanBase + 256 + i);
   }
   Kiv::activityClock()->advance(60.0);
   EXPECT_TRUE(helper()->kernelDynamicCoppVxlanDataHas(key));
   EXPECT_FALSE(helper()->qosIntfCoppSm()->vxlanEntryExhausted());
}

}  // namespace
