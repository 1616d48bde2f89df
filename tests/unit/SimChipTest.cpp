#include <gtest/gtest.h>

#include "Kiv/Activity.h"
#include "Shim/Sdk.h"

namespace {

using namespace Shim;

class SimChipTest : public ::testing::Test {
  protected:
   void SetUp() override { sdk_->reset(); }
   Sdk& sdk() { return *sdk_; }
   SimChip& chip() { return sdk_->chip(); }

   // An entry in group 7 of unit 0.
   bcm_field_entry_t newEntry(bcm_field_group_t group = 7) {
      if (!chip().groupHas(0, group)) {
         EXPECT_EQ(sdk().bcm_field_group_create_id(0, group), BCM_E_NONE);
      }
      bcm_field_entry_t e = 0;
      EXPECT_EQ(sdk().bcm_field_entry_create(0, group, &e), BCM_E_NONE);
      return e;
   }
   bcm_policer_t newPolicer(U32 rate = 100, U32 burst = 10) {
      bcm_policer_config_s cfg;
      sdk().bcm_policer_config_t_init(&cfg);
      cfg.mode_is(sdk().coppPolicerMode());
      cfg.flags_or(BCM_POLICER_MODE_PACKETS | BCM_POLICER_COLOR_BLIND);
      cfg.ckbits_sec_is(rate);
      cfg.ckbits_burst_is(burst);
      bcm_policer_t id = 0;
      EXPECT_EQ(sdk().bcm_policer_create(0, &cfg, &id), BCM_E_NONE);
      return id;
   }
};

TEST_F(SimChipTest, EveryReturnCodeHasItsSdkText) {
   std::vector<std::pair<int, std::string>> const texts = {
       {0, "Ok"},
       {-1, "Internal error"},
       {-2, "Out of memory"},
       {-3, "Invalid unit"},
       {-4, "Invalid parameter"},
       {-5, "Table empty"},
       {-6, "Table full"},
       {-7, "Entry not found"},
       {-8, "Entry exists"},
       {-9, "Operation timed out"},
       {-10, "Operation still running"},
       {-11, "Operation failed"},
       {-12, "Operation disabled"},
       {-13, "Invalid identifier"},
       {-14, "No resources for operation"},
       {-15, "Invalid configuration"},
       {-16, "Feature unavailable"},
       {-17, "Feature not initialized"},
       {-18, "Invalid port"},
       {-19, "Unknown error"},
       {1, "Unknown error"},
       {-1000, "Unknown error"},
   };
   for (auto const& [rc, text] : texts) {
      EXPECT_EQ(sdk().errmsg(rc), text) << rc;
   }
   EXPECT_EQ(BCM_E_RESOURCE, -14);
   EXPECT_EQ(BCM_E_PORT, -18);
}

TEST_F(SimChipTest, AccessorsGiveNoneResourceCoppModeAndStatTypes) {
   EXPECT_EQ(sdk().QV_BCM_E_NONE(), 0);
   EXPECT_EQ(sdk().QV_BCM_E_RESOURCE(), -14);
   EXPECT_EQ(sdk().coppPolicerMode(), bcmPolicerModeCommitted);
   EXPECT_EQ(static_cast<U32>(sdk().coppPolicerMode()), 1u);
   EXPECT_EQ(sdk().coppStatType(0), bcmFieldStatPackets);
   EXPECT_EQ(sdk().coppStatType(1), bcmFieldStatRedPackets);
   EXPECT_EQ(bcmFieldActionRpDrop, 52);
   EXPECT_EQ(bcmFieldActionDrop, 39);
   EXPECT_EQ(bcmFieldActionCopyToCpu, 23);
   EXPECT_EQ(bcmFieldStatPackets, 1);
   EXPECT_EQ(bcmFieldStatRedPackets, 7);
}

TEST_F(SimChipTest, PolicerConfigInitialiserZeroesTheRecord) {
   bcm_policer_config_s cfg;
   cfg.flags_is(0xFF);
   cfg.mode_is(4);
   cfg.ckbits_sec_is(1);
   cfg.ckbits_burst_is(2);
   cfg.pkbits_sec_is(3);
   cfg.pkbits_burst_is(4);
   sdk().bcm_policer_config_t_init(&cfg);
   EXPECT_EQ(cfg, bcm_policer_config_s());
   EXPECT_EQ(cfg.flags(), 0u);
   EXPECT_EQ(cfg.mode(), 0u);
   EXPECT_EQ(cfg.pkbits_burst(), 0u);
}

TEST_F(SimChipTest, PolicerConfigAccessorsBuildPacketModeColourBlindMeter) {
   bcm_policer_config_s cfg;
   cfg.flags_or(0x80);
   cfg.flags_or(0x04);
   cfg.ckbits_sec_is(300);
   cfg.ckbits_burst_is(30);
   EXPECT_EQ(cfg.flags(), 0x84u);
   EXPECT_EQ(BCM_POLICER_MODE_PACKETS | BCM_POLICER_COLOR_BLIND, 0x84u);
   EXPECT_EQ(cfg.ckbits_sec(), 300u);
   EXPECT_EQ(cfg.ckbits_burst(), 30u);
   EXPECT_EQ(cfg.text(),
             "{flags=0x84 mode=0 ckbits_sec=300 ckbits_burst=30 pkbits_sec=0 pkbits_burst=0}");
}

TEST_F(SimChipTest, PortBitmapHoldsPortPInBitPMod32OfWordPDiv32) {
   bcm_pbmp_t p;
   p.portAdd(33);
   p.portAdd(1023);
   EXPECT_EQ(p.pbits[1], 0x2u);
   EXPECT_EQ(p.pbits[31], 0x80000000u);
   EXPECT_TRUE(p.portMember(33));
   EXPECT_FALSE(p.portMember(32));
   bcm_pbmp_t copy = p;
   EXPECT_TRUE(sdk().pbmpEq(copy, p));
   copy.portRemove(33);
   EXPECT_FALSE(sdk().pbmpEq(copy, p));
   EXPECT_EQ(p.text(), "{33,1023}");
   EXPECT_EQ(pbmpOf({1, 2}).pbits[0], 0x6u);
}

TEST_F(SimChipTest, UnitBitmapsAreSetByTheHostAndAllPortsFollowsUnlessSet) {
   EXPECT_TRUE(sdk().portBitmap(0).empty());
   chip().portBitmapIs(1, pbmpOf({1, 2, 3}));
   EXPECT_TRUE(chip().unitHas(1));
   EXPECT_EQ(sdk().portBitmap(1), pbmpOf({1, 2, 3}));
   EXPECT_EQ(sdk().allPortsBitmap(1), pbmpOf({1, 2, 3}));
   chip().allPortsBitmapIs(1, pbmpOf({0, 1, 2, 3}));
   EXPECT_EQ(sdk().allPortsBitmap(1), pbmpOf({0, 1, 2, 3}));
   EXPECT_EQ(sdk().portBitmap(1), pbmpOf({1, 2, 3}));
   EXPECT_TRUE(sdk().portBitmap(9).empty());
}

TEST_F(SimChipTest, UnknownUnitGivesInvalidUnit) {
   bcm_field_entry_t e = 0;
   bcm_policer_config_s cfg;
   bcm_policer_t id = 0;
   U32 p0 = 0, p1 = 0;
   EXPECT_EQ(sdk().bcm_field_group_create_id(5, 7), BCM_E_UNIT);
   EXPECT_EQ(sdk().bcm_field_entry_create(5, 7, &e), BCM_E_UNIT);
   EXPECT_EQ(sdk().bcm_field_qualify_InPort(5, 1, 1, 1), BCM_E_UNIT);
   EXPECT_EQ(sdk().bcm_field_action_get(5, 1, bcmFieldActionRpDrop, &p0, &p1), BCM_E_UNIT);
   EXPECT_EQ(sdk().bcm_policer_create(5, &cfg, &id), BCM_E_UNIT);
   EXPECT_EQ(sdk().bcm_policer_get(5, 1, &cfg), BCM_E_UNIT);
   EXPECT_EQ(sdk().bcm_field_entry_install(5, 1), BCM_E_UNIT);
}

TEST_F(SimChipTest, UnknownEntryGivesNotFound) {
   bcm_policer_t id = 0;
   EXPECT_EQ(sdk().bcm_field_qualify_InPort(0, 99, 1, 1), BCM_E_NOT_FOUND);
   EXPECT_EQ(sdk().bcm_field_qualify_CpuQueue(0, 99, 1, 1), BCM_E_NOT_FOUND);
   EXPECT_EQ(sdk().bcm_field_action_add(0, 99, bcmFieldActionRpDrop, 0, 0), BCM_E_NOT_FOUND);
   EXPECT_EQ(sdk().bcm_field_entry_policer_get(0, 99, 0, &id), BCM_E_NOT_FOUND);
   EXPECT_EQ(sdk().bcm_field_entry_install(0, 99), BCM_E_NOT_FOUND);
   EXPECT_EQ(sdk().bcm_field_entry_remove(0, 99), BCM_E_NOT_FOUND);
   EXPECT_EQ(sdk().bcm_field_entry_destroy(0, 99), BCM_E_NOT_FOUND);
   EXPECT_EQ(sdk().bcm_field_entry_create(0, 42, &id), BCM_E_NOT_FOUND);  // no such group
}

TEST_F(SimChipTest, QualifiersKeepValueAndMaskPerKindAndReachHardwareAtInstall) {
   bcm_field_entry_t e = newEntry();
   EXPECT_EQ(sdk().bcm_field_qualify_InPort(0, e, 5, 0xFFFFFFFF), BCM_E_NONE);
   EXPECT_EQ(sdk().bcm_field_qualify_CpuQueue(0, e, 9, 0x3F), BCM_E_NONE);
   EXPECT_EQ(sdk().bcm_field_qualify_InnerVlanId(0, e, 5, 0xFFF), BCM_E_NONE);
   EXPECT_EQ(sdk().bcm_field_qualify_InterfaceClassPort(0, e, 2, 2), BCM_E_NONE);
   EXPECT_EQ(sdk().bcm_field_qualify_InPorts(0, e, pbmpOf({1, 2}), pbmpOf({0, 1, 2})), BCM_E_NONE);
   FieldEntry const* fe = chip().entry(0, e);
   ASSERT_NE(fe, nullptr);
   EXPECT_EQ(fe->sw.qualifier(QualKind::InPort), (Qualifier{5, 0xFFFFFFFF}));
   EXPECT_EQ(fe->sw.qualifier(QualKind::CpuQueue), (Qualifier{9, 0x3F}));
   EXPECT_EQ(fe->sw.qualifier(QualKind::InnerVlanId), (Qualifier{5, 0xFFF}));
   EXPECT_EQ(fe->sw.qualifier(QualKind::InterfaceClassPort), (Qualifier{2, 2}));
   ASSERT_TRUE(fe->sw.inPorts);
   EXPECT_EQ(fe->sw.inPorts->data, pbmpOf({1, 2}));
   EXPECT_EQ(fe->sw.inPorts->mask, pbmpOf({0, 1, 2}));
   EXPECT_FALSE(fe->installed);
   EXPECT_FALSE(fe->hw.qualifier(QualKind::InPort));

   EXPECT_EQ(sdk().bcm_field_entry_install(0, e), BCM_E_NONE);
   EXPECT_TRUE(fe->installed);
   EXPECT_EQ(fe->hw.qualifier(QualKind::CpuQueue), (Qualifier{9, 0x3F}));
   EXPECT_EQ(sdk().bcm_field_qualify_CpuQueue(0, e, 0, 0x3F), BCM_E_NONE);
   EXPECT_EQ(fe->hw.qualifier(QualKind::CpuQueue), (Qualifier{9, 0x3F}));
   EXPECT_EQ(sdk().bcm_field_entry_install(0, e), BCM_E_NONE);
   EXPECT_EQ(fe->hw.qualifier(QualKind::CpuQueue), (Qualifier{0, 0x3F}));
}

TEST_F(SimChipTest, ActionGetReadsParamsAndFailsWithoutActionOrPointers) {
   bcm_field_entry_t e = newEntry();
   U32 p0 = 7, p1 = 7;
   EXPECT_EQ(sdk().bcm_field_action_get(0, e, bcmFieldActionRpDrop, &p0, &p1), BCM_E_NOT_FOUND);
   EXPECT_EQ(sdk().bcm_field_action_add(0, e, bcmFieldActionRpDrop, 0, 0), BCM_E_NONE);
   EXPECT_EQ(sdk().bcm_field_action_get(0, e, bcmFieldActionRpDrop, &p0, &p1), BCM_E_NONE);
   EXPECT_EQ(p0, 0u);
   EXPECT_EQ(p1, 0u);
   EXPECT_EQ(sdk().bcm_field_action_get(0, e, bcmFieldActionRpDrop, nullptr, &p1), BCM_E_PARAM);
   EXPECT_EQ(sdk().bcm_field_action_get(0, e, bcmFieldActionRpDrop, &p0, nullptr), BCM_E_PARAM);
   EXPECT_EQ(sdk().bcm_field_action_add(0, e, bcmFieldActionCopyToCpu, 3, 4), BCM_E_NONE);
   EXPECT_EQ(sdk().bcm_field_action_get(0, e, bcmFieldActionCopyToCpu, &p0, &p1), BCM_E_NONE);
   EXPECT_EQ(p0, 3u);
   EXPECT_EQ(p1, 4u);
   EXPECT_EQ(sdk().bcm_field_action_get(0, e, bcmFieldActionDrop, &p0, &p1), BCM_E_NOT_FOUND);
}

TEST_F(SimChipTest, EntryPolicerGetChecksLevelAndAttachment) {
   bcm_field_entry_t e = newEntry();
   bcm_policer_t got = 0;
   EXPECT_EQ(sdk().bcm_field_entry_policer_get(0, e, 0, &got), BCM_E_NOT_FOUND);
   bcm_policer_t pol = newPolicer();
   EXPECT_EQ(sdk().bcm_field_entry_policer_attach(0, e, 0, pol), BCM_E_NONE);
   EXPECT_EQ(sdk().bcm_field_entry_policer_get(0, e, 0, &got), BCM_E_NONE);
   EXPECT_EQ(got, pol);
   EXPECT_EQ(sdk().bcm_field_entry_policer_get(0, e, 1, &got), BCM_E_NOT_FOUND);
   EXPECT_EQ(sdk().bcm_field_entry_policer_get(0, e, 2, &got), BCM_E_PARAM);
   EXPECT_EQ(sdk().bcm_field_entry_policer_get(0, e, -1, &got), BCM_E_PARAM);
   EXPECT_EQ(sdk().bcm_field_entry_policer_attach(0, e, 0, pol), BCM_E_EXISTS);
   EXPECT_EQ(sdk().bcm_field_entry_policer_attach(0, e, 1, 999), BCM_E_NOT_FOUND);
   EXPECT_EQ(sdk().bcm_field_entry_policer_detach(0, e, 0), BCM_E_NONE);
   EXPECT_EQ(sdk().bcm_field_entry_policer_detach(0, e, 0), BCM_E_NOT_FOUND);
}

TEST_F(SimChipTest, PolicersStartAtOneReadBackAndRefuseDestroyWhileAttached) {
   bcm_policer_t a = newPolicer(300, 30);
   bcm_policer_t b = newPolicer(5, 1);
   EXPECT_EQ(a, 1);
   EXPECT_EQ(b, 2);
   bcm_policer_config_s cfg;
   EXPECT_EQ(sdk().bcm_policer_get(0, a, &cfg), BCM_E_NONE);
   EXPECT_EQ(cfg.ckbits_sec(), 300u);
   EXPECT_EQ(cfg.ckbits_burst(), 30u);
   EXPECT_EQ(cfg.flags(), 0x84u);
   EXPECT_EQ(cfg.mode(), 1u);
   EXPECT_EQ(sdk().bcm_policer_get(0, 77, &cfg), BCM_E_NOT_FOUND);
   EXPECT_EQ(sdk().bcm_policer_get(0, a, nullptr), BCM_E_PARAM);

   bcm_field_entry_t e = newEntry();
   EXPECT_EQ(sdk().bcm_field_entry_policer_attach(0, e, 0, a), BCM_E_NONE);
   EXPECT_EQ(sdk().bcm_policer_destroy(0, a), BCM_E_BUSY);
   EXPECT_EQ(sdk().bcm_field_entry_policer_detach(0, e, 0), BCM_E_NONE);
   EXPECT_EQ(sdk().bcm_policer_destroy(0, a), BCM_E_NONE);
   EXPECT_EQ(sdk().bcm_policer_destroy(0, a), BCM_E_NOT_FOUND);
   EXPECT_EQ(chip().policers(0), 1u);
}

TEST_F(SimChipTest, MetersRunOutAtInstallAndEntryStaysAsBefore) {
   chip().meterPoolSizeIs(0, 7, 1);
   bcm_field_entry_t e1 = newEntry();
   bcm_field_entry_t e2 = newEntry();
   EXPECT_EQ(sdk().bcm_field_entry_policer_attach(0, e1, 0, newPolicer()), BCM_E_NONE);
   EXPECT_EQ(sdk().bcm_field_entry_install(0, e1), BCM_E_NONE);
   EXPECT_EQ(chip().metersInUse(0, 7), 1u);

   EXPECT_EQ(sdk().bcm_field_entry_install(0, e2), BCM_E_NONE);  // unmetered: no meter needed
   EXPECT_EQ(sdk().bcm_field_qualify_CpuQueue(0, e2, 4, 0x3F), BCM_E_NONE);
   bcm_policer_t p2 = newPolicer();
   EXPECT_EQ(sdk().bcm_field_entry_policer_attach(0, e2, 0, p2), BCM_E_NONE);
   EXPECT_EQ(sdk().bcm_field_entry_install(0, e2), BCM_E_RESOURCE);
   FieldEntry const* fe = chip().entry(0, e2);
   EXPECT_TRUE(fe->installed);
   EXPECT_EQ(fe->hw.policer[0], 0);
   EXPECT_FALSE(fe->hw.qualifier(QualKind::CpuQueue));
   EXPECT_EQ(fe->metersHeld, 0);
   EXPECT_EQ(chip().metersInUse(0, 7), 1u);
}

TEST_F(SimChipTest, DetachingAndReinstallingGivesTheMeterBack) {
   chip().meterPoolSizeIs(0, 7, 1);
   bcm_field_entry_t e1 = newEntry();
   bcm_field_entry_t e2 = newEntry();
   bcm_policer_t p1 = newPolicer();
   bcm_policer_t p2 = newPolicer();
   sdk().bcm_field_entry_policer_attach(0, e1, 0, p1);
   ASSERT_EQ(sdk().bcm_field_entry_install(0, e1), BCM_E_NONE);
   sdk().bcm_field_entry_policer_attach(0, e2, 0, p2);
   ASSERT_EQ(sdk().bcm_field_entry_install(0, e2), BCM_E_RESOURCE);

   EXPECT_EQ(sdk().bcm_field_entry_policer_detach(0, e1, 0), BCM_E_NONE);
   EXPECT_EQ(chip().metersInUse(0, 7), 1u);  // not until the install
   EXPECT_EQ(chip().entry(0, e1)->hw.policer[0], p1);
   EXPECT_EQ(sdk().bcm_field_entry_install(0, e1), BCM_E_NONE);
   EXPECT_EQ(chip().metersInUse(0, 7), 0u);
   EXPECT_EQ(chip().entry(0, e1)->hw.policer[0], 0);
   EXPECT_EQ(sdk().bcm_field_entry_install(0, e2), BCM_E_NONE);
   EXPECT_EQ(chip().entry(0, e2)->hw.policer[0], p2);
   EXPECT_EQ(chip().metersInUse(0, 7), 1u);
}

TEST_F(SimChipTest, ReinstallingWithTheSameMeterTakesNoSecondMeter) {
   chip().meterPoolSizeIs(0, 7, 1);
   bcm_field_entry_t e = newEntry();
   sdk().bcm_field_entry_policer_attach(0, e, 0, newPolicer());
   EXPECT_EQ(sdk().bcm_field_entry_install(0, e), BCM_E_NONE);
   EXPECT_EQ(sdk().bcm_field_entry_install(0, e), BCM_E_NONE);
   EXPECT_EQ(chip().metersInUse(0, 7), 1u);
}

TEST_F(SimChipTest, RemovingFromHardwareFreesTheMeterAndKeepsTheSoftwareEntry) {
   bcm_field_entry_t e = newEntry();
   bcm_policer_t p = newPolicer();
   sdk().bcm_field_entry_policer_attach(0, e, 0, p);
   sdk().bcm_field_qualify_InPort(0, e, 3, 0xFFFFFFFF);
   ASSERT_EQ(sdk().bcm_field_entry_install(0, e), BCM_E_NONE);
   EXPECT_EQ(chip().metersInUse(0, 7), 1u);
   EXPECT_EQ(sdk().bcm_field_entry_remove(0, e), BCM_E_NONE);
   FieldEntry const* fe = chip().entry(0, e);
   ASSERT_NE(fe, nullptr);
   EXPECT_FALSE(fe->installed);
   EXPECT_EQ(fe->hw.policer[0], 0);
   EXPECT_EQ(fe->sw.qualifier(QualKind::InPort), (Qualifier{3, 0xFFFFFFFF}));
   EXPECT_EQ(chip().metersInUse(0, 7), 0u);
   EXPECT_EQ(chip().entriesInUse(0, 7), 1u);
   EXPECT_EQ(sdk().bcm_field_entry_destroy(0, e), BCM_E_NONE);
   EXPECT_EQ(chip().entry(0, e), nullptr);
   EXPECT_EQ(chip().entriesInUse(0, 7), 0u);
}

TEST_F(SimChipTest, EntryPoolRunsOutAndComesBackWhenAnEntryIsDestroyed) {
   chip().entryPoolSizeIs(0, 7, 2);
   bcm_field_entry_t a = newEntry();
   newEntry();
   bcm_field_entry_t c = 0;
   EXPECT_EQ(sdk().bcm_field_entry_create(0, 7, &c), BCM_E_RESOURCE);
   EXPECT_EQ(sdk().bcm_field_entry_create_id(0, 7, 5), BCM_E_RESOURCE);
   EXPECT_EQ(sdk().bcm_field_entry_destroy(0, a), BCM_E_NONE);
   EXPECT_EQ(sdk().bcm_field_entry_create(0, 7, &c), BCM_E_NONE);
   EXPECT_EQ(c, a);  // lowest free id again
   EXPECT_EQ(a, SimChip::firstAutoEntryId);
}

TEST_F(SimChipTest, ShrinkingAPoolTakesNothingBackButStopsNewTakes) {
   bcm_field_entry_t a = newEntry();
   bcm_field_entry_t b = newEntry();
   sdk().bcm_field_entry_policer_attach(0, a, 0, newPolicer());
   sdk().bcm_field_entry_policer_attach(0, b, 0, newPolicer());
   ASSERT_EQ(sdk().bcm_field_entry_install(0, a), BCM_E_NONE);
   ASSERT_EQ(sdk().bcm_field_entry_install(0, b), BCM_E_NONE);
   chip().meterPoolSizeIs(0, 7, 1);
   chip().entryPoolSizeIs(0, 7, 1);
   EXPECT_EQ(chip().metersInUse(0, 7), 2u);
   EXPECT_EQ(chip().entriesInUse(0, 7), 2u);
   EXPECT_TRUE(chip().entry(0, b)->installed);
   bcm_field_entry_t c = 0;
   EXPECT_EQ(sdk().bcm_field_entry_create(0, 7, &c), BCM_E_RESOURCE);
   EXPECT_EQ(sdk().bcm_field_entry_remove(0, a), BCM_E_NONE);
   EXPECT_EQ(sdk().bcm_field_entry_install(0, a), BCM_E_RESOURCE);  // 1 in use of 1
   EXPECT_EQ(sdk().bcm_field_entry_remove(0, b), BCM_E_NONE);
   EXPECT_EQ(sdk().bcm_field_entry_install(0, a), BCM_E_NONE);
}

TEST_F(SimChipTest, EntryIdsAreUniquePerUnitAndGroupsHaveTheirOwnPools) {
   bcm_field_entry_t e = newEntry(7);
   EXPECT_EQ(sdk().bcm_field_group_create_id(0, 8), BCM_E_NONE);
   EXPECT_EQ(sdk().bcm_field_group_create_id(0, 8), BCM_E_EXISTS);
   EXPECT_EQ(sdk().bcm_field_entry_create_id(0, 8, e), BCM_E_EXISTS);
   EXPECT_EQ(sdk().bcm_field_entry_create_id(0, 8, 12), BCM_E_NONE);
   EXPECT_EQ(chip().entries(0), (std::vector<bcm_field_entry_t>{12, e}));
   EXPECT_EQ(chip().entries(0, 8), (std::vector<bcm_field_entry_t>{12}));
   EXPECT_EQ(chip().entry(0, 12)->group, 8);
   EXPECT_EQ(chip().entriesInUse(0, 7), 1u);
   EXPECT_EQ(chip().entriesInUse(0, 8), 1u);
}

TEST_F(SimChipTest, PriorityOfAnInstalledEntryChangesInHardwareAtOnce) {
   bcm_field_entry_t e = newEntry();
   EXPECT_EQ(sdk().bcm_field_entry_prio_set(0, e, 5), BCM_E_NONE);
   EXPECT_EQ(chip().entry(0, e)->sw.priority, 5);
   EXPECT_EQ(chip().entry(0, e)->hw.priority, 0);
   sdk().bcm_field_entry_install(0, e);
   EXPECT_EQ(sdk().bcm_field_entry_prio_set(0, e, 9), BCM_E_NONE);
   EXPECT_EQ(chip().entry(0, e)->hw.priority, 9);
}

TEST_F(SimChipTest, JournalRecordsCallsInOrderWithTheirArguments) {
   bcm_field_entry_t e = newEntry();
   sdk().journalDelAll();
   sdk().bcm_field_qualify_InPort(0, e, 3, 0xFFFFFFFF);
   sdk().bcm_field_qualify_CpuQueue(0, e, 9, 0x3F);
   sdk().bcm_field_qualify_InnerVlanId(0, e, 5, 0xFFF);
   sdk().bcm_field_qualify_InterfaceClassPort(0, e, 2, 2);
   sdk().bcm_field_action_add(0, e, bcmFieldActionRpDrop, 0, 0);
   sdk().bcm_field_entry_remove(0, 99);
   std::string const id = std::to_string(e);
   EXPECT_EQ(sdk().journalTexts(),
             (std::vector<std::string>{
                 "bcm_field_qualify_InPort(0, " + id + ", 0x3, 0xffffffff)",
                 "bcm_field_qualify_CpuQueue(0, " + id + ", 0x9, 0x3f)",
                 "bcm_field_qualify_InnerVlanId(0, " + id + ", 0x5, 0xfff)",
                 "bcm_field_qualify_InterfaceClassPort(0, " + id + ", 0x2, 0x2)",
                 "bcm_field_action_add(0, " + id + ", 52, 0x0, 0x0)",
                 "bcm_field_entry_remove(0, 99)",
             }));
   EXPECT_EQ(sdk().journal().back().rc, BCM_E_NOT_FOUND);
   EXPECT_EQ(sdk().journal().front().rc, BCM_E_NONE);
   EXPECT_EQ(sdk().journalTexts("bcm_field_qualify_CpuQueue").size(), 1u);
   EXPECT_EQ(sdk().journalNames().front(), "bcm_field_qualify_InPort");
   sdk().journalDelAll();
   EXPECT_TRUE(sdk().journal().empty());
}

TEST_F(SimChipTest, JournalShowsPolicerConfigAndBitmaps) {
   bcm_field_entry_t e = newEntry();
   sdk().journalDelAll();
   newPolicer(300, 30);
   sdk().bcm_field_qualify_InPorts(0, e, pbmpOf({1, 2}), pbmpOf({1, 2, 3}));
   std::vector<std::string> t = sdk().journalTexts();
   ASSERT_EQ(t.size(), 2u);
   EXPECT_EQ(t[0],
             "bcm_policer_create(0, {flags=0x84 mode=1 ckbits_sec=300 ckbits_burst=30 "
             "pkbits_sec=0 pkbits_burst=0}, &)");
   EXPECT_EQ(t[1], "bcm_field_qualify_InPorts(0, " + std::to_string(e) + ", {1,2}, {1,2,3})");
}

TEST_F(SimChipTest, JournalRecordsWhetherTheActivityLockWasHeld) {
   bcm_field_entry_t e = newEntry();
   sdk().journalDelAll();
   {
      Kiv::ActivityScope scope;
      sdk().bcm_field_qualify_InPort(0, e, 1, 1);
      {
         Kiv::UnlockAnchor unlock(Kiv::activityLock());
         sdk().bcm_field_qualify_InPort(0, e, 2, 2);
      }
   }
   ASSERT_EQ(sdk().journal().size(), 2u);
   EXPECT_TRUE(sdk().journal()[0].lockHeld);
   EXPECT_FALSE(sdk().journal()[1].lockHeld);
}

TEST_F(SimChipTest, InjectedFaultFailsTheNextCallOnceAndChangesNothing) {
   bcm_field_entry_t e = newEntry();
   sdk().failNextCallIs("bcm_field_qualify_InPort", BCM_E_INTERNAL);
   EXPECT_EQ(sdk().faultsPending(), 1u);
   EXPECT_EQ(sdk().bcm_field_qualify_CpuQueue(0, e, 1, 1), BCM_E_NONE);  // other calls unaffected
   EXPECT_EQ(sdk().bcm_field_qualify_InPort(0, e, 3, 3), BCM_E_INTERNAL);
   EXPECT_TRUE(sdk().journal().back().injected);
   EXPECT_EQ(sdk().journal().back().rc, BCM_E_INTERNAL);
   EXPECT_FALSE(chip().entry(0, e)->sw.qualifier(QualKind::InPort));
   EXPECT_EQ(sdk().faultsPending(), 0u);
   EXPECT_EQ(sdk().bcm_field_qualify_InPort(0, e, 3, 3), BCM_E_NONE);
   EXPECT_EQ(chip().entry(0, e)->sw.qualifier(QualKind::InPort), (Qualifier{3, 3}));
}

TEST_F(SimChipTest, InjectedResourceFailureOfInstallLeavesEntryOut) {
   bcm_field_entry_t e = newEntry();
   sdk().failNextCallIs("bcm_field_entry_install", BCM_E_RESOURCE);
   EXPECT_EQ(sdk().bcm_field_entry_install(0, e), BCM_E_RESOURCE);
   EXPECT_FALSE(chip().entry(0, e)->installed);
}

TEST_F(SimChipTest, JournalKeepsOnlyTheMostRecentCallsUpToItsLimit) {
   EXPECT_EQ(sdk().journalLimit(), Sdk::defaultJournalLimit);
   sdk().journalLimitIs(2);
   bcm_field_entry_t e = newEntry();
   sdk().bcm_field_qualify_InPort(0, e, 1, 0xFFFFFFFF);
   sdk().bcm_field_qualify_CpuQueue(0, e, 2, 0x3F);
   EXPECT_EQ(sdk().journalNames(),
             (std::vector<std::string>{"bcm_field_qualify_InPort", "bcm_field_qualify_CpuQueue"}));
   // Shortening it drops the oldest calls at once.
   sdk().journalLimitIs(1);
   EXPECT_EQ(sdk().journalNames(), std::vector<std::string>{"bcm_field_qualify_CpuQueue"});
   sdk().reset();
   EXPECT_EQ(sdk().journalLimit(), Sdk::defaultJournalLimit);
}

TEST_F(SimChipTest, AJournalOfNoCallsStillLetsCallsWorkAndFaultsFire) {
   sdk().journalLimitIs(0);
   bcm_field_entry_t e = newEntry();
   EXPECT_EQ(sdk().bcm_field_qualify_InPort(0, e, 4, 0xFFFFFFFF), BCM_E_NONE);
   sdk().failNextCallIs("bcm_field_entry_install", BCM_E_RESOURCE);
   EXPECT_EQ(sdk().bcm_field_entry_install(0, e), BCM_E_RESOURCE);
   EXPECT_EQ(sdk().bcm_field_entry_install(0, e), BCM_E_NONE);
   EXPECT_TRUE(sdk().journal().empty());
   EXPECT_EQ(chip().entry(0, e)->hw.qualifier(QualKind::InPort), (Qualifier{4, 0xFFFFFFFF}));
}

TEST_F(SimChipTest, HooksAreCountedAndTheJournalSeesThePreCallHook) {
   bcm_field_entry_t e = newEntry();
   EXPECT_EQ(sdk().preCalls(), 0u);
   sdk().preCall("bcm_field_qualify_InPort( unit, entry, srcPortVal, srcPortMask )");
   sdk().bcm_field_qualify_InPort(0, e, 1, 1);
   EXPECT_TRUE(sdk().journal().back().afterPreCall);
   sdk().bcm_field_qualify_InPort(0, e, 1, 1);
   EXPECT_FALSE(sdk().journal().back().afterPreCall);
   sdk().preCall("bcm_field_qualify_InPorts");
   sdk().bcm_field_qualify_InPort(0, e, 1, 1);
   EXPECT_FALSE(sdk().journal().back().afterPreCall);
   EXPECT_EQ(sdk().preCalls(), 2u);
   sdk().callFailed("bcm_field_entry_remove( unit, entry )", BCM_E_NOT_FOUND);
   EXPECT_EQ(sdk().callFailures(), 1u);
   EXPECT_EQ(sdk().lastFailedCall(), "bcm_field_entry_remove( unit, entry )");
   EXPECT_EQ(sdk().lastFailedRc(), BCM_E_NOT_FOUND);
}

TEST_F(SimChipTest, TamperingChangesWhatTheSdkReadsBack) {
   bcm_field_entry_t e = newEntry();
   bcm_policer_t p = newPolicer(300, 30);
   sdk().bcm_field_entry_policer_attach(0, e, 0, p);
   ASSERT_EQ(sdk().bcm_field_entry_install(0, e), BCM_E_NONE);
   sdk().journalDelAll();

   bcm_policer_config_s cfg = chip().policer(0, p)->config;
   cfg.ckbits_sec_is(999);
   cfg.ckbits_burst_is(99);
   cfg.mode_is(bcmPolicerModeTrTcm);
   cfg.flags_is(0x40);
   EXPECT_TRUE(chip().tamperPolicer(0, p, cfg));
   bcm_policer_config_s got;
   EXPECT_EQ(sdk().bcm_policer_get(0, p, &got), BCM_E_NONE);
   EXPECT_EQ(got.ckbits_sec(), 999u);
   EXPECT_EQ(got.ckbits_burst(), 99u);
   EXPECT_EQ(got.mode(), 3u);
   EXPECT_EQ(got.flags(), 0x40u);

   EXPECT_TRUE(chip().tamperDetachPolicer(0, e));
   bcm_policer_t attached = 0;
   EXPECT_EQ(sdk().bcm_field_entry_policer_get(0, e, 0, &attached), BCM_E_NOT_FOUND);
   EXPECT_EQ(chip().entry(0, e)->hw.policer[0], 0);
   EXPECT_EQ(chip().metersInUse(0, 7), 0u);
   EXPECT_FALSE(chip().tamperDetachPolicer(0, e));

   EXPECT_TRUE(chip().tamperDestroyPolicer(0, p));
   EXPECT_EQ(sdk().bcm_policer_get(0, p, &got), BCM_E_NOT_FOUND);
   EXPECT_FALSE(chip().tamperPolicer(0, p, cfg));
   // Tampering is not an SDK call of the agent's.
   EXPECT_EQ(sdk().journalNames(),
             (std::vector<std::string>{"bcm_policer_get", "bcm_field_entry_policer_get",
                                       "bcm_policer_get"}));
}

TEST_F(SimChipTest, StatisticsCountOnlyTheirTypesAndFollowTheirEntry) {
   bcm_field_entry_t e = newEntry();
   bcm_field_stat_t types[] = {bcmFieldStatPackets, bcmFieldStatRedPackets};
   int stat = 0;
   EXPECT_EQ(sdk().bcm_field_stat_create(0, 7, 2, types, &stat), BCM_E_NONE);
   EXPECT_EQ(sdk().bcm_field_stat_create(0, 99, 2, types, &stat), BCM_E_NOT_FOUND);
   EXPECT_EQ(sdk().bcm_field_entry_stat_attach(0, e, stat), BCM_E_NONE);
   EXPECT_EQ(sdk().bcm_field_entry_stat_attach(0, e, stat), BCM_E_EXISTS);
   U64 v = 5;
   EXPECT_EQ(sdk().bcm_field_stat_get(0, stat, bcmFieldStatPackets, &v), BCM_E_NONE);
   EXPECT_EQ(v, 0u);
   EXPECT_EQ(sdk().bcm_field_stat_get(0, stat, bcmFieldStatPackets, nullptr), BCM_E_PARAM);
   EXPECT_EQ(sdk().bcm_field_stat_destroy(0, stat), BCM_E_BUSY);
   EXPECT_EQ(sdk().bcm_field_entry_destroy(0, e), BCM_E_NONE);
   EXPECT_EQ(sdk().bcm_field_stat_destroy(0, stat), BCM_E_NONE);
   EXPECT_EQ(sdk().bcm_field_stat_get(0, stat, bcmFieldStatPackets, &v), BCM_E_NOT_FOUND);
}

TEST_F(SimChipTest, AStatisticOfMoreTypesCountsEachApart) {
   bcm_field_stat_t types[] = {bcmFieldStatRedPackets, bcmFieldStatPackets,
                               static_cast<bcm_field_stat_t>(3), static_cast<bcm_field_stat_t>(4)};
   newEntry();
   int stat = 0;
   ASSERT_EQ(sdk().bcm_field_stat_create(0, 7, 4, types, &stat), BCM_E_NONE);
   FieldStat const* s = chip().stat(0, stat);
   ASSERT_NE(s, nullptr);
   EXPECT_EQ(s->types(), (std::vector<int>{7, 1, 3, 4}));
   // Each type has a count of its own.
   FieldStat* counts = const_cast<FieldStat*>(s);
   for (int type : {7, 1, 3, 4}) {
      ASSERT_NE(counts->count(type), nullptr);
      *counts->count(type) = static_cast<U64>(type * 10);
   }
   for (int type : {7, 1, 3, 4}) {
      U64 v = 0;
      EXPECT_EQ(sdk().bcm_field_stat_get(0, stat, static_cast<bcm_field_stat_t>(type), &v),
                BCM_E_NONE);
      EXPECT_EQ(v, static_cast<U64>(type * 10));
   }
   U64 v = 0;
   EXPECT_EQ(sdk().bcm_field_stat_get(0, stat, static_cast<bcm_field_stat_t>(5), &v), BCM_E_PARAM);
   EXPECT_EQ(sdk().bcm_field_stat_destroy(0, stat), BCM_E_NONE);
}

TEST(SimChipEntryProgram, ActionsStayInOrderAndCopiesAreTheirOwn) {
   EntryProgram p;
   EXPECT_FALSE(p.hasAction(bcmFieldActionRpDrop));
   p.actionIs(bcmFieldActionRpDrop, {1, 2});
   p.actionIs(bcmFieldActionCopyToCpu, {3, 4});
   p.actionIs(bcmFieldActionDrop, {5, 6});
   p.actionIs(bcmFieldActionRpDrop, {7, 8});  // again: replaces
   EXPECT_EQ(p.action(bcmFieldActionRpDrop), std::optional(ActionParams{7, 8}));
   EXPECT_EQ(p.action(bcmFieldActionCopyToCpu), std::optional(ActionParams{3, 4}));
   EXPECT_EQ(p.action(bcmFieldActionDrop), std::optional(ActionParams{5, 6}));
   EXPECT_EQ(p.action(99), std::nullopt);

   EntryProgram q(p);
   q.actionIs(bcmFieldActionDrop, {9, 9});
   q.actionIs(99, {1, 1});
   EXPECT_EQ(p.action(bcmFieldActionDrop), std::optional(ActionParams{5, 6}));
   EXPECT_FALSE(p.hasAction(99));
   EXPECT_EQ(q.action(99), std::optional(ActionParams{1, 1}));

   p = q;
   EXPECT_EQ(p.action(bcmFieldActionDrop), std::optional(ActionParams{9, 9}));
   p = EntryProgram();
   EXPECT_FALSE(p.hasAction(bcmFieldActionRpDrop));
   EXPECT_TRUE(q.hasAction(bcmFieldActionRpDrop));
   EntryProgram const& same = q;
   q = same;
   EXPECT_EQ(q.action(bcmFieldActionCopyToCpu), std::optional(ActionParams{3, 4}));
}

TEST_F(SimChipTest, StatisticsAreCountedUntilDestroyed) {
   bcm_field_stat_t types[] = {bcmFieldStatPackets};
   int first = 0;
   int second = 0;
   newEntry();
   EXPECT_EQ(chip().stats(0), 0u);
   EXPECT_EQ(sdk().bcm_field_stat_create(0, 7, 1, types, &first), BCM_E_NONE);
   EXPECT_EQ(sdk().bcm_field_stat_create(0, 7, 1, types, &second), BCM_E_NONE);
   EXPECT_EQ(chip().stats(0), 2u);
   EXPECT_EQ(chip().stats(5), 0u);
   EXPECT_EQ(sdk().bcm_field_stat_destroy(0, first), BCM_E_NONE);
   EXPECT_EQ(chip().stats(0), 1u);
}

TEST_F(SimChipTest, CompressingAGroupIsCounted) {
   newEntry();
   EXPECT_EQ(sdk().bcm_field_group_compress(0, 7), BCM_E_NONE);
   EXPECT_EQ(sdk().bcm_field_group_compress(0, 8), BCM_E_NOT_FOUND);
   EXPECT_EQ(chip().group(0, 7)->compressions, 1u);
}

TEST_F(SimChipTest, ResetLeavesAnEmptyUnitZeroOnly) {
   chip().unitIs(3);
   newEntry();
   newPolicer();
   sdk().failNextCallIs("bcm_field_entry_install", BCM_E_FAIL);
   sdk().preCall("x");
   sdk().reset();
   EXPECT_EQ(chip().units(), (std::vector<int>{0}));
   EXPECT_TRUE(chip().entries(0).empty());
   EXPECT_EQ(chip().policers(0), 0u);
   EXPECT_TRUE(sdk().journal().empty());
   EXPECT_EQ(sdk().faultsPending(), 0u);
   EXPECT_EQ(sdk().preCalls(), 0u);
}

}  // namespace
