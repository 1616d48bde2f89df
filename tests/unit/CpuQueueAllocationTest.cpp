#include <gtest/gtest.h>

#include <string>
#include <vector>

#include "Kiv/Activity.h"
#include "unit/CoppHelperFixture.h"

namespace {

using CoppTest::CoppPlatform;
using CoppTest::TraceCapture;
using Nimbal::CpuQBandwidth;
using Nimbal::MmuCpuQ;
using Nimbal::QosAclHelperV1;

constexpr char const* coppPmap = "copp-system-policy";
constexpr Qos::ActionRateType notConfigured = 10000002;
// The first dynamic queue of the built-in table, and how many there are.
constexpr S32 firstDynamicCpuQ = 40;
constexpr U32 dynamicCpuQs = 8;

Oskel::QosClassDataKey coppKey(std::string const& cmapName,
                               std::string const& pmapName = coppPmap) {
   return Oskel::QosClassDataKey(pmapName, Qos::mapControlPlane_, Qos::input_, cmapName,
                                 Qos::mapControlPlane_);
}

// A CoPP class applied in the agent's QoS status and, when the MMU keeps one, in its policy-map
// hardware status.
class CpuQueueAllocation : public ::testing::Test {
  protected:
   void SetUp() override {
      pmapHwStatus_ = new Qos::PolicyMapSliceHwStatus();
      platform_.mmuSm->pmapHwStatusIs(pmapHwStatus_);
      helper_ = platform_.helper();
   }

   Kiv::Ptr<Oskel::QosClassData> coppClass(std::string const& cmapName,
                                           std::string const& pmapName = coppPmap) {
      Oskel::QosClassDataKey const key = coppKey(cmapName, pmapName);
      platform_.qosStatus->pmapStatusIs(key.pmapType(), key.pmapName())
          ->cmapStatusIs(key.cmapType(), key.cmapName());
      pmapHwStatus_->pmapHwStatusIs(hwKey(key));
      return Kiv::Ptr<Oskel::QosClassData>(new Oskel::QosClassData(key));
   }
   Kiv::Ptr<Qos::ClassMapStatus> cmapStatus(Kiv::Ptr<Oskel::QosClassData> const& cls) {
      Oskel::QosClassDataKey const& key = cls->key();
      return platform_.qosStatus->cmapStatus(key.pmapType(), key.pmapName(), key.cmapType(),
                                             key.cmapName());
   }
   static Qos::PolicyMapHwStatusKey hwKey(Oskel::QosClassDataKey const& key) {
      return Qos::PolicyMapHwStatusKey(key.pmapName(), key.pmapType(), key.direction());
   }
   bool cmapRecorded(Kiv::Ptr<Oskel::QosClassData> const& cls) const {
      Kiv::Ptr<Qos::PolicyMapHwStatus> const s = pmapHwStatus_->pmapHwStatus(hwKey(cls->key()));
      return s && s->cmapHas(cls->key().cmapName());
   }
   Kiv::Ptr<MmuCpuQ> cpuQ(S32 id) const {
      return platform_.mmuSm->cpuQColl()->cpuQ(static_cast<U32>(id));
   }
   // Takes a queue for the class as the base helper does and keeps it on the class.
   S32 allocate(Kiv::Ptr<Oskel::QosClassData> const& cls) {
      S32 const id = helper_->coppAllocateCpuQ(cls);
      cls->cpuQIdIs(id);
      return id;
   }

   Kiv::ActivityScope lock_;
   CoppPlatform platform_;
   Kiv::Ptr<Qos::PolicyMapSliceHwStatus> pmapHwStatus_;
   Kiv::Ptr<QosAclHelperV1> helper_;
};

using CpuQueueAllocationDeathTest = CpuQueueAllocation;

// Allocation

TEST_F(CpuQueueAllocation, ClassGetsTheLowestFreeDynamicQueueAndIsRecordedInTheHwStatus) {
   auto cls = coppClass("user-telnet");

   EXPECT_EQ(allocate(cls), firstDynamicCpuQ);

   EXPECT_EQ(cpuQ(firstDynamicCpuQ)->users(), 1u);
   EXPECT_EQ(cpuQ(firstDynamicCpuQ)->cmapName(), "user-telnet");
   EXPECT_TRUE(cmapRecorded(cls));
   EXPECT_TRUE(helper_->baseCalls().empty());
}

TEST_F(CpuQueueAllocation, AllocationIsTracedWithTheClassKeyAndTheQueue) {
   auto cls = coppClass("user-telnet");
   TraceCapture trace({"NimbalQosSm"}, 4);

   allocate(cls);

   std::vector<std::string> const expected = {
       "QosAclHelperV1( copp-system-policy,0,user-telnet,0 )::coppAllocateCpuQ( 40 )"};
   EXPECT_EQ(trace.texts(), expected);
   EXPECT_EQ(trace.lines().at(0).level, 4);
}

TEST_F(CpuQueueAllocation, BandwidthComesFromTheBandwidthAndShapeActions) {
   auto cls = coppClass("user-telnet");
   cmapStatus(cls)->actionIs(Qos::actionSetShape_, Qos::ActionRate(3000, Qos::rateUnitPps_));
   cmapStatus(cls)->actionIs(Qos::actionSetBandwidth_, Qos::ActionRate(1200, Qos::rateUnitPps_));

   allocate(cls);

   EXPECT_EQ(cpuQ(firstDynamicCpuQ)->bandwidth(),
             (CpuQBandwidth{1200, 3000, Qos::rateUnitPps_, true}));
   EXPECT_EQ(cpuQ(firstDynamicCpuQ)->bandwidthProgrammings(), 1u);
}

TEST_F(CpuQueueAllocation, ClassWithoutRateActionsProgramsUnconfiguredRatesWithNoUnit) {
   auto cls = coppClass("user-telnet");

   allocate(cls);

   EXPECT_EQ(cpuQ(firstDynamicCpuQ)->bandwidth(),
             (CpuQBandwidth{notConfigured, notConfigured, Qos::rateUnitInvalid_, true}));
   EXPECT_EQ(cpuQ(firstDynamicCpuQ)->bandwidthProgrammings(), 1u);
}

TEST_F(CpuQueueAllocation, OnlyAShapeActionLeavesTheGuaranteedRateUnconfigured) {
   auto cls = coppClass("user-telnet");
   cmapStatus(cls)->actionIs(Qos::actionSetShape_, Qos::ActionRate(700, Qos::rateUnitKbps_));

   allocate(cls);

   EXPECT_EQ(cpuQ(firstDynamicCpuQ)->bandwidth(),
             (CpuQBandwidth{notConfigured, 700, Qos::rateUnitKbps_, true}));
}

TEST_F(CpuQueueAllocation, BandwidthActionUnitWinsOverTheShapeUnit) {
   auto cls = coppClass("user-telnet");
   cmapStatus(cls)->actionIs(Qos::actionSetShape_, Qos::ActionRate(5, Qos::rateUnitMbps_));
   cmapStatus(cls)->actionIs(Qos::actionSetBandwidth_, Qos::ActionRate(900, Qos::rateUnitKbps_));

   allocate(cls);

   EXPECT_EQ(cpuQ(firstDynamicCpuQ)->bandwidth().unit, Qos::rateUnitKbps_);
}

TEST_F(CpuQueueAllocation, PercentBandwidthKeepsTheShapeUnit) {
   auto cls = coppClass("user-telnet");
   cmapStatus(cls)->actionIs(Qos::actionSetShape_, Qos::ActionRate(5, Qos::rateUnitMbps_));
   cmapStatus(cls)->actionIs(Qos::actionSetBandwidth_, Qos::ActionRate(20, Qos::rateUnitKbps_),
                             Qos::actionRateKindPercent_);

   allocate(cls);

   EXPECT_EQ(cpuQ(firstDynamicCpuQ)->bandwidth(), (CpuQBandwidth{20, 5, Qos::rateUnitMbps_, true}));
}

TEST_F(CpuQueueAllocation, PercentActionsOnlyProgramNoUnit) {
   auto cls = coppClass("user-telnet");
   cmapStatus(cls)->actionIs(Qos::actionSetShape_, Qos::ActionRate(50, Qos::rateUnitMbps_),
                             Qos::actionRateKindPercent_);
   cmapStatus(cls)->actionIs(Qos::actionSetBandwidth_, Qos::ActionRate(20, Qos::rateUnitKbps_),
                             Qos::actionRateKindPercent_);

   allocate(cls);

   EXPECT_EQ(cpuQ(firstDynamicCpuQ)->bandwidth(),
             (CpuQBandwidth{20, 50, Qos::rateUnitInvalid_, true}));
}

TEST_F(CpuQueueAllocation, QueueRateFlagTakesTheQueuesOwnRateAndNoCeiling) {
   auto cls = coppClass("user-telnet");
   cmapStatus(cls)->actionIs(Qos::actionSetShape_, Qos::ActionRate(3000, Qos::rateUnitPps_));
   cmapStatus(cls)->actionIs(Qos::actionSetBandwidth_, Qos::ActionRate(1200, Qos::rateUnitPps_));
   platform_.scsd->cpuQRateFromQueueIs(true);
   cpuQ(firstDynamicCpuQ)->cpuQRateIs(777);

   allocate(cls);

   EXPECT_EQ(cpuQ(firstDynamicCpuQ)->bandwidth(),
             (CpuQBandwidth{777, notConfigured, Qos::rateUnitPps_, true}));
}

TEST_F(CpuQueueAllocation, SecondClassOnASharedQueueDoesNotReprogramIt) {
   auto first = coppClass("user-telnet", "copp-a");
   cmapStatus(first)->actionIs(Qos::actionSetBandwidth_, Qos::ActionRate(100, Qos::rateUnitPps_));
   auto second = coppClass("user-telnet", "copp-b");
   cmapStatus(second)->actionIs(Qos::actionSetBandwidth_, Qos::ActionRate(900, Qos::rateUnitPps_));

   EXPECT_EQ(allocate(first), firstDynamicCpuQ);
   EXPECT_EQ(allocate(second), firstDynamicCpuQ);

   EXPECT_EQ(cpuQ(firstDynamicCpuQ)->users(), 2u);
   EXPECT_EQ(cpuQ(firstDynamicCpuQ)->bandwidthProgrammings(), 1u);
   EXPECT_EQ(cpuQ(firstDynamicCpuQ)->bandwidth().minRate, 100u);
   // Both policy maps know the class, whoever programmed the queue.
   EXPECT_TRUE(cmapRecorded(first));
   EXPECT_TRUE(cmapRecorded(second));
}

TEST_F(CpuQueueAllocation, ExhaustedPoolGivesMinusOneAndRecordsAndProgramsNothing) {
   for (U32 i = 0; i < dynamicCpuQs; ++i) {
      ASSERT_EQ(allocate(coppClass("user-" + std::to_string(i))),
                firstDynamicCpuQ + static_cast<S32>(i));
   }
   std::vector<U32> programmings;
   for (auto const& [id, q] : *platform_.mmuSm->cpuQColl()) {
      programmings.push_back(q->bandwidthProgrammings());
   }
   auto late = coppClass("user-late");
   TraceCapture trace({"NimbalQosSm"}, 4);

   EXPECT_EQ(helper_->coppAllocateCpuQ(late), -1);

   EXPECT_FALSE(cmapRecorded(late));
   std::vector<U32> after;
   for (auto const& [id, q] : *platform_.mmuSm->cpuQColl()) {
      after.push_back(q->bandwidthProgrammings());
   }
   EXPECT_EQ(after, programmings);
   std::vector<std::string> const expected = {
       "QosAclHelperV1( copp-system-policy,0,user-late,0 )::coppAllocateCpuQ( -1 )"};
   EXPECT_EQ(trace.texts(), expected);
}

TEST_F(CpuQueueAllocation, WithoutAHwStatusTheQueueIsStillProgrammed) {
   auto cls = coppClass("user-telnet");
   platform_.mmuSm->pmapHwStatusIs(nullptr);

   EXPECT_EQ(allocate(cls), firstDynamicCpuQ);

   EXPECT_FALSE(cmapRecorded(cls));
   EXPECT_EQ(cpuQ(firstDynamicCpuQ)->bandwidthProgrammings(), 1u);
}

TEST_F(CpuQueueAllocationDeathTest, MissingMapTypeInTheHwStatusIsFatal) {
   auto cls = coppClass("user-telnet");
   pmapHwStatus_->pmapTypeSliceHwStatusDel(Qos::mapControlPlane_);

   EXPECT_DEATH(helper_->coppAllocateCpuQ(cls), "Assertion `pmapTypeSliceHwStatus' failed");
}

TEST_F(CpuQueueAllocationDeathTest, MissingPolicyMapInTheHwStatusIsFatal) {
   auto cls = coppClass("user-telnet");
   pmapHwStatus_->pmapTypeSliceHwStatus(Qos::mapControlPlane_)
       ->pmapSliceHwStatusDel(hwKey(cls->key()));

   EXPECT_DEATH(helper_->coppAllocateCpuQ(cls), "Assertion `pmapSliceHwStatus' failed");
}

TEST_F(CpuQueueAllocationDeathTest, UnknownPolicyMapIsFatal) {
   Kiv::Ptr<Oskel::QosClassData> cls(new Oskel::QosClassData(coppKey("user-telnet")));

   EXPECT_DEATH(helper_->coppAllocateCpuQ(cls), "Assertion `pmapStatus' failed");
}

// Deallocation

TEST_F(CpuQueueAllocation, DeallocationReturnsTheQueueForgetsTheClassAndResetsItsCounters) {
   auto cls = coppClass("user-telnet");
   allocate(cls);
   platform_.pktDrv->ddeCoppCountersIs(3, 5, firstDynamicCpuQ, 7, 9);
   platform_.pktDrv->ddeCoppCountersIs(3, 5, firstDynamicCpuQ + 1, 1, 2);

   helper_->coppDeallocateCpuQ(cls);

   EXPECT_EQ(cpuQ(firstDynamicCpuQ)->users(), 0u);
   EXPECT_FALSE(cmapRecorded(cls));
   std::vector<unsigned int> const resets = {40};
   EXPECT_EQ(platform_.pktDrv->cpuQCounterResets(), resets);
   EXPECT_EQ(platform_.pktDrv->getDdeCoppCounters(3, 5, firstDynamicCpuQ),
             (std::pair<U64, U64>(0, 0)));
   EXPECT_EQ(platform_.pktDrv->getDdeCoppCounters(3, 5, firstDynamicCpuQ + 1),
             (std::pair<U64, U64>(1, 2)));
   EXPECT_TRUE(helper_->baseCalls().empty());
}

TEST_F(CpuQueueAllocation, DeallocationIsTracedWithTheClassKeyAndTheQueue) {
   auto cls = coppClass("user-telnet");
   allocate(cls);
   TraceCapture trace({"NimbalQosSm"}, 4);

   helper_->coppDeallocateCpuQ(cls);

   std::vector<std::string> const expected = {
       "QosAclHelperV1( copp-system-policy,0,user-telnet,0 )::coppDeallocateCpuQ( 40 )"};
   EXPECT_EQ(trace.texts(), expected);
}

TEST_F(CpuQueueAllocation, ClassWithoutQueueStillCallsTheMmuAndForgetsTheClassButResetsNothing) {
   auto cls = coppClass("copp-system-bgp");
   pmapHwStatus_->pmapHwStatus(hwKey(cls->key()))->cmapIs("copp-system-bgp");
   ASSERT_EQ(cls->cpuQId(), -1);

   helper_->coppDeallocateCpuQ(cls);

   EXPECT_EQ(platform_.mmuSm->cpuQSm()->noQueueDeallocations(), 1u);
   EXPECT_FALSE(cmapRecorded(cls));
   EXPECT_TRUE(platform_.pktDrv->cpuQCounterResets().empty());
}

TEST_F(CpuQueueAllocation, SharedQueueStaysWithTheRemainingClass) {
   auto first = coppClass("user-telnet", "copp-a");
   auto second = coppClass("user-telnet", "copp-b");
   allocate(first);
   allocate(second);

   helper_->coppDeallocateCpuQ(first);

   EXPECT_EQ(cpuQ(firstDynamicCpuQ)->users(), 1u);
   EXPECT_FALSE(cmapRecorded(first));
   EXPECT_TRUE(cmapRecorded(second));
}

TEST_F(CpuQueueAllocation, WithoutAPacketDriverTheQueueIsReturnedWithoutACounterReset) {
   platform_.pktDrv = nullptr;
   helper_ = platform_.helper();
   auto cls = coppClass("user-telnet");
   allocate(cls);

   helper_->coppDeallocateCpuQ(cls);

   EXPECT_EQ(cpuQ(firstDynamicCpuQ)->users(), 0u);
   EXPECT_FALSE(cmapRecorded(cls));
}

TEST_F(CpuQueueAllocation, WithoutAHwStatusDeallocationOnlyReturnsTheQueue) {
   auto cls = coppClass("user-telnet");
   allocate(cls);
   platform_.mmuSm->pmapHwStatusIs(nullptr);

   helper_->coppDeallocateCpuQ(cls);

   EXPECT_EQ(cpuQ(firstDynamicCpuQ)->users(), 0u);
   EXPECT_TRUE(cmapRecorded(cls));
}

TEST_F(CpuQueueAllocationDeathTest, ClassWhoseMapTypesDifferIsFatal) {
   Kiv::Ptr<Oskel::QosClassData> cls(new Oskel::QosClassData(Oskel::QosClassDataKey(
       coppPmap, Qos::mapControlPlane_, Qos::input_, "user-telnet", Qos::mapQos_)));

   EXPECT_DEATH(helper_->coppDeallocateCpuQ(cls),
                "Assertion `pmapType == classData->key\\(\\).cmapType\\(\\)' failed");
}

TEST_F(CpuQueueAllocationDeathTest, DeallocatingFromAMissingHwStatusIsFatal) {
   auto cls = coppClass("user-telnet");
   allocate(cls);
   pmapHwStatus_->pmapTypeSliceHwStatus(Qos::mapControlPlane_)
       ->pmapSliceHwStatusDel(hwKey(cls->key()));

   EXPECT_DEATH(helper_->coppDeallocateCpuQ(cls), "Assertion `pmapSliceHwStatus' failed");
}

}  // namespace
