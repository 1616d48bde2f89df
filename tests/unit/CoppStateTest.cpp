#include <gtest/gtest.h>

#include <sstream>
#include <stdexcept>
#include <string>
#include <vector>

#include "Kiv/Type.h"
#include "unit/CoppHelperFixture.h"

namespace {

using CoppTest::AttributeSpy;
using CoppTest::CoppPlatform;
using Nimbal::NimbalQosCoppIntfCounterData;
using Nimbal::NimbalQosCoppIntfPolicerData;
using Nimbal::NimbalQosCoppPolicerData;
using Nimbal::NimbalQosCoppQCounterData;
using Nimbal::NimbalQosKernelDynamicCoppData;
using Nimbal::NimbalQosPolicerHwData;
using Oskel::ModIdPortQueueKey;

Oskel::QosClassDataKey coppClass(std::string const& cmap) {
   return Oskel::QosClassDataKey("copp-system-policy", Qos::mapControlPlane_, Qos::input_, cmap,
                                 Qos::mapControlPlane_);
}

// Collections of records

TEST(CoppState, IntfPolicerDataIsTwiceReturnsTheSameRecordWithItsClasses) {
   CoppPlatform platform;
   auto helper = platform.helper();
   auto first = helper->coppIntfPolicerDataIs("Ethernet1");
   first->policerDataColIs(coppClass("copp-system-bgp"))->policerRateIs(300);
   auto second = helper->coppIntfPolicerDataIs("Ethernet1");
   EXPECT_EQ(first.ptr(), second.ptr());
   ASSERT_EQ(second->policerDataCol(), 1u);
   EXPECT_EQ(second->policerDataCol(coppClass("copp-system-bgp"))->policerRate(), 300u);
   EXPECT_EQ(helper->coppIntfPolicerData(), 1u);
}

TEST(CoppState, RecordIsNotifiesWithTheKeyOnlyWhenItCreates) {
   CoppPlatform platform;
   auto helper = platform.helper();
   AttributeSpy spy(helper.ptr());
   auto record = helper->kernelDynamicCoppDataIs(ModIdPortQueueKey(1, 2, 3));
   helper->kernelDynamicCoppDataIs(ModIdPortQueueKey(1, 2, 3));
   ASSERT_EQ(spy.events().size(), 1u);
   EXPECT_EQ(spy.events()[0].attr, "kernelDynamicCoppData");
   EXPECT_TRUE(std::any_cast<ModIdPortQueueKey>(spy.events()[0].key) == ModIdPortQueueKey(1, 2, 3));
   EXPECT_TRUE(record->hasNotificationActive());
   EXPECT_TRUE(record->key() == ModIdPortQueueKey(1, 2, 3));
}

TEST(CoppState, NewRecordsStartAtZero) {
   NimbalQosCoppPolicerData policer(coppClass("copp-system-bgp"));
   EXPECT_EQ(policer.cpuQId(), 0);
   EXPECT_EQ(policer.policerRate(), 0u);
   EXPECT_EQ(policer.policerBurst(), 0u);
   EXPECT_FALSE(policer.isDynamic());
   EXPECT_TRUE(policer.policerHwData() == NimbalQosPolicerHwData());
   NimbalQosKernelDynamicCoppData kernel(ModIdPortQueueKey(0, 1, 2));
   EXPECT_EQ(kernel.entry(), 0u);
   EXPECT_EQ(kernel.policerId(), 0u);
   NimbalQosCoppIntfCounterData counters("Ethernet1");
   EXPECT_EQ(counters.qCounterCol(), 0u);
   EXPECT_TRUE(counters.intfId() == Orvik::IntfId("Ethernet1"));
}

TEST(CoppState, RecordDelNotifiesAndDropsTheCollectionsHandle) {
   CoppPlatform platform;
   auto helper = platform.helper();
   AttributeSpy recordSpy(helper->userCoppDataIs(ModIdPortQueueKey(0, 1, 5)).ptr());
   AttributeSpy spy(helper.ptr());
   helper->userCoppDataDel(ModIdPortQueueKey(0, 9, 9));
   EXPECT_TRUE(spy.events().empty());
   helper->userCoppDataDel(ModIdPortQueueKey(0, 1, 5));
   EXPECT_EQ(spy.attrs(), std::vector<std::string>({"userCoppData"}));
   EXPECT_FALSE(recordSpy.bound());
   EXPECT_FALSE(helper->userCoppData(ModIdPortQueueKey(0, 1, 5)));
}

TEST(CoppState, DelAllDeletesEveryRecordWithANotificationEach) {
   CoppPlatform platform;
   auto helper = platform.helper();
   helper->coppIntfCounterDataIs("Ethernet1");
   helper->coppIntfCounterDataIs("Ethernet2");
   AttributeSpy spy(helper.ptr());
   helper->coppIntfCounterDataDelAll();
   EXPECT_EQ(spy.attrs(), std::vector<std::string>({"coppIntfCounterData", "coppIntfCounterData"}));
   EXPECT_EQ(helper->coppIntfCounterData(), 0u);
}

TEST(CoppState, OneKeyMayLiveInSeveralCollections) {
   CoppPlatform platform;
   auto helper = platform.helper();
   ModIdPortQueueKey const key(0, 1, 5);
   auto kernel = helper->kernelDynamicCoppDataIs(key);
   auto vxlan = helper->kernelDynamicCoppVxlanDataIs(key);
   auto user = helper->userCoppDataIs(key);
   kernel->entryIs(10);
   EXPECT_NE(kernel.ptr(), vxlan.ptr());
   EXPECT_NE(kernel.ptr(), user.ptr());
   EXPECT_EQ(vxlan->entry(), 0u);
   helper->kernelDynamicCoppDataDel(key);
   EXPECT_TRUE(helper->kernelDynamicCoppVxlanDataHas(key));
   EXPECT_TRUE(helper->userCoppDataHas(key));
}

TEST(CoppState, AbsentKeysReadAsNone) {
   CoppPlatform platform;
   auto helper = platform.helper();
   EXPECT_FALSE(helper->coppIntfPolicerData("Ethernet9"));
   EXPECT_FALSE(helper->kernelDynamicCoppData(ModIdPortQueueKey(0, 1, 1)));
   EXPECT_TRUE(helper->portDefaultCoppPolicerHwData("Ethernet9") == NimbalQosPolicerHwData());
   EXPECT_FALSE(helper->portDefaultCoppPolicerHwDataCol().value("Ethernet9").has_value());
   EXPECT_FALSE(helper->coppVxlanDynEntryInUse(300));
   EXPECT_TRUE(helper->lastClearCoppSwCounter(ModIdPortQueueKey(0, 1, 1)) ==
               Oskel::QosClassCounterData());
}

// Maps of values

TEST(CoppState, EqualPolicerHwDataNotifiesNobody) {
   CoppPlatform platform;
   auto helper = platform.helper();
   helper->portDefaultCoppPolicerHwDataIs("Ethernet1", NimbalQosPolicerHwData(1000, 100, 5, 7));
   AttributeSpy spy(helper.ptr());
   EXPECT_FALSE(helper->portDefaultCoppPolicerHwDataIs("Ethernet1",
                                                       NimbalQosPolicerHwData(1000, 100, 5, 7)));
   EXPECT_TRUE(spy.events().empty());
}

TEST(CoppState, DifferentPolicerHwDataOverwritesInPlaceAndNotifiesWithTheKey) {
   CoppPlatform platform;
   auto helper = platform.helper();
   helper->portDefaultCoppPolicerHwDataIs("Ethernet1", NimbalQosPolicerHwData(1000, 100, 5, 7));
   AttributeSpy spy(helper.ptr());
   helper->portDefaultCoppPolicerHwDataIs("Ethernet1", NimbalQosPolicerHwData(600, 60, 5, 8));
   EXPECT_EQ(helper->portDefaultCoppPolicerHwData(), 1u);
   EXPECT_TRUE(helper->portDefaultCoppPolicerHwData("Ethernet1") ==
               NimbalQosPolicerHwData(600, 60, 5, 8));
   ASSERT_EQ(spy.events().size(), 1u);
   EXPECT_EQ(spy.events()[0].attr, "portDefaultCoppPolicerHwData");
   EXPECT_TRUE(std::any_cast<Orvik::IntfId>(spy.events()[0].key) == Orvik::IntfId("Ethernet1"));
}

TEST(CoppState, CounterSnapshotsFollowTheValueRule) {
   CoppPlatform platform;
   auto helper = platform.helper();
   Oskel::QosClassCounterData snapshot;
   snapshot.pktHitsIs(10);
   AttributeSpy spy(helper.ptr());
   helper->lastClearCoppSwCfgCounterIs(ModIdPortQueueKey(0, 1, 5), snapshot);
   helper->lastClearCoppSwCfgCounterIs(ModIdPortQueueKey(0, 1, 5), snapshot);
   snapshot.dropIs(2);
   helper->lastClearCoppSwCfgCounterIs(ModIdPortQueueKey(0, 1, 5), snapshot);
   EXPECT_EQ(spy.attrs(),
             std::vector<std::string>({"lastClearCoppSwCfgCounter", "lastClearCoppSwCfgCounter"}));
   EXPECT_EQ(helper->lastClearCoppSwCfgCounter(ModIdPortQueueKey(0, 1, 5)).drop(), 2u);
   EXPECT_EQ(helper->lastClearCoppSwCounter(), 0u);
}

TEST(CoppState, VxlanEntriesInUseIterateInAscendingOrder) {
   CoppPlatform platform;
   auto helper = platform.helper();
   for (U32 entry : {700u, 256u, 300u, 257u}) {
      helper->coppVxlanDynEntryInUseIs(entry, true);
   }
   std::vector<U32> seen;
   for (auto const& kv : helper->coppVxlanDynEntryInUseCol()) {
      seen.push_back(kv.first);
   }
   EXPECT_EQ(seen, std::vector<U32>({256, 257, 300, 700}));
   EXPECT_TRUE(helper->coppVxlanDynEntryInUse(300));
}

TEST(CoppState, VxlanEntryInUseSetterAndIteratorDeleter) {
   CoppPlatform platform;
   auto helper = platform.helper();
   helper->coppVxlanDynEntryInUseIs(256, true);
   helper->coppVxlanDynEntryInUseIs(257, true);
   AttributeSpy spy(helper.ptr());
   helper->coppVxlanDynEntryInUseIs(256, true);
   EXPECT_TRUE(spy.events().empty());
   auto it = helper->coppVxlanDynEntryInUseBegin();
   it = helper->coppVxlanDynEntryInUseDel(it);
   ASSERT_NE(it, helper->coppVxlanDynEntryInUseEnd());
   EXPECT_EQ(it->first, 257u);
   ASSERT_EQ(spy.events().size(), 1u);
   EXPECT_EQ(std::any_cast<U32>(spy.events()[0].key), 256u);
   EXPECT_FALSE(helper->coppVxlanDynEntryInUse(256));
}

// Record attributes and inner collections

TEST(CoppState, RecordSettersNotifyOnlyOnChange) {
   CoppPlatform platform;
   auto helper = platform.helper();
   auto policer =
       helper->coppIntfPolicerDataIs("Ethernet1")->policerDataColIs(coppClass("copp-system-bgp"));
   AttributeSpy spy(policer.ptr());
   policer->cpuQIdIs(0);
   policer->policerRateIs(0);
   policer->policerBurstIs(0);
   policer->isDynamicIs(false);
   policer->policerHwDataIs(NimbalQosPolicerHwData());
   EXPECT_TRUE(spy.events().empty());
   policer->cpuQIdIs(12);
   policer->policerRateIs(300);
   policer->policerBurstIs(30);
   policer->isDynamicIs(true);
   policer->policerHwDataIs(NimbalQosPolicerHwData(300, 30, 1, 2));
   policer->policerRateIs(300);
   EXPECT_EQ(spy.attrs(), std::vector<std::string>({"cpuQId", "policerRate", "policerBurst",
                                                    "isDynamic", "policerHwData"}));

   auto kernel = helper->kernelDynamicCoppDataIs(ModIdPortQueueKey(0, 1, 5));
   AttributeSpy kernelSpy(kernel.ptr());
   kernel->entryIs(0);
   kernel->entryIs(17);
   kernel->policerIdIs(4);
   kernel->policerIdIs(4);
   EXPECT_EQ(kernelSpy.attrs(), std::vector<std::string>({"entry", "policerId"}));
}

TEST(CoppState, InnerPolicerCollectionNotifiesTheInterfaceRecordsObservers) {
   CoppPlatform platform;
   auto helper = platform.helper();
   auto intf = helper->coppIntfPolicerDataIs("Ethernet1");
   AttributeSpy spy(intf.ptr());
   auto bgp = intf->policerDataColIs(coppClass("copp-system-bgp"));
   EXPECT_EQ(intf->policerDataColIs(coppClass("copp-system-bgp")).ptr(), bgp.ptr());
   EXPECT_TRUE(bgp->hasNotificationActive());
   EXPECT_TRUE(bgp->key() == coppClass("copp-system-bgp"));
   intf->policerDataColDel(coppClass("copp-system-bgp"));
   EXPECT_EQ(spy.attrs(), std::vector<std::string>({"policerDataCol", "policerDataCol"}));
   EXPECT_TRUE(std::any_cast<Oskel::QosClassDataKey>(spy.events()[0].key) ==
               coppClass("copp-system-bgp"));
}

TEST(CoppState, QueueCountersAreStoredWithoutNotification) {
   CoppPlatform platform;
   auto helper = platform.helper();
   auto counters = helper->coppIntfCounterDataIs("Ethernet1");
   AttributeSpy spy(counters.ptr());
   counters->qCounterColIs(5, NimbalQosCoppQCounterData(10));
   counters->qCounterColIs(5, NimbalQosCoppQCounterData(25));
   counters->qCounterColIs(6, NimbalQosCoppQCounterData(1));
   EXPECT_EQ(counters->qCounterCol(5).pktHits(), 25u);
   EXPECT_EQ(counters->qCounterCol(), 2u);
   counters->qCounterColDel(6);
   EXPECT_FALSE(counters->qCounterColHas(6));
   counters->qCounterColDelAll();
   EXPECT_EQ(counters->qCounterCol(), 0u);
   EXPECT_TRUE(spy.events().empty());
}

TEST(CoppState, DestroyingAnInterfaceRecordDeletesItsPolicerRecordsOneByOne) {
   CoppPlatform platform;
   auto helper = platform.helper();
   auto intf = helper->coppIntfPolicerDataIs("Ethernet1");
   AttributeSpy bgp(intf->policerDataColIs(coppClass("copp-system-bgp")).ptr());
   AttributeSpy ospf(intf->policerDataColIs(coppClass("copp-system-ospf")).ptr());
   AttributeSpy intfSpy(intf.ptr());
   intf = nullptr;
   helper->coppIntfPolicerDataDel("Ethernet1");
   EXPECT_FALSE(bgp.bound());
   EXPECT_FALSE(ospf.bound());
   EXPECT_EQ(intfSpy.attrs(), std::vector<std::string>({"policerDataCol", "policerDataCol"}));
}

// The queue counter value

TEST(CoppState, QueueCounterValuesOrderAsUnsigned64) {
   NimbalQosCoppQCounterData const low(0xFFFFFFFFull);
   NimbalQosCoppQCounterData const high(0x100000000ull);
   EXPECT_TRUE(low < high);
   EXPECT_FALSE(high < low);
   EXPECT_FALSE(high == NimbalQosCoppQCounterData(0));
   EXPECT_TRUE(high == NimbalQosCoppQCounterData(0x100000000ull));
}

TEST(CoppState, QueueCounterValueTextIsTheDecimalCount) {
   NimbalQosCoppQCounterData const value(0x100000000ull);
   EXPECT_EQ(Kiv::toString(value), "4294967296");
   std::ostringstream os;
   os << value;
   EXPECT_EQ(os.str(), "4294967296");
   EXPECT_TRUE(NimbalQosCoppQCounterData(std::string("4294967296")) == value);
   EXPECT_TRUE(NimbalQosCoppQCounterData(std::string("pktHits=4294967296")) == value);
   EXPECT_TRUE(Kiv::fromString<NimbalQosCoppQCounterData>("17") == NimbalQosCoppQCounterData(17));
   EXPECT_THROW(NimbalQosCoppQCounterData(std::string("lots")), std::invalid_argument);
}

// Framework types

TEST(CoppState, TypesAreRegisteredUnderTheirFullNames) {
   EXPECT_EQ(Kiv::type("Nimbal::NimbalQosCoppPolicerData"),
             NimbalQosCoppPolicerData::fwkTypeDesc());
   EXPECT_EQ(Kiv::type("Nimbal::NimbalQosCoppIntfPolicerData"),
             NimbalQosCoppIntfPolicerData::fwkTypeDesc());
   EXPECT_EQ(Kiv::type("Nimbal::NimbalQosKernelDynamicCoppData"),
             NimbalQosKernelDynamicCoppData::fwkTypeDesc());
   EXPECT_EQ(Kiv::type("Nimbal::NimbalQosCoppIntfCounterData"),
             NimbalQosCoppIntfCounterData::fwkTypeDesc());
   EXPECT_EQ(Kiv::type("Nimbal::NimbalQosCoppQCounterData"),
             NimbalQosCoppQCounterData::fwkTypeDesc());
   EXPECT_EQ(Kiv::type("Nimbal::QosIntfCoppSm"), Nimbal::QosIntfCoppSm::fwkTypeDesc());
   EXPECT_EQ(Kiv::type("Nimbal::QosAclHelperV1"), Nimbal::QosAclHelperV1::fwkTypeDesc());
   EXPECT_EQ(Kiv::type("Nimbal::QosTcamAclHelperV1"), Nimbal::QosTcamAclHelperV1::fwkTypeDesc());

   CoppPlatform platform;
   auto helper = platform.helper();
   auto intf = helper->coppIntfPolicerDataIs("Ethernet1");
   EXPECT_EQ(intf->fwkType(), Kiv::type("Nimbal::NimbalQosCoppIntfPolicerData"));
   EXPECT_EQ(intf->policerDataColIs(coppClass("x"))->fwkType(),
             Kiv::type("Nimbal::NimbalQosCoppPolicerData"));
   EXPECT_EQ(helper->kernelDynamicCoppDataIs({})->fwkType(),
             Kiv::type("Nimbal::NimbalQosKernelDynamicCoppData"));
   EXPECT_EQ(helper->coppIntfCounterDataIs("Ethernet1")->fwkType(),
             Kiv::type("Nimbal::NimbalQosCoppIntfCounterData"));
   EXPECT_EQ(NimbalQosCoppQCounterData().fwkType(), Kiv::type("Nimbal::NimbalQosCoppQCounterData"));
   EXPECT_EQ(helper->fwkType(), Kiv::type("Nimbal::QosAclHelperV1"));
}

TEST(CoppState, PolicerRecordAttributesByName) {
   CoppPlatform platform;
   auto helper = platform.helper();
   auto policer =
       helper->coppIntfPolicerDataIs("Ethernet1")->policerDataColIs(coppClass("copp-system-bgp"));
   EXPECT_EQ(policer->fwkType()->attributeNames(),
             std::vector<std::string>(
                 {"key", "cpuQId", "policerRate", "policerBurst", "isDynamic", "policerHwData"}));
   Kiv::attributeValueIs(*policer, "cpuQId", "-1");
   Kiv::attributeValueIs(*policer, "policerRate", "300");
   Kiv::attributeValueIs(*policer, "policerBurst", "30");
   Kiv::attributeValueIs(*policer, "isDynamic", "true");
   EXPECT_EQ(policer->cpuQId(), -1);
   EXPECT_EQ(policer->policerRate(), 300u);
   EXPECT_EQ(policer->policerBurst(), 30u);
   EXPECT_TRUE(policer->isDynamic());
   EXPECT_EQ(Kiv::attributeValue(*policer, "key"), "copp-system-policy,0,copp-system-bgp,0");
   EXPECT_EQ(Kiv::attributeValue(*policer, "cpuQId"), "-1");
   EXPECT_EQ(Kiv::attributeValue(*policer, "policerHwData"), "0 0 0 0");
   EXPECT_THROW(Kiv::attributeValueIs(*policer, "key", "a,0,b,0"), std::invalid_argument);
   EXPECT_THROW(Kiv::attributeValueIs(*policer, "policerHwData", "1 2 3 4"), std::invalid_argument);
}

TEST(CoppState, KernelRecordAndCollectionAttributesByName) {
   CoppPlatform platform;
   auto helper = platform.helper();
   auto kernel = helper->kernelDynamicCoppDataIs(ModIdPortQueueKey(0, 1, 5));
   Kiv::attributeValueIs(*kernel, "entry", "17");
   Kiv::attributeValueIs(*kernel, "policerId", "4");
   EXPECT_EQ(kernel->entry(), 17u);
   EXPECT_EQ(kernel->policerId(), 4u);
   EXPECT_EQ(Kiv::attributeValue(*kernel, "key"), "(0,1,5)");
   EXPECT_THROW(Kiv::attributeValueIs(*kernel, "key", "(0,1,6)"), std::invalid_argument);

   auto intf = helper->coppIntfPolicerDataIs("Ethernet1");
   intf->policerDataColIs(coppClass("b"));
   intf->policerDataColIs(coppClass("a"));
   EXPECT_EQ(Kiv::attributeValue(*intf, "intfId"), "Ethernet1");
   EXPECT_EQ(Kiv::attributeValue(*intf, "policerDataCol"),
             "[copp-system-policy,0,a,0, copp-system-policy,0,b,0]");
   EXPECT_THROW(Kiv::attributeValueIs(*intf, "intfId", "Ethernet2"), std::invalid_argument);

   auto counters = helper->coppIntfCounterDataIs("Ethernet1");
   counters->qCounterColIs(12, NimbalQosCoppQCounterData(7));
   counters->qCounterColIs(5, NimbalQosCoppQCounterData(0x100000000ull));
   EXPECT_EQ(Kiv::attributeValue(*counters, "qCounterCol"), "[5=4294967296, 12=7]");
}

TEST(CoppState, HelperAttributesByNameInDeclaredOrder) {
   CoppPlatform platform;
   auto helper = platform.helper();
   EXPECT_EQ(helper->fwkType()->attributeNames(),
             std::vector<std::string>({"kernelCoppConfig",
                                       "policyCoppIpEntryMgr",
                                       "policyCoppIp6EntryMgr",
                                       "efpCoppEntryMgr",
                                       "efpCoppDefAndVxlanEntryMgr",
                                       "portDefaultCoppPolicerHwData",
                                       "coppIntfPolicerData",
                                       "kernelDynamicCoppData",
                                       "kernelDynamicCoppVxlanData",
                                       "portDefaultCoppPolicerVxlanHwData",
                                       "coppVxlanDynEntryInUse",
                                       "coppVxlanDynEntryOffset",
                                       "coppVxlanDynEntryMax",
                                       "coppVxlanDefaultOffset",
                                       "coppVxlanDynEntryInvalid",
                                       "userCoppData",
                                       "lastClearCoppSwCounter",
                                       "lastClearCoppSwCfgCounter",
                                       "coppIntfCounterData",
                                       "qosIntfCoppSm",
                                       "createCoppPolicerAlwaysFalse"}));
   helper->efpCoppEntryMgrIs(new Nimbal::NimbalUnboundedTcamEntryManager(40));
   helper->portDefaultCoppPolicerHwDataIs("Ethernet2", NimbalQosPolicerHwData(1000, 100, 2, 9));
   helper->portDefaultCoppPolicerHwDataIs("Ethernet1", NimbalQosPolicerHwData(1000, 100, 1, 8));
   helper->kernelDynamicCoppDataIs(ModIdPortQueueKey(0, 1, 5));
   helper->coppVxlanDynEntryInUseIs(257, true);
   EXPECT_EQ(Kiv::attributeValue(*helper, "kernelCoppConfig"), "set");
   EXPECT_EQ(Kiv::attributeValue(*helper, "efpCoppEntryMgr"), "group 40");
   EXPECT_EQ(Kiv::attributeValue(*helper, "policyCoppIpEntryMgr"), "null");
   EXPECT_EQ(Kiv::attributeValue(*helper, "portDefaultCoppPolicerHwData"),
             "[Ethernet1=1000 100 1 8, Ethernet2=1000 100 2 9]");
   EXPECT_EQ(Kiv::attributeValue(*helper, "kernelDynamicCoppData"), "[(0,1,5)]");
   EXPECT_EQ(Kiv::attributeValue(*helper, "coppVxlanDynEntryInUse"), "[257=true]");
   EXPECT_EQ(Kiv::attributeValue(*helper, "qosIntfCoppSm"), "null");
   EXPECT_EQ(Kiv::attributeValue(*helper, "createCoppPolicerAlwaysFalse"), "false");
   EXPECT_THROW(Kiv::attributeValueIs(*helper, "coppVxlanDynEntryMax", "1"), std::invalid_argument);
   EXPECT_THROW(Kiv::attributeValueIs(*helper, "createCoppPolicerAlwaysFalse", "maybe"),
                std::invalid_argument);
}

}  // namespace
