#include <gtest/gtest.h>

#include <set>
#include <stdexcept>
#include <string>
#include <vector>

#include "Nimbal/MmuConfigSm.h"
#include "Nimbal/MmuCpuQ.h"
#include "Qos/Status.h"

namespace {

using Nimbal::MmuConfigSm;
using Nimbal::MmuCpuQ;
using Nimbal::MmuCpuQRow;
using Nimbal::MmuCpuQSm;

constexpr char const* coppPMap = "copp-system-policy";

// Records the attributes of a CPU queue that changed.
struct CpuQObserver : Kiv::Notifiee<MmuCpuQ> {
   std::vector<std::string> seen;
   void onAttribute(Kiv::AttrId attr) override { seen.push_back(std::string(attr)); }
   void onAttribute(Kiv::AttrId attr, Kiv::KeyRef const&) override {
      seen.push_back(std::string(attr));
   }
};

class MmuFixture : public ::testing::Test {
  protected:
   // A class of a policy map as the QoS status holds it.
   Kiv::Ptr<Qos::ClassMapStatus const> cmap(Kiv::Name const& name,
                                            Kiv::Name const& pmapName = coppPMap) {
      return status->pmapStatusIs(Qos::mapControlPlane_, pmapName)
          ->cmapStatusIs(Qos::mapControlPlane_, name);
   }
   Kiv::Ptr<Qos::PolicyMapStatus const> pmap(Kiv::Name const& name = coppPMap) {
      return status->pmapStatusIs(Qos::mapControlPlane_, name);
   }
   int allocate(Kiv::Name const& cmapName, Kiv::Name const& pmapName = coppPMap) {
      return mmu->allocateDynamicCpuQ(pmap(pmapName), cmap(cmapName, pmapName));
   }
   Kiv::Ptr<MmuCpuQ> cpuQ(U32 id) const { return mmu->cpuQColl()->cpuQ(id); }

   Kiv::Ptr<MmuConfigSm> mmu{new MmuConfigSm()};
   Kiv::Ptr<Qos::Status> status{new Qos::Status()};
};

std::vector<U32> dynamicIds(std::vector<MmuCpuQRow> const& rows) {
   std::vector<U32> ids;
   for (MmuCpuQRow const& r : rows) {
      if (r.dynamic) {
         ids.push_back(r.id);
      }
   }
   return ids;
}

TEST_F(MmuFixture, ThereAreFortyEightQueuesInIdOrderWithTheDropQueueFirst) {
   EXPECT_EQ(Nimbal::cpuCosqDrop_, 0u);
   ASSERT_EQ(mmu->cpuQColl()->cpuQs(), 48u);
   U32 expected = 0;
   for (auto const& [id, q] : *mmu->cpuQColl()) {
      EXPECT_EQ(id, expected);
      EXPECT_EQ(q->cpuQId(), expected);
      ++expected;
   }
   EXPECT_EQ(expected, 48u);
   EXPECT_EQ(cpuQ(Nimbal::cpuCosqDrop_)->name(), "CoppSystemDrop");
   EXPECT_EQ(cpuQ(0)->allocated(), 0u);
   EXPECT_FALSE(cpuQ(48));
}

TEST_F(MmuFixture, BuiltInTableIsValidAndEveryQueueFollowsItsRow) {
   auto const& table = Nimbal::builtInCpuQTable();
   EXPECT_EQ(MmuCpuQSm::cpuQTableError(table), "");
   ASSERT_EQ(table.size(), 48u);
   std::set<std::string> names;
   for (MmuCpuQRow const& row : table) {
      Kiv::Ptr<MmuCpuQ> q = cpuQ(row.id);
      ASSERT_TRUE(q);
      EXPECT_EQ(q->name(), row.name);
      EXPECT_EQ(q->defaultCoppRate(), row.rate);
      EXPECT_EQ(q->defaultCoppBurst(), row.burst);
      EXPECT_EQ(q->dynamic(), row.dynamic);
      EXPECT_EQ(q->allocated(), row.classes.size());
      EXPECT_TRUE(names.insert(row.name).second) << row.name;
      if (row.id != 0) {
         EXPECT_GT(row.rate, 0u) << row.name;
      }
   }
   EXPECT_EQ(dynamicIds(table).size(), 8u);
}

TEST_F(MmuFixture, StaticQueueIsHeldByTheCoppPolicyMapAndItsClass) {
   Kiv::Ptr<MmuCpuQ> bgp = cpuQ(1);
   EXPECT_EQ(bgp->name(), "CoppSystemBgp");
   EXPECT_EQ(bgp->pmapName(), coppPMap);
   EXPECT_EQ(bgp->pmapType(), Qos::mapControlPlane_);
   EXPECT_EQ(bgp->cmapName(), "copp-system-bgp");
   EXPECT_EQ(bgp->cmapType(), Qos::mapControlPlane_);
   EXPECT_EQ(bgp->allocated(), 1u);
   EXPECT_FALSE(bgp->dynamic());

   Kiv::Ptr<MmuCpuQ> mgmt = cpuQ(26);
   EXPECT_EQ(mgmt->cmapName(), "copp-system-ssh");
   EXPECT_EQ(mgmt->allocated(), 1u);
}

// The holder of a static queue is the class that verify expects to find on it.
TEST_F(MmuFixture, EveryStaticQueueOfTheBuiltInTableIsHeldByEachOfItsClasses) {
   auto const cp = Qos::mapControlPlane_;
   for (MmuCpuQRow const& row : Nimbal::builtInCpuQTable()) {
      for (Kiv::String const& c : row.classes) {
         int const q = mmu->staticClassToCpuQId(coppPMap, cp, c, cp);
         ASSERT_GE(q, 0) << c;
         EXPECT_EQ(cpuQ(static_cast<U32>(q))->cmapName(), c);
      }
   }
}

TEST_F(MmuFixture, StaticClassesMapToTheirQueueOnlyInTheCoppPolicyMap) {
   EXPECT_EQ(mmu->coppPMapName(), "copp-system-policy");
   auto const cp = Qos::mapControlPlane_;
   EXPECT_EQ(mmu->staticClassToCpuQId(coppPMap, cp, "copp-system-bgp", cp), 1);
   EXPECT_EQ(mmu->staticClassToCpuQId(coppPMap, cp, "copp-system-ssh", cp), 26);
   EXPECT_EQ(mmu->staticClassToCpuQId(coppPMap, cp, "copp-system-default", cp), 39);
   EXPECT_EQ(mmu->staticClassToCpuQId(coppPMap, cp, "user-class", cp), -1);
   EXPECT_EQ(mmu->staticClassToCpuQId("other-policy", cp, "copp-system-bgp", cp), -1);
   EXPECT_EQ(mmu->staticClassToCpuQId(coppPMap, Qos::mapQos_, "copp-system-bgp", cp), -1);
   EXPECT_EQ(mmu->staticClassToCpuQId(coppPMap, cp, "copp-system-bgp", Qos::mapQos_), -1);
}

TEST_F(MmuFixture, DynamicAllocationTakesTheLowestFreeQueueAndRecordsItsHolder) {
   int const first = allocate("user-a");
   EXPECT_EQ(first, 40);
   Kiv::Ptr<MmuCpuQ> q = cpuQ(40);
   EXPECT_EQ(q->allocated(), 1u);
   EXPECT_EQ(q->users(), 1u);
   EXPECT_EQ(q->pmapName(), coppPMap);
   EXPECT_EQ(q->cmapName(), "user-a");
   EXPECT_EQ(q->cmapType(), Qos::mapControlPlane_);
   EXPECT_EQ(allocate("user-b"), 41);
   EXPECT_EQ(cpuQ(41)->cmapName(), "user-b");
   EXPECT_EQ(cpuQ(42)->allocated(), 0u);
}

TEST_F(MmuFixture, ClassMapNameThatHoldsAQueueSharesIt) {
   EXPECT_EQ(allocate("user-a", "policy-one"), 40);
   EXPECT_EQ(allocate("user-a", "policy-two"), 40);
   EXPECT_EQ(cpuQ(40)->users(), 2u);
   EXPECT_EQ(cpuQ(40)->allocated(), 2u);
   EXPECT_EQ(allocate("user-b"), 41);
}

TEST_F(MmuFixture, QueueIsFreedOnlyWhenItsLastUserGoes) {
   allocate("user-a");
   allocate("user-a");
   mmu->deallocateDynamicCpuQ(40);
   EXPECT_EQ(cpuQ(40)->allocated(), 1u);
   EXPECT_EQ(cpuQ(40)->cmapName(), "user-a");
   EXPECT_EQ(allocate("user-b"), 41);

   mmu->deallocateDynamicCpuQ(40);
   EXPECT_EQ(cpuQ(40)->allocated(), 0u);
   EXPECT_EQ(cpuQ(40)->cmapName(), "");
   EXPECT_EQ(cpuQ(40)->pmapName(), "");
   EXPECT_EQ(allocate("user-c"), 40);
   EXPECT_EQ(cpuQ(40)->cmapName(), "user-c");
}

TEST_F(MmuFixture, ExhaustedPoolAnswersMinusOneUntilAQueueIsFreed) {
   std::vector<int> got;
   for (int i = 0; i < 8; ++i) {
      got.push_back(allocate("user-" + std::to_string(i)));
   }
   EXPECT_EQ(got, (std::vector<int>{40, 41, 42, 43, 44, 45, 46, 47}));
   EXPECT_EQ(mmu->cpuQSm()->allocationFailures(), 0u);
   EXPECT_EQ(allocate("one-too-many"), -1);
   EXPECT_EQ(mmu->cpuQSm()->allocationFailures(), 1u);
   // A class that holds a queue still gets it when the pool is empty.
   EXPECT_EQ(allocate("user-3"), 43);
   mmu->deallocateDynamicCpuQ(44);
   EXPECT_EQ(allocate("one-too-many"), 44);
}

TEST_F(MmuFixture, DeallocatingNoQueueIsCountedAndChangesNothing) {
   allocate("user-a");
   mmu->deallocateDynamicCpuQ(-1);
   EXPECT_EQ(mmu->cpuQSm()->noQueueDeallocations(), 1u);
   EXPECT_EQ(cpuQ(40)->allocated(), 1u);
   for (auto const& [id, q] : *mmu->cpuQColl()) {
      if (id != 40) {
         EXPECT_EQ(q->users(), 0u) << id;
      }
   }
}

TEST_F(MmuFixture, DeallocatingAQueueNobodyHoldsEndsTheAgent) {
   EXPECT_DEATH(mmu->deallocateDynamicCpuQ(40), "Assertion `cpuQ->users\\(\\) > 0' failed");
   EXPECT_DEATH(mmu->deallocateDynamicCpuQ(1), "Assertion `cpuQ->dynamic\\(\\)' failed");
   EXPECT_DEATH(mmu->deallocateDynamicCpuQ(48), "Assertion `cpuQ' failed");
}

TEST_F(MmuFixture, ProgrammedBandwidthIsKeptOnTheQueueAndCounted) {
   Kiv::Ptr<MmuCpuQ> q = cpuQ(40);
   EXPECT_EQ(q->bandwidthProgrammings(), 0u);
   mmu->programCpuQBandwidth(40, 100, 200, Qos::rateUnitKbps_, true);
   EXPECT_EQ(q->bandwidth(), (Nimbal::CpuQBandwidth{100, 200, Qos::rateUnitKbps_, true}));
   EXPECT_EQ(q->bandwidthProgrammings(), 1u);
   mmu->programCpuQBandwidth(40, Qos::actionRateNotConfigured, Qos::actionRateNotConfigured,
                             Qos::rateUnitInvalid_, false);
   EXPECT_EQ(q->bandwidth().minRate, 10000002u);
   EXPECT_EQ(q->bandwidth().maxRate, 10000002u);
   EXPECT_EQ(q->bandwidth().unit, Qos::rateUnitInvalid_);
   EXPECT_FALSE(q->bandwidth().copp);
   EXPECT_EQ(q->bandwidthProgrammings(), 2u);
   EXPECT_EQ(cpuQ(41)->bandwidthProgrammings(), 0u);
}

TEST_F(MmuFixture, ProgrammingBandwidthOfAnUnknownQueueEndsTheAgent) {
   EXPECT_DEATH(mmu->programCpuQBandwidth(48, 1, 2, Qos::rateUnitPps_, true),
                "Assertion `cpuQ' failed");
   EXPECT_DEATH(mmu->programCpuQBandwidth(-1, 1, 2, Qos::rateUnitPps_, true),
                "Assertion `cpuQId >= 0' failed");
}

TEST_F(MmuFixture, QueueRateStartsAtTheDefaultRateAndCanBeSet) {
   Kiv::Ptr<MmuCpuQ> q = cpuQ(1);
   EXPECT_EQ(q->cpuQRate(), q->defaultCoppRate());
   q->cpuQRateIs(777);
   EXPECT_EQ(q->cpuQRate(), 777u);
   EXPECT_EQ(q->defaultCoppRate(), 5000u);
}

TEST_F(MmuFixture, QueueChangesAreAnnouncedOnlyWhenSomethingChanges) {
   CpuQObserver obs;
   obs.notifierIs(cpuQ(40));
   allocate("user-a");
   EXPECT_EQ(obs.seen, (std::vector<std::string>{"allocated"}));
   mmu->programCpuQBandwidth(40, 1, 2, Qos::rateUnitPps_, true);
   cpuQ(40)->cpuQRateIs(5);
   cpuQ(40)->cpuQRateIs(5);
   EXPECT_EQ(obs.seen, (std::vector<std::string>{"allocated", "bandwidth", "cpuQRate"}));
}

TEST_F(MmuFixture, RenamedCoppPolicyMapKeepsTheStaticQueues) {
   mmu->coppPMapNameIs("control-plane");
   auto const cp = Qos::mapControlPlane_;
   EXPECT_EQ(mmu->coppPMapName(), "control-plane");
   EXPECT_EQ(mmu->staticClassToCpuQId("control-plane", cp, "copp-system-bgp", cp), 1);
   EXPECT_EQ(mmu->staticClassToCpuQId(coppPMap, cp, "copp-system-bgp", cp), -1);
   EXPECT_EQ(cpuQ(1)->pmapName(), "control-plane");
   EXPECT_EQ(cpuQ(40)->pmapName(), "");
}

TEST_F(MmuFixture, QueueTableCanBeReplaced) {
   std::vector<MmuCpuQRow> rows = Nimbal::builtInCpuQTable();
   rows[5] = MmuCpuQRow{5, "CoppCustom", 42, 7, {"custom-class"}, false};
   rows[39].dynamic = true;
   rows[39].classes.clear();
   allocate("user-a");
   mmu->cpuQTableIs(rows);
   auto const cp = Qos::mapControlPlane_;
   EXPECT_EQ(cpuQ(5)->name(), "CoppCustom");
   EXPECT_EQ(cpuQ(5)->defaultCoppRate(), 42u);
   EXPECT_EQ(cpuQ(5)->defaultCoppBurst(), 7u);
   EXPECT_EQ(cpuQ(5)->cmapName(), "custom-class");
   EXPECT_EQ(mmu->staticClassToCpuQId(coppPMap, cp, "custom-class", cp), 5);
   EXPECT_EQ(mmu->staticClassToCpuQId(coppPMap, cp, "copp-system-lacp", cp), -1);
   EXPECT_EQ(mmu->staticClassToCpuQId(coppPMap, cp, "copp-system-default", cp), -1);
   // The new table starts with every dynamic queue free, the lowest first.
   EXPECT_EQ(cpuQ(40)->allocated(), 0u);
   EXPECT_EQ(allocate("user-b"), 39);
}

TEST_F(MmuFixture, BadQueueTablesAreRefusedAndTheOldOneStays) {
   auto const& good = Nimbal::builtInCpuQTable();
   struct Case {
      std::vector<MmuCpuQRow> rows;
      std::string error;
   };
   std::vector<Case> cases;
   {
      auto rows = good;
      rows.pop_back();
      cases.push_back({rows, "the CPU queue table needs exactly 48 queues, not 47"});
   }
   {
      auto rows = good;
      rows[3].id = 2;
      cases.push_back({rows, "CPU queue 2: id appears twice"});
   }
   {
      auto rows = good;
      rows[47].id = 48;
      cases.push_back({rows, "CPU queue 48: id must be below 48"});
   }
   {
      auto rows = good;
      rows[4].name = "";
      cases.push_back({rows, "CPU queue 4: name is empty"});
   }
   {
      auto rows = good;
      rows[40].classes = {"user-class"};
      cases.push_back({rows, "CPU queue 40: a dynamic queue has no static classes"});
   }
   {
      auto rows = good;
      rows[0].dynamic = true;
      cases.push_back({rows, "CPU queue 0: the drop queue takes no class"});
   }
   {
      auto rows = good;
      rows[2].classes = {"copp-system-bgp"};
      cases.push_back({rows, "CPU queue 2: class copp-system-bgp is mapped to another queue too"});
   }
   {
      auto rows = good;
      rows[2].classes = {""};
      cases.push_back({rows, "CPU queue 2: class name is empty"});
   }
   {
      auto rows = good;
      rows[26].classes = {"copp-system-ssh", "copp-system-snmp"};
      cases.push_back({rows, "CPU queue 26: a static queue serves one class, not 2"});
   }
   for (Case const& c : cases) {
      EXPECT_EQ(MmuCpuQSm::cpuQTableError(c.rows), c.error);
      EXPECT_THROW(mmu->cpuQTableIs(c.rows), std::invalid_argument) << c.error;
   }
   EXPECT_EQ(mmu->cpuQColl()->cpuQs(), 48u);
   EXPECT_EQ(cpuQ(4)->name(), "CoppSystemBfd");
}

TEST_F(MmuFixture, PolicyMapHardwareStatusIsAbsentUntilGiven) {
   EXPECT_FALSE(mmu->pmapHwStatus());
   Kiv::Ptr<Qos::PolicyMapSliceHwStatus> hw(new Qos::PolicyMapSliceHwStatus());
   mmu->pmapHwStatusIs(hw);
   EXPECT_EQ(mmu->pmapHwStatus(), hw);
   mmu->pmapHwStatusIs(nullptr);
   EXPECT_FALSE(mmu->pmapHwStatus());
}

}  // namespace
