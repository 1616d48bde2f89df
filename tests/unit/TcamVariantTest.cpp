#include <gtest/gtest.h>
#include <stdlib.h>

#include <string>
#include <type_traits>
#include <vector>

#include "Kiv/Activity.h"
#include "Shim/Sdk.h"
#include "unit/CoppHelperFixture.h"
#include "unit/HelperSlots.h"

namespace {

using CoppTest::AttributeSpy;
using CoppTest::CoppPlatform;
using CoppTest::TraceCapture;
using Nimbal::QosAclHelperV1;
using Nimbal::QosTcamAclHelperV1;
using SlotTest::classOf;
using SlotTest::coppKey;
using SlotTest::qosKey;

// The class whose implementation a member-function pointer names.
template <class M>
struct MemberOwner;
template <class R, class C, class... A>
struct MemberOwner<R (C::*)(A...)> {
   using type = C;
};
template <class R, class C, class... A>
struct MemberOwner<R (C::*)(A...) const> {
   using type = C;
};
template <class M>
using MemberOwnerOf = typename MemberOwner<M>::type;

#define EXPECT_SLOT_FILLED_BY(Helper, op, Owner)                              \
   EXPECT_TRUE((std::is_same_v<MemberOwnerOf<decltype(&Helper::op)>, Owner>)) \
       << #Helper "::" #op " is not " #Owner "'s"

Kiv::Ptr<Oskel::AclData> aclOfType(U32 aclType) {
   return Kiv::Ptr<Oskel::AclData>(new Oskel::AclData("acl", aclType));
}

// Which implementation fills each slot, as the compiler resolves it

TEST(SlotTable, V1FillsEveryOverriddenSlotItself) {
   EXPECT_SLOT_FILLED_BY(QosAclHelperV1, fwkType, QosAclHelperV1);
   EXPECT_SLOT_FILLED_BY(QosAclHelperV1, precreateAcl, QosAclHelperV1);
   EXPECT_SLOT_FILLED_BY(QosAclHelperV1, coppAllocateCpuQ, QosAclHelperV1);
   EXPECT_SLOT_FILLED_BY(QosAclHelperV1, coppDeallocateCpuQ, QosAclHelperV1);
   EXPECT_SLOT_FILLED_BY(QosAclHelperV1, checkUserCoppEntryExists, QosAclHelperV1);
   EXPECT_SLOT_FILLED_BY(QosAclHelperV1, checkKernelCoppEntryExists, QosAclHelperV1);
   EXPECT_SLOT_FILLED_BY(QosAclHelperV1, createDefaultCoppRates, QosAclHelperV1);
   EXPECT_SLOT_FILLED_BY(QosAclHelperV1, createAndAttachPolicer, QosAclHelperV1);
   EXPECT_SLOT_FILLED_BY(QosAclHelperV1, destroyPolicer, QosAclHelperV1);
   EXPECT_SLOT_FILLED_BY(QosAclHelperV1, createAndAttachCoppPolicer, QosAclHelperV1);
   EXPECT_SLOT_FILLED_BY(QosAclHelperV1, destroyCoppPolicer, QosAclHelperV1);
   EXPECT_SLOT_FILLED_BY(QosAclHelperV1, createCoppPolicerByPortQueue, QosAclHelperV1);
   EXPECT_SLOT_FILLED_BY(QosAclHelperV1, destroyCoppPolicerByPortQueue, QosAclHelperV1);
   EXPECT_SLOT_FILLED_BY(QosAclHelperV1, counterUpdateRequest, QosAclHelperV1);
   EXPECT_SLOT_FILLED_BY(QosAclHelperV1, hwInit, QosAclHelperV1);
   EXPECT_SLOT_FILLED_BY(QosAclHelperV1, verifyPolicer, QosAclHelperV1);
   EXPECT_SLOT_FILLED_BY(QosAclHelperV1, setEntryPorts, QosAclHelperV1);
   EXPECT_SLOT_FILLED_BY(QosAclHelperV1, compressAllGroups, QosAclHelperV1);
   EXPECT_SLOT_FILLED_BY(QosAclHelperV1, verifyRulePortsForUnit, QosAclHelperV1);
}

TEST(SlotTable, TcamVariantTakesCoppSlotsFromV1AndPolicySlotsFromItsOwnSide) {
   EXPECT_SLOT_FILLED_BY(QosTcamAclHelperV1, fwkType, QosTcamAclHelperV1);
   EXPECT_SLOT_FILLED_BY(QosTcamAclHelperV1, precreateAcl, QosAclHelperV1);
   EXPECT_SLOT_FILLED_BY(QosTcamAclHelperV1, coppAllocateCpuQ, QosAclHelperV1);
   EXPECT_SLOT_FILLED_BY(QosTcamAclHelperV1, coppDeallocateCpuQ, QosAclHelperV1);
   EXPECT_SLOT_FILLED_BY(QosTcamAclHelperV1, checkUserCoppEntryExists, QosAclHelperV1);
   EXPECT_SLOT_FILLED_BY(QosTcamAclHelperV1, checkKernelCoppEntryExists, QosAclHelperV1);
   EXPECT_SLOT_FILLED_BY(QosTcamAclHelperV1, createDefaultCoppRates, QosAclHelperV1);
   // Declared by the variant to hand the call to the TCAM base (checked by what they do).
   EXPECT_SLOT_FILLED_BY(QosTcamAclHelperV1, createAndAttachPolicer, QosTcamAclHelperV1);
   EXPECT_SLOT_FILLED_BY(QosTcamAclHelperV1, destroyPolicer, QosTcamAclHelperV1);
   EXPECT_SLOT_FILLED_BY(QosTcamAclHelperV1, createAndAttachCoppPolicer, QosAclHelperV1);
   EXPECT_SLOT_FILLED_BY(QosTcamAclHelperV1, destroyCoppPolicer, QosAclHelperV1);
   EXPECT_SLOT_FILLED_BY(QosTcamAclHelperV1, createCoppPolicerByPortQueue, QosAclHelperV1);
   EXPECT_SLOT_FILLED_BY(QosTcamAclHelperV1, destroyCoppPolicerByPortQueue, QosAclHelperV1);
   EXPECT_SLOT_FILLED_BY(QosTcamAclHelperV1, counterUpdateRequest, QosTcamAclHelperV1);
   EXPECT_SLOT_FILLED_BY(QosTcamAclHelperV1, hwInit, QosTcamAclHelperV1);
   EXPECT_SLOT_FILLED_BY(QosTcamAclHelperV1, verifyPolicer, QosAclHelperV1);
   EXPECT_SLOT_FILLED_BY(QosTcamAclHelperV1, setEntryPorts, QosTcamAclHelperV1);
   EXPECT_SLOT_FILLED_BY(QosTcamAclHelperV1, compressAllGroups, QosAclHelperV1);
   EXPECT_SLOT_FILLED_BY(QosTcamAclHelperV1, verifyRulePortsForUnit, QosAclHelperV1);
   EXPECT_SLOT_FILLED_BY(QosTcamAclHelperV1, getFeatureGroupType, QosTcamAclHelperV1);
}

// The helper the factory builds with the toggle off, slot by slot

class FactoryV1Slots : public ::testing::Test {
  protected:
   void SetUp() override {
      ::unsetenv("SIMULATION_VMID");
      Shim::sdk_->reset();
      helper_ = Kiv::ptr_cast<QosAclHelperV1>(platform_.viaFactory());
      ASSERT_TRUE(helper_);
      ASSERT_FALSE(Kiv::ptr_cast<QosTcamAclHelperV1>(helper_));
      agent_ = helper_;
   }

   CoppPlatform platform_;
   Kiv::Ptr<QosAclHelperV1> helper_;
   Kiv::Ptr<Nimbal::QosAclHelper> agent_;
};

TEST_F(FactoryV1Slots, EveryCoppSlotAnswersAsV1sOwnImplementation) {
   for (SlotTest::Slot const& slot : SlotTest::v1Slots()) {
      CoppPlatform twinPlatform;
      Kiv::Ptr<QosAclHelperV1> twin = twinPlatform.helper();
      SlotTest::Outcome const viaAgent = SlotTest::run(slot, platform_, *helper_, false);
      SlotTest::Outcome const viaV1 = SlotTest::run(slot, twinPlatform, *twin, true);
      EXPECT_EQ(viaAgent, viaV1) << slot.name;
   }
}

TEST_F(FactoryV1Slots, FwkTypeIsV1s) {
   EXPECT_EQ(agent_->fwkType()->fullName(), "Nimbal::QosAclHelperV1");
}

TEST_F(FactoryV1Slots, DestructorTearsDownTheCoppState) {
   Kiv::Ptr<Nimbal::QosIntfCoppSm> sm = helper_->qosIntfCoppSmIs(platform_.scsd, helper_.ptr());
   helper_->userCoppDataIs(Oskel::ModIdPortQueueKey(0, 2, 6));
   std::vector<std::string> log;
   AttributeSpy spy(helper_.ptr(), &log);
   helper_ = nullptr;
   agent_ = nullptr;
   EXPECT_EQ(log, std::vector<std::string>({"userCoppData", "qosIntfCoppSm"}));
   EXPECT_FALSE(sm->hasNotificationActive());
}

TEST_F(FactoryV1Slots, PrecreateAclTracesAsV1) {
   TraceCapture traces({"NimbalQosSm"});
   Kiv::Ptr<Oskel::QosPolicyMapState> pmap(new Oskel::QosPolicyMapState("copp-system-policy"));
   agent_->precreateAcl(pmap, classOf(coppKey), Qos::matchIpAccessGroup_,
                        Oskel::AclKey("acl-bgp", 0), 0);
   EXPECT_EQ(
       traces.texts(),
       std::vector<std::string>(
           {"QosAclHelperV1( copp-system-policy,0,copp-system-bgp,0 )::precreateAcl( 0,0 )"}));
   EXPECT_EQ(helper_->baseCalls(), std::vector<std::string>({"QosAclHelper::precreateAcl"}));
}

TEST_F(FactoryV1Slots, PolicyClassPolicersAndCountersGoToTheAgentsGenericHelper) {
   auto cls = classOf(qosKey);
   agent_->createAndAttachPolicer(cls);
   agent_->destroyPolicer(cls);
   agent_->counterUpdateRequest(cls, Oskel::AclKey("acl", 0));
   EXPECT_EQ(helper_->baseCalls(),
             std::vector<std::string>({"QosAclHelper::createAndAttachPolicer",
                                       "QosAclHelper::destroyPolicer",
                                       "QosAclHelper::counterUpdateRequest"}));
}

TEST_F(FactoryV1Slots, CoppCountersAreNotTheAgentsGenericOnes) {
   agent_->counterUpdateRequest(classOf(coppKey), Oskel::AclKey("acl", 0));
   EXPECT_TRUE(helper_->baseCalls().empty());
}

TEST_F(FactoryV1Slots, HwInitIsV1s) {
   platform_.coppGroupsAdd();
   TraceCapture traces({"NimbalQosSm"}, 1);
   agent_->hwInit();
   EXPECT_EQ(traces.texts(), std::vector<std::string>({"QosHelperV1::hwInit"}));
   EXPECT_EQ(helper_->baseCalls(), std::vector<std::string>({"QosAclHelper::hwInit"}));
   EXPECT_TRUE(helper_->policyCoppIpEntryMgr() == platform_.coppIpEntryMgr);
}

TEST_F(FactoryV1Slots, SetEntryPortsIsV1s) {
   Kiv::ActivityScope lock;
   Shim::sdk_->chip().portBitmapIs(0, Shim::pbmpOf({1, 2}));
   platform_.coppGroupsAdd();
   U64 const entry = platform_.coppIpEntryMgr->getEntryWithStats(0, "e", Nimbal::RequestKey(), {});
   Kiv::Ptr<Oskel::QosPolicyMapState> pmap(new Oskel::QosPolicyMapState("copp-system-policy"));
   Shim::sdk_->journalDelAll();
   agent_->setEntryPorts(pmap, classOf(coppKey), Qos::matchIpAccessGroup_, Oskel::AclKey("acl", 0),
                         0, entry);
   EXPECT_EQ(Shim::sdk_->journalNames(), std::vector<std::string>({"bcm_field_qualify_InPorts"}));
   agent_->setEntryPorts(pmap, classOf(qosKey), Qos::matchIpAccessGroup_, Oskel::AclKey("acl", 0),
                         0, entry);
   EXPECT_EQ(helper_->baseCalls(), std::vector<std::string>({"QosAclHelper::setEntryPorts"}));
}

TEST_F(FactoryV1Slots, CompressAllGroupsIsV1s) {
   platform_.coppGroupsAdd();
   helper_->hwInit();
   helper_->baseCallsDelAll();
   platform_.scsd->nimbalModIdToUnitIs(0, 0);
   Shim::sdk_->journalDelAll();
   agent_->compressAllGroups();
   EXPECT_EQ(Shim::sdk_->journalTexts("bcm_field_group_compress"),
             std::vector<std::string>(
                 {"bcm_field_group_compress(0, 34)", "bcm_field_group_compress(0, 38)"}));
   EXPECT_EQ(helper_->baseCalls(), std::vector<std::string>({"QosAclHelper::compressAllGroups"}));
}

TEST_F(FactoryV1Slots, VerifyRulePortsForUnitIsV1s) {
   Kiv::Ptr<Oskel::VerifyData> verifyData(new Oskel::VerifyData());
   platform_.scsd->verifyDataIs(verifyData);
   Shim::sdk_->chip().portBitmapIs(0, Shim::pbmpOf({1, 2}));
   Kiv::Ptr<Oskel::QosPolicyMapState> pmap(new Oskel::QosPolicyMapState("copp-system-policy"));
   agent_->verifyRulePortsForUnit(pmap, classOf(coppKey), Qos::matchIpAccessGroup_,
                                  Oskel::AclKey("acl-bgp", 0), 0, 0x99, 10, 0, 34,
                                  Acl::actionPermit_);
   ASSERT_EQ(verifyData->cliVerifyOutput().size(), 1u);
   EXPECT_EQ(verifyData->cliVerifyOutput()[0].message,
             "copp-system-policy/acl-bgp seq 10 incorrect ports bit mask");
   EXPECT_TRUE(helper_->baseCalls().empty());
}

// CoPP feature groups of the TCAM agent

TEST(TcamVariant, Ipv4CoppAclIsFeatureGroup92) {
   CoppPlatform platform;
   auto helper = platform.tcamHelper();
   Kiv::Ptr<Nimbal::QosTcamAclHelper> agent = helper;
   EXPECT_EQ(agent->getFeatureGroupType(aclOfType(0), classOf(coppKey)), 92u);
   EXPECT_TRUE(helper->baseCalls().empty());
}

TEST(TcamVariant, Ipv6CoppAclIsFeatureGroup93) {
   CoppPlatform platform;
   auto helper = platform.tcamHelper();
   Kiv::Ptr<Nimbal::QosTcamAclHelper> agent = helper;
   EXPECT_EQ(agent->getFeatureGroupType(aclOfType(1), classOf(coppKey)), 93u);
   EXPECT_TRUE(helper->baseCalls().empty());
}

TEST(TcamVariant, AnyNonZeroCoppAclTypeIsFeatureGroup93) {
   CoppPlatform platform;
   auto helper = platform.tcamHelper();
   EXPECT_EQ(helper->getFeatureGroupType(aclOfType(2), classOf(coppKey)), 93u);
}

TEST(TcamVariant, QosClassGetsTheTcamBaseFeatureGroup) {
   CoppPlatform platform;
   auto helper = platform.tcamHelper();
   Kiv::Ptr<Nimbal::QosTcamAclHelper> agent = helper;
   EXPECT_EQ(agent->getFeatureGroupType(aclOfType(0), classOf(qosKey)), 7u);
   EXPECT_EQ(helper->baseCalls(),
             std::vector<std::string>({"QosTcamAclHelper::getFeatureGroupType"}));
}

TEST(TcamVariant, PdpClassGetsTheTcamBaseFeatureGroupEvenWithAControlPlaneClassMap) {
   CoppPlatform platform;
   auto helper = platform.tcamHelper();
   Oskel::QosClassDataKey const pdpKey("pmap-pdp", Qos::mapPdp_, Qos::input_, "cmap",
                                       Qos::mapControlPlane_);
   EXPECT_EQ(helper->getFeatureGroupType(aclOfType(1), classOf(pdpKey)), 7u);
}

TEST(TcamVariant, TracesOnItsOwnHandle) {
   EXPECT_EQ(Nimbal::tcamDefaultTraceHandle().name(), "NimbalQosTcamAclSm");
   EXPECT_NE(&Nimbal::tcamDefaultTraceHandle(), &Nimbal::defaultTraceHandle());
}

TEST(TcamVariantDeathTest, SetEntryPortsWithTheToggleOffStopsTheAgent) {
   // A process of its own that has never seen a toggle file.
   GTEST_FLAG_SET(death_test_style, "threadsafe");
   ::unsetenv("NIMBAL_TOGGLE_DIR");
   ASSERT_FALSE(Nimbal::toggleUseTcamAgentForPolicyQosEnabled());
   CoppPlatform platform;
   auto helper = platform.tcamHelper();
   Kiv::Ptr<NimbalTcam::RequestConfig> config(new NimbalTcam::RequestConfig());
   config->intfGroupIs(new NimbalTcam::IntfGroup());
   Oskel::AclKey const acl("acl", 0);
   helper->requestConfigIs(coppKey, acl, 3, config);
   Kiv::Ptr<Oskel::QosPolicyMapState> pmap(new Oskel::QosPolicyMapState("copp-system-policy"));
   auto cls = classOf(coppKey);
   EXPECT_DEATH(helper->setEntryPorts(pmap, cls, Qos::matchIpAccessGroup_, acl, 3, U64(1)),
                "Assertion `toggleUseTcamAgentForPolicyQosEnabled\\(\\)' failed");
}

}  // namespace
