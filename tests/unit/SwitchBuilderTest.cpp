#include <gtest/gtest.h>

#include <stdexcept>
#include <string>
#include <vector>

#include "Kiv/Type.h"
#include "NimbalCentral/ChipInfo.h"
#include "unit/SwitchFixture.h"

namespace {

using NimbalHost::Switch;
using NimbalHost::SwitchConfig;
using NimbalTypes::NimbalPort;
using Shim::Qualifier;
using Shim::QualKind;

class SwitchBuilder : public SwitchTest::SwitchFixture {
  protected:
   Shim::FieldEntry const* entry(int unit, U32 id) const {
      return chip().entry(unit, static_cast<int>(id));
   }
   static U32 defaultEntryOf(U32 port) { return Switch::efpCoppDefAndVxlanBaseIndex + port; }
};

TEST_F(SwitchBuilder, DefaultSwitchHasEightInterfacesOnModuleZero) {
   auto const scsd = sw().scsd();
   EXPECT_EQ(scsd->nimbalIntfToPort(), 8u);
   EXPECT_EQ(scsd->nimbalPortToIntf(), 8u);
   EXPECT_EQ(scsd->nimbalFabricIntfToPort(), 0u);
   EXPECT_EQ(scsd->nimbalFabricPortToIntf(), 0u);
   for (U16 p = 1; p <= 8; ++p) {
      Orvik::IntfId const intf("Ethernet" + std::to_string(p));
      EXPECT_EQ(scsd->nimbalIntfToPortCol().value(intf), NimbalPort(0, 0, p));
      EXPECT_EQ(scsd->nimbalPortToIntfCol().value(NimbalPort(0, 0, p)), intf);
   }
   EXPECT_EQ(scsd->nimbalModIdToUnitCol().value(0), U16{0});
   EXPECT_EQ(scsd->nimbalModIdCol().value(0),
             Nimbal::NimbalModInfo(0, 0, NimbalCentral::ChipInfo(0)));
   EXPECT_EQ(chip().units(), std::vector<int>({0}));
   EXPECT_EQ(chip().portBitmap(0), Shim::pbmpOf({1, 2, 3, 4, 5, 6, 7, 8}));
   EXPECT_EQ(sw().mmuSm()->cpuQColl()->cpuQs(), 48u);
   EXPECT_EQ(sw().scMiscConfig()->portDefaultCoppRate(), 1000u);
   EXPECT_FALSE(NimbalCentral::nimbalAttributes().vxlanCoppSrcPortWorkAroundNeeded());
   EXPECT_EQ(sw().unit(), 0u);
}

TEST_F(SwitchBuilder, HelperComesFromTheLibraryFileWithItsManagersAndStateMachine) {
   EXPECT_TRUE(sw().helperFromLibraryFile());
   ASSERT_TRUE(helper());
   EXPECT_EQ(helper()->fwkType()->fullName(), "Nimbal::QosAclHelperV1");
   EXPECT_EQ(helper()->efpCoppEntryMgr(), sw().efpCoppEntryMgr());
   EXPECT_EQ(helper()->efpCoppDefAndVxlanEntryMgr(), sw().efpCoppDefAndVxlanEntryMgr());
   EXPECT_EQ(sw().efpCoppEntryMgr()->groupId(), Switch::efpCoppGroupId);
   EXPECT_EQ(sw().efpCoppDefAndVxlanEntryMgr()->groupId(), Switch::efpCoppDefAndVxlanGroupId);
   EXPECT_EQ(sw().efpCoppDefAndVxlanEntryMgr()->baseIndex(), Switch::efpCoppDefAndVxlanBaseIndex);
   // Bound to the group manager, so that its install errors can be handed back.
   EXPECT_EQ(sw().efpCoppEntryMgr()->groupManager(), sw().tcamGroupManager().ptr());
   EXPECT_EQ(sw().efpCoppDefAndVxlanEntryMgr()->groupManager(), sw().tcamGroupManager().ptr());
   // hwInit ran: the ingress CoPP managers are bound.
   EXPECT_EQ(helper()->policyCoppIpEntryMgr(), sw().coppIpEntryMgr());
   EXPECT_EQ(helper()->policyCoppIp6EntryMgr(), sw().coppIp6EntryMgr());
   EXPECT_EQ(sw().coppIpEntryMgr()->groupId(), 34u);
   EXPECT_EQ(sw().coppIp6EntryMgr()->groupId(), 38u);
   ASSERT_TRUE(helper()->qosIntfCoppSm());
   EXPECT_EQ(helper()->qosIntfCoppSm()->scsd(), sw().scsd());
   EXPECT_EQ(helper()->qosIntfCoppSm()->qosAclHelper(), helper().ptr());
   EXPECT_EQ(helper()->kernelCoppConfig(), sw().kernelCoppConfig());
   EXPECT_EQ(helper()->scsd(), sw().scsd());
   EXPECT_EQ(helper()->mmuSm(), sw().mmuSm());
   EXPECT_EQ(helper()->pktDrv(), sw().pktDrv());
}

TEST_F(SwitchBuilder, EveryPortHasAMeteredDefaultEntryOnTheExactSourcePort) {
   for (U32 p = 1; p <= 8; ++p) {
      Orvik::IntfId const intf("Ethernet" + std::to_string(p));
      Nimbal::NimbalQosPolicerHwData const record = helper()->portDefaultCoppPolicerHwData(intf);
      EXPECT_EQ(record.policerRate(), 1000u);
      EXPECT_EQ(record.policerBurst(), 100u);
      EXPECT_EQ(record.entryId(), defaultEntryOf(p));
      EXPECT_EQ(sw().defaultEntry(intf), defaultEntryOf(p));

      Shim::FieldEntry const* e = entry(0, defaultEntryOf(p));
      ASSERT_NE(e, nullptr) << intf;
      EXPECT_EQ(e->group, static_cast<int>(Switch::efpCoppDefAndVxlanGroupId));
      EXPECT_TRUE(e->installed);
      EXPECT_EQ(e->hw.qualifier(QualKind::InPort), (Qualifier{p, 0xFFFFFFFF}));
      EXPECT_EQ(e->hw.qualifier(QualKind::CpuQueue), (Qualifier{0, 0}));
      EXPECT_EQ(e->hw.qualifier(QualKind::InnerVlanId), (Qualifier{0, 0}));
      EXPECT_EQ(e->hw.qualifier(QualKind::InterfaceClassPort), (Qualifier{2, 2}));
      ASSERT_TRUE(e->hw.hasAction(Shim::bcmFieldActionRpDrop));
      EXPECT_EQ(e->hw.action(Shim::bcmFieldActionRpDrop), std::optional(Shim::ActionParams{0, 0}));
      EXPECT_EQ(e->hw.priority, sw().efpCoppDefAndVxlanEntryMgr()->entryPriority());
      EXPECT_EQ(e->hw.policer[0], static_cast<int>(record.policerId()));

      Shim::Policer const* pol = chip().policer(0, static_cast<int>(record.policerId()));
      ASSERT_NE(pol, nullptr);
      EXPECT_EQ(pol->config.flags(), 0x84u);
      EXPECT_EQ(pol->config.mode(), static_cast<U32>(Shim::bcmPolicerModeCommitted));
      EXPECT_EQ(pol->config.ckbits_sec(), 1000u);
      EXPECT_EQ(pol->config.ckbits_burst(), 100u);
      EXPECT_EQ(pol->config.pkbits_sec(), 0u);
      EXPECT_EQ(pol->config.pkbits_burst(), 0u);

      Shim::FieldStat const* stat = chip().stat(0, e->statId);
      ASSERT_NE(stat, nullptr);
      EXPECT_EQ(stat->types(),
                std::vector<int>({Shim::bcmFieldStatPackets, Shim::bcmFieldStatRedPackets}));
   }
   EXPECT_EQ(helper()->portDefaultCoppPolicerHwData(), 8u);
   EXPECT_EQ(chip().metersInUse(0, Switch::efpCoppDefAndVxlanGroupId), 8u);
   EXPECT_TRUE(sw().interfacesWithoutDefaultPolicer().empty());
}

TEST_F(SwitchBuilder, DefaultEntryIsMadeWithTheLibrarysPrimitives) {
   build(SwitchConfig());
   std::string const e = std::to_string(defaultEntryOf(1));
   std::vector<std::string> calls;
   for (Shim::SdkCall const& call : sdk().journal()) {
      bool const onEntry = call.args.rfind("0, " + e + ",", 0) == 0 || call.args == "0, " + e;
      bool const creates =
          call.args == "0, " + std::to_string(Switch::efpCoppDefAndVxlanGroupId) + ", " + e;
      if (onEntry || creates) {
         calls.push_back(call.name);
      }
   }
   EXPECT_EQ(calls, std::vector<std::string>({
                        "bcm_field_entry_create_id",
                        "bcm_field_entry_stat_attach",
                        "bcm_field_entry_prio_set",
                        "bcm_field_qualify_InPort",
                        "bcm_field_qualify_CpuQueue",
                        "bcm_field_qualify_InnerVlanId",
                        "bcm_field_qualify_InterfaceClassPort",
                        "bcm_field_entry_policer_attach",
                        "bcm_field_action_add",
                        "bcm_field_entry_install",
                    }));
   // Made by the library: its direct calls release the lock the event loop holds.
   for (Shim::SdkCall const& call : sdk().journal()) {
      if (call.name == "bcm_field_qualify_InPort") {
         EXPECT_FALSE(call.lockHeld);
      }
   }
}

TEST_F(SwitchBuilder, DefaultEntryPolicesItsPortOnly) {
   // Port 1's default entry takes a burst of 100 and then drops red.
   double const t = 5000.0;
   int dropped = 0;
   for (int i = 0; i < 101; ++i) {
      dropped += sw().pktDrv()->sendToCpu(0, 1, 5, 0, t) ? 0 : 1;
   }
   EXPECT_EQ(dropped, 1);
   ASSERT_FALSE(sw().pktDrv()->lastPacket().matches.empty());
   EXPECT_EQ(sw().pktDrv()->lastPacket().matches[0].entry, static_cast<int>(defaultEntryOf(1)));
   EXPECT_TRUE(sw().pktDrv()->sendToCpu(0, 2, 5, 0, t));
   EXPECT_EQ(sw().pktDrv()->lastPacket().matches[0].entry, static_cast<int>(defaultEntryOf(2)));
}

TEST_F(SwitchBuilder, DefaultRatesArePublishedAtStartUp) {
   // 39 queues of the built-in table have a class; queue 0 and the dynamic ones do not count.
   EXPECT_EQ(sw().kernelCoppConfig()->coppInfo(), 8u * 39u);
   EXPECT_EQ(sw().kernelCoppConfig()->coppInfoCol().value(Oskel::ModIdPortQueueKey(0, 1, 1)),
             Oskel::CoppInfo(5000, 333, 500, true));
}

TEST_F(SwitchBuilder, PortsFrom256OnGetNoDefaultEntry) {
   SwitchConfig config;
   config.interfaces = {{"Ethernet255", 0, 255}, {"Ethernet256", 0, 256}};
   build(config);
   EXPECT_EQ(helper()->portDefaultCoppPolicerHwData("Ethernet255").entryId(), defaultEntryOf(255));
   EXPECT_FALSE(helper()->portDefaultCoppPolicerHwDataHas("Ethernet256"));
   EXPECT_EQ(entry(0, defaultEntryOf(256)), nullptr);
   EXPECT_EQ(sw().defaultEntry("Ethernet256"), 0u);
}

TEST_F(SwitchBuilder, ConfiguredPortDefaultRateMetersTheDefaultEntries) {
   SwitchConfig config;
   config.portDefaultCoppRate = 250;
   build(config);
   Nimbal::NimbalQosPolicerHwData const record =
       helper()->portDefaultCoppPolicerHwData("Ethernet3");
   EXPECT_EQ(record.policerRate(), 250u);
   EXPECT_EQ(record.policerBurst(), 25u);
   EXPECT_EQ(chip().policer(0, static_cast<int>(record.policerId()))->config.ckbits_burst(), 25u);
   EXPECT_EQ(sw().scMiscConfig()->portDefaultCoppRate(), 250u);
}

TEST_F(SwitchBuilder, ModulesOnOtherUnitsGetTheirOwnChipUnits) {
   SwitchConfig config;
   config.modules = {{0, 0}, {1, 2}};
   config.interfaces = {{"Ethernet1", 0, 1}, {"Ethernet9", 1, 4}};
   config.fabricInterfaces = {{"Fabric1", 1, 40}};
   build(config);
   EXPECT_EQ(sw().port("Ethernet9"), NimbalPort(1, 2, 4));
   EXPECT_EQ(sw().port("Fabric1"), NimbalPort(1, 2, 40));
   EXPECT_EQ(sw().scsd()->nimbalFabricPortToIntfCol().value(NimbalPort(1, 2, 40)),
             Orvik::IntfId("Fabric1"));
   EXPECT_EQ(sw().scsd()->nimbalModIdToUnitCol().value(1), U16{2});
   EXPECT_EQ(sw().scsd()->nimbalModIdCol().value(1),
             Nimbal::NimbalModInfo(1, 2, NimbalCentral::ChipInfo(2)));
   EXPECT_EQ(chip().units(), std::vector<int>({0, 2}));
   EXPECT_EQ(chip().portBitmap(0), Shim::pbmpOf({1}));
   EXPECT_EQ(chip().portBitmap(2), Shim::pbmpOf({4, 40}));
   EXPECT_EQ(sw().units(), std::vector<U16>({0, 2}));
   EXPECT_EQ(sw().unitOfModule(1), 2u);
   EXPECT_EQ(sw().unitOfModule(7), 0u);
   Shim::FieldEntry const* e = entry(2, defaultEntryOf(4));
   ASSERT_NE(e, nullptr);
   EXPECT_EQ(e->hw.qualifier(QualKind::InPort), (Qualifier{4, 0xFFFFFFFF}));
   EXPECT_NE(entry(2, defaultEntryOf(40)), nullptr);
   EXPECT_EQ(entry(0, defaultEntryOf(4)), nullptr);
}

TEST_F(SwitchBuilder, PortInBothListsHasOneDefaultEntryForTheFrontPanelInterface) {
   SwitchConfig config;
   config.fabricInterfaces = {{"Fabric3", 0, 3}};
   build(config);
   EXPECT_EQ(helper()->portDefaultCoppPolicerHwData("Ethernet3").entryId(), defaultEntryOf(3));
   EXPECT_FALSE(helper()->portDefaultCoppPolicerHwDataHas("Fabric3"));
   EXPECT_EQ(sw().intf(NimbalPort(0, 0, 3)), Orvik::IntfId("Ethernet3"));
}

TEST_F(SwitchBuilder, CustomCpuQueueTableIsUsed) {
   std::vector<Nimbal::MmuCpuQRow> table = Nimbal::builtInCpuQTable();
   table[5].rate = 123;
   table[5].burst = 12;
   SwitchConfig config;
   config.cpuQueues = table;
   build(config);
   EXPECT_EQ(sw().mmuSm()->cpuQColl()->cpuQ(5)->defaultCoppRate(), 123u);
   EXPECT_EQ(sw().kernelCoppConfig()->coppInfoCol().value(Oskel::ModIdPortQueueKey(0, 2, 5)),
             Oskel::CoppInfo(123, 8, 12, true));
}

TEST_F(SwitchBuilder, VxlanWorkaroundHoldsForTheSwitchsLifetime) {
   SwitchConfig config;
   config.vxlanWorkaround = true;
   build(config);
   EXPECT_TRUE(NimbalCentral::nimbalAttributes().vxlanCoppSrcPortWorkAroundNeeded());
   EXPECT_TRUE(helper()->vxlanCoppSrcPortWorkAroundNeeded());
   build(SwitchConfig());
   EXPECT_FALSE(NimbalCentral::nimbalAttributes().vxlanCoppSrcPortWorkAroundNeeded());
}

TEST_F(SwitchBuilder, BuildingAgainStartsFromAnEmptyChip) {
   chip().unitIs(5);
   Nimbal::installCoppPolicer(0, defaultEntryOf(1), 1, 1, sw().tcamGroupManager(),
                              sw().efpCoppDefAndVxlanEntryMgr());
   ASSERT_GT(chip().policers(0), 8u);
   sdk().failNextCallIs("bcm_field_qualify_InPort", Shim::BCM_E_PARAM);
   build(SwitchConfig());
   EXPECT_EQ(chip().units(), std::vector<int>({0}));
   EXPECT_EQ(chip().policers(0), 8u);
   EXPECT_EQ(sdk().faultsPending(), 0u);
   EXPECT_EQ(chip().entries(0).size(), 8u);
}

TEST_F(SwitchBuilder, PoolsAreLargeEnoughUnlessGiven) {
   Shim::FieldGroup const* copp = chip().group(0, Switch::efpCoppGroupId);
   Shim::FieldGroup const* def = chip().group(0, Switch::efpCoppDefAndVxlanGroupId);
   ASSERT_NE(copp, nullptr);
   ASSERT_NE(def, nullptr);
   EXPECT_GE(copp->entryPoolSize, 8u * 48u);
   EXPECT_GE(copp->meterPoolSize, 8u * 48u);
   EXPECT_GE(def->meterPoolSize, 256u + 512u + 256u);

   SwitchConfig config;
   config.modules = {{0, 0}, {1, 1}};
   config.interfaces.push_back({"Ethernet9", 1, 1});
   config.resources = {10u, 5u, 20u};
   build(config);
   for (int unit : {0, 1}) {
      copp = chip().group(unit, Switch::efpCoppGroupId);
      def = chip().group(unit, Switch::efpCoppDefAndVxlanGroupId);
      ASSERT_NE(copp, nullptr);
      ASSERT_NE(def, nullptr);
      EXPECT_EQ(copp->entryPoolSize, 10u);
      EXPECT_EQ(copp->meterPoolSize, 5u);
      EXPECT_EQ(def->meterPoolSize, 20u);
   }
}

TEST_F(SwitchBuilder, LargeSwitchGetsAMeterForEveryPortQueue) {
   SwitchConfig config;
   config.interfaces.clear();
   for (U16 p = 1; p <= 100; ++p) {
      config.interfaces.push_back({"Ethernet" + std::to_string(p), 0, p});
   }
   build(config);
   EXPECT_GE(chip().group(0, Switch::efpCoppGroupId)->entryPoolSize, 100u * 48u);
   EXPECT_GE(chip().group(0, Switch::efpCoppGroupId)->meterPoolSize, 100u * 48u);
}

TEST_F(SwitchBuilder, ShrinkingResourcesKeepsWhatIsInUse) {
   Nimbal::StatTypes none;
   std::vector<U32> entries;
   for (int i = 0; i < 3; ++i) {
      U32 const e =
          sw().efpCoppEntryMgr()->getEntryWithStats(0, "shrink", Nimbal::RequestKey(), none);
      ASSERT_NE(Nimbal::installCoppPolicer(0, e, 100, 10, sw().tcamGroupManager(),
                                           sw().efpCoppEntryMgr()),
                0xFFFFFFFFu);
      entries.push_back(e);
   }
   sw().resourcesIs({2u, 1u, std::nullopt});
   EXPECT_EQ(chip().metersInUse(0, Switch::efpCoppGroupId), 3u);
   for (U32 e : entries) {
      EXPECT_TRUE(chip().entry(0, static_cast<int>(e))->installed);
   }
   // Nothing more fits until enough is given back.
   EXPECT_EQ(sw().efpCoppEntryMgr()->getEntryWithStats(0, "more", Nimbal::RequestKey(), none), 0u);
   EXPECT_EQ(chip().group(0, Switch::efpCoppDefAndVxlanGroupId)->meterPoolSize,
             Shim::SimChip::defaultMeterPoolSize);
}

TEST_F(SwitchBuilder, TooFewDefaultMetersLeaveInterfacesWithoutDefaultPolicer) {
   SwitchConfig config;
   config.resources.efpDefaultMeters = 3;
   build(config);
   EXPECT_EQ(helper()->portDefaultCoppPolicerHwData(), 3u);
   EXPECT_EQ(sw().interfacesWithoutDefaultPolicer(),
             std::vector<Orvik::IntfId>(
                 {"Ethernet4", "Ethernet5", "Ethernet6", "Ethernet7", "Ethernet8"}));
   EXPECT_EQ(entry(0, defaultEntryOf(4)), nullptr);
   EXPECT_NE(entry(0, defaultEntryOf(3)), nullptr);
   EXPECT_EQ(chip().policers(0), 3u);
}

TEST_F(SwitchBuilder, LookupsTranslateBothWays) {
   EXPECT_EQ(sw().port("Ethernet3"), NimbalPort(0, 0, 3));
   EXPECT_EQ(port("Ethernet3"), NimbalPort(0, 0, 3));
   EXPECT_EQ(sw().intf(NimbalPort(0, 0, 3)), Orvik::IntfId("Ethernet3"));
   EXPECT_EQ(sw().port("Ethernet99"), NimbalPort::noPort());
   EXPECT_EQ(sw().intf(NimbalPort(0, 0, 99)), Orvik::IntfId::emptyIntfId());
   EXPECT_EQ(sw().interfaces().size(), 8u);
   EXPECT_EQ(sw().interfaces().front(), Orvik::IntfId("Ethernet1"));
}

TEST_F(SwitchBuilder, InconsistentConfigurationsAreRefused) {
   auto refused = [](SwitchConfig const& config) {
      EXPECT_THROW(NimbalHost::buildSwitch(config), std::invalid_argument);
   };
   SwitchConfig config;
   config.modules.clear();
   refused(config);

   config = SwitchConfig();
   config.modules.push_back({0, 1});
   refused(config);

   config = SwitchConfig();
   config.modules = {{65, 0}};
   config.interfaces.clear();
   refused(config);

   config = SwitchConfig();
   config.interfaces.push_back({"Ethernet1", 0, 20});
   refused(config);

   config = SwitchConfig();
   config.interfaces.push_back({"Ethernet20", 3, 20});
   refused(config);

   config = SwitchConfig();
   config.interfaces.push_back({"Ethernet20", 0, 1024});
   refused(config);

   config = SwitchConfig();
   config.interfaces.push_back({"Ethernet20", 0, 1});
   refused(config);

   config = SwitchConfig();
   config.interfaces.push_back({"", 0, 20});
   refused(config);

   // Two modules on one unit cannot both have port 1.
   config = SwitchConfig();
   config.modules.push_back({1, 0});
   config.fabricInterfaces = {{"Fabric1", 1, 1}};
   refused(config);

   config = SwitchConfig();
   config.cpuQueues = Nimbal::builtInCpuQTable();
   config.cpuQueues.pop_back();
   refused(config);

   // A refused switch leaves the one in use alone.
   EXPECT_EQ(helper()->portDefaultCoppPolicerHwData(), 8u);
   EXPECT_EQ(chip().policers(0), 8u);
}

TEST_F(SwitchBuilder, ModuleSixtyFourIsAccepted) {
   SwitchConfig config;
   config.modules = {{64, 0}};
   config.interfaces = {{"Ethernet1", 64, 1}};
   build(config);
   EXPECT_EQ(sw().port("Ethernet1"), NimbalPort(64, 0, 1));
}

}  // namespace
