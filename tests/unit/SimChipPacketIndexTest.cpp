// The chip finds the entry a packet hits through an index; these tests hold it to the plain
// rule: in each group, of the installed entries whose every qualifier agrees with the packet, the
// highest priority wins and the lowest id breaks ties.

#include <gtest/gtest.h>

#include <random>
#include <vector>

#include "Shim/Sdk.h"

namespace {

using namespace Shim;

class SimChipPacketIndexTest : public ::testing::Test {
  protected:
   void SetUp() override {
      sdk_->reset();
      sdk_->journalLimitIs(0);
   }
   SimChip& chip() { return sdk_->chip(); }

   bcm_field_entry_t entry(bcm_field_group_t group, int priority) {
      if (!chip().groupHas(0, group)) {
         EXPECT_EQ(sdk_->bcm_field_group_create_id(0, group), BCM_E_NONE);
      }
      bcm_field_entry_t e = 0;
      EXPECT_EQ(sdk_->bcm_field_entry_create(0, group, &e), BCM_E_NONE);
      EXPECT_EQ(sdk_->bcm_field_entry_prio_set(0, e, priority), BCM_E_NONE);
      return e;
   }
   void install(bcm_field_entry_t e) { ASSERT_EQ(sdk_->bcm_field_entry_install(0, e), BCM_E_NONE); }
   bcm_policer_t policer() {
      bcm_policer_config_s cfg;
      sdk_->bcm_policer_config_t_init(&cfg);
      cfg.ckbits_sec_is(100);
      cfg.ckbits_burst_is(10);
      bcm_policer_t p = 0;
      EXPECT_EQ(sdk_->bcm_policer_create(0, &cfg, &p), BCM_E_NONE);
      return p;
   }
   // The winners of a packet, by group, as the chip reports them.
   std::vector<bcm_field_entry_t> hits(int port, int queue, int vlan) {
      std::vector<bcm_field_entry_t> out;
      for (PacketMatch const& m : chip().sendToCpu(0, port, queue, vlan, 0.0).matches) {
         out.push_back(m.entry);
      }
      return out;
   }
   // The same, by walking every entry.
   std::vector<bcm_field_entry_t> walked(int port, int queue, int vlan) {
      std::vector<bcm_field_entry_t> out;
      PacketFields const p{static_cast<U32>(port), static_cast<U32>(queue) & 0xFF,
                           static_cast<U32>(vlan) & 0xFFFF};
      for (int g = 0; g < 4; ++g) {
         FieldEntry const* best = nullptr;
         for (bcm_field_entry_t id : chip().entries(0, g)) {
            FieldEntry const* e = chip().entry(0, id);
            if (!e->installed || !e->hw.matches(p)) {
               continue;
            }
            if (!best || e->hw.priority > best->hw.priority) {
               best = e;
            }
         }
         if (best) {
            out.push_back(best->id);
         }
      }
      return out;
   }
};

TEST_F(SimChipPacketIndexTest, HighestPriorityWinsAcrossMaskShapes) {
   bcm_field_entry_t const portOnly = entry(1, 5);
   sdk_->bcm_field_qualify_InPort(0, portOnly, 3, 0xFFFFFFFF);
   bcm_field_entry_t const portAndQueue = entry(1, 10);
   sdk_->bcm_field_qualify_InPort(0, portAndQueue, 3, 0xFFFFFFFF);
   sdk_->bcm_field_qualify_CpuQueue(0, portAndQueue, 7, 0x3F);
   bcm_field_entry_t const anything = entry(1, 1);
   install(portOnly);
   install(portAndQueue);
   install(anything);
   EXPECT_EQ(hits(3, 7, 0), std::vector<bcm_field_entry_t>{portAndQueue});
   EXPECT_EQ(hits(3, 8, 0), std::vector<bcm_field_entry_t>{portOnly});
   EXPECT_EQ(hits(4, 7, 0), std::vector<bcm_field_entry_t>{anything});
}

TEST_F(SimChipPacketIndexTest, EqualPrioritiesGoToTheLowestId) {
   bcm_field_entry_t const first = entry(1, 3);
   bcm_field_entry_t const second = entry(1, 3);
   sdk_->bcm_field_qualify_InPort(0, second, 2, 0xFFFFFFFF);
   // Installed in the other order: the id decides, not the order of installs.
   install(second);
   install(first);
   EXPECT_EQ(hits(2, 0, 0), std::vector<bcm_field_entry_t>{first});
}

TEST_F(SimChipPacketIndexTest, PriorityChangeOfAnInstalledEntryReordersAtOnce) {
   bcm_field_entry_t const low = entry(1, 1);
   bcm_field_entry_t const high = entry(1, 2);
   install(low);
   install(high);
   EXPECT_EQ(hits(1, 1, 1), std::vector<bcm_field_entry_t>{high});
   ASSERT_EQ(sdk_->bcm_field_entry_prio_set(0, low, 9), BCM_E_NONE);
   EXPECT_EQ(hits(1, 1, 1), std::vector<bcm_field_entry_t>{low});
}

TEST_F(SimChipPacketIndexTest, RemovedAndRequalifiedEntriesMatchByWhatWasLastInstalled) {
   bcm_field_entry_t const e = entry(2, 1);
   sdk_->bcm_field_qualify_InnerVlanId(0, e, 9, 0xFFF);
   install(e);
   EXPECT_EQ(hits(1, 1, 9), std::vector<bcm_field_entry_t>{e});
   // Edited but not installed again: hardware still matches VLAN 9.
   sdk_->bcm_field_qualify_InnerVlanId(0, e, 10, 0xFFF);
   EXPECT_EQ(hits(1, 1, 10), std::vector<bcm_field_entry_t>{});
   install(e);
   EXPECT_EQ(hits(1, 1, 10), std::vector<bcm_field_entry_t>{e});
   EXPECT_EQ(hits(1, 1, 9), std::vector<bcm_field_entry_t>{});
   ASSERT_EQ(sdk_->bcm_field_entry_remove(0, e), BCM_E_NONE);
   EXPECT_EQ(hits(1, 1, 10), std::vector<bcm_field_entry_t>{});
   install(e);
   ASSERT_EQ(sdk_->bcm_field_entry_destroy(0, e), BCM_E_NONE);
   EXPECT_EQ(hits(1, 1, 10), std::vector<bcm_field_entry_t>{});
}

TEST_F(SimChipPacketIndexTest, PortBitmapsAndInterfaceClassAreCheckedOnTheCandidates) {
   bcm_field_entry_t const e = entry(1, 1);
   bcm_pbmp_t data, mask;
   data.portAdd(4);
   mask.portAdd(4);
   mask.portAdd(5);
   sdk_->bcm_field_qualify_InPorts(0, e, data, mask);
   install(e);
   EXPECT_EQ(hits(4, 0, 0), std::vector<bcm_field_entry_t>{e});
   EXPECT_EQ(hits(5, 0, 0), std::vector<bcm_field_entry_t>{});
   EXPECT_EQ(hits(6, 0, 0), std::vector<bcm_field_entry_t>{e});
   bcm_field_entry_t const other = entry(2, 1);
   sdk_->bcm_field_qualify_InterfaceClassPort(0, other, 4, 4);
   install(other);
   EXPECT_EQ(hits(6, 0, 0), std::vector<bcm_field_entry_t>{e});
}

TEST_F(SimChipPacketIndexTest, APolicerNamedOnlyByAnInstalledProgramIsStillInUse) {
   bcm_field_entry_t const e = entry(1, 1);
   bcm_policer_t const p = policer();
   ASSERT_EQ(sdk_->bcm_field_entry_policer_attach(0, e, 0, p), BCM_E_NONE);
   install(e);
   // Detached in software; hardware still holds it until the next install.
   ASSERT_EQ(sdk_->bcm_field_entry_policer_detach(0, e, 0), BCM_E_NONE);
   EXPECT_EQ(sdk_->bcm_policer_destroy(0, p), BCM_E_BUSY);
   install(e);
   EXPECT_EQ(sdk_->bcm_policer_destroy(0, p), BCM_E_NONE);
}

TEST_F(SimChipPacketIndexTest, APolicerIsFreeOnceItsEntryIsDestroyed) {
   bcm_policer_t const p = policer();
   bcm_field_entry_t const a = entry(1, 1);
   bcm_field_entry_t const b = entry(1, 1);
   ASSERT_EQ(sdk_->bcm_field_entry_policer_attach(0, a, 0, p), BCM_E_NONE);
   ASSERT_EQ(sdk_->bcm_field_entry_policer_attach(0, b, 1, p), BCM_E_NONE);
   install(a);
   ASSERT_EQ(sdk_->bcm_field_entry_destroy(0, a), BCM_E_NONE);
   EXPECT_EQ(sdk_->bcm_policer_destroy(0, p), BCM_E_BUSY);
   ASSERT_EQ(sdk_->bcm_field_entry_destroy(0, b), BCM_E_NONE);
   EXPECT_EQ(sdk_->bcm_policer_destroy(0, p), BCM_E_NONE);
}

// Many entries with every kind of mask, priorities that collide, installs, removals, priority
// changes and destroys: each packet must find what a walk over every entry finds.
TEST_F(SimChipPacketIndexTest, MatchesWhatAWalkOverEveryEntryFinds) {
   std::mt19937 rng(20261123);
   auto pick = [&rng](int n) { return static_cast<int>(rng() % static_cast<unsigned>(n)); };
   U32 const portMasks[] = {0, 0xFFFFFFFF, 0x3, 0xFFFFFFF0};
   U8 const queueMasks[] = {0, 0x3F, 0x1};
   U16 const vlanMasks[] = {0, 0xFFF, 0xFFFF, 0x8};
   std::vector<bcm_field_entry_t> live;
   for (int round = 0; round < 3000; ++round) {
      int const what = pick(10);
      if (what < 5 || live.empty()) {
         bcm_field_entry_t const e = entry(pick(3), pick(4));
         if (pick(4)) {
            sdk_->bcm_field_qualify_InPort(0, e, pick(8), portMasks[pick(4)]);
         }
         if (pick(4)) {
            sdk_->bcm_field_qualify_CpuQueue(0, e, static_cast<U8>(pick(6)), queueMasks[pick(3)]);
         }
         if (pick(3)) {
            sdk_->bcm_field_qualify_InnerVlanId(0, e, static_cast<U16>(pick(8)),
                                                vlanMasks[pick(4)]);
         }
         if (pick(2)) {
            install(e);
         }
         live.push_back(e);
      } else {
         std::size_t const i = static_cast<std::size_t>(pick(static_cast<int>(live.size())));
         bcm_field_entry_t const e = live[i];
         if (what == 5) {
            sdk_->bcm_field_entry_remove(0, e);
         } else if (what == 6) {
            sdk_->bcm_field_entry_prio_set(0, e, pick(4));
         } else if (what == 7) {
            sdk_->bcm_field_qualify_CpuQueue(0, e, static_cast<U8>(pick(6)), queueMasks[pick(3)]);
            install(e);
         } else {
            ASSERT_EQ(sdk_->bcm_field_entry_destroy(0, e), BCM_E_NONE);
            live.erase(live.begin() + static_cast<std::ptrdiff_t>(i));
         }
      }
      int const port = pick(9), queue = pick(7), vlan = pick(9);
      ASSERT_EQ(hits(port, queue, vlan), walked(port, queue, vlan))
          << "round " << round << ", packet from port " << port << " to queue " << queue
          << " with inner VLAN " << vlan;
   }
}

}  // namespace
