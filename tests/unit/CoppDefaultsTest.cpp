#include <gtest/gtest.h>

#include <map>
#include <string>
#include <vector>

#include "NimbalQos/NimbalQosProtectionHelper.h"
#include "Qos/Status.h"
#include "unit/CoppHelperFixture.h"
#include "unit/SwitchFixture.h"

namespace {

using CoppTest::TraceCapture;
using Nimbal::NimbalQosPolicerHwData;
using NimbalHost::Switch;
using Oskel::CoppInfo;
using Oskel::ModIdPortQueueKey;

// Records each key that the kernel CoPP configuration publishes and takes it out again at once,
// so that publishing the same value twice shows as two publications.
class PublicationRecorder : public Kiv::NotifieeBase {
  public:
   explicit PublicationRecorder(Kiv::Ptr<Oskel::KernelCoPPConfig> const& config) : config_(config) {
      notifierBaseIs(config.ptr());
   }
   ~PublicationRecorder() override { notifierBaseIs(nullptr); }

   void onAttribute(Kiv::AttrId attr, Kiv::KeyRef const& key) override {
      if (std::string(attr) != "coppInfo") {
         return;
      }
      auto const k = key.as<ModIdPortQueueKey>();
      if (auto info = config_->coppInfoCol().value(k)) {
         published.emplace_back(k, *info);
         config_->coppInfoDel(k);
      }
   }

   std::vector<std::pair<ModIdPortQueueKey, CoppInfo>> published;

  private:
   Kiv::Ptr<Oskel::KernelCoPPConfig> config_;
};

// What every port gets from the switch's built-in queues: the queues a class holds, not the drop
// queue.
std::map<U32, CoppInfo> builtInDefaults() {
   std::map<U32, CoppInfo> out;
   for (Nimbal::MmuCpuQRow const& row : Nimbal::builtInCpuQTable()) {
      if (!row.classes.empty() && row.id != 0) {
         out[row.id] = CoppInfo(row.rate, row.burst * 2 / 3, row.burst, true);
      }
   }
   return out;
}

class CoppDefaultRates : public SwitchTest::SwitchFixture {
  protected:
   Kiv::Ptr<Oskel::KernelCoPPConfig> kernelCoppConfig() const { return sw().kernelCoppConfig(); }
};

TEST_F(CoppDefaultRates, EveryPortGetsEachAllocatedQueuesDefaultRate) {
   std::map<U32, CoppInfo> const defaults = builtInDefaults();
   ASSERT_EQ(defaults.size(), 39u);
   kernelCoppConfig()->coppInfoDelAll();
   helper()->createDefaultCoppRates();
   EXPECT_EQ(kernelCoppConfig()->coppInfo(), 8 * defaults.size());
   for (U32 port = 1; port <= 8; ++port) {
      for (auto const& [queue, info] : defaults) {
         EXPECT_EQ(kernelCoppConfig()->coppInfoCol().value(ModIdPortQueueKey(0, port, queue)), info)
             << "port " << port << " queue " << queue;
      }
   }
   // Queue 0 drops and the dynamic queues are held by no class yet.
   for (auto const& [key, info] : kernelCoppConfig()->coppInfoCol()) {
      EXPECT_NE(key.queue(), 0u);
      EXPECT_LT(key.queue(), 40u);
   }
}

TEST_F(CoppDefaultRates, TwoThirdsOfTheBurstRoundDown) {
   std::vector<Nimbal::MmuCpuQRow> table = Nimbal::builtInCpuQTable();
   table[1].rate = 7;
   table[1].burst = 1;
   table[2].burst = 5;
   NimbalHost::SwitchConfig config;
   config.cpuQueues = table;
   build(config);
   EXPECT_EQ(kernelCoppConfig()->coppInfoCol().value(ModIdPortQueueKey(0, 3, 1)),
             CoppInfo(7, 0, 1, true));
   EXPECT_EQ(kernelCoppConfig()->coppInfoCol().value(ModIdPortQueueKey(0, 3, 2)),
             CoppInfo(table[2].rate, 3, 5, true));
}

TEST_F(CoppDefaultRates, DynamicQueueIsPublishedOnceAClassHoldsIt) {
   Kiv::Ptr<Qos::PolicyMapStatus> pmap(
       new Qos::PolicyMapStatus(Qos::MapKey(Qos::mapControlPlane_, "copp-system-policy")));
   Kiv::Ptr<Qos::ClassMapStatus> cmap = pmap->cmapStatusIs(Qos::mapControlPlane_, "user-class");
   int const queue = sw().mmuSm()->allocateDynamicCpuQ(pmap, cmap);
   ASSERT_EQ(queue, 40);
   kernelCoppConfig()->coppInfoDelAll();
   helper()->createDefaultCoppRates();
   EXPECT_EQ(kernelCoppConfig()->coppInfo(), 8 * 40u);
   EXPECT_EQ(kernelCoppConfig()->coppInfoCol().value(ModIdPortQueueKey(0, 5, 40)),
             CoppInfo(1000, 66, 100, true));
   EXPECT_FALSE(kernelCoppConfig()->coppInfoHas(ModIdPortQueueKey(0, 5, 41)));
}

TEST_F(CoppDefaultRates, PortsAreWalkedAscendingAcrossBothMapsAndEachOnce) {
   NimbalHost::SwitchConfig config;
   config.interfaces.push_back({"Ethernet30", 0, 30});
   // Fabric3 shares the port of Ethernet3; Fabric20 sits between front-panel ports.
   config.fabricInterfaces = {{"Fabric20", 0, 20}, {"Fabric3", 0, 3}};
   build(config);
   kernelCoppConfig()->coppInfoDelAll();
   PublicationRecorder recorder(kernelCoppConfig());
   helper()->createDefaultCoppRates();

   std::vector<U32> ports;
   std::map<std::pair<U32, U32>, int> publications;
   for (auto const& [key, info] : recorder.published) {
      if (ports.empty() || ports.back() != key.port()) {
         ports.push_back(key.port());
      }
      ++publications[{key.port(), key.queue()}];
   }
   EXPECT_EQ(ports, std::vector<U32>({1, 2, 3, 4, 5, 6, 7, 8, 20, 30}));
   EXPECT_EQ(publications.size(), 10 * builtInDefaults().size());
   for (auto const& [portQueue, count] : publications) {
      EXPECT_EQ(count, 1) << "port " << portQueue.first << " queue " << portQueue.second;
   }
}

TEST_F(CoppDefaultRates, FabricOnlySwitchIsPublished) {
   NimbalHost::SwitchConfig config;
   config.interfaces.clear();
   config.fabricInterfaces = {{"Fabric1", 0, 11}};
   build(config);
   EXPECT_EQ(kernelCoppConfig()->coppInfo(), builtInDefaults().size());
   EXPECT_TRUE(kernelCoppConfig()->coppInfoHas(ModIdPortQueueKey(0, 11, 1)));
}

TEST_F(CoppDefaultRates, KeysCarryTheModuleOfThePort) {
   NimbalHost::SwitchConfig config;
   config.modules.push_back({3, 1});
   config.interfaces = {{"Ethernet1", 0, 1}, {"Ethernet2", 3, 1}};
   build(config);
   EXPECT_TRUE(kernelCoppConfig()->coppInfoHas(ModIdPortQueueKey(0, 1, 5)));
   EXPECT_TRUE(kernelCoppConfig()->coppInfoHas(ModIdPortQueueKey(3, 1, 5)));
   EXPECT_EQ(kernelCoppConfig()->coppInfo(), 2 * builtInDefaults().size());
}

TEST_F(CoppDefaultRates, QueueCountOtherThan48IsAnAssertion) {
   sw().mmuSm()->cpuQColl()->cpuQDel(47);
   EXPECT_DEATH(helper()->createDefaultCoppRates(),
                "Assertion `mmuSm\\(\\)->cpuQColl\\(\\)->cpuQs\\(\\) == 48' failed");
}

// Default policers on a switch whose configured port default rate is 500 pps.
class PortDefaultCoppPolicer : public SwitchTest::SwitchFixture {
  protected:
   NimbalHost::SwitchConfig switchConfig() const override {
      NimbalHost::SwitchConfig config;
      config.portDefaultCoppRate = 500;
      return config;
   }

   static Oskel::QosClassDataKey classKey(std::string const& cmapName) {
      return Oskel::QosClassDataKey("copp-system-policy", Qos::mapControlPlane_, Qos::input_,
                                    cmapName, Qos::mapControlPlane_);
   }
   void classIs(std::string const& intf, std::string const& cmapName, U32 rate) {
      helper()
          ->coppIntfPolicerDataIs(Orvik::IntfId(intf))
          ->policerDataColIs(classKey(cmapName))
          ->policerRateIs(rate);
   }
   void update(std::string const& intf) { helper()->updatePortDefaultCoppPolicer(port(intf)); }
   NimbalQosPolicerHwData record(std::string const& intf) const {
      return helper()->portDefaultCoppPolicerHwData(Orvik::IntfId(intf));
   }
   Shim::bcm_policer_config_s meter(NimbalQosPolicerHwData const& r, int unit = 0) const {
      Shim::Policer const* p = chip().policer(unit, static_cast<int>(r.policerId()));
      EXPECT_NE(p, nullptr);
      return p ? p->config : Shim::bcm_policer_config_s();
   }
   int hwPolicer(NimbalQosPolicerHwData const& r, int unit = 0) const {
      Shim::FieldEntry const* e = chip().entry(unit, static_cast<int>(r.entryId()));
      EXPECT_NE(e, nullptr);
      return e ? e->hw.policer[0] : -1;
   }
   static U32 entryOf(U32 port) { return Switch::efpCoppDefAndVxlanBaseIndex + port; }
};

TEST_F(PortDefaultCoppPolicer, StartUpRecordHoldsTheConfiguredRate) {
   NimbalQosPolicerHwData const r = record("Ethernet1");
   EXPECT_EQ(r.policerRate(), 500u);
   EXPECT_EQ(r.policerBurst(), 50u);
   EXPECT_EQ(r.entryId(), entryOf(1));
}

TEST_F(PortDefaultCoppPolicer, ClassAboveHalfTheDefaultRaisesItToTwiceTheClass) {
   NimbalQosPolicerHwData const before = record("Ethernet1");
   classIs("Ethernet1", "copp-system-bgp", 300);
   sdk().journalDelAll();
   TraceCapture traces({"NimbalQosSm"}, 4);
   update("Ethernet1");

   NimbalQosPolicerHwData const after = record("Ethernet1");
   EXPECT_EQ(after.policerRate(), 600u);
   EXPECT_EQ(after.policerBurst(), 60u);
   EXPECT_EQ(after.entryId(), before.entryId());
   EXPECT_NE(after.policerId(), before.policerId());
   EXPECT_EQ(meter(after).ckbits_sec(), 600u);
   EXPECT_EQ(meter(after).ckbits_burst(), 60u);
   EXPECT_EQ(meter(after).flags(), 0x84u);
   EXPECT_EQ(hwPolicer(after), static_cast<int>(after.policerId()));
   EXPECT_EQ(chip().policer(0, static_cast<int>(before.policerId())), nullptr);
   EXPECT_EQ(traces.texts(),
             std::vector<std::string>({"QosAclHelper::updatePortDefaultCoppPolicerintf: Ethernet1 "
                                       "default policer CIR(pps): 600 BC(packets): 60"}));
   // The swap ran on the port's own default entry in the default-and-VXLAN group.
   std::string const e = std::to_string(entryOf(1));
   EXPECT_EQ(sdk().journalTexts(),
             std::vector<std::string>({
                 "bcm_field_entry_policer_detach(0, " + e + ", 0)",
                 "bcm_field_entry_install(0, " + e + ")",
                 "bcm_policer_destroy(0, " + std::to_string(before.policerId()) + ")",
                 "bcm_policer_create(0, {flags=0x84 mode=1 ckbits_sec=600 ckbits_burst=60 "
                 "pkbits_sec=0 pkbits_burst=0}, &)",
                 "bcm_field_entry_policer_attach(0, " + e + ", 0, " +
                     std::to_string(after.policerId()) + ")",
                 "bcm_field_entry_install(0, " + e + ")",
             }));
   // Other ports keep theirs.
   EXPECT_EQ(record("Ethernet2").policerRate(), 500u);
}

TEST_F(PortDefaultCoppPolicer, ClassAtMostHalfTheDefaultChangesNothing) {
   NimbalQosPolicerHwData const before = record("Ethernet1");
   classIs("Ethernet1", "copp-system-bgp", 250);
   sdk().journalDelAll();
   update("Ethernet1");
   EXPECT_EQ(record("Ethernet1"), before);
   EXPECT_TRUE(sdk().journal().empty());
}

TEST_F(PortDefaultCoppPolicer, LargestClassOfThePortDecides) {
   classIs("Ethernet1", "copp-system-bgp", 300);
   classIs("Ethernet1", "copp-system-ospf", 400);
   classIs("Ethernet1", "copp-system-lldp", 100);
   classIs("Ethernet2", "copp-system-bgp", 900);
   update("Ethernet1");
   EXPECT_EQ(record("Ethernet1").policerRate(), 800u);
   EXPECT_EQ(record("Ethernet1").policerBurst(), 80u);
}

TEST_F(PortDefaultCoppPolicer, RemovingTheLastClassDropsBackToTheConfiguredRate) {
   classIs("Ethernet1", "copp-system-bgp", 300);
   update("Ethernet1");
   ASSERT_EQ(record("Ethernet1").policerRate(), 600u);
   helper()->coppIntfPolicerDataDel("Ethernet1");
   update("Ethernet1");
   NimbalQosPolicerHwData const r = record("Ethernet1");
   EXPECT_EQ(r.policerRate(), 500u);
   EXPECT_EQ(r.policerBurst(), 50u);
   EXPECT_EQ(meter(r).ckbits_sec(), 500u);
   EXPECT_EQ(meter(r).ckbits_burst(), 50u);
   EXPECT_EQ(hwPolicer(r), static_cast<int>(r.policerId()));
}

TEST_F(PortDefaultCoppPolicer, SecondCallWithNothingChangedSwapsNoMeter) {
   classIs("Ethernet1", "copp-system-bgp", 300);
   update("Ethernet1");
   NimbalQosPolicerHwData const first = record("Ethernet1");
   sdk().journalDelAll();
   TraceCapture traces({"NimbalQosSm"}, 4);
   update("Ethernet1");
   EXPECT_EQ(record("Ethernet1"), first);
   EXPECT_TRUE(sdk().journal().empty());
   EXPECT_TRUE(traces.texts().empty());
}

TEST_F(PortDefaultCoppPolicer, NinePpsGivesABurstOfZero) {
   sw().scMiscConfig()->portDefaultCoppRateIs(9);
   update("Ethernet1");
   NimbalQosPolicerHwData const r = record("Ethernet1");
   EXPECT_EQ(r.policerRate(), 9u);
   EXPECT_EQ(r.policerBurst(), 0u);
   EXPECT_EQ(meter(r).ckbits_sec(), 9u);
   EXPECT_EQ(meter(r).ckbits_burst(), 0u);
}

TEST_F(PortDefaultCoppPolicer, ConfiguredRateChangeIsFollowed) {
   sw().scMiscConfig()->portDefaultCoppRateIs(2000);
   classIs("Ethernet1", "copp-system-bgp", 300);
   update("Ethernet1");
   EXPECT_EQ(record("Ethernet1").policerRate(), 2000u);
   EXPECT_EQ(record("Ethernet1").policerBurst(), 200u);
}

TEST_F(PortDefaultCoppPolicer, VxlanDefaultRecordIsSwappedToo) {
   // A VXLAN default entry for Ethernet1, as VXLAN programming makes it.
   U32 const vxlanEntry = Switch::efpCoppDefAndVxlanBaseIndex + 768 + 1;
   Nimbal::StatTypes statTypes;
   statTypes.typeIs(0, sdk().coppStatType(0));
   statTypes.typeIs(1, sdk().coppStatType(1));
   ASSERT_EQ(sw().efpCoppDefAndVxlanEntryMgr()->getEntryWithStats(0, vxlanEntry, "vxlan default",
                                                                  Nimbal::RequestKey(), statTypes),
             vxlanEntry);
   Nimbal::setCoppEntryQual(0, vxlanEntry, 0, 0, 0, 0, 1, 0xFFF);
   U32 const vxlanPolicer = Nimbal::installCoppPolicer(
       0, vxlanEntry, 500, 50, sw().tcamGroupManager(), sw().efpCoppDefAndVxlanEntryMgr());
   helper()->portDefaultCoppPolicerVxlanHwDataIs(
       "Ethernet1", NimbalQosPolicerHwData(500, 50, vxlanEntry, vxlanPolicer));

   classIs("Ethernet1", "copp-system-bgp", 300);
   update("Ethernet1");
   NimbalQosPolicerHwData const v = helper()->portDefaultCoppPolicerVxlanHwData("Ethernet1");
   EXPECT_EQ(v.policerRate(), 600u);
   EXPECT_EQ(v.policerBurst(), 60u);
   EXPECT_EQ(v.entryId(), vxlanEntry);
   EXPECT_NE(v.policerId(), vxlanPolicer);
   EXPECT_NE(v.policerId(), record("Ethernet1").policerId());
   EXPECT_EQ(meter(v).ckbits_sec(), 600u);
   EXPECT_EQ(meter(v).ckbits_burst(), 60u);
   EXPECT_EQ(hwPolicer(v), static_cast<int>(v.policerId()));
   EXPECT_EQ(chip().policer(0, static_cast<int>(vxlanPolicer)), nullptr);
}

TEST_F(PortDefaultCoppPolicer, NoVxlanRecordIsMadeWhereThereWasNone) {
   classIs("Ethernet1", "copp-system-bgp", 300);
   sdk().journalDelAll();
   update("Ethernet1");
   EXPECT_FALSE(helper()->portDefaultCoppPolicerVxlanHwDataHas("Ethernet1"));
   EXPECT_EQ(sdk().journalTexts("bcm_policer_create").size(), 1u);
}

TEST_F(PortDefaultCoppPolicer, PortOnAnotherUnitIsSwappedOnThatUnit) {
   NimbalHost::SwitchConfig config = switchConfig();
   config.modules.push_back({1, 2});
   config.interfaces.push_back({"Ethernet9", 1, 4});
   build(config);
   NimbalQosPolicerHwData const before = record("Ethernet9");
   ASSERT_EQ(before.entryId(), entryOf(4));
   classIs("Ethernet9", "copp-system-bgp", 1000);
   sdk().journalDelAll();
   update("Ethernet9");
   NimbalQosPolicerHwData const after = record("Ethernet9");
   EXPECT_EQ(after.policerRate(), 2000u);
   EXPECT_EQ(meter(after, 2).ckbits_sec(), 2000u);
   EXPECT_EQ(hwPolicer(after, 2), static_cast<int>(after.policerId()));
   for (Shim::SdkCall const& call : sdk().journal()) {
      EXPECT_EQ(call.args.substr(0, 3), "2, ") << call.text();
   }
   EXPECT_FALSE(sdk().journal().empty());
}

}  // namespace
