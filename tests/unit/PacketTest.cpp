#include <gtest/gtest.h>

#include "Kiv/Clock.h"
#include "Nimbal/PktDrv.h"
#include "Nimbal/TcamGroupManager.h"
#include "Shim/Sdk.h"

namespace {

using namespace Shim;

// Entries in the chip as the CoPP code leaves them: qualified, metered, red-drop, installed.
class PacketTest : public ::testing::Test {
  protected:
   void SetUp() override {
      sdk_->reset();
      pktDrv_ = new Nimbal::PktDrv();
      t0_ = Kiv::activityClock()->now();
   }
   Sdk& sdk() { return *sdk_; }
   SimChip& chip() { return sdk_->chip(); }

   bcm_field_entry_t entry(bcm_field_group_t group, int priority = 0) {
      if (!chip().groupHas(0, group)) {
         sdk().bcm_field_group_create_id(0, group);
      }
      bcm_field_entry_t e = 0;
      EXPECT_EQ(sdk().bcm_field_entry_create(0, group, &e), BCM_E_NONE);
      bcm_field_stat_t types[] = {bcmFieldStatPackets, bcmFieldStatRedPackets};
      int stat = 0;
      EXPECT_EQ(sdk().bcm_field_stat_create(0, group, 2, types, &stat), BCM_E_NONE);
      EXPECT_EQ(sdk().bcm_field_entry_stat_attach(0, e, stat), BCM_E_NONE);
      sdk().bcm_field_entry_prio_set(0, e, priority);
      return e;
   }
   void qualify(bcm_field_entry_t e, U32 port, U32 portMask, U8 q, U8 qMask, U16 vlan,
                U16 vlanMask) {
      sdk().bcm_field_qualify_InPort(0, e, port, portMask);
      sdk().bcm_field_qualify_CpuQueue(0, e, q, qMask);
      sdk().bcm_field_qualify_InnerVlanId(0, e, vlan, vlanMask);
      sdk().bcm_field_qualify_InterfaceClassPort(0, e, 2, 2);
   }
   void meter(bcm_field_entry_t e, U32 rate, U32 burst, bool rpDrop = true) {
      bcm_policer_config_s cfg;
      sdk().bcm_policer_config_t_init(&cfg);
      cfg.mode_is(sdk().coppPolicerMode());
      cfg.flags_or(0x84);
      cfg.ckbits_sec_is(rate);
      cfg.ckbits_burst_is(burst);
      bcm_policer_t p = 0;
      ASSERT_EQ(sdk().bcm_policer_create(0, &cfg, &p), BCM_E_NONE);
      ASSERT_EQ(sdk().bcm_field_entry_policer_attach(0, e, 0, p), BCM_E_NONE);
      if (rpDrop) {
         sdk().bcm_field_action_add(0, e, bcmFieldActionRpDrop, 0, 0);
      }
   }
   void install(bcm_field_entry_t e) { ASSERT_EQ(sdk().bcm_field_entry_install(0, e), BCM_E_NONE); }
   // `count` packets evenly spread at `pps` from t0.
   U64 flood(U32 port, U32 queue, U16 vlan, int pps, int count) {
      U64 allowed = 0;
      for (int i = 0; i < count; ++i) {
         allowed += pktDrv_->sendToCpu(0, port, queue, vlan, t0_ + i / double(pps)) ? 1 : 0;
      }
      return allowed;
   }
   U64 hits(bcm_field_entry_t e) { return chip().entryStat(0, e, bcmFieldStatPackets); }
   U64 red(bcm_field_entry_t e) { return chip().entryStat(0, e, bcmFieldStatRedPackets); }

   Kiv::Ptr<Nimbal::PktDrv> pktDrv_;
   double t0_ = 0;
};

TEST_F(PacketTest, FloodAtThreeTimesTheMeterRateAllowsRateTimesTimePlusBurst) {
   bcm_field_entry_t e = entry(10);
   qualify(e, 5, 0xFFFFFFFF, 9, 0x3F, 0, 0);
   meter(e, 300, 30);
   install(e);
   U64 allowed = flood(5, 9, 0, 1000, 10000);
   EXPECT_NEAR(static_cast<double>(allowed), 3030.0, 1.0);
   EXPECT_EQ(hits(e), 10000u);
   EXPECT_EQ(red(e), 10000u - allowed);
   auto [dropped, passed] = pktDrv_->getDdeCoppCounters(0, 5, 9);
   EXPECT_EQ(passed, allowed);
   EXPECT_EQ(dropped, 10000u - allowed);
   EXPECT_EQ(pktDrv_->getDdeCoppCounters(0, 5, 8), (std::pair<U64, U64>(0, 0)));
}

TEST_F(PacketTest, RedPacketsAreDroppedOnlyWhereTheEntryHasRedDrop) {
   bcm_field_entry_t e = entry(10);
   qualify(e, 5, 0xFFFFFFFF, 9, 0x3F, 0, 0);
   meter(e, 10, 2, false);
   install(e);
   EXPECT_EQ(flood(5, 9, 0, 1000, 100), 100u);
   EXPECT_GT(red(e), 90u);
   EXPECT_EQ(pktDrv_->getDdeCoppCounters(0, 5, 9).first, 0u);

   sdk().bcm_field_action_add(0, e, bcmFieldActionRpDrop, 0, 0);
   EXPECT_EQ(flood(5, 9, 0, 1000, 100), 100u);  // not until installed
   install(e);
   t0_ += 1.0;  // bucket refills to its burst of 2
   EXPECT_EQ(flood(5, 9, 0, 1000, 100), 2u);
}

TEST_F(PacketTest, BurstOfZeroStillPassesOnePacketPerToken) {
   bcm_field_entry_t e = entry(10);
   qualify(e, 5, 0xFFFFFFFF, 9, 0x3F, 0, 0);
   meter(e, 10, 0);
   install(e);
   // 100 packets over one second at 10 pps: the first, then one per 0.1 s.
   EXPECT_NEAR(static_cast<double>(flood(5, 9, 0, 100, 100)), 10.0, 1.0);
}

TEST_F(PacketTest, DropActionDropsEveryMatchingPacket) {
   bcm_field_entry_t e = entry(10);
   qualify(e, 5, 0xFFFFFFFF, 0, 0, 0, 0);
   sdk().bcm_field_action_add(0, e, bcmFieldActionDrop, 0, 0);
   install(e);
   EXPECT_EQ(flood(5, 3, 0, 1000, 10), 0u);
   EXPECT_EQ(pktDrv_->getDdeCoppCounters(0, 5, 3), (std::pair<U64, U64>(10, 0)));
   EXPECT_EQ(hits(e), 10u);
}

TEST_F(PacketTest, HighestPriorityMatchWinsInEachGroupAndEveryWinnerCounts) {
   bcm_field_entry_t low = entry(10, 1);
   qualify(low, 0, 0, 0, 0, 0, 0);  // everything
   install(low);
   bcm_field_entry_t high = entry(10, 5);
   qualify(high, 5, 0xFFFFFFFF, 0, 0, 0, 0);
   install(high);
   bcm_field_entry_t other = entry(11, 0);
   qualify(other, 0, 0, 9, 0x3F, 0, 0);
   install(other);

   PacketResult r = chip().sendToCpu(0, 5, 9, 0, t0_);
   ASSERT_EQ(r.matches.size(), 2u);
   EXPECT_EQ(r.matches[0].entry, high);
   EXPECT_EQ(r.matches[0].group, 10);
   EXPECT_EQ(r.matches[1].entry, other);
   EXPECT_EQ(hits(high), 1u);
   EXPECT_EQ(hits(low), 0u);
   EXPECT_EQ(hits(other), 1u);

   r = chip().sendToCpu(0, 6, 9, 0, t0_);
   ASSERT_EQ(r.matches.size(), 2u);
   EXPECT_EQ(r.matches[0].entry, low);
}

TEST_F(PacketTest, AmongEqualPrioritiesTheLowestEntryIdWins) {
   sdk().bcm_field_group_create_id(0, 10);
   ASSERT_EQ(sdk().bcm_field_entry_create_id(0, 10, 20), BCM_E_NONE);
   ASSERT_EQ(sdk().bcm_field_entry_create_id(0, 10, 10), BCM_E_NONE);
   install(20);
   install(10);
   PacketResult r = chip().sendToCpu(0, 1, 1, 0, t0_);
   ASSERT_EQ(r.matches.size(), 1u);
   EXPECT_EQ(r.matches[0].entry, 10);
}

TEST_F(PacketTest, AMeterOfEachMatchIsConsultedAndAnyDropDropsThePacket) {
   bcm_field_entry_t a = entry(10);
   qualify(a, 5, 0xFFFFFFFF, 0, 0, 0, 0);
   meter(a, 1000, 1000);
   install(a);
   bcm_field_entry_t b = entry(11);
   qualify(b, 0, 0, 9, 0x3F, 0, 0);
   meter(b, 1, 1);
   install(b);
   EXPECT_EQ(flood(5, 9, 0, 1000, 10), 1u);
   EXPECT_EQ(red(a), 0u);
   EXPECT_EQ(red(b), 9u);
   EXPECT_EQ(hits(a), 10u);
   EXPECT_EQ(hits(b), 10u);
}

TEST_F(PacketTest, VxlanPacketMatchesTheSourcePortThroughItsInnerVlan) {
   bcm_field_entry_t vx = entry(10);
   qualify(vx, 0, 0, 9, 0x3F, 5, 0xFFF);
   install(vx);
   EXPECT_EQ(chip().sendToCpu(0, 100, 9, 5, t0_).matches.size(), 1u);       // recirculated
   EXPECT_EQ(chip().sendToCpu(0, 100, 9, 0x1005, t0_).matches.size(), 1u);  // priority bits
   EXPECT_TRUE(chip().sendToCpu(0, 100, 9, 6, t0_).matches.empty());
   EXPECT_TRUE(chip().sendToCpu(0, 5, 9, 0, t0_).matches.empty());  // not tunnel traffic
   EXPECT_TRUE(chip().sendToCpu(0, 100, 10, 5, t0_).matches.empty());
   EXPECT_EQ(hits(vx), 2u);
}

TEST_F(PacketTest, InterfaceClassPortTwoMatchesEveryPacketToTheCpu) {
   bcm_field_entry_t e = entry(10);
   sdk().bcm_field_qualify_InterfaceClassPort(0, e, 2, 2);
   install(e);
   EXPECT_EQ(chip().sendToCpu(0, 7, 3, 0, t0_).matches.size(), 1u);
   sdk().bcm_field_qualify_InterfaceClassPort(0, e, 1, 1);
   install(e);
   EXPECT_TRUE(chip().sendToCpu(0, 7, 3, 0, t0_).matches.empty());
}

TEST_F(PacketTest, CpuQueueIsComparedUnderItsMask) {
   bcm_field_entry_t e = entry(10);
   qualify(e, 0, 0, 9, 0x3F, 0, 0);
   install(e);
   EXPECT_EQ(chip().sendToCpu(0, 1, 9 + 64, 0, t0_).matches.size(), 1u);  // above the 6 bits
   EXPECT_TRUE(chip().sendToCpu(0, 1, 8, 0, t0_).matches.empty());
}

TEST_F(PacketTest, InPortsMatchesPortsWhoseMaskedBitIsSet) {
   bcm_field_entry_t e = entry(10);
   sdk().bcm_field_qualify_InPorts(0, e, pbmpOf({1, 2}), pbmpOf({1, 2, 3}));
   install(e);
   EXPECT_EQ(chip().sendToCpu(0, 2, 0, 0, t0_).matches.size(), 1u);
   EXPECT_TRUE(chip().sendToCpu(0, 3, 0, 0, t0_).matches.empty());
   EXPECT_EQ(chip().sendToCpu(0, 4, 0, 0, t0_).matches.size(), 1u);  // not cared about
}

TEST_F(PacketTest, EntriesOutOfHardwareMatchNothing) {
   bcm_field_entry_t e = entry(10);
   qualify(e, 5, 0xFFFFFFFF, 0, 0, 0, 0);
   EXPECT_TRUE(chip().sendToCpu(0, 5, 1, 0, t0_).matches.empty());
   install(e);
   EXPECT_EQ(chip().sendToCpu(0, 5, 1, 0, t0_).matches.size(), 1u);
   sdk().bcm_field_entry_remove(0, e);
   EXPECT_TRUE(chip().sendToCpu(0, 5, 1, 0, t0_).matches.empty());
   EXPECT_TRUE(chip().sendToCpu(7, 5, 1, 0, t0_).matches.empty());  // unknown unit
}

TEST_F(PacketTest, TamperedMeterPolicesAtItsNewRate) {
   bcm_field_entry_t e = entry(10);
   qualify(e, 5, 0xFFFFFFFF, 9, 0x3F, 0, 0);
   meter(e, 300, 30);
   install(e);
   bcm_policer_t p = chip().entry(0, e)->hw.policer[0];
   bcm_policer_config_s cfg = chip().policer(0, p)->config;
   cfg.ckbits_sec_is(100);
   cfg.ckbits_burst_is(10);
   chip().tamperPolicer(0, p, cfg);
   EXPECT_NEAR(static_cast<double>(flood(5, 9, 0, 1000, 10000)), 1010.0, 1.0);
}

TEST_F(PacketTest, PacketsWithoutATimeArriveOnTheActivityClock) {
   bcm_field_entry_t e = entry(10);
   qualify(e, 5, 0xFFFFFFFF, 9, 0x3F, 0, 0);
   meter(e, 10, 1);
   install(e);
   EXPECT_TRUE(pktDrv_->sendToCpu(0, 5, 9));
   EXPECT_FALSE(pktDrv_->sendToCpu(0, 5, 9));
   EXPECT_TRUE(pktDrv_->lastPacket().dropped);
   Kiv::activityClock()->advance(0.1);
   EXPECT_TRUE(pktDrv_->sendToCpu(0, 5, 9));
   EXPECT_EQ(pktDrv_->getDdeCoppCounters(0, 5, 9), (std::pair<U64, U64>(1, 2)));
}

TEST_F(PacketTest, ResettingACpuQueueZeroesItOnEveryPortOnly) {
   pktDrv_->sendToCpu(0, 1, 9, 0, t0_);
   pktDrv_->sendToCpu(0, 2, 9, 0, t0_);
   pktDrv_->sendToCpu(0, 2, 8, 0, t0_);
   pktDrv_->resetCpuQCounter(9);
   EXPECT_EQ(pktDrv_->getDdeCoppCounters(0, 1, 9), (std::pair<U64, U64>(0, 0)));
   EXPECT_EQ(pktDrv_->getDdeCoppCounters(0, 2, 9), (std::pair<U64, U64>(0, 0)));
   EXPECT_EQ(pktDrv_->getDdeCoppCounters(0, 2, 8), (std::pair<U64, U64>(0, 1)));
   EXPECT_EQ(pktDrv_->cpuQCounterResets(), (std::vector<unsigned int>{9}));
}

TEST_F(PacketTest, DriverCountersCanBeSetForLongRuns) {
   pktDrv_->ddeCoppCountersIs(0, 4, 2, 7, 11);
   EXPECT_EQ(pktDrv_->getDdeCoppCounters(0, 4, 2), (std::pair<U64, U64>(7, 11)));
   pktDrv_->sendToCpu(0, 4, 2, 0, t0_);
   EXPECT_EQ(pktDrv_->getDdeCoppCounters(0, 4, 2), (std::pair<U64, U64>(7, 12)));
}

TEST_F(PacketTest, ManagerHitsAndDriverCountersSeeTheSameFlood) {
   Kiv::Ptr<Nimbal::NimbalTcamGroupManager> gm = new Nimbal::NimbalTcamGroupManager();
   Kiv::Ptr<Nimbal::NimbalUnboundedTcamEntryManager> mgr =
       new Nimbal::NimbalUnboundedTcamEntryManager(20);
   gm->entryMgrAdd(mgr);
   Nimbal::StatTypes st;
   st.typeIs(0, sdk().coppStatType(0));
   st.typeIs(1, sdk().coppStatType(1));
   U32 e = mgr->getEntryWithStats(0, "flood", Nimbal::RequestKey(), st);
   ASSERT_NE(e, 0u);
   qualify(e, 5, 0xFFFFFFFF, 9, 0x3F, 0, 0);
   bcm_policer_config_s cfg;
   cfg.mode_is(sdk().coppPolicerMode());
   cfg.flags_or(0x84);
   cfg.ckbits_sec_is(300);
   cfg.ckbits_burst_is(30);
   mgr->attachPolicer(0, e, gm->createPolicer(0, cfg), true);
   sdk().bcm_field_action_add(0, e, bcmFieldActionRpDrop, 0, 0);
   ASSERT_EQ(mgr->installEntry(0, e), BCM_E_NONE);

   U64 allowed = flood(5, 9, 0, 1000, 10000);
   EXPECT_NEAR(static_cast<double>(allowed), 3030.0, 1.0);
   EXPECT_EQ(mgr->hitsForEntry(0, e), 10000u);
   EXPECT_EQ(pktDrv_->getDdeCoppCounters(0, 5, 9), (std::pair<U64, U64>(10000 - allowed, allowed)));
}

}  // namespace
