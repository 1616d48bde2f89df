#include <gtest/gtest.h>

#include <algorithm>
#include <string>
#include <vector>

#include "Nimbal/MmuConfigSm.h"
#include "Nimbal/QosAclHelper.h"
#include "Nimbal/QosTcamAclHelper.h"
#include "NimbalTcam/IntfGroup.h"
#include "NimbalTcam/RequestConfig.h"
#include "NimbalTcam/RequestKey.h"

namespace {

using Nimbal::QosAclHelper;
using Nimbal::QosTcamAclHelper;
using NimbalTypes::NimbalPort;

// The agent's state that the base helpers read; everything else stays unset.
struct AgentState {
   Kiv::Ptr<Nimbal::MmuConfigSm> mmu{new Nimbal::MmuConfigSm()};
   Kiv::Ptr<Nimbal::NimbalCommonSmData> scsd{new Nimbal::NimbalCommonSmData()};
   Kiv::Ptr<Qos::Status> status{new Qos::Status()};

   Kiv::Ptr<QosAclHelper> helper() const {
      return new QosAclHelper(status, nullptr, nullptr, mmu, scsd, nullptr, nullptr, nullptr,
                              nullptr, nullptr, nullptr, nullptr, 0, nullptr);
   }
   Kiv::Ptr<QosTcamAclHelper> tcamHelper() const {
      return new QosTcamAclHelper(status, nullptr, nullptr, mmu, scsd, nullptr, nullptr, nullptr,
                                  nullptr, nullptr, nullptr, nullptr, 0, nullptr);
   }
};

bool called(QosAclHelper const& h, std::string const& name) {
   auto const& calls = h.baseCalls();
   return std::find(calls.begin(), calls.end(), name) != calls.end();
}

TEST(BaseHelper, CpuQueueIsNamedByTheClassMapThatHoldsIt) {
   AgentState s;
   Kiv::Ptr<QosAclHelper> h = s.helper();
   EXPECT_EQ(h->cpuQIdToClassMapName(1), "copp-system-bgp");
   EXPECT_EQ(h->cpuQIdToClassMapName(26), "copp-system-ssh");
   // A free dynamic queue has no class: its display name stands in.
   EXPECT_EQ(h->cpuQIdToClassMapName(40), "CoppUserDefined1");
   EXPECT_EQ(h->cpuQIdToClassMapName(0), "CoppSystemDrop");

   auto pmap = s.status->pmapStatusIs(Qos::mapControlPlane_, "copp-system-policy");
   auto cmap = pmap->cmapStatusIs(Qos::mapControlPlane_, "user-class");
   ASSERT_EQ(s.mmu->allocateDynamicCpuQ(pmap, cmap), 40);
   EXPECT_EQ(h->cpuQIdToClassMapName(40), "user-class");
   EXPECT_EQ(h->cpuQIdToClassMapName(48), "");
}

TEST(BaseHelper, PortIsNamedByTheInterfaceOnItsModulesUnit) {
   AgentState s;
   s.scsd->nimbalModIdToUnitIs(1, 2);
   s.scsd->intfPortIs("Ethernet3", NimbalPort(1, 2, 3));
   s.scsd->intfPortIs("Fabric1", NimbalPort(1, 2, 100), true);
   s.scsd->intfPortIs("Ethernet5", NimbalPort(1, 0, 5));
   Kiv::Ptr<QosAclHelper> h = s.helper();
   EXPECT_EQ(h->portToIntfName(1, 3), "Ethernet3");
   EXPECT_EQ(h->portToIntfName(1, 100), "Fabric1");
   EXPECT_EQ(h->portToIntfName(1, 4), "");
   // The port is looked up on the unit of its module, not on another unit.
   EXPECT_EQ(h->portToIntfName(1, 5), "");
   EXPECT_EQ(h->portToIntfName(7, 3), "");
   EXPECT_EQ(h->portToIntfName(65, 3), "");
   EXPECT_EQ(h->portToIntfName(1, 1024), "");
}

TEST(BaseHelper, PortOfAModuleOnUnitZeroIsFound) {
   AgentState s;
   s.scsd->nimbalModIdToUnitIs(0, 0);
   s.scsd->intfPortIs("Ethernet1", NimbalPort(0, 0, 1));
   s.scsd->intfPortIs("Ethernet1023", NimbalPort(0, 0, 1023));
   Kiv::Ptr<QosAclHelper> h = s.helper();
   EXPECT_EQ(h->portToIntfName(0, 1), "Ethernet1");
   EXPECT_EQ(h->portToIntfName(0, 1023), "Ethernet1023");
}

TEST(BaseHelper, NamesCanBeGivenBySubclasses) {
   struct Named : QosAclHelper {
      using QosAclHelper::QosAclHelper;
      Kiv::String cpuQIdToClassMapName(U32 q) override { return "q" + std::to_string(q); }
      Kiv::String portToIntfName(U32 m, U32 p) override {
         return std::to_string(m) + "/" + std::to_string(p);
      }
   };
   Kiv::Ptr<QosAclHelper> h(new Named(nullptr, nullptr, nullptr, nullptr, nullptr, nullptr, nullptr,
                                      nullptr, nullptr, nullptr, nullptr, nullptr, 0, nullptr));
   EXPECT_EQ(h->cpuQIdToClassMapName(3), "q3");
   EXPECT_EQ(h->portToIntfName(1, 2), "1/2");
}

TEST(BaseHelper, PolicerActionCheckIsTheAgentsOwn) {
   AgentState s;
   Kiv::Ptr<QosAclHelper> h = s.helper();
   Kiv::Ptr<Oskel::QosClassData> cls(new Oskel::QosClassData(
       Oskel::QosClassDataKey("copp-system-policy", Qos::mapControlPlane_, Qos::input_,
                              "user-class", Qos::mapControlPlane_)));
   EXPECT_FALSE(called(*h, "QosAclHelper::verifyPolicerActions"));
   h->verifyPolicerActions(0, 12, cls);
   EXPECT_EQ(h->baseCalls(), (std::vector<std::string>{"QosAclHelper::verifyPolicerActions"}));
}

TEST(BaseHelper, RuleIsDescribedByPolicyMapAclAndSequence) {
   AgentState s;
   Kiv::Ptr<QosAclHelper> h = s.helper();
   Kiv::Ptr<Oskel::QosPolicyMapState> pmapState(new Oskel::QosPolicyMapState("copp-system-policy"));
   Oskel::AclKey acl("ACL1", 0);
   EXPECT_EQ(h->getAclDesc(acl, pmapState, 10), "copp-system-policy/ACL1 seq 10");
   EXPECT_EQ(h->getAclDesc(acl, nullptr, 20), "ACL1 seq 20");
}

TEST(TcamBaseHelper, RequestTablesAreEmptyAtFirst) {
   AgentState s;
   Kiv::Ptr<QosTcamAclHelper> h = s.tcamHelper();
   Oskel::QosClassDataKey ck("copp-system-policy", Qos::mapControlPlane_, Qos::input_, "c",
                             Qos::mapControlPlane_);
   EXPECT_FALSE(h->classRequestTable(ck));
   EXPECT_FALSE(h->requestConfig(ck, Oskel::AclKey("ACL1", 0), 0));
   EXPECT_EQ(h->classRequestTable(), 0u);
}

TEST(TcamBaseHelper, FilingARequestCreatesEveryLevel) {
   AgentState s;
   Kiv::Ptr<QosTcamAclHelper> h = s.tcamHelper();
   Oskel::QosClassDataKey ck("copp-system-policy", Qos::mapControlPlane_, Qos::input_, "c",
                             Qos::mapControlPlane_);
   Oskel::AclKey ak("ACL1", 0);
   Kiv::Ptr<NimbalTcam::RequestConfig> cfg(
       new NimbalTcam::RequestConfig(NimbalTcam::RequestKey(92, "ACL1")));
   h->requestConfigIs(ck, ak, 1, cfg);

   Kiv::Ptr<NimbalTcam::ClassRequestTable> classTable = h->classRequestTable(ck);
   ASSERT_TRUE(classTable);
   EXPECT_EQ(classTable->classKey(), ck);
   Kiv::Ptr<NimbalTcam::AclRequestTable> aclTable = classTable->aclRequestTable(ak);
   ASSERT_TRUE(aclTable);
   EXPECT_EQ(aclTable->aclKey(), ak);
   EXPECT_EQ(aclTable->requestConfig(1), cfg);
   EXPECT_EQ(h->requestConfig(ck, ak, 1), cfg);
   EXPECT_EQ(h->requestConfig(ck, ak, 1)->key(), NimbalTcam::RequestKey(92, "ACL1"));

   // Each level answers null for what it lacks.
   EXPECT_FALSE(h->requestConfig(ck, ak, 0));
   EXPECT_FALSE(h->requestConfig(ck, Oskel::AclKey("ACL2", 0), 1));
   Oskel::QosClassDataKey other("copp-system-policy", Qos::mapControlPlane_, Qos::input_, "d",
                                Qos::mapControlPlane_);
   EXPECT_FALSE(h->requestConfig(other, ak, 1));

   // A second unit goes beside the first.
   Kiv::Ptr<NimbalTcam::RequestConfig> cfg2(new NimbalTcam::RequestConfig());
   h->requestConfigIs(ck, ak, 2, cfg2);
   EXPECT_EQ(h->requestConfig(ck, ak, 1), cfg);
   EXPECT_EQ(h->requestConfig(ck, ak, 2), cfg2);
   EXPECT_EQ(aclTable->requestConfig(), 2u);
   EXPECT_EQ(h->classRequestTable(), 1u);
}

TEST(TcamBaseHelper, RequestHasNoInterfaceGroupUntilGivenOne) {
   Kiv::Ptr<NimbalTcam::RequestConfig> cfg(new NimbalTcam::RequestConfig());
   EXPECT_FALSE(cfg->intfGroup());
   EXPECT_TRUE(cfg->key().empty());
   Kiv::Ptr<NimbalTcam::IntfGroup> g(new NimbalTcam::IntfGroup());
   cfg->intfGroupIs(g);
   EXPECT_EQ(cfg->intfGroup(), g);
}

TEST(TcamBaseHelper, InterfaceGroupHoldsEthernetFlagAndMembers) {
   Kiv::Ptr<NimbalTcam::IntfGroup> g(new NimbalTcam::IntfGroup());
   EXPECT_FALSE(g->ethernet());
   g->ethernetIs(true);
   EXPECT_TRUE(g->ethernet());
   EXPECT_EQ(g->intf(), 0u);
   g->intfIs(Orvik::IntfId("Loopback1"));
   g->intfIs(Orvik::IntfId("Cpu0"));
   g->intfIs(Orvik::IntfId("Loopback1"));
   EXPECT_EQ(g->intf(), 2u);
   EXPECT_TRUE(g->intfHas(Orvik::IntfId("Cpu0")));
   EXPECT_FALSE(g->intfHas(Orvik::IntfId("Ethernet1")));
   std::vector<std::string> members;
   for (auto const& [intf, in] : g->intfCol()) {
      EXPECT_TRUE(in);
      members.push_back(intf.stringValue());
   }
   EXPECT_EQ(members, (std::vector<std::string>{"Cpu0", "Loopback1"}));
   g->intfDel(Orvik::IntfId("Cpu0"));
   EXPECT_EQ(g->intf(), 1u);
}

TEST(TcamBaseHelper, InterfaceGroupAnnouncesOnlyRealChanges) {
   struct Recorder : Kiv::Notifiee<NimbalTcam::IntfGroup> {
      std::vector<std::string> seen;
      void onAttribute(Kiv::AttrId a) override { seen.push_back(std::string(a)); }
      void onAttribute(Kiv::AttrId a, Kiv::KeyRef const&) override {
         seen.push_back(std::string(a));
      }
   };
   Kiv::Ptr<NimbalTcam::IntfGroup> g(new NimbalTcam::IntfGroup());
   Recorder r;
   r.notifierIs(g);
   g->ethernetIs(false);
   g->ethernetIs(true);
   g->ethernetIs(true);
   g->intfIs(Orvik::IntfId("Cpu0"));
   g->intfIs(Orvik::IntfId("Cpu0"));
   EXPECT_EQ(r.seen, (std::vector<std::string>{"ethernet", "intf"}));
}

TEST(TcamBaseHelper, RequestKeysCompareByFeatureGroupAndName) {
   NimbalTcam::RequestKey empty;
   EXPECT_TRUE(empty.empty());
   NimbalTcam::RequestKey a(92, "ACL1");
   NimbalTcam::RequestKey b(93, "ACL1");
   EXPECT_FALSE(a.empty());
   EXPECT_EQ(a.featureGroupType(), 92u);
   EXPECT_EQ(a.name(), "ACL1");
   EXPECT_EQ(a, NimbalTcam::RequestKey(92, "ACL1"));
   EXPECT_FALSE(a == b);
   EXPECT_TRUE(a < b);
   EXPECT_TRUE(empty < a);
}

TEST(TcamBaseHelper, FeatureGroupTypeStaysTheAgentsOwn) {
   AgentState s;
   Kiv::Ptr<QosTcamAclHelper> h = s.tcamHelper();
   Kiv::Ptr<Oskel::AclData> acl(new Oskel::AclData("ACL1", 0));
   EXPECT_EQ(h->getFeatureGroupType(acl, nullptr), 7u);
   EXPECT_EQ(h->baseCalls(), (std::vector<std::string>{"QosTcamAclHelper::getFeatureGroupType"}));
}

}  // namespace
