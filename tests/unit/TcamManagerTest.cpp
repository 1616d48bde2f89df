#include <gtest/gtest.h>

#include "Kiv/Clock.h"
#include "Nimbal/TcamGroupManager.h"
#include "Shim/Sdk.h"

namespace {

using namespace Nimbal;
using Shim::sdk_;

class TcamManagerTest : public ::testing::Test {
  protected:
   void SetUp() override {
      sdk_->reset();
      groupMgr_ = new NimbalTcamGroupManager();
      copp_ = new NimbalUnboundedTcamEntryManager(20);
      def_ = new NimbalBoundedTcamEntryManager(21, 1024);
      groupMgr_->entryMgrAdd(copp_);
      groupMgr_->entryMgrAdd(def_);
      stats_.typeIs(0, sdk_->coppStatType(0));
      stats_.typeIs(1, sdk_->coppStatType(1));
   }
   Shim::SimChip& chip() { return sdk_->chip(); }
   Shim::bcm_policer_config_s config(U32 cir, U32 bc) {
      Shim::bcm_policer_config_s cfg;
      sdk_->bcm_policer_config_t_init(&cfg);
      cfg.mode_is(sdk_->coppPolicerMode());
      cfg.flags_or(0x84);
      cfg.ckbits_sec_is(cir);
      cfg.ckbits_burst_is(bc);
      cfg.pkbits_sec_is(0);
      cfg.pkbits_burst_is(0);
      return cfg;
   }
   U32 coppEntry() {
      U32 e = copp_->getEntryWithStats(0, "Dynamic Kernel Copp for Ethernet1, copp-system-bgp",
                                       RequestKey(), stats_);
      EXPECT_NE(e, 0u);
      return e;
   }

   Kiv::Ptr<NimbalTcamGroupManager> groupMgr_;
   Kiv::Ptr<NimbalUnboundedTcamEntryManager> copp_;
   Kiv::Ptr<NimbalBoundedTcamEntryManager> def_;
   StatTypes stats_;
};

TEST_F(TcamManagerTest, CreatedPolicersStartAtOneAndCarryTheirConfiguration) {
   EXPECT_EQ(groupMgr_->createPolicer(0, config(300, 30)), 1u);
   EXPECT_EQ(groupMgr_->createPolicer(0, config(100, 10)), 2u);
   ASSERT_NE(chip().policer(0, 1), nullptr);
   EXPECT_EQ(chip().policer(0, 1)->config, config(300, 30));
   EXPECT_EQ(chip().policer(0, 2)->config.ckbits_sec(), 100u);
   groupMgr_->removePolicer(0, 1);
   EXPECT_EQ(chip().policer(0, 1), nullptr);
   groupMgr_->removePolicer(0, 1);  // already gone: nothing to do
   EXPECT_EQ(chip().policers(0), 1u);
}

TEST_F(TcamManagerTest, CreatingAPolicerOnAnUnknownUnitIsFatal) {
   EXPECT_DEATH(groupMgr_->createPolicer(9, config(1, 1)), "rc == ::Shim::BCM_E_NONE");
}

TEST_F(TcamManagerTest, ReturnErrorOnInstallIsAPlainFlag) {
   EXPECT_FALSE(groupMgr_->returnErrorOnInstall());
   groupMgr_->returnErrorOnInstallIs(true);
   EXPECT_TRUE(groupMgr_->returnErrorOnInstall());
   groupMgr_->returnErrorOnInstallIs(false);
   EXPECT_FALSE(groupMgr_->returnErrorOnInstall());
}

TEST_F(TcamManagerTest, UnboundedEntryIsCreatedInItsGroupWithTwoStatistics) {
   U32 e = coppEntry();
   Shim::FieldEntry const* fe = chip().entry(0, e);
   ASSERT_NE(fe, nullptr);
   EXPECT_EQ(fe->group, 20);
   ASSERT_NE(fe->statId, 0);
   EXPECT_EQ(chip().stat(0, fe->statId)->types(),
             (std::vector<int>{Shim::bcmFieldStatPackets, Shim::bcmFieldStatRedPackets}));
   EXPECT_TRUE(copp_->entryHas(0, e));
   EXPECT_EQ(copp_->entryDescription(0, e), "Dynamic Kernel Copp for Ethernet1, copp-system-bgp");
   EXPECT_EQ(groupMgr_->tcamEntryMgr(e), Kiv::Ptr<NimbalTcamEntryManager>(copp_));
   EXPECT_EQ(sdk_->journalNames(),
             (std::vector<std::string>{"bcm_field_group_create_id", "bcm_field_entry_create",
                                       "bcm_field_stat_create", "bcm_field_entry_stat_attach"}));
}

TEST_F(TcamManagerTest, TheGroupIsCreatedOncePerUnit) {
   chip().unitIs(1);
   coppEntry();
   coppEntry();
   copp_->getEntryWithStats(1, "x", RequestKey(), stats_);
   EXPECT_EQ(sdk_->journalTexts("bcm_field_group_create_id"),
             (std::vector<std::string>{"bcm_field_group_create_id(0, 20)",
                                       "bcm_field_group_create_id(1, 20)"}));
}

TEST_F(TcamManagerTest, AGroupAlreadyInTheChipIsTakenAsItIs) {
   chip().entryPoolSizeIs(0, 20, 1);
   coppEntry();
   EXPECT_EQ(copp_->getEntryWithStats(0, "x", RequestKey(), stats_), 0u);
}

TEST_F(TcamManagerTest, UnboundedManagerGivesZeroWhenTheGroupIsFullAndEntriesComeBack) {
   chip().entryPoolSizeIs(0, 20, 2);
   U32 a = coppEntry();
   coppEntry();
   EXPECT_EQ(copp_->getEntryWithStats(0, "third", RequestKey(), stats_), 0u);
   EXPECT_EQ(copp_->entryCount(), 2u);
   copp_->destroyEntry(0, a);
   EXPECT_FALSE(copp_->entryHas(0, a));
   EXPECT_EQ(groupMgr_->tcamEntryMgr(a), nullptr);
   EXPECT_EQ(chip().entry(0, a), nullptr);
   EXPECT_EQ(chip().entriesInUse(0, 20), 1u);
   EXPECT_NE(copp_->getEntryWithStats(0, "third", RequestKey(), stats_), 0u);
}

TEST_F(TcamManagerTest, BoundedManagerCreatesTheGivenIdOrGivesZero) {
   EXPECT_EQ(def_->baseIndex(), 1024u);
   EXPECT_EQ(def_->getEntryWithStats(0, 1024 + 768 + 5, "Default Copp (vxlan): Ethernet5",
                                     RequestKey(), stats_),
             1797u);
   EXPECT_EQ(chip().entry(0, 1797)->group, 21);
   EXPECT_EQ(groupMgr_->tcamEntryMgr(1797), Kiv::Ptr<NimbalTcamEntryManager>(def_));
   EXPECT_EQ(def_->getEntryWithStats(0, 1797, "again", RequestKey(), stats_), 0u);  // taken
   chip().entryPoolSizeIs(0, 21, 1);
   EXPECT_EQ(def_->getEntryWithStats(0, 1030, "full", RequestKey(), stats_), 0u);
   EXPECT_FALSE(def_->entryHas(0, 1030));
}

TEST_F(TcamManagerTest, BoundedEntryBelowTheBaseIndexIsFatal) {
   EXPECT_DEATH(def_->getEntryWithStats(0, 5, "x", RequestKey(), stats_),
                "entry != 0 && entry >= baseIndex_");
}

TEST_F(TcamManagerTest, PrioritiesAreValuesOfTheManager) {
   EXPECT_EQ(copp_->coppPriority(), 100);
   copp_->coppPriorityIs(7);
   EXPECT_EQ(copp_->coppPriority(), 7);
   EXPECT_EQ(def_->entryPriority(), 100);
   def_->entryPriorityIs(3);
   EXPECT_EQ(def_->entryPriority(), 3);
}

TEST_F(TcamManagerTest, SetPriorityForEntryProgramsTheChip) {
   U32 e = coppEntry();
   copp_->setPriorityForEntry(0, e, copp_->coppPriority());
   EXPECT_EQ(chip().entry(0, e)->sw.priority, 100);
   EXPECT_EQ(sdk_->journalTexts().back(),
             "bcm_field_entry_prio_set(0, " + std::to_string(e) + ", 100)");
}

TEST_F(TcamManagerTest, AttachedPolicerReachesHardwareAtTheNextInstall) {
   U32 e = coppEntry();
   U32 p = groupMgr_->createPolicer(0, config(300, 30));
   copp_->attachPolicer(0, e, p, true);
   EXPECT_EQ(copp_->policerForEntry(0, e), p);
   EXPECT_EQ(chip().entry(0, e)->sw.policer[0], static_cast<int>(p));
   EXPECT_EQ(chip().entry(0, e)->hw.policer[0], 0);
   EXPECT_EQ(copp_->installEntry(0, e), Shim::BCM_E_NONE);
   EXPECT_EQ(chip().entry(0, e)->hw.policer[0], static_cast<int>(p));
   EXPECT_EQ(chip().metersInUse(0, 20), 1u);

   // Swapping: detach, re-install unmetered, then the new meter.
   copp_->attachPolicer(0, e, 0, false);
   EXPECT_EQ(copp_->policerForEntry(0, e), 0u);
   copp_->installEntry(0, e);
   EXPECT_EQ(chip().metersInUse(0, 20), 0u);
   groupMgr_->removePolicer(0, p);
   U32 p2 = groupMgr_->createPolicer(0, config(100, 10));
   copp_->attachPolicer(0, e, p2, true);
   copp_->installEntry(0, e);
   EXPECT_EQ(chip().entry(0, e)->hw.policer[0], static_cast<int>(p2));
}

TEST_F(TcamManagerTest, AttachingOverAnAttachedPolicerReplacesIt) {
   U32 e = coppEntry();
   copp_->attachPolicer(0, e, groupMgr_->createPolicer(0, config(1, 1)), true);
   U32 p2 = groupMgr_->createPolicer(0, config(2, 2));
   copp_->attachPolicer(0, e, p2, true);
   EXPECT_EQ(chip().entry(0, e)->sw.policer[0], static_cast<int>(p2));
}

TEST_F(TcamManagerTest, ClearingAnEntryWithoutMeterIsHarmless) {
   U32 e = coppEntry();
   copp_->attachPolicer(0, e, 0, false);
   EXPECT_EQ(sdk_->journal().back().rc, Shim::BCM_E_NOT_FOUND);
   EXPECT_EQ(copp_->policerForEntry(0, e), 0u);
}

TEST_F(TcamManagerTest, ExhaustedMetersComeBackAsResourceWhileReturnErrorOnInstallIsSet) {
   chip().meterPoolSizeIs(0, 20, 0);
   U32 e = coppEntry();
   U32 p = groupMgr_->createPolicer(0, config(300, 30));
   copp_->attachPolicer(0, e, p, true);
   groupMgr_->returnErrorOnInstallIs(true);
   int rc = copp_->installEntry(0, e);
   groupMgr_->returnErrorOnInstallIs(false);
   EXPECT_EQ(rc, sdk_->QV_BCM_E_RESOURCE());
   // The undo leaves no policer attached and no meter allocated.
   copp_->attachPolicer(0, e, p, false);
   groupMgr_->removePolicer(0, p);
   Shim::bcm_policer_t attached = 0;
   EXPECT_EQ(sdk_->bcm_field_entry_policer_get(0, e, 0, &attached), Shim::BCM_E_NOT_FOUND);
   EXPECT_EQ(chip().policers(0), 0u);
   EXPECT_EQ(chip().metersInUse(0, 20), 0u);
   EXPECT_TRUE(copp_->entryHas(0, e));
}

TEST_F(TcamManagerTest, AFailingInstallIsFatalUnlessReturnErrorOnInstallIsSet) {
   chip().meterPoolSizeIs(0, 20, 0);
   U32 e = coppEntry();
   copp_->attachPolicer(0, e, groupMgr_->createPolicer(0, config(300, 30)), true);
   EXPECT_DEATH(copp_->installEntry(0, e), "rc == ::Shim::BCM_E_NONE");
}

TEST_F(TcamManagerTest, DestroyingAnEntryFreesItsCountersAndItsPoolPlace) {
   U32 e = coppEntry();
   int stat = chip().entry(0, e)->statId;
   copp_->installEntry(0, e);
   copp_->destroyEntry(0, e);
   EXPECT_EQ(chip().entry(0, e), nullptr);
   EXPECT_EQ(chip().stat(0, stat), nullptr);
   EXPECT_EQ(chip().entriesInUse(0, 20), 0u);
   EXPECT_EQ(copp_->hitsForEntry(0, e), 0u);
}

TEST_F(TcamManagerTest, DestroyingAnEntryTheManagerDoesNotHoldIsFatal) {
   EXPECT_DEATH(copp_->destroyEntry(0, 12345), "destroyEntry of an entry");
}

TEST_F(TcamManagerTest, AnEntryStaysRegisteredWhileAnotherUnitHoldsIt) {
   chip().unitIs(1);
   U32 e0 = def_->getEntryWithStats(0, 1100, "u0", RequestKey(), stats_);
   U32 e1 = def_->getEntryWithStats(1, 1100, "u1", RequestKey(), stats_);
   ASSERT_EQ(e0, e1);
   def_->destroyEntry(0, e0);
   EXPECT_EQ(groupMgr_->tcamEntryMgr(1100), Kiv::Ptr<NimbalTcamEntryManager>(def_));
   def_->destroyEntry(1, e1);
   EXPECT_FALSE(groupMgr_->tcamEntryMgrHas(1100));
}

TEST_F(TcamManagerTest, HitsForEntryCountsThePacketsItMatched) {
   U32 e = coppEntry();
   sdk_->bcm_field_qualify_InPort(0, e, 5, 0xFFFFFFFF);
   copp_->installEntry(0, e);
   double t = Kiv::activityClock()->now();
   chip().sendToCpu(0, 5, 1, 0, t);
   chip().sendToCpu(0, 5, 2, 0, t);
   chip().sendToCpu(0, 6, 2, 0, t);
   EXPECT_EQ(copp_->hitsForEntry(0, e), 2u);
   EXPECT_EQ(copp_->hitsForEntry(0, e + 1), 0u);
}

TEST_F(TcamManagerTest, InPortsAreRecordedUntilMadePermanent) {
   U32 e = coppEntry();
   Shim::bcm_pbmp_t pbm = Shim::pbmpOf({1, 2, 3});
   Shim::bcm_pbmp_t all = Shim::pbmpOf({1, 2, 3, 4});
   EXPECT_TRUE(copp_->tcamEntryBcmPbmp(0, e).empty());
   EXPECT_TRUE(copp_->addInPortsForEntry(0, e, pbm, all));
   EXPECT_EQ(copp_->tcamEntryBcmPbmp(0, e), pbm);
   EXPECT_EQ(copp_->tcamEntryBcmPbmpMask(0, e), all);
   EXPECT_FALSE(copp_->tcamEntryBcmPbmpPermanent(0, e));
   copp_->setTcamEntryBcmPbmpPermanent(0, e, true);
   EXPECT_TRUE(copp_->tcamEntryBcmPbmpPermanent(0, e));
   EXPECT_FALSE(copp_->addInPortsForEntry(0, e, Shim::pbmpOf({1}), all));
   EXPECT_EQ(copp_->tcamEntryBcmPbmp(0, e), pbm);
   copp_->setTcamEntryBcmPbmpPermanent(0, e, false);
   EXPECT_TRUE(copp_->addInPortsForEntry(0, e, Shim::pbmpOf({1}), all));
   EXPECT_EQ(copp_->tcamEntryBcmPbmp(0, e), Shim::pbmpOf({1}));
   copp_->destroyEntry(0, e);
   EXPECT_TRUE(copp_->tcamEntryBcmPbmp(0, e).empty());
}

TEST_F(TcamManagerTest, CompressingEntriesCompactsTheGroupInTheUnit) {
   coppEntry();
   sdk_->journalDelAll();
   copp_->compressEntries(0);
   def_->compressEntries(0);  // creates its group first
   EXPECT_EQ(sdk_->journalTexts(), (std::vector<std::string>{"bcm_field_group_compress(0, 20)",
                                                             "bcm_field_group_create_id(0, 21)",
                                                             "bcm_field_group_compress(0, 21)"}));
   EXPECT_EQ(copp_->compressions(0), 1u);
   EXPECT_EQ(copp_->compressions(1), 0u);
   EXPECT_EQ(chip().group(0, 20)->compressions, 1u);
}

TEST_F(TcamManagerTest, TheGroupManagerLetsGoOfItsManagersWhenItDies) {
   Kiv::Ptr<NimbalUnboundedTcamEntryManager> m = copp_;
   EXPECT_EQ(m->groupManager(), groupMgr_.ptr());
   groupMgr_ = nullptr;
   EXPECT_EQ(m->groupManager(), nullptr);
   // It still allocates, with nobody to register its entries with.
   U32 e = m->getEntryWithStats(0, "x", RequestKey(), stats_);
   EXPECT_NE(e, 0u);
}

TEST_F(TcamManagerTest, StatTypesKeepTheirPositions) {
   StatTypes st;
   EXPECT_TRUE(st.list().empty());
   st.typeIs(1, Shim::bcmFieldStatRedPackets);
   st.typeIs(0, Shim::bcmFieldStatPackets);
   EXPECT_EQ(st.type(0), Shim::bcmFieldStatPackets);
   EXPECT_EQ(st.type(1), Shim::bcmFieldStatRedPackets);
   EXPECT_FALSE(st.type(2));
   EXPECT_EQ(st.list(), (std::vector<Shim::bcm_field_stat_t>{Shim::bcmFieldStatPackets,
                                                             Shim::bcmFieldStatRedPackets}));
   U32 e = copp_->getEntryWithStats(0, "none", RequestKey(7), StatTypes());
   EXPECT_EQ(chip().entry(0, e)->statId, 0);
   EXPECT_EQ(copp_->entryRequestKey(0, e), RequestKey(7));
}

}  // namespace
