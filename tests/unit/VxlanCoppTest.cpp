#include <gtest/gtest.h>

#include <algorithm>
#include <map>
#include <regex>
#include <set>
#include <string>
#include <vector>

#include "Kiv/Clock.h"
#include "Kiv/Log.h"
#include "NimbalCentral/ChipInfo.h"
#include "unit/CoppHelperFixture.h"
#include "unit/SwitchFixture.h"

namespace {

using CoppTest::LogCapture;
using CoppTest::TraceCapture;
using Key = Oskel::ModIdPortQueueKey;
using Shim::Qualifier;
using Shim::QualKind;

constexpr U32 base = NimbalHost::Switch::efpCoppDefAndVxlanBaseIndex;
constexpr int efpCoppGroup = static_cast<int>(NimbalHost::Switch::efpCoppGroupId);
constexpr int defAndVxlanGroup = static_cast<int>(NimbalHost::Switch::efpCoppDefAndVxlanGroupId);

std::string fullText(std::string const& what) {
   return "Insufficient egress TCAM resources to program the " + what + ".";
}

std::string normalText(std::string const& what) {
   return what + " is programmed in egress TCAM.";
}

// A chip that recirculates tunnel traffic to the CPU: the helper keeps VXLAN entries on it.
class VxlanCopp : public SwitchTest::SwitchFixture {
  protected:
   NimbalHost::SwitchConfig switchConfig() const override {
      NimbalHost::SwitchConfig config;
      config.vxlanWorkaround = true;
      return config;
   }

   Kiv::Ptr<Nimbal::NimbalCommonSmData> scsd() const { return sw().scsd(); }
   Kiv::Ptr<Nimbal::NimbalBoundedTcamEntryManager> vxlanEntryMgr() const {
      return sw().efpCoppDefAndVxlanEntryMgr();
   }
   Kiv::Ptr<Nimbal::QosIntfCoppSm> machine() const { return helper()->qosIntfCoppSm(); }
   double now() const { return Kiv::activityClock()->now(); }

   // A kernel CoPP key with its configured rate, programmed by the agent's request.
   void kernelKeyIs(Key const& key, U32 rate, U32 burst) {
      sw().kernelCoppConfig()->coppInfoIs(key, Oskel::CoppInfo(rate, burst * 2 / 3, burst, true));
      ASSERT_TRUE(helper()->createCoppPolicerByPortQueue(key));
      ASSERT_TRUE(helper()->kernelDynamicCoppDataHas(key));
   }

   Shim::FieldEntry const* entry(int unit, U32 id) const {
      return chip().entry(unit, static_cast<Shim::bcm_field_entry_t>(id));
   }
   Qualifier hwQual(int unit, U32 id, QualKind kind) const {
      Shim::FieldEntry const* e = entry(unit, id);
      return e ? e->hw.qualifier(kind).value_or(Qualifier{0xDEAD, 0xDEAD}) : Qualifier{0xBAD, 0};
   }
   std::set<U32> vxlanEntries() const {
      std::set<U32> out;
      for (auto const& [key, data] : helper()->kernelDynamicCoppVxlanDataCol()) {
         out.insert(data->entry());
      }
      return out;
   }
   std::vector<std::string> logsOf(LogCapture const& logs, std::string const& key) const {
      std::vector<std::string> out;
      for (auto const& [k, message] : logs.messages()) {
         if (k == key) {
            out.push_back(message);
         }
      }
      return out;
   }
   static std::size_t count(std::vector<std::string> const& lines, std::string const& text) {
      return static_cast<std::size_t>(std::count(lines.begin(), lines.end(), text));
   }
};

TEST_F(VxlanCopp, WithoutTheWorkaroundVxlanChangesProgramNothing) {
   NimbalHost::SwitchConfig config;
   config.vxlanWorkaround = false;
   build(config);
   kernelKeyIs(Key(0, 5, 9), 100, 10);
   sdk().journalDelAll();
   scsd()->vxlanEnabledIs(true);
   helper()->syncCoppVxlanEntries(true);
   scsd()->vxlanEnabledIs(false);
   EXPECT_TRUE(sdk().journal().empty());
   EXPECT_EQ(helper()->portDefaultCoppPolicerVxlanHwData(), 0u);
   EXPECT_EQ(helper()->kernelDynamicCoppVxlanData(), 0u);
   EXPECT_EQ(helper()->coppVxlanDynEntryInUse(), 0u);
   EXPECT_FALSE(machine()->vxlanEntryExhausted());
}

TEST_F(VxlanCopp, EnablingGivesEveryPortADefaultEntryKeyedOnTheInnerVlan) {
   TraceCapture traces({"NimbalQosSm"}, 4);
   scsd()->vxlanEnabledIs(true);
   ASSERT_EQ(helper()->portDefaultCoppPolicerVxlanHwData(), 8u);
   for (U32 p = 1; p <= 8; ++p) {
      Orvik::IntfId const intf("Ethernet" + std::to_string(p));
      Nimbal::NimbalQosPolicerHwData const hw = helper()->portDefaultCoppPolicerVxlanHwData(intf);
      U32 const id = base + 768 + p;
      EXPECT_EQ(hw.policerRate(), 1000u);
      EXPECT_EQ(hw.policerBurst(), 100u);
      EXPECT_EQ(hw.entryId(), id);
      Shim::FieldEntry const* e = entry(0, id);
      ASSERT_NE(e, nullptr) << intf;
      EXPECT_TRUE(e->installed);
      EXPECT_EQ(e->group, defAndVxlanGroup);
      EXPECT_EQ(e->hw.priority, vxlanEntryMgr()->entryPriority());
      EXPECT_EQ(hwQual(0, id, QualKind::InPort), (Qualifier{0, 0}));
      EXPECT_EQ(hwQual(0, id, QualKind::CpuQueue), (Qualifier{0, 0}));
      EXPECT_EQ(hwQual(0, id, QualKind::InnerVlanId), (Qualifier{p, 0xFFF}));
      EXPECT_EQ(hwQual(0, id, QualKind::InterfaceClassPort), (Qualifier{2, 2}));
      EXPECT_TRUE(e->hw.hasAction(Shim::bcmFieldActionRpDrop));
      EXPECT_EQ(static_cast<U32>(e->hw.policer[0]), hw.policerId());
      Shim::Policer const* policer = chip().policer(0, e->hw.policer[0]);
      ASSERT_NE(policer, nullptr);
      EXPECT_EQ(policer->config.ckbits_sec(), 1000u);
      EXPECT_EQ(policer->config.ckbits_burst(), 100u);
      EXPECT_EQ(vxlanEntryMgr()->entryDescription(0, id),
                "Default Copp (vxlan): " + intf.stringValue());
      EXPECT_EQ(chip().stat(0, e->statId)->types(),
                std::vector<int>({Shim::bcmFieldStatPackets, Shim::bcmFieldStatRedPackets}));
   }
   EXPECT_EQ(count(traces.texts(), "syncCoppVxlanDefaultPolicer vxlan enabled: 1"), 1u);
   EXPECT_FALSE(machine()->vxlanEntryExhausted());
}

TEST_F(VxlanCopp, SourcePortAndDefaultEntriesCarryTheirQualifiers) {
   NimbalHost::SwitchConfig config = switchConfig();
   config.modules.push_back(NimbalHost::SwitchModule{7, 1});
   config.interfaces.push_back(NimbalHost::SwitchInterface{"Ethernet21", 7, 5});
   build(config);
   Key const key(7, 5, 9);
   kernelKeyIs(key, 300, 30);
   scsd()->vxlanEnabledIs(true);

   Kiv::Ptr<Nimbal::NimbalQosKernelDynamicCoppData> const vxlan =
       helper()->kernelDynamicCoppVxlanData(key);
   ASSERT_TRUE(vxlan);
   U32 const id = vxlan->entry();
   EXPECT_EQ(id, base + 256);
   Shim::FieldEntry const* e = entry(1, id);
   ASSERT_NE(e, nullptr);
   EXPECT_EQ(entry(0, id), nullptr);
   EXPECT_TRUE(e->installed);
   EXPECT_EQ(e->hw.priority, vxlanEntryMgr()->entryPriority());
   EXPECT_EQ(hwQual(1, id, QualKind::InPort), (Qualifier{0, 0}));
   EXPECT_EQ(hwQual(1, id, QualKind::CpuQueue), (Qualifier{9, 0x3F}));
   EXPECT_EQ(hwQual(1, id, QualKind::InnerVlanId), (Qualifier{5, 0xFFF}));
   EXPECT_EQ(hwQual(1, id, QualKind::InterfaceClassPort), (Qualifier{2, 2}));
   EXPECT_EQ(static_cast<U32>(e->hw.policer[0]), vxlan->policerId());
   Shim::Policer const* policer = chip().policer(1, e->hw.policer[0]);
   ASSERT_NE(policer, nullptr);
   EXPECT_EQ(policer->config.ckbits_sec(), 300u);
   EXPECT_EQ(policer->config.ckbits_burst(), 30u);
   EXPECT_EQ(vxlanEntryMgr()->entryDescription(1, id),
             "Dynamic Kernel Copp (Vxlan) for CoppSystemArpResolver, Ethernet21");

   // The VXLAN default entry of port 5, on each unit that has one.
   for (int unit : {0, 1}) {
      EXPECT_EQ(hwQual(unit, base + 773, QualKind::InPort), (Qualifier{0, 0})) << unit;
      EXPECT_EQ(hwQual(unit, base + 773, QualKind::CpuQueue), (Qualifier{0, 0})) << unit;
      EXPECT_EQ(hwQual(unit, base + 773, QualKind::InnerVlanId), (Qualifier{5, 0xFFF})) << unit;
      EXPECT_EQ(hwQual(unit, base + 773, QualKind::InterfaceClassPort), (Qualifier{2, 2}));
   }
   EXPECT_EQ(helper()->portDefaultCoppPolicerVxlanHwData(Orvik::IntfId("Ethernet21")).entryId(),
             base + 773);
}

TEST_F(VxlanCopp, SynchronisingAgainProgramsNothing) {
   kernelKeyIs(Key(0, 5, 9), 100, 10);
   kernelKeyIs(Key(0, 6, 9), 100, 10);
   scsd()->vxlanEnabledIs(true);
   EXPECT_EQ(helper()->kernelDynamicCoppVxlanData(), 2u);
   sdk().journalDelAll();
   helper()->syncCoppVxlanEntries(false);
   helper()->syncCoppVxlanEntries(true);
   EXPECT_TRUE(sdk().journal().empty());
   EXPECT_EQ(helper()->kernelDynamicCoppVxlanData(), 2u);
   EXPECT_EQ(helper()->coppVxlanDynEntryInUse(), 2u);
}

TEST_F(VxlanCopp, DisablingFreesEveryIndexEntryAndMeter) {
   U32 const entriesBefore = chip().entriesInUse(0, defAndVxlanGroup);
   U32 const metersBefore = chip().metersInUse(0, defAndVxlanGroup);
   std::size_t const policersBefore = chip().policers(0);
   ASSERT_EQ(entriesBefore, 8u);
   for (U32 port : {2, 5, 7}) {
      kernelKeyIs(Key(0, port, 9), 100, 10);
   }
   std::size_t const policersWithKeys = chip().policers(0);
   scsd()->vxlanEnabledIs(true);
   EXPECT_EQ(vxlanEntries(), (std::set<U32>{base + 256, base + 257, base + 258}));
   EXPECT_EQ(chip().entriesInUse(0, defAndVxlanGroup), entriesBefore + 8 + 3);
   EXPECT_EQ(chip().metersInUse(0, defAndVxlanGroup), metersBefore + 8 + 3);
   EXPECT_EQ(chip().policers(0), policersWithKeys + 8 + 3);

   sdk().journalDelAll();
   scsd()->vxlanEnabledIs(false);
   EXPECT_EQ(helper()->coppVxlanDynEntryInUse(), 0u);
   EXPECT_EQ(helper()->kernelDynamicCoppVxlanData(), 0u);
   EXPECT_EQ(helper()->portDefaultCoppPolicerVxlanHwData(), 0u);
   EXPECT_EQ(chip().entriesInUse(0, defAndVxlanGroup), entriesBefore);
   EXPECT_EQ(chip().metersInUse(0, defAndVxlanGroup), metersBefore);
   EXPECT_EQ(chip().policers(0), policersWithKeys);
   for (Shim::bcm_field_entry_t id : chip().entries(0, defAndVxlanGroup)) {
      EXPECT_LT(static_cast<U32>(id), base + 256);
   }
   // The port-keyed entries stay; the default entries go before the source-port ones.
   EXPECT_EQ(helper()->kernelDynamicCoppData(), 3u);
   std::vector<std::string> const removes = sdk().journalTexts("bcm_field_entry_remove");
   ASSERT_EQ(removes.size(), 11u);
   for (std::size_t i = 0; i < removes.size(); ++i) {
      std::smatch m;
      ASSERT_TRUE(
          std::regex_match(removes[i], m, std::regex(R"(bcm_field_entry_remove\(0, (\d+)\))")));
      U32 const id = static_cast<U32>(std::stoul(m[1]));
      EXPECT_EQ(id >= base + 768, i < 8) << removes[i];
   }
   EXPECT_EQ(chip().policers(0), policersBefore + 3);

   scsd()->vxlanEnabledIs(true);
   EXPECT_EQ(vxlanEntries(), (std::set<U32>{base + 256, base + 257, base + 258}));
}

TEST_F(VxlanCopp, AMissingDefaultMeterStopsThePassBeforeTheSourcePortEntries) {
   TraceCapture traces({"NimbalQosSm"}, 4);
   LogCapture logs;
   kernelKeyIs(Key(0, 5, 9), 100, 10);
   // Only the per-port default entries find a meter.
   sw().resourcesIs(NimbalHost::SwitchResources{std::nullopt, std::nullopt, 8});
   double const failedAt = now();
   scsd()->vxlanEnabledIs(true);

   std::vector<std::string> const failures = logsOf(logs, "QOS_COPP_HW_RESOURCE_FULL");
   ASSERT_EQ(failures.size(), 1u);
   std::smatch m;
   std::string const failure = failures[0];
   ASSERT_TRUE(std::regex_match(
       failure, m,
       std::regex("Insufficient egress TCAM resources to program the default control plane "
                  "policer \\(vxlan\\) on (Ethernet[1-8])\\.")));
   std::string const intf = m[1];
   EXPECT_EQ(
       count(traces.texts(),
             "syncCoppVxlanDefaultPolicer allocation failed for port default (vxlan): " + intf),
       1u);
   EXPECT_FALSE(helper()->portDefaultCoppPolicerVxlanHwDataHas(Orvik::IntfId(intf)));
   U32 const port = sw().port(Orvik::IntfId(intf)).logicalPort();
   EXPECT_EQ(entry(0, base + 768 + port), nullptr);
   EXPECT_EQ(chip().metersInUse(0, defAndVxlanGroup), 8u);
   EXPECT_EQ(helper()->kernelDynamicCoppVxlanData(), 0u);
   EXPECT_EQ(helper()->coppVxlanDynEntryInUse(), 0u);
   EXPECT_TRUE(machine()->vxlanEntryExhausted());
   EXPECT_EQ(machine()->vxlanEntryRetryTimer()->timeMin(), failedAt + 60.0);
}

TEST_F(VxlanCopp, AMissingDefaultEntryIsReportedAlike) {
   LogCapture logs;
   U32 const inUse = chip().entriesInUse(0, defAndVxlanGroup);
   chip().entryPoolSizeIs(0, defAndVxlanGroup, inUse + 3);
   scsd()->vxlanEnabledIs(true);
   EXPECT_EQ(helper()->portDefaultCoppPolicerVxlanHwData(), 3u);
   ASSERT_EQ(logsOf(logs, "QOS_COPP_HW_RESOURCE_FULL").size(), 1u);
   EXPECT_EQ(chip().entriesInUse(0, defAndVxlanGroup), inUse + 3);
   EXPECT_TRUE(machine()->vxlanEntryExhausted());
}

TEST_F(VxlanCopp, TheRetryPassReportsWhatItNowProgrammed) {
   kernelKeyIs(Key(0, 5, 9), 100, 10);
   sw().resourcesIs(NimbalHost::SwitchResources{std::nullopt, std::nullopt, 8});
   scsd()->vxlanEnabledIs(true);
   ASSERT_TRUE(machine()->vxlanEntryExhausted());

   LogCapture logs;
   sw().resourcesIs(NimbalHost::SwitchResources{std::nullopt, std::nullopt, 100});
   Kiv::activityClock()->advance(60.0);
   EXPECT_FALSE(machine()->vxlanEntryExhausted());
   EXPECT_EQ(machine()->vxlanEntryRetryTimer()->timeMin(), Kiv::never);
   EXPECT_TRUE(logsOf(logs, "QOS_COPP_HW_RESOURCE_FULL").empty());
   std::vector<std::string> normal = logsOf(logs, "QOS_COPP_HW_RESOURCE_NORMAL");
   std::sort(normal.begin(), normal.end());
   std::vector<std::string> expected;
   for (int p = 1; p <= 8; ++p) {
      expected.push_back(
          normalText("default control plane policer (vxlan) on Ethernet" + std::to_string(p)));
   }
   // The source-port entry is reported with the default text.
   expected.push_back(normalText("default control plane policer (vxlan) on Ethernet5"));
   std::sort(expected.begin(), expected.end());
   EXPECT_EQ(normal, expected);
   EXPECT_EQ(helper()->kernelDynamicCoppVxlanData(), 1u);
}

TEST_F(VxlanCopp, SixHundredKeysFillThePoolAndTheRestIsRetriedWhenRoomComesBack) {
   NimbalHost::SwitchConfig config = switchConfig();
   config.interfaces.clear();
   for (U16 p = 1; p <= 13; ++p) {
      config.interfaces.push_back(
          NimbalHost::SwitchInterface{"Ethernet" + std::to_string(p), 0, p});
   }
   build(config);
   std::vector<Key> keys;
   for (U32 p = 1; p <= 13 && keys.size() < 600; ++p) {
      for (U32 q = 1; q <= 47 && keys.size() < 600; ++q) {
         keys.emplace_back(0, p, q);
      }
   }
   for (Key const& key : keys) {
      kernelKeyIs(key, 100, 10);
   }
   ASSERT_EQ(helper()->kernelDynamicCoppData(), 600u);

   TraceCapture traces({"NimbalQosSm"}, 4);
   LogCapture logs;
   double const firstFailure = now();
   scsd()->vxlanEnabledIs(true);

   EXPECT_EQ(helper()->portDefaultCoppPolicerVxlanHwData(), 13u);
   EXPECT_EQ(helper()->kernelDynamicCoppVxlanData(), 512u);
   EXPECT_EQ(helper()->coppVxlanDynEntryInUse(), 512u);
   std::vector<Key> missing;
   for (Key const& key : keys) {
      if (!helper()->kernelDynamicCoppVxlanDataHas(key)) {
         missing.push_back(key);
      }
   }
   ASSERT_EQ(missing.size(), 88u);
   auto className = [this](Key const& key) { return helper()->cpuQIdToClassMapName(key.queue()); };
   auto intfName = [](Key const& key) { return "Ethernet" + std::to_string(key.port()); };
   std::multiset<std::string> expectedFull;
   std::multiset<std::string> expectedNormal;
   for (Key const& key : missing) {
      expectedFull.insert(fullText("control plane policer (vxlan) for class " + className(key) +
                                   " on " + intfName(key)));
      expectedNormal.insert(
          normalText("default control plane policer (vxlan) on " + intfName(key)));
   }
   std::vector<std::string> const full = logsOf(logs, "QOS_COPP_HW_RESOURCE_FULL");
   EXPECT_EQ(std::multiset<std::string>(full.begin(), full.end()), expectedFull);
   EXPECT_EQ(
       count(traces.texts(),
             "createCoppVxlanSrcPortPolicerByPortQueue allocation failed for entry: 4294967295"),
       88u);
   EXPECT_TRUE(machine()->vxlanEntryExhausted());
   EXPECT_EQ(count(traces.texts(), "QosIntfCoppSm::handleVxlanEntryExhausted entry exhausted: 1"),
             1u);
   EXPECT_EQ(machine()->vxlanEntryRetryTimer()->timeMin(), firstFailure + 60.0);

   // Room comes back: 88 keys that have VXLAN entries go.
   std::vector<Key> programmed;
   for (Key const& key : keys) {
      if (helper()->kernelDynamicCoppVxlanDataHas(key) && programmed.size() < 88) {
         programmed.push_back(key);
      }
   }
   for (Key const& key : programmed) {
      helper()->destroyCoppPolicerByPortQueue(key);
   }
   EXPECT_EQ(helper()->coppVxlanDynEntryInUse(), 424u);
   Kiv::activityClock()->advance(59.0);
   EXPECT_TRUE(machine()->vxlanEntryExhausted());
   LogCapture retryLogs;
   Kiv::activityClock()->advance(1.0);
   std::vector<std::string> const normal = logsOf(retryLogs, "QOS_COPP_HW_RESOURCE_NORMAL");
   EXPECT_EQ(std::multiset<std::string>(normal.begin(), normal.end()), expectedNormal);
   EXPECT_TRUE(logsOf(retryLogs, "QOS_COPP_HW_RESOURCE_FULL").empty());
   EXPECT_FALSE(machine()->vxlanEntryExhausted());
   EXPECT_EQ(machine()->vxlanEntryRetryTimer()->timeMin(), Kiv::never);
   EXPECT_EQ(helper()->kernelDynamicCoppVxlanData(), 512u);
   for (Key const& key : missing) {
      EXPECT_TRUE(helper()->kernelDynamicCoppVxlanDataHas(key)) << key;
   }
}

TEST_F(VxlanCopp, AFullPoolFailsTheSourcePortEntry) {
   TraceCapture traces({"NimbalQosSm"}, 4);
   scsd()->vxlanEnabledIs(true);
   for (U32 i = 0; i < 512; ++i) {
      helper()->coppVxlanDynEntryInUseIs(base + 256 + i, true);
   }
   sdk().journalDelAll();
   EXPECT_FALSE(helper()->createCoppVxlanSrcPortPolicerByPortQueue(Key(0, 5, 9)));
   EXPECT_EQ(
       count(traces.texts(),
             "createCoppVxlanSrcPortPolicerByPortQueue allocation failed for entry: 4294967295"),
       1u);
   EXPECT_TRUE(sdk().journal().empty());
   EXPECT_EQ(helper()->coppVxlanDynEntryInUse(), 512u);
}

TEST_F(VxlanCopp, AMissingEntryReturnsThePoolIndex) {
   TraceCapture traces({"NimbalQosSm"}, 4);
   scsd()->vxlanEnabledIs(true);
   chip().entryPoolSizeIs(0, defAndVxlanGroup, chip().entriesInUse(0, defAndVxlanGroup));
   EXPECT_FALSE(helper()->createCoppVxlanSrcPortPolicerByPortQueue(Key(0, 5, 9)));
   EXPECT_EQ(count(traces.texts(),
                   "createCoppVxlanSrcPortPolicerByPortQueue allocation failed "
                   "for entry: " +
                       std::to_string(base + 256)),
             1u);
   EXPECT_EQ(helper()->coppVxlanDynEntryInUse(), 0u);
   EXPECT_FALSE(helper()->kernelDynamicCoppVxlanDataHas(Key(0, 5, 9)));
}

TEST_F(VxlanCopp, AMissingMeterReturnsTheEntryAndThePoolIndex) {
   TraceCapture traces({"NimbalQosSm"}, 4);
   scsd()->vxlanEnabledIs(true);
   sw().resourcesIs(NimbalHost::SwitchResources{std::nullopt, std::nullopt,
                                                chip().metersInUse(0, defAndVxlanGroup)});
   std::size_t const policers = chip().policers(0);
   U32 const entries = chip().entriesInUse(0, defAndVxlanGroup);
   EXPECT_FALSE(helper()->createCoppVxlanSrcPortPolicerByPortQueue(Key(0, 5, 9)));
   EXPECT_EQ(count(traces.texts(),
                   "createCoppVxlanSrcPortPolicerByPortQueue meters allocation "
                   "failed for entry: " +
                       std::to_string(base + 256)),
             1u);
   EXPECT_EQ(entry(0, base + 256), nullptr);
   EXPECT_EQ(chip().entriesInUse(0, defAndVxlanGroup), entries);
   EXPECT_EQ(chip().policers(0), policers);
   EXPECT_EQ(helper()->coppVxlanDynEntryInUse(), 0u);
   EXPECT_FALSE(helper()->kernelDynamicCoppVxlanDataHas(Key(0, 5, 9)));
}

TEST_F(VxlanCopp, DestroyingASourcePortEntryReleasesItAll) {
   TraceCapture traces({"NimbalQosSm"}, 4);
   Key const key(0, 5, 9);
   kernelKeyIs(key, 100, 10);
   scsd()->vxlanEnabledIs(true);
   U32 const id = helper()->kernelDynamicCoppVxlanData(key)->entry();
   U32 const policer = helper()->kernelDynamicCoppVxlanData(key)->policerId();
   traces.clear();
   helper()->destoryCoppVxlanSrcPortPolicerByPortQueue(key);
   EXPECT_EQ(traces.texts().front(),
             "destoryCoppVxlanSrcPortPolicerByPortQueue modId: 0 port : 5 queue: 9");
   EXPECT_EQ(entry(0, id), nullptr);
   EXPECT_EQ(chip().policer(0, static_cast<Shim::bcm_policer_t>(policer)), nullptr);
   EXPECT_FALSE(helper()->kernelDynamicCoppVxlanDataHas(key));
   EXPECT_EQ(helper()->coppVxlanDynEntryInUse(), 0u);
   // The port-keyed entry is not this operation's.
   EXPECT_TRUE(helper()->kernelDynamicCoppDataHas(key));

   sdk().journalDelAll();
   traces.clear();
   helper()->destoryCoppVxlanSrcPortPolicerByPortQueue(key);
   EXPECT_EQ(traces.texts(),
             std::vector<std::string>(
                 {"destoryCoppVxlanSrcPortPolicerByPortQueue modId: 0 port : 5 queue: 9"}));
   EXPECT_TRUE(sdk().journal().empty());
}

TEST_F(VxlanCopp, RecirculationNarrowsThePortDefaultEntryToTheDropQueue) {
   TraceCapture traces({"ApiNimbal", "NimbalQosSm"}, 4);
   U32 const id = sw().defaultEntry(Orvik::IntfId("Ethernet3"));
   ASSERT_EQ(id, base + 3);
   scsd()->vxlanRecircIntfIs(Orvik::IntfId("Ethernet3"), true);
   EXPECT_EQ(hwQual(0, id, QualKind::CpuQueue), (Qualifier{0, 0x3F}));
   EXPECT_EQ(hwQual(0, id, QualKind::InPort), (Qualifier{3, 0xFFFFFFFF}));
   EXPECT_EQ(sdk().journalTexts("bcm_field_qualify_CpuQueue").back(),
             "bcm_field_qualify_CpuQueue(0, " + std::to_string(id) + ", 0x0, 0x3f)");
   // The qualifier is made with the activity lock released, then the entry is installed again.
   auto const& journal = sdk().journal();
   auto const qualify = std::find_if(journal.rbegin(), journal.rend(), [](Shim::SdkCall const& c) {
      return c.name == "bcm_field_qualify_CpuQueue";
   });
   ASSERT_NE(qualify, journal.rend());
   EXPECT_FALSE(qualify->lockHeld);
   EXPECT_TRUE(qualify->afterPreCall);
   EXPECT_EQ(journal.back().text(), "bcm_field_entry_install(0, " + std::to_string(id) + ")");
   std::vector<std::string> api;
   for (auto const& line : traces.lines()) {
      if (line.handle == "ApiNimbal") {
         api.push_back(line.text);
      }
   }
   ASSERT_EQ(api.size(), 1u);
   EXPECT_TRUE(std::regex_match(
       api[0], std::regex(R"(NimbalQos/NimbalQosCoppVxlan\.cpp:\d+ bcm_field_qualify_CpuQueue\( )"
                          R"(sp\.unit\(\), entry, cpuCosqDrop_, mask \) \(rc:0\))")))
       << api[0];
   EXPECT_EQ(
       count(traces.texts(), "updateIntfCoppOnVxlanRecircIntfEnabled intf: Ethernet3 enabled: 1"),
       1u);

   scsd()->vxlanRecircIntfIs(Orvik::IntfId("Ethernet3"), false);
   EXPECT_EQ(hwQual(0, id, QualKind::CpuQueue), (Qualifier{0, 0}));
   scsd()->vxlanRecircIntfIs(Orvik::IntfId("Ethernet3"), true);
   EXPECT_EQ(hwQual(0, id, QualKind::CpuQueue), (Qualifier{0, 0x3F}));
   scsd()->vxlanRecircIntfDel(Orvik::IntfId("Ethernet3"));
   EXPECT_EQ(hwQual(0, id, QualKind::CpuQueue), (Qualifier{0, 0}));
   // The meter stays on the entry through all of it.
   EXPECT_EQ(static_cast<U32>(entry(0, id)->hw.policer[0]),
             helper()->portDefaultCoppPolicerHwData(Orvik::IntfId("Ethernet3")).policerId());
}

TEST_F(VxlanCopp, RecirculationIsFollowedWithoutTheWorkaroundToo) {
   NimbalHost::SwitchConfig config;
   build(config);
   scsd()->vxlanRecircIntfIs(Orvik::IntfId("Ethernet2"), true);
   EXPECT_EQ(hwQual(0, base + 2, QualKind::CpuQueue), (Qualifier{0, 0x3F}));
}

TEST_F(VxlanCopp, TunnelTrafficIsPolicedByTheVxlanEntriesOfItsSourcePort) {
   NimbalHost::SwitchConfig config = switchConfig();
   config.interfaces.push_back(NimbalHost::SwitchInterface{"Recirc1", 0, 20});
   build(config);
   Key const key(0, 5, 9);
   kernelKeyIs(key, 10, 10);
   scsd()->vxlanEnabledIs(true);
   U32 const srcPortEntry = helper()->kernelDynamicCoppVxlanData(key)->entry();
   U32 const recircDefault = sw().defaultEntry(Orvik::IntfId("Recirc1"));
   double const t = now();

   auto winnerIn = [](Shim::PacketResult const& r, int group) -> U32 {
      for (auto const& m : r.matches) {
         if (m.group == group) {
            return static_cast<U32>(m.entry);
         }
      }
      return 0;
   };
   // Before the recirculation port is narrowed, its own default entry takes the traffic.
   EXPECT_EQ(winnerIn(chip().sendToCpu(0, 20, 9, 5, t), defAndVxlanGroup), recircDefault);

   scsd()->vxlanRecircIntfIs(Orvik::IntfId("Recirc1"), true);
   U64 const hitsBefore = vxlanEntryMgr()->hitsForEntry(0, srcPortEntry);
   int dropped = 0;
   for (int i = 0; i < 30; ++i) {
      Shim::PacketResult const r = chip().sendToCpu(0, 20, 9, 5, t);
      EXPECT_EQ(winnerIn(r, defAndVxlanGroup), srcPortEntry);
      // The port-keyed entry sees the recirculation port, not the source port.
      EXPECT_EQ(winnerIn(r, efpCoppGroup), 0u);
      dropped += r.dropped ? 1 : 0;
   }
   EXPECT_EQ(dropped, 20);
   EXPECT_EQ(vxlanEntryMgr()->hitsForEntry(0, srcPortEntry), hitsBefore + 30);
   EXPECT_EQ(helper()->getIntfQueueCoppPolicerPktHits(sw().port(Orvik::IntfId("Ethernet5")), 9),
             hitsBefore + 30);
   // Another queue of the same source port falls to the port's VXLAN default entry.
   EXPECT_EQ(winnerIn(chip().sendToCpu(0, 20, 4, 5, t), defAndVxlanGroup), base + 773);
   // Traffic of the drop queue still meets the recirculation port's own entry.
   EXPECT_EQ(winnerIn(chip().sendToCpu(0, 20, 0, 5, t), defAndVxlanGroup), recircDefault);

   scsd()->vxlanRecircIntfIs(Orvik::IntfId("Recirc1"), false);
   EXPECT_EQ(winnerIn(chip().sendToCpu(0, 20, 9, 5, t), defAndVxlanGroup), recircDefault);
}

// Broken invariants end the agent

TEST_F(VxlanCopp, SourcePortEntriesNeedTheWorkaround) {
   scsd()->vxlanEnabledIs(true);
   EXPECT_DEATH(
       {
          NimbalCentral::nimbalAttributes().vxlanCoppSrcPortWorkAroundNeededIs(false);
          helper()->createCoppVxlanSrcPortPolicerByPortQueue(Key(0, 5, 9));
       },
       "Assertion `vxlanCoppSrcPortWorkAroundNeeded\\(\\)'");
   EXPECT_DEATH(
       {
          NimbalCentral::nimbalAttributes().vxlanCoppSrcPortWorkAroundNeededIs(false);
          helper()->destoryCoppVxlanSrcPortPolicerByPortQueue(Key(0, 5, 9));
       },
       "Assertion `vxlanCoppSrcPortWorkAroundNeeded\\(\\)'");
   EXPECT_DEATH(
       {
          NimbalCentral::nimbalAttributes().vxlanCoppSrcPortWorkAroundNeededIs(false);
          helper()->syncCoppVxlanDefaultPolicer(false);
       },
       "Assertion `vxlanCoppSrcPortWorkAroundNeeded\\(\\)'");
}

TEST_F(VxlanCopp, SourcePortEntriesNeedVxlanEnabled) {
   EXPECT_DEATH(helper()->createCoppVxlanSrcPortPolicerByPortQueue(Key(0, 5, 9)),
                "Assertion `scsd\\(\\)->vxlanEnabled\\(\\)'");
}

TEST_F(VxlanCopp, AVxlanRecordWithoutItsKernelRecordEndsTheSynchronisation) {
   helper()->kernelDynamicCoppVxlanDataIs(Key(0, 5, 9));
   EXPECT_DEATH(helper()->syncCoppVxlanEntries(false),
                "Assertion `kernelDynamicCoppDataHas\\( cDataIter.key\\(\\) \\)'");
}

TEST_F(VxlanCopp, RecirculationNeedsThePortDefaultRecordAndAPort) {
   EXPECT_DEATH(helper()->updateIntfCoppOnVxlanRecircIntfEnabled(Orvik::IntfId("Ethernet99"), true),
                "Assertion `!!coppData'");
   helper()->portDefaultCoppPolicerHwDataIs(Orvik::IntfId("Ghost1"),
                                            Nimbal::NimbalQosPolicerHwData(1000, 100, base + 9, 1));
   EXPECT_DEATH(helper()->updateIntfCoppOnVxlanRecircIntfEnabled(Orvik::IntfId("Ghost1"), true),
                "Assertion `!!sp'");
}

TEST_F(VxlanCopp, AFailingCpuQueueQualifierEndsTheAgent) {
   EXPECT_DEATH(
       {
          sdk().failNextCallIs("bcm_field_qualify_CpuQueue", -4);
          helper()->updateIntfCoppOnVxlanRecircIntfEnabled(Orvik::IntfId("Ethernet3"), true);
       },
       "NimbalQos/NimbalQosCoppVxlan\\.cpp:[0-9]+ bcm_field_qualify_CpuQueue\\( sp\\.unit\\(\\), "
       "entry, cpuCosqDrop_, mask \\) API ERROR:Invalid parameter \\(-4\\)\n.*Assertion `0'");
}

}  // namespace
