#include <gtest/gtest.h>

#include <string>
#include <vector>

#include "unit/CoppHelperFixture.h"
#include "unit/SwitchFixture.h"

namespace {

using CoppTest::TraceCapture;
using Nimbal::NimbalQosCoppPolicerData;
using Oskel::CoppInfo;
using Oskel::ModIdPortQueueKey;
using Oskel::QosClassCounterData;

constexpr char const* coppPmap = "copp-system-policy";
// Queue 1 is the static queue of copp-system-bgp (5000 pps, burst 500); 40 is the first
// dynamic queue (1000 pps, burst 100). Ethernet1 is port 1 and Ethernet2 port 2 of module 0.
constexpr U32 bgpQueue = 1;
constexpr S32 firstDynamicCpuQ = 40;

constexpr char const* coppInputKeyAssertion =
    "Assertion `\\( key.pmapType\\(\\) == Qos::mapControlPlane_ \\) && \\( key.direction\\(\\) == "
    "Qos::input_ \\) && \\( key.cmapType\\(\\) == Qos::mapControlPlane_ \\)' failed";

Oskel::QosClassDataKey coppKey(std::string const& cmapName,
                               std::string const& pmapName = coppPmap) {
   return Oskel::QosClassDataKey(pmapName, Qos::mapControlPlane_, Qos::input_, cmapName,
                                 Qos::mapControlPlane_);
}

QosClassCounterData counters(U64 pktHits, U64 drop) {
   QosClassCounterData c;
   c.pktHitsIs(pktHits);
   c.dropIs(drop);
   c.byteHitsIs(pktHits * 64);
   c.dropBytesIs(drop * 64);
   return c;
}

class ClassPolicer : public SwitchTest::SwitchFixture {
  protected:
   void SetUp() override {
      SwitchFixture::SetUp();
      helper()->baseCallsDelAll();
   }

   Kiv::Ptr<Oskel::QosClassData> coppClass(Oskel::QosClassDataKey const& key,
                                           std::vector<std::string> const& intfs, U64 cir, U32 bc) {
      Kiv::Ptr<Oskel::QosClassData> cls(new Oskel::QosClassData(key));
      for (auto const& i : intfs) {
         cls->intfIdIs(Orvik::IntfId(i));
      }
      cls->policerDataIs(new Qos::PolicerData(cir, Qos::rateUnitPps_, bc));
      return cls;
   }
   Kiv::Ptr<Oskel::QosClassData> bgpClass(std::string const& intf = "Ethernet1", U64 cir = 300,
                                          U32 bc = 90) {
      return coppClass(coppKey("copp-system-bgp"), {intf}, cir, bc);
   }
   // A class with a dynamic queue, allocated as the base helper does before the policer.
   Kiv::Ptr<Oskel::QosClassData> dynamicClass(std::string const& cmapName,
                                              std::string const& intf = "Ethernet1",
                                              std::string const& pmapName = coppPmap,
                                              Qos::MapType cmapType = Qos::mapControlPlane_) {
      Oskel::QosClassDataKey const key(pmapName, Qos::mapControlPlane_, Qos::input_, cmapName,
                                       cmapType);
      sw().qosStatus()
          ->pmapStatusIs(key.pmapType(), key.pmapName())
          ->cmapStatusIs(key.cmapType(), key.cmapName());
      auto cls = coppClass(key, {intf}, 400, 60);
      cls->cpuQIdIs(helper()->coppAllocateCpuQ(cls));
      return cls;
   }
   Kiv::Ptr<NimbalQosCoppPolicerData> policerRecord(std::string const& intf,
                                                    Oskel::QosClassDataKey const& key) {
      auto const intfData = helper()->coppIntfPolicerData(Orvik::IntfId(intf));
      return intfData ? intfData->policerDataCol(key) : Kiv::Ptr<NimbalQosCoppPolicerData>();
   }
   CoppInfo coppInfo(U32 port, U32 queue) const {
      return sw().kernelCoppConfig()->coppInfo(ModIdPortQueueKey(0, port, queue));
   }
   U32 defaultRate(std::string const& intf) const {
      return helper()->portDefaultCoppPolicerHwData(Orvik::IntfId(intf)).policerRate();
   }
   std::vector<std::string> tracesStartingWith(TraceCapture const& trace,
                                               std::string const& prefix) const {
      std::vector<std::string> out;
      for (auto const& t : trace.texts()) {
         if (t.rfind(prefix, 0) == 0) {
            out.push_back(t);
         }
      }
      return out;
   }
};

using ClassPolicerDeathTest = ClassPolicer;

// Dispatch

TEST_F(ClassPolicer, ControlPlaneClassesBecomeCoppPolicers) {
   auto cls = bgpClass();

   EXPECT_TRUE(helper()->createAndAttachPolicer(cls));
   EXPECT_TRUE(policerRecord("Ethernet1", cls->key()));

   helper()->destroyPolicer(cls);
   EXPECT_FALSE(policerRecord("Ethernet1", cls->key()));
   EXPECT_TRUE(helper()->baseCalls().empty());
}

TEST_F(ClassPolicer, OtherClassesGoToTheAgentsHelper) {
   Oskel::QosClassDataKey const key("pmap-qos", Qos::mapQos_, Qos::input_, "cmap-qos",
                                    Qos::mapQos_);
   auto cls = coppClass(key, {"Ethernet1"}, 300, 90);
   helper()->baseCallsDelAll();

   EXPECT_TRUE(helper()->createAndAttachPolicer(cls));
   helper()->destroyPolicer(cls);

   std::vector<std::string> const expected = {"QosAclHelper::createAndAttachPolicer",
                                              "QosAclHelper::destroyPolicer"};
   EXPECT_EQ(helper()->baseCalls(), expected);
   EXPECT_EQ(helper()->coppIntfPolicerData(), 0u);
}

TEST_F(ClassPolicerDeathTest, DispatchLooksAtThePolicyMapTypeOnly) {
   Oskel::QosClassDataKey const key(coppPmap, Qos::mapControlPlane_, Qos::input_, "cmap-qos",
                                    Qos::mapQos_);
   auto cls = coppClass(key, {"Ethernet1"}, 300, 90);

   EXPECT_DEATH(helper()->createAndAttachPolicer(cls), coppInputKeyAssertion);
   EXPECT_DEATH(helper()->destroyPolicer(cls), coppInputKeyAssertion);
}

// Creation

TEST_F(ClassPolicer, StaticClassRecordsItsPolicerAndPublishesItsRate) {
   auto cls = bgpClass("Ethernet1", 300, 90);

   EXPECT_TRUE(helper()->createAndAttachCoppPolicer(cls));

   auto const record = policerRecord("Ethernet1", cls->key());
   ASSERT_TRUE(record);
   EXPECT_EQ(record->cpuQId(), 1);
   EXPECT_EQ(record->policerRate(), 300u);
   EXPECT_EQ(record->policerBurst(), 90u);
   EXPECT_TRUE(record->isDynamic());
   EXPECT_EQ(coppInfo(1, bgpQueue), CoppInfo(300, 60, 90, true));
}

TEST_F(ClassPolicer, StaticQueueIsLookedUpUnderTheCoppPolicyMapName) {
   // The static table knows the class under the CoPP policy map, whatever the class's map.
   auto cls = coppClass(coppKey("copp-system-bgp", "another-pmap"), {"Ethernet1"}, 300, 90);

   helper()->createAndAttachCoppPolicer(cls);

   EXPECT_EQ(policerRecord("Ethernet1", cls->key())->cpuQId(), 1);
   EXPECT_EQ(coppInfo(1, bgpQueue), CoppInfo(300, 60, 90, true));
}

TEST_F(ClassPolicer, DynamicClassIsPublishedOnItsAllocatedQueue) {
   auto cls = dynamicClass("user-telnet", "Ethernet2");
   ASSERT_EQ(cls->cpuQId(), firstDynamicCpuQ);

   EXPECT_TRUE(helper()->createAndAttachCoppPolicer(cls));

   auto const record = policerRecord("Ethernet2", cls->key());
   ASSERT_TRUE(record);
   EXPECT_EQ(record->cpuQId(), firstDynamicCpuQ);
   EXPECT_TRUE(record->isDynamic());
   EXPECT_EQ(coppInfo(2, firstDynamicCpuQ), CoppInfo(400, 40, 60, true));
}

TEST_F(ClassPolicer, RateChangeOverwritesTheRecordAndTheKernelRate) {
   helper()->createAndAttachCoppPolicer(bgpClass("Ethernet1", 300, 90));
   auto changed = bgpClass("Ethernet1", 450, 30);

   EXPECT_TRUE(helper()->createAndAttachCoppPolicer(changed));

   EXPECT_EQ(helper()->coppIntfPolicerData(Orvik::IntfId("Ethernet1"))->policerDataCol(), 1u);
   auto const record = policerRecord("Ethernet1", changed->key());
   EXPECT_EQ(record->policerRate(), 450u);
   EXPECT_EQ(record->policerBurst(), 30u);
   EXPECT_EQ(coppInfo(1, bgpQueue), CoppInfo(450, 20, 30, true));
}

TEST_F(ClassPolicer, KernelBurstTokensAreTwoThirdsOfTheBurstRoundedDown) {
   helper()->createAndAttachCoppPolicer(bgpClass("Ethernet1", 300, 1));
   EXPECT_EQ(coppInfo(1, bgpQueue).burstTokens(), 0u);

   helper()->createAndAttachCoppPolicer(bgpClass("Ethernet1", 300, 3));
   EXPECT_EQ(coppInfo(1, bgpQueue).burstTokens(), 2u);

   helper()->createAndAttachCoppPolicer(bgpClass("Ethernet1", 300, 100));
   EXPECT_EQ(coppInfo(1, bgpQueue).burstTokens(), 66u);
}

TEST_F(ClassPolicer, RateIsTheLow32BitsOfTheConfiguredRate) {
   helper()->createAndAttachCoppPolicer(bgpClass("Ethernet1", 0x100000064ull, 90));

   EXPECT_EQ(policerRecord("Ethernet1", coppKey("copp-system-bgp"))->policerRate(), 100u);
   EXPECT_EQ(coppInfo(1, bgpQueue).rateInPps(), 100u);
}

TEST_F(ClassPolicer, ClassOnAnInterfaceWithoutPortChangesNothing) {
   auto const before = sw().kernelCoppConfig()->coppInfoCol().keys().size();
   TraceCapture trace({"NimbalQosSm"}, 4);

   EXPECT_TRUE(helper()->createAndAttachCoppPolicer(bgpClass("Ethernet99")));

   EXPECT_EQ(helper()->coppIntfPolicerData(), 0u);
   EXPECT_EQ(sw().kernelCoppConfig()->coppInfoCol().keys().size(), before);
   EXPECT_TRUE(trace.texts().empty());
}

TEST_F(ClassPolicer, CreationRaisesThePortDefaultPolicerToTwiceTheClassRate) {
   ASSERT_EQ(defaultRate("Ethernet1"), 1000u);

   helper()->createAndAttachCoppPolicer(bgpClass("Ethernet1", 600, 90));

   EXPECT_EQ(defaultRate("Ethernet1"), 1200u);
   EXPECT_EQ(defaultRate("Ethernet2"), 1000u);
}

TEST_F(ClassPolicer, CreationIsTracedAfterTheDefaultPolicerAndBeforeTheCounterClear) {
   TraceCapture trace({"NimbalQosSm"}, 4);

   helper()->createAndAttachCoppPolicer(bgpClass("Ethernet1", 600, 90));

   std::vector<std::string> const texts = trace.texts();
   ASSERT_EQ(texts.size(), 3u);
   EXPECT_EQ(texts[0].rfind("QosAclHelper::updatePortDefaultCoppPolicer", 0), 0u);
   EXPECT_EQ(texts[1],
             "QosAclHelperV1( copp-system-policy,0,copp-system-bgp,0 )::createAndAttachCoppPolicer"
             " on intf: Ethernet1 update kernel copp with user policer:  CIR(pps): 600"
             " BC(packets): 90");
   EXPECT_EQ(texts[2].rfind("void Nimbal::QosAclHelperV1::clearCoppIntfSwCounterByPortQueue", 0),
             0u);
   EXPECT_NE(texts[2].find(" modId: 0 port: 1 queue: 1"), std::string::npos);
}

TEST_F(ClassPolicer, CreationRestartsThePolledCountersOfItsQueue) {
   ModIdPortQueueKey const key(0, 1, bgpQueue);
   helper()->lastClearCoppSwCounterIs(key, counters(1, 1));
   sw().pktDrv()->ddeCoppCountersIs(0, 1, bgpQueue, 2, 5);
   auto cls = bgpClass();

   helper()->createAndAttachCoppPolicer(cls);

   EXPECT_EQ(helper()->lastClearCoppSwCfgCounter(key), counters(7, 2));
   EXPECT_EQ(helper()->lastClearCoppSwCounter(key), counters(1, 1));
   EXPECT_EQ(helper()->coppCounterUpdateRequest(cls), QosClassCounterData());
}

TEST_F(ClassPolicerDeathTest, OutputClassIsFatal) {
   Oskel::QosClassDataKey const key(coppPmap, Qos::mapControlPlane_, Qos::output_,
                                    "copp-system-bgp", Qos::mapControlPlane_);

   EXPECT_DEATH(helper()->createAndAttachCoppPolicer(coppClass(key, {"Ethernet1"}, 300, 90)),
                coppInputKeyAssertion);
}

TEST_F(ClassPolicerDeathTest, ClassWithoutAnyQueueIsFatal) {
   auto cls = coppClass(coppKey("user-unknown"), {"Ethernet1"}, 300, 90);

   EXPECT_DEATH(helper()->createAndAttachCoppPolicer(cls), "Assertion `cpuQId >= 0' failed");
}

TEST_F(ClassPolicerDeathTest, QueueOfAnotherClassMapIsFatal) {
   dynamicClass("user-telnet");
   auto cls = coppClass(coppKey("user-ssh"), {"Ethernet1"}, 300, 90);
   cls->cpuQIdIs(firstDynamicCpuQ);

   EXPECT_DEATH(helper()->createAndAttachCoppPolicer(cls),
                "Assertion `cpuQ->cmapName\\(\\) == key.cmapName\\(\\)' failed");
}

TEST_F(ClassPolicerDeathTest, QueueThatNobodyHoldsIsFatal) {
   auto cls = coppClass(coppKey("user-telnet"), {"Ethernet1"}, 300, 90);
   cls->cpuQIdIs(firstDynamicCpuQ + 1);

   EXPECT_DEATH(helper()->createAndAttachCoppPolicer(cls),
                "Assertion `cpuQ->allocated\\(\\)' failed");
}

TEST_F(ClassPolicerDeathTest, QueueOfAnotherPolicyMapIsFatal) {
   auto cls = dynamicClass("user-telnet", "Ethernet1", "another-pmap");

   EXPECT_DEATH(helper()->createAndAttachCoppPolicer(cls),
                "Assertion `cpuQ->pmapName\\(\\) == mmuSm\\(\\)->coppPMapName\\(\\)' failed");
}

TEST_F(ClassPolicerDeathTest, QueueOfAnotherClassMapTypeIsFatal) {
   dynamicClass("user-telnet", "Ethernet1", coppPmap, Qos::mapQos_);
   auto cls = coppClass(coppKey("user-telnet"), {"Ethernet1"}, 300, 90);
   cls->cpuQIdIs(firstDynamicCpuQ);

   EXPECT_DEATH(helper()->createAndAttachCoppPolicer(cls),
                "Assertion `cpuQ->cmapType\\(\\) == key.cmapType\\(\\)' failed");
}

TEST_F(ClassPolicerDeathTest, ClassOnTwoInterfacesIsFatal) {
   auto cls = coppClass(coppKey("copp-system-bgp"), {"Ethernet1", "Ethernet2"}, 300, 90);

   EXPECT_DEATH(helper()->createAndAttachCoppPolicer(cls),
                "Assertion `classData->intfIds\\(\\) == 1' failed");
}

TEST_F(ClassPolicerDeathTest, RateInAnotherUnitThanPacketsIsFatal) {
   auto cls = bgpClass();
   cls->policerData()->cirUnitIs(Qos::rateUnitKbps_);

   EXPECT_DEATH(helper()->createAndAttachCoppPolicer(cls),
                "Assertion `policerData->cirUnit\\(\\) == Qos::rateUnitPps_' failed");
}

// Destruction

TEST_F(ClassPolicer, DestructionFallsBackToTheQueueDefaultAndForgetsTheClass) {
   auto cls = bgpClass();
   helper()->createAndAttachCoppPolicer(cls);

   helper()->destroyCoppPolicer(cls);

   EXPECT_EQ(coppInfo(1, bgpQueue), CoppInfo(5000, 333, 500, true));
   EXPECT_FALSE(helper()->coppIntfPolicerDataHas("Ethernet1"));
}

TEST_F(ClassPolicer, DestructionOfADynamicClassFallsBackToItsQueueDefault) {
   auto cls = dynamicClass("user-telnet", "Ethernet2");
   helper()->createAndAttachCoppPolicer(cls);

   helper()->destroyCoppPolicer(cls);

   EXPECT_EQ(coppInfo(2, firstDynamicCpuQ), CoppInfo(1000, 66, 100, true));
   EXPECT_FALSE(helper()->coppIntfPolicerDataHas("Ethernet2"));
}

TEST_F(ClassPolicer, DestructionIsTraced) {
   auto cls = bgpClass();
   helper()->createAndAttachCoppPolicer(cls);
   TraceCapture trace({"NimbalQosSm"}, 4);

   helper()->destroyCoppPolicer(cls);

   std::vector<std::string> const expected = {
       "QosAclHelperV1( copp-system-policy,0,copp-system-bgp,0 )::destroyCoppPolicer on intf: "
       "Ethernet1 update kernel copp with default policer:  CIR(pps): 5000 BC(packets): 500"};
   EXPECT_EQ(tracesStartingWith(trace, "QosAclHelperV1"), expected);
}

TEST_F(ClassPolicer, DestroyingTwiceChangesNothingTheSecondTime) {
   auto cls = bgpClass();
   helper()->createAndAttachCoppPolicer(cls);
   helper()->destroyCoppPolicer(cls);
   sw().kernelCoppConfig()->coppInfoIs(ModIdPortQueueKey(0, 1, bgpQueue), CoppInfo(1, 1, 1, false));
   TraceCapture trace({"NimbalQosSm"}, 4);

   helper()->destroyCoppPolicer(cls);

   EXPECT_EQ(coppInfo(1, bgpQueue), CoppInfo(1, 1, 1, false));
   EXPECT_TRUE(trace.texts().empty());
}

TEST_F(ClassPolicer, InterfaceRecordLastsUntilItsLastClassIsDestroyed) {
   auto bgp = bgpClass();
   auto telnet = dynamicClass("user-telnet");
   helper()->createAndAttachCoppPolicer(bgp);
   helper()->createAndAttachCoppPolicer(telnet);

   helper()->destroyCoppPolicer(bgp);
   ASSERT_TRUE(helper()->coppIntfPolicerDataHas("Ethernet1"));
   EXPECT_FALSE(policerRecord("Ethernet1", bgp->key()));
   EXPECT_TRUE(policerRecord("Ethernet1", telnet->key()));

   helper()->destroyCoppPolicer(telnet);
   EXPECT_FALSE(helper()->coppIntfPolicerDataHas("Ethernet1"));
}

TEST_F(ClassPolicer, DestroyingAClassOfAnotherInterfaceChangesNothing) {
   helper()->createAndAttachCoppPolicer(bgpClass("Ethernet1"));

   helper()->destroyCoppPolicer(bgpClass("Ethernet2"));

   EXPECT_TRUE(policerRecord("Ethernet1", coppKey("copp-system-bgp")));
   EXPECT_EQ(coppInfo(1, bgpQueue), CoppInfo(300, 60, 90, true));
}

TEST_F(ClassPolicer, DestructionDropsThePortDefaultBackToTheConfiguredRate) {
   auto cls = bgpClass("Ethernet1", 600, 90);
   helper()->createAndAttachCoppPolicer(cls);
   ASSERT_EQ(defaultRate("Ethernet1"), 1200u);

   helper()->destroyCoppPolicer(cls);

   EXPECT_EQ(defaultRate("Ethernet1"), 1000u);
}

TEST_F(ClassPolicer, DestructionRestartsThePolledCountersOfItsQueue) {
   ModIdPortQueueKey const key(0, 1, bgpQueue);
   auto cls = bgpClass();
   helper()->createAndAttachCoppPolicer(cls);
   sw().pktDrv()->ddeCoppCountersIs(0, 1, bgpQueue, 4, 4);
   TraceCapture trace({"NimbalQosSm"}, 4);

   helper()->destroyCoppPolicer(cls);

   EXPECT_EQ(helper()->lastClearCoppSwCfgCounter(key), counters(8, 4));
   EXPECT_FALSE(helper()->lastClearCoppSwCounterHas(key));
   std::vector<std::string> const texts = trace.texts();
   ASSERT_FALSE(texts.empty());
   EXPECT_EQ(
       texts.back().rfind("void Nimbal::QosAclHelperV1::clearCoppIntfSwCounterByPortQueue", 0), 0u);
}

TEST_F(ClassPolicerDeathTest, DestroyingANonControlPlaneInputClassIsFatalEvenWithoutRecord) {
   Oskel::QosClassDataKey const key(coppPmap, Qos::mapControlPlane_, Qos::output_,
                                    "copp-system-bgp", Qos::mapControlPlane_);

   EXPECT_DEATH(helper()->destroyCoppPolicer(coppClass(key, {"Ethernet1"}, 300, 90)),
                coppInputKeyAssertion);
}

// Which table holds a key

TEST_F(ClassPolicer, UserEntryExistsOnlyForKeysOfTheUserTable) {
   helper()->userCoppDataIs(ModIdPortQueueKey(0, 1, 5));
   helper()->kernelDynamicCoppDataIs(ModIdPortQueueKey(0, 1, 6));

   EXPECT_TRUE(helper()->checkUserCoppEntryExists(ModIdPortQueueKey(0, 1, 5)));
   EXPECT_FALSE(helper()->checkUserCoppEntryExists(ModIdPortQueueKey(0, 1, 6)));
   EXPECT_TRUE(helper()->checkKernelCoppEntryExists(ModIdPortQueueKey(0, 1, 6)));
   EXPECT_FALSE(helper()->checkKernelCoppEntryExists(ModIdPortQueueKey(0, 1, 5)));
   EXPECT_TRUE(helper()->baseCalls().empty());
}

TEST_F(ClassPolicer, AllZeroKeyNeverExists) {
   helper()->userCoppDataIs(ModIdPortQueueKey());
   helper()->kernelDynamicCoppDataIs(ModIdPortQueueKey());
   helper()->userCoppDataIs(ModIdPortQueueKey(0, 0, 1));

   EXPECT_FALSE(helper()->checkUserCoppEntryExists(ModIdPortQueueKey()));
   EXPECT_FALSE(helper()->checkKernelCoppEntryExists(ModIdPortQueueKey()));
   EXPECT_TRUE(helper()->checkUserCoppEntryExists(ModIdPortQueueKey(0, 0, 1)));
   EXPECT_FALSE(helper()->checkUserCoppEntryExists(ModIdPortQueueKey(0, 0, 2)));
}

}  // namespace
