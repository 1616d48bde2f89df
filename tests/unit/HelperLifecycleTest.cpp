#include <fcntl.h>
#include <gtest/gtest.h>
#include <unistd.h>

#include <algorithm>
#include <string>
#include <vector>

#include "Kiv/Clock.h"
#include "Kiv/Type.h"
#include "unit/CoppHelperFixture.h"

namespace {

using CoppTest::AttributeSpy;
using CoppTest::CoppPlatform;
using CoppTest::TraceCapture;
using Nimbal::NimbalBoundedTcamEntryManager;
using Nimbal::NimbalUnboundedTcamEntryManager;
using Nimbal::QosAclHelperV1;

Kiv::Ptr<Oskel::QosClassData> qosClass() {
   Oskel::QosClassDataKey key("pmap", Qos::mapQos_, Qos::input_, "cmap", Qos::mapQos_);
   return Kiv::Ptr<Oskel::QosClassData>(new Oskel::QosClassData(key));
}

std::vector<std::string> attributeValues(Kiv::Entity const& e) {
   std::vector<std::string> out;
   for (auto const& name : e.fwkType()->attributeNames()) {
      out.push_back(name + "=" + Kiv::attributeValue(e, name));
   }
   return out;
}

// HwInit

TEST(HelperLifecycle, HwInitBindsIngressCoppEntryManagersOfGroups34And38) {
   CoppPlatform platform;
   platform.coppGroupsAdd();
   auto helper = platform.helper();
   TraceCapture traces({"NimbalQosSm"}, 1);
   helper->hwInit();
   EXPECT_TRUE(helper->policyCoppIpEntryMgr() == platform.coppIpEntryMgr);
   EXPECT_TRUE(helper->policyCoppIp6EntryMgr() == platform.coppIp6EntryMgr);
   EXPECT_EQ(helper->baseCalls(), std::vector<std::string>({"QosAclHelper::hwInit"}));
   ASSERT_EQ(traces.lines().size(), 1u);
   EXPECT_EQ(traces.lines()[0].text, "QosHelperV1::hwInit");
   EXPECT_EQ(traces.lines()[0].level, 1);
}

TEST(HelperLifecycle, HwInitRegistersIpv4ThenIpv6AclTypeStateMachines) {
   CoppPlatform platform;
   platform.coppGroupsAdd();
   auto helper = platform.helper();
   AttributeSpy spy(helper.ptr());
   helper->hwInit();
   std::vector<Nimbal::PmapAclTypeKey> keys;
   for (auto const& e : spy.events()) {
      if (e.attr == "pmapAclTypeSm") {
         keys.push_back(std::any_cast<Nimbal::PmapAclTypeKey>(e.key));
      }
   }
   ASSERT_EQ(keys.size(), 2u);
   EXPECT_TRUE(keys[0] == Nimbal::PmapAclTypeKey(0, 0, false));
   EXPECT_TRUE(keys[1] == Nimbal::PmapAclTypeKey(1, 0, false));
   EXPECT_TRUE(helper->pmapAclTypeSm(keys[0]) == platform.coppIpEntryMgr);
   EXPECT_TRUE(helper->pmapAclTypeSm(keys[1]) == platform.coppIp6EntryMgr);
   EXPECT_EQ(helper->pmapAclTypeSm(), 2u);
}

TEST(HelperLifecycle, HwInitLeavesEgressEntryManagersToTheAgent) {
   CoppPlatform platform;
   platform.coppGroupsAdd();
   Kiv::Ptr<NimbalUnboundedTcamEntryManager> egress(new NimbalUnboundedTcamEntryManager(40));
   platform.tcamGroupManager->entryMgrAdd(egress);
   auto helper = platform.helper();
   helper->hwInit();
   EXPECT_FALSE(helper->efpCoppEntryMgr());
   EXPECT_FALSE(helper->efpCoppDefAndVxlanEntryMgr());
}

TEST(HelperLifecycleDeathTest, HwInitWithoutIpv4CoppGroupStopsTheAgent) {
   CoppPlatform platform;
   platform.tcamGroupManager->entryMgrAdd(platform.coppIp6EntryMgr);
   auto helper = platform.helper();
   EXPECT_DEATH(helper->hwInit(), "Assertion `policyCoppIpEntryMgr\\(\\)' failed");
}

TEST(HelperLifecycleDeathTest, HwInitWithoutIpv6CoppGroupStopsTheAgent) {
   CoppPlatform platform;
   platform.tcamGroupManager->entryMgrAdd(platform.coppIpEntryMgr);
   auto helper = platform.helper();
   EXPECT_DEATH(helper->hwInit(), "Assertion `policyCoppIp6EntryMgr\\(\\)' failed");
}

TEST(HelperLifecycleDeathTest, HwInitRefusesABoundedManagerForTheIpv4CoppGroup) {
   CoppPlatform platform;
   platform.tcamGroupManager->entryMgrAdd(
       Kiv::Ptr<NimbalBoundedTcamEntryManager>(new NimbalBoundedTcamEntryManager(34, 0)));
   platform.tcamGroupManager->entryMgrAdd(platform.coppIp6EntryMgr);
   auto helper = platform.helper();
   EXPECT_DEATH(helper->hwInit(), "Assertion `policyCoppIpEntryMgr\\(\\)' failed");
}

// Setters

TEST(HelperLifecycle, EntryManagerSettersNotifyOnlyOnChange) {
   CoppPlatform platform;
   auto helper = platform.helper();
   Kiv::Ptr<NimbalUnboundedTcamEntryManager> first(new NimbalUnboundedTcamEntryManager(40));
   Kiv::Ptr<NimbalUnboundedTcamEntryManager> second(new NimbalUnboundedTcamEntryManager(41));
   Kiv::Ptr<NimbalBoundedTcamEntryManager> bounded(new NimbalBoundedTcamEntryManager(42, 4096));
   AttributeSpy spy(helper.ptr());

   helper->efpCoppEntryMgrIs(first);
   helper->efpCoppEntryMgrIs(first);
   helper->policyCoppIpEntryMgrIs(first);
   helper->policyCoppIpEntryMgrIs(first);
   helper->policyCoppIp6EntryMgrIs(second);
   helper->policyCoppIp6EntryMgrIs(second);
   helper->efpCoppDefAndVxlanEntryMgrIs(bounded);
   helper->efpCoppDefAndVxlanEntryMgrIs(bounded);
   EXPECT_EQ(spy.attrs(),
             std::vector<std::string>({"efpCoppEntryMgr", "policyCoppIpEntryMgr",
                                       "policyCoppIp6EntryMgr", "efpCoppDefAndVxlanEntryMgr"}));
   EXPECT_EQ(first->references(), 3);

   spy.clear();
   helper->efpCoppEntryMgrIs(second);
   EXPECT_EQ(spy.attrs(), std::vector<std::string>({"efpCoppEntryMgr"}));
   EXPECT_EQ(first->references(), 2);
   EXPECT_TRUE(helper->efpCoppEntryMgr() == second);

   spy.clear();
   helper->efpCoppDefAndVxlanEntryMgrIs(nullptr);
   EXPECT_EQ(spy.attrs(), std::vector<std::string>({"efpCoppDefAndVxlanEntryMgr"}));
   EXPECT_EQ(bounded->references(), 1);
}

TEST(HelperLifecycle, CreateCoppPolicerAlwaysFalseNotifiesOnlyOnChange) {
   CoppPlatform platform;
   auto helper = platform.helper();
   AttributeSpy spy(helper.ptr());
   helper->createCoppPolicerAlwaysFalseIs(false);
   EXPECT_TRUE(spy.events().empty());
   helper->createCoppPolicerAlwaysFalseIs(true);
   helper->createCoppPolicerAlwaysFalseIs(true);
   EXPECT_TRUE(helper->createCoppPolicerAlwaysFalse());
   EXPECT_EQ(spy.attrs(), std::vector<std::string>({"createCoppPolicerAlwaysFalse"}));
}

TEST(HelperLifecycle, CreateCoppPolicerAlwaysFalseIsSettableByName) {
   CoppPlatform platform;
   auto helper = platform.helper();
   AttributeSpy spy(helper.ptr());
   Kiv::attributeValueIs(*helper, "createCoppPolicerAlwaysFalse", "true");
   EXPECT_TRUE(helper->createCoppPolicerAlwaysFalse());
   EXPECT_EQ(Kiv::attributeValue(*helper, "createCoppPolicerAlwaysFalse"), "true");
   EXPECT_EQ(spy.attrs(), std::vector<std::string>({"createCoppPolicerAlwaysFalse"}));
}

// The interface CoPP state machine

TEST(HelperLifecycle, QosIntfCoppSmIsWithSameArgumentsReturnsTheSameMachine) {
   CoppPlatform platform;
   auto helper = platform.helper();
   AttributeSpy spy(helper.ptr());
   auto first = helper->qosIntfCoppSmIs(platform.scsd, helper.ptr());
   auto second = helper->qosIntfCoppSmIs(platform.scsd, helper.ptr());
   ASSERT_TRUE(first);
   EXPECT_EQ(first.ptr(), second.ptr());
   EXPECT_TRUE(helper->qosIntfCoppSm() == first);
   EXPECT_EQ(spy.attrs(), std::vector<std::string>({"qosIntfCoppSm"}));
   EXPECT_TRUE(first->scsd() == platform.scsd);
   EXPECT_EQ(first->qosAclHelper(), helper.ptr());
}

TEST(HelperLifecycle, QosIntfCoppSmIsWithAnotherSharedStateReplacesTheMachine) {
   CoppPlatform platform;
   auto helper = platform.helper();
   Kiv::Ptr<Nimbal::NimbalCommonSmData> otherScsd(new Nimbal::NimbalCommonSmData());
   helper->qosIntfCoppSmIs(platform.scsd, helper.ptr());
   AttributeSpy oldMachine(helper->qosIntfCoppSm().ptr());
   AttributeSpy spy(helper.ptr());
   auto replacement = helper->qosIntfCoppSmIs(otherScsd, helper.ptr());
   EXPECT_TRUE(replacement->scsd() == otherScsd);
   EXPECT_TRUE(helper->qosIntfCoppSm() == replacement);
   EXPECT_EQ(spy.attrs(), std::vector<std::string>({"qosIntfCoppSm"}));
   EXPECT_FALSE(oldMachine.bound());
}

TEST(HelperLifecycle, QosIntfCoppSmIsWithAnotherHelperReplacesTheMachine) {
   CoppPlatform platform;
   auto helper = platform.helper();
   auto otherHelper = platform.helper();
   auto first = helper->qosIntfCoppSmIs(platform.scsd, helper.ptr());
   auto second = helper->qosIntfCoppSmIs(platform.scsd, otherHelper.ptr());
   EXPECT_NE(first.ptr(), second.ptr());
   EXPECT_EQ(second->qosAclHelper(), otherHelper.ptr());
}

TEST(HelperLifecycle, QosIntfCoppSmDelWithoutMachineReturnsNullAndNotifiesNobody) {
   CoppPlatform platform;
   auto helper = platform.helper();
   AttributeSpy spy(helper.ptr());
   EXPECT_FALSE(helper->qosIntfCoppSmDel());
   EXPECT_TRUE(spy.events().empty());
}

TEST(HelperLifecycle, QosIntfCoppSmDelHandsBackASilencedMachine) {
   CoppPlatform platform;
   auto helper = platform.helper();
   auto created = helper->qosIntfCoppSmIs(platform.scsd, helper.ptr());
   EXPECT_TRUE(created->hasNotificationActive());
   AttributeSpy spy(helper.ptr());
   auto removed = helper->qosIntfCoppSmDel();
   EXPECT_EQ(removed.ptr(), created.ptr());
   EXPECT_FALSE(helper->qosIntfCoppSm());
   EXPECT_FALSE(removed->hasNotificationActive());
   EXPECT_EQ(spy.attrs(), std::vector<std::string>({"qosIntfCoppSm"}));
   AttributeSpy machineSpy(removed.ptr());
   removed->vxlanEntryExhaustedIs(true);
   EXPECT_TRUE(machineSpy.events().empty());
}

// Deliberately empty operations

TEST(HelperLifecycle, EmptyOperationsChangeNothingAndPrintNothing) {
   CoppPlatform platform;
   platform.coppGroupsAdd();
   auto helper = platform.helper();
   helper->hwInit();
   helper->coppIntfCounterDataIs("Ethernet1")
       ->qCounterColIs(5, Nimbal::NimbalQosCoppQCounterData(9));
   helper->portDefaultCoppPolicerHwDataIs("Ethernet1", Nimbal::NimbalQosPolicerHwData(1, 2, 3, 4));
   helper->baseCallsDelAll();
   auto const before = attributeValues(*helper);
   int fds[2];
   ASSERT_EQ(::pipe(fds), 0);
   ::fcntl(fds[0], F_SETFL, O_NONBLOCK);
   AttributeSpy spy(helper.ptr());
   TraceCapture traces({"NimbalQosSm", "ApiNimbal"});

   helper->initEfpCoppDefault();
   helper->clearPortDefaultCoppPolicerPktHits(0, "Ethernet1");
   helper->clearIntfQueueCoppPolicerPktHits(NimbalTypes::NimbalPort(0, 0, 1), 5);
   helper->clearIntfCoppCounters();
   helper->showCpuIntfCoppQueueCounters(static_cast<U32>(fds[1]));

   EXPECT_EQ(attributeValues(*helper), before);
   EXPECT_EQ(helper->coppIntfCounterData("Ethernet1")->qCounterCol(5).pktHits(), 9u);
   EXPECT_TRUE(spy.events().empty());
   EXPECT_TRUE(traces.lines().empty());
   EXPECT_TRUE(helper->baseCalls().empty());
   char buffer[16];
   EXPECT_EQ(::read(fds[0], buffer, sizeof(buffer)), -1);
   ::close(fds[0]);
   ::close(fds[1]);
}

TEST(HelperLifecycle, EmptyOperationsAreReachableByName) {
   CoppPlatform platform;
   auto helper = platform.helper();
   helper->coppIntfCounterDataIs("Ethernet1")
       ->qCounterColIs(5, Nimbal::NimbalQosCoppQCounterData(9));
   auto const before = attributeValues(*helper);
   AttributeSpy spy(helper.ptr());
   EXPECT_EQ(Kiv::invoke(*helper, "initEfpCoppDefault", {}), "");
   EXPECT_EQ(Kiv::invoke(*helper, "clearPortDefaultCoppPolicerPktHits", {"0", "Ethernet1"}), "");
   EXPECT_EQ(Kiv::invoke(*helper, "clearIntfQueueCoppPolicerPktHits", {"0", "0", "1", "5"}), "");
   EXPECT_EQ(Kiv::invoke(*helper, "clearIntfCoppCounters", {}), "");
   EXPECT_EQ(Kiv::invoke(*helper, "showCpuIntfCoppQueueCounters", {"1"}), "");
   EXPECT_EQ(attributeValues(*helper), before);
   EXPECT_TRUE(spy.events().empty());
}

// Constants

TEST(HelperLifecycle, VxlanPoolConstantsAreFixedValuesOfTheClass) {
   static_assert(QosAclHelperV1::coppVxlanDynEntryOffset == 256);
   static_assert(QosAclHelperV1::coppVxlanDynEntryMax == 768);
   static_assert(QosAclHelperV1::coppVxlanDefaultOffset == 768);
   static_assert(QosAclHelperV1::coppVxlanDynEntryInvalid == 0xFFFFFFFF);
   CoppPlatform platform;
   auto helper = platform.helper();
   auto tcam = platform.tcamHelper();
   for (Kiv::Entity const* h : {static_cast<Kiv::Entity const*>(helper.ptr()),
                                static_cast<Kiv::Entity const*>(tcam.ptr())}) {
      EXPECT_EQ(Kiv::attributeValue(*h, "coppVxlanDynEntryOffset"), "256");
      EXPECT_EQ(Kiv::attributeValue(*h, "coppVxlanDynEntryMax"), "768");
      EXPECT_EQ(Kiv::attributeValue(*h, "coppVxlanDefaultOffset"), "768");
      EXPECT_EQ(Kiv::attributeValue(*h, "coppVxlanDynEntryInvalid"), "4294967295");
   }
}

// Destruction

class LoggedUnboundedManager : public NimbalUnboundedTcamEntryManager {
  public:
   LoggedUnboundedManager(U32 groupId, std::string name, std::vector<std::string>* log)
       : NimbalUnboundedTcamEntryManager(groupId), name_(std::move(name)), log_(log) {}
   ~LoggedUnboundedManager() override { log_->push_back("~" + name_); }

  private:
   std::string name_;
   std::vector<std::string>* log_;
};

class LoggedBoundedManager : public NimbalBoundedTcamEntryManager {
  public:
   LoggedBoundedManager(U32 groupId, std::string name, std::vector<std::string>* log)
       : NimbalBoundedTcamEntryManager(groupId, 0), name_(std::move(name)), log_(log) {}
   ~LoggedBoundedManager() override { log_->push_back("~" + name_); }

  private:
   std::string name_;
   std::vector<std::string>* log_;
};

class LoggedKernelCoppConfig : public Oskel::KernelCoPPConfig {
  public:
   explicit LoggedKernelCoppConfig(std::vector<std::string>* log) : log_(log) {}
   ~LoggedKernelCoppConfig() override { log_->push_back("~kernelCoppConfig"); }

  private:
   std::vector<std::string>* log_;
};

void fillCoppState(QosAclHelperV1& helper) {
   Oskel::QosClassDataKey const classKey("copp-system-policy", Qos::mapControlPlane_, Qos::input_,
                                         "copp-system-bgp", Qos::mapControlPlane_);
   helper.coppIntfPolicerDataIs("Ethernet1")->policerDataColIs(classKey);
   helper.coppIntfPolicerDataIs("Ethernet2");
   helper.kernelDynamicCoppDataIs(Oskel::ModIdPortQueueKey(0, 1, 5));
   helper.kernelDynamicCoppVxlanDataIs(Oskel::ModIdPortQueueKey(0, 1, 5));
   helper.userCoppDataIs(Oskel::ModIdPortQueueKey(0, 2, 6));
   helper.coppIntfCounterDataIs("Ethernet1");
   helper.portDefaultCoppPolicerHwDataIs("Ethernet1", Nimbal::NimbalQosPolicerHwData(1, 2, 3, 4));
   helper.portDefaultCoppPolicerVxlanHwDataIs("Ethernet1",
                                              Nimbal::NimbalQosPolicerHwData(1, 2, 5, 6));
   helper.coppVxlanDynEntryInUseIs(256, true);
   helper.lastClearCoppSwCounterIs(Oskel::ModIdPortQueueKey(0, 1, 5), {});
   helper.lastClearCoppSwCfgCounterIs(Oskel::ModIdPortQueueKey(0, 1, 5), {});
}

TEST(HelperLifecycle, DestructionDeletesRecordsOneByOneThenDropsMachineAndHandlesInOrder) {
   std::vector<std::string> log;
   CoppPlatform platform;
   platform.kernelCoppConfig = new LoggedKernelCoppConfig(&log);
   auto helper = platform.helper();
   platform.kernelCoppConfig = nullptr;
   helper->policyCoppIpEntryMgrIs(new LoggedUnboundedManager(34, "policyCoppIpEntryMgr", &log));
   helper->policyCoppIp6EntryMgrIs(new LoggedUnboundedManager(38, "policyCoppIp6EntryMgr", &log));
   helper->efpCoppEntryMgrIs(new LoggedUnboundedManager(40, "efpCoppEntryMgr", &log));
   helper->efpCoppDefAndVxlanEntryMgrIs(
       new LoggedBoundedManager(41, "efpCoppDefAndVxlanEntryMgr", &log));
   fillCoppState(*helper);
   helper->qosIntfCoppSmIs(platform.scsd, helper.ptr());
   AttributeSpy policerRecord(helper->coppIntfPolicerData("Ethernet1").ptr());
   AttributeSpy spy(helper.ptr(), &log);

   helper = nullptr;

   EXPECT_EQ(log, std::vector<std::string>({
                      "coppIntfPolicerData",
                      "coppIntfPolicerData",
                      "kernelDynamicCoppData",
                      "kernelDynamicCoppVxlanData",
                      "userCoppData",
                      "coppIntfCounterData",
                      "qosIntfCoppSm",
                      "~efpCoppDefAndVxlanEntryMgr",
                      "~efpCoppEntryMgr",
                      "~policyCoppIp6EntryMgr",
                      "~policyCoppIpEntryMgr",
                      "~kernelCoppConfig",
                  }));
   EXPECT_FALSE(spy.bound());
   EXPECT_FALSE(policerRecord.bound());
   // The machine went with its reactor on the shared state.
   EXPECT_FALSE(platform.scsd->hasObservers());
}

TEST(HelperLifecycle, DestructionOfTheTcamVariantFollowsTheSameOrder) {
   std::vector<std::string> log;
   CoppPlatform platform;
   auto helper = platform.tcamHelper();
   fillCoppState(*helper);
   helper->qosIntfCoppSmIs(platform.scsd, helper.ptr());
   AttributeSpy spy(helper.ptr(), &log);
   helper = nullptr;
   EXPECT_EQ(log,
             std::vector<std::string>({"coppIntfPolicerData", "coppIntfPolicerData",
                                       "kernelDynamicCoppData", "kernelDynamicCoppVxlanData",
                                       "userCoppData", "coppIntfCounterData", "qosIntfCoppSm"}));
   EXPECT_EQ(platform.kernelCoppConfig->references(), 1);
}

TEST(HelperLifecycle, DestructionProgramsNoHardwareAndLeavesTheAgentsManagersAlive) {
   CoppPlatform platform;
   platform.coppGroupsAdd();
   auto helper = platform.helper();
   helper->hwInit();
   helper->baseCallsDelAll();
   TraceCapture traces({"ApiNimbal", "NimbalQosSm"});
   helper = nullptr;
   EXPECT_TRUE(traces.lines().empty());
   EXPECT_EQ(platform.coppIpEntryMgr->references(), 2);
   EXPECT_EQ(platform.coppIp6EntryMgr->references(), 2);
}

// Which implementation fills each slot

TEST(HelperLifecycle, TcamVariantSharesOneAgentHelper) {
   CoppPlatform platform;
   auto tcam = platform.tcamHelper();
   Nimbal::QosAclHelper* viaTcamBase = static_cast<Nimbal::QosTcamAclHelper*>(tcam.ptr());
   Nimbal::QosAclHelper* viaV1 = static_cast<QosAclHelperV1*>(tcam.ptr());
   EXPECT_EQ(viaTcamBase, viaV1);
   EXPECT_EQ(tcam->fwkType()->fullName(), "Nimbal::QosTcamAclHelperV1");
   EXPECT_EQ(platform.helper()->fwkType()->fullName(), "Nimbal::QosAclHelperV1");
   EXPECT_TRUE(tcam->fwkType()->isA(QosAclHelperV1::fwkTypeDesc()));
}

TEST(HelperLifecycle, TcamVariantTakesPolicyPolicersCountersAndHwInitFromTheTcamBase) {
   CoppPlatform platform;
   platform.coppGroupsAdd();
   auto tcam = platform.tcamHelper();
   Kiv::Ptr<Nimbal::QosAclHelper> agentView = tcam;
   auto cls = qosClass();
   agentView->createAndAttachPolicer(cls);
   agentView->destroyPolicer(cls);
   agentView->counterUpdateRequest(cls, Oskel::AclKey("acl", 0));
   agentView->hwInit();
   EXPECT_EQ(tcam->baseCalls(),
             std::vector<std::string>({"QosTcamAclHelper::createAndAttachPolicer",
                                       "QosTcamAclHelper::destroyPolicer",
                                       "QosTcamAclHelper::counterUpdateRequest",
                                       "QosTcamAclHelper::hwInit", "QosAclHelper::hwInit"}));
   // The TCAM base initialises the hardware: no ingress CoPP managers are bound.
   EXPECT_FALSE(tcam->policyCoppIpEntryMgr());
   EXPECT_FALSE(tcam->policyCoppIp6EntryMgr());
}

TEST(HelperLifecycle, TcamVariantGivesQosClassesTheTcamBaseFeatureGroup) {
   CoppPlatform platform;
   auto tcam = platform.tcamHelper();
   Kiv::Ptr<Nimbal::QosTcamAclHelper> agentView = tcam;
   Kiv::Ptr<Oskel::AclData> acl(new Oskel::AclData("acl", 0));
   EXPECT_EQ(agentView->getFeatureGroupType(acl, qosClass()), 7u);
   EXPECT_EQ(tcam->baseCalls(),
             std::vector<std::string>({"QosTcamAclHelper::getFeatureGroupType"}));
}

TEST(HelperLifecycle, V1SendsQosClassPolicersAndCountersToTheAgentHelper) {
   CoppPlatform platform;
   auto helper = platform.helper();
   Kiv::Ptr<Nimbal::QosAclHelper> agentView = helper;
   auto cls = qosClass();
   agentView->createAndAttachPolicer(cls);
   agentView->destroyPolicer(cls);
   agentView->counterUpdateRequest(cls, Oskel::AclKey("acl", 0));
   EXPECT_EQ(helper->baseCalls(), std::vector<std::string>({"QosAclHelper::createAndAttachPolicer",
                                                            "QosAclHelper::destroyPolicer",
                                                            "QosAclHelper::counterUpdateRequest"}));
}

}  // namespace
