// The TCAM-agent variant in a process whose toggle "UseTcamAgentForPolicyQos" is on: main reads
// the toggle from a toggle file of its own, then removes the file, before any test runs.

#include <gtest/gtest.h>
#include <stdlib.h>

#include <any>
#include <cstdio>
#include <filesystem>
#include <fstream>
#include <string>
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

std::string makeToggleDir(bool on) {
   char pattern[] = "/tmp/nimbal-tcam-toggle-XXXXXX";
   std::string const dir = ::mkdtemp(pattern);
   std::ofstream(dir + "/NimbalTcam.json")
       << "{\"UseTcamAgentForPolicyQos\": " << (on ? "true" : "false") << "}\n";
   return dir;
}

Kiv::Ptr<QosTcamAclHelperV1> variantOf(CoppPlatform const& platform) {
   return Kiv::ptr_cast<QosTcamAclHelperV1>(platform.viaFactory());
}

Kiv::Ptr<Oskel::QosPolicyMapState> pmapState() {
   return Kiv::Ptr<Oskel::QosPolicyMapState>(new Oskel::QosPolicyMapState("copp-system-policy"));
}

// The toggle

TEST(TcamVariantToggle, IsOnAndReadOnlyOncePerProcess) {
   EXPECT_TRUE(Nimbal::toggleUseTcamAgentForPolicyQosEnabled());
   // The file that main read is gone; a file that says off changes nothing now.
   std::string const off = makeToggleDir(false);
   ::setenv("NIMBAL_TOGGLE_DIR", off.c_str(), 1);
   EXPECT_TRUE(Nimbal::toggleUseTcamAgentForPolicyQosEnabled());
   CoppPlatform platform;
   auto built = platform.viaFactory();
   EXPECT_EQ(built->fwkType()->fullName(), "Nimbal::QosTcamAclHelperV1");
   EXPECT_TRUE(variantOf(platform));
   ::unsetenv("NIMBAL_TOGGLE_DIR");
   std::filesystem::remove_all(off);
}

// Which implementation fills each slot of the variant the factory builds

class FactoryVariantSlots : public ::testing::Test {
  protected:
   void SetUp() override {
      ::unsetenv("SIMULATION_VMID");
      Shim::sdk_->reset();
      helper_ = variantOf(platform_);
      ASSERT_TRUE(helper_);
      agent_ = helper_;
   }

   CoppPlatform platform_;
   Kiv::Ptr<QosTcamAclHelperV1> helper_;
   Kiv::Ptr<Nimbal::QosAclHelper> agent_;
};

TEST_F(FactoryVariantSlots, EveryCoppSlotAnswersAsV1sImplementation) {
   for (SlotTest::Slot const& slot : SlotTest::v1Slots()) {
      CoppPlatform twinPlatform;
      Kiv::Ptr<QosAclHelperV1> twin = twinPlatform.helper();
      SlotTest::Outcome const viaAgent = SlotTest::run(slot, platform_, *helper_, false);
      SlotTest::Outcome const viaV1 = SlotTest::run(slot, twinPlatform, *twin, true);
      EXPECT_EQ(viaAgent, viaV1) << slot.name;
   }
}

TEST_F(FactoryVariantSlots, FwkTypeIsTheVariantsOwn) {
   EXPECT_EQ(agent_->fwkType()->fullName(), "Nimbal::QosTcamAclHelperV1");
   EXPECT_TRUE(agent_->fwkType()->isA(QosAclHelperV1::fwkTypeDesc()));
}

TEST_F(FactoryVariantSlots, DestructorTearsDownTheCoppStateOfV1) {
   Kiv::Ptr<Nimbal::QosIntfCoppSm> sm = helper_->qosIntfCoppSmIs(platform_.scsd, helper_.ptr());
   helper_->coppIntfPolicerDataIs("Ethernet1");
   helper_->kernelDynamicCoppDataIs(Oskel::ModIdPortQueueKey(0, 1, 5));
   std::vector<std::string> log;
   AttributeSpy spy(helper_.ptr(), &log);
   helper_ = nullptr;
   agent_ = nullptr;
   EXPECT_EQ(log, std::vector<std::string>(
                      {"coppIntfPolicerData", "kernelDynamicCoppData", "qosIntfCoppSm"}));
   EXPECT_FALSE(spy.bound());
   EXPECT_FALSE(sm->hasNotificationActive());
}

TEST_F(FactoryVariantSlots, PrecreateAclIsV1s) {
   TraceCapture traces({"NimbalQosSm", "NimbalQosTcamAclSm"});
   agent_->precreateAcl(pmapState(), classOf(coppKey), Qos::matchIpv6AccessGroup_,
                        Oskel::AclKey("acl-bgp", 1), 1);
   ASSERT_EQ(traces.lines().size(), 1u);
   EXPECT_EQ(traces.lines()[0].handle, "NimbalQosSm");
   EXPECT_EQ(traces.lines()[0].text,
             "QosAclHelperV1( copp-system-policy,0,copp-system-bgp,0 )::precreateAcl( 1,1 )");
   EXPECT_EQ(helper_->baseCalls(), std::vector<std::string>({"QosAclHelper::precreateAcl"}));
}

TEST_F(FactoryVariantSlots, PoliciesCountersAndHwInitComeFromTheTcamBaseEvenForCopp) {
   platform_.coppGroupsAdd();
   auto cls = classOf(coppKey);
   TraceCapture traces({"NimbalQosSm"}, 1);
   agent_->createAndAttachPolicer(cls);
   agent_->destroyPolicer(cls);
   agent_->counterUpdateRequest(cls, Oskel::AclKey("acl", 0));
   agent_->hwInit();
   EXPECT_EQ(helper_->baseCalls(),
             std::vector<std::string>({"QosTcamAclHelper::createAndAttachPolicer",
                                       "QosTcamAclHelper::destroyPolicer",
                                       "QosTcamAclHelper::counterUpdateRequest",
                                       "QosTcamAclHelper::hwInit", "QosAclHelper::hwInit"}));
   EXPECT_TRUE(traces.texts().empty());
   EXPECT_FALSE(helper_->policyCoppIpEntryMgr());
   EXPECT_FALSE(helper_->policyCoppIp6EntryMgr());
}

TEST_F(FactoryVariantSlots, CompressAllGroupsIsV1sOnceTheCoppGroupsAreBound) {
   platform_.coppGroupsAdd();
   platform_.scsd->nimbalModIdToUnitIs(0, 0);
   agent_->hwInit();
   helper_->baseCallsDelAll();
   Shim::sdk_->journalDelAll();
   // The TCAM base's hwInit binds no CoPP groups: only the base's groups are packed.
   agent_->compressAllGroups();
   EXPECT_TRUE(Shim::sdk_->journalTexts("bcm_field_group_compress").empty());
   EXPECT_EQ(helper_->baseCalls(), std::vector<std::string>({"QosAclHelper::compressAllGroups"}));

   helper_->policyCoppIpEntryMgrIs(platform_.coppIpEntryMgr);
   helper_->policyCoppIp6EntryMgrIs(platform_.coppIp6EntryMgr);
   agent_->compressAllGroups();
   EXPECT_EQ(Shim::sdk_->journalTexts("bcm_field_group_compress"),
             std::vector<std::string>(
                 {"bcm_field_group_compress(0, 34)", "bcm_field_group_compress(0, 38)"}));
}

TEST_F(FactoryVariantSlots, VerifyRulePortsForUnitIsV1s) {
   Kiv::Ptr<Oskel::VerifyData> verifyData(new Oskel::VerifyData());
   platform_.scsd->verifyDataIs(verifyData);
   Shim::sdk_->chip().portBitmapIs(0, Shim::pbmpOf({1, 2}));
   agent_->verifyRulePortsForUnit(pmapState(), classOf(coppKey), Qos::matchIpAccessGroup_,
                                  Oskel::AclKey("acl-bgp", 0), 0, 0x99, 10, 0, 34,
                                  Acl::actionPermit_);
   ASSERT_EQ(verifyData->cliVerifyOutput().size(), 1u);
   EXPECT_EQ(verifyData->cliVerifyOutput()[0].message,
             "copp-system-policy/acl-bgp seq 10 incorrect ports bit mask");
   EXPECT_TRUE(helper_->baseCalls().empty());
}

TEST_F(FactoryVariantSlots, SetEntryPortsIsTheVariantsOwnAndWritesNoInPorts) {
   Kiv::ActivityScope lock;
   Kiv::Ptr<NimbalTcam::RequestConfig> config(new NimbalTcam::RequestConfig());
   config->intfGroupIs(new NimbalTcam::IntfGroup());
   Oskel::AclKey const acl("acl-bgp", 0);
   helper_->requestConfigIs(coppKey, acl, 0, config);
   TraceCapture traces({"NimbalQosSm", "NimbalQosTcamAclSm", "ApiNimbal"});
   agent_->setEntryPorts(pmapState(), classOf(coppKey), Qos::matchIpAccessGroup_, acl, 0, 5);
   ASSERT_EQ(traces.lines().size(), 1u);
   EXPECT_EQ(traces.lines()[0].handle, "NimbalQosTcamAclSm");
   EXPECT_TRUE(Shim::sdk_->journal().empty());
   EXPECT_TRUE(config->intfGroup()->ethernet());
   EXPECT_EQ(helper_->baseCalls(), std::vector<std::string>({"QosTcamAclHelper::setEntryPorts"}));
}

TEST_F(FactoryVariantSlots, FeatureGroupTypeIsTheVariantsOwn) {
   Kiv::Ptr<Nimbal::QosTcamAclHelper> agent = helper_;
   Kiv::Ptr<Oskel::AclData> ip(new Oskel::AclData("acl", 0));
   Kiv::Ptr<Oskel::AclData> ip6(new Oskel::AclData("acl6", 1));
   EXPECT_EQ(agent->getFeatureGroupType(ip, classOf(coppKey)), 92u);
   EXPECT_EQ(agent->getFeatureGroupType(ip6, classOf(coppKey)), 93u);
   EXPECT_TRUE(helper_->baseCalls().empty());
   EXPECT_EQ(agent->getFeatureGroupType(ip6, classOf(qosKey)), 7u);
   EXPECT_EQ(helper_->baseCalls(),
             std::vector<std::string>({"QosTcamAclHelper::getFeatureGroupType"}));
}

// Entry ports through the TCAM agent

class TcamEntryPorts : public ::testing::Test {
  protected:
   static constexpr U32 unit = 3;

   void SetUp() override {
      Shim::sdk_->reset();
      helper_ = variantOf(platform_);
      ASSERT_TRUE(helper_);
      config_ = new NimbalTcam::RequestConfig(NimbalTcam::RequestKey(92, "copp-system-bgp"));
      config_->intfGroupIs(group_);
      auto& scsd = *platform_.scsd;
      scsd.intfPortIs("Ethernet1", NimbalTypes::NimbalPort(0, unit, 1));
      scsd.nimbalCpuPortToIntfIs(NimbalTypes::NimbalPort(0, unit, 0), "Cpu0");
      scsd.nimbalCpuPortToIntfIs(NimbalTypes::NimbalPort(1, 4, 0), "Cpu1");
      scsd.nimbalPortToLoopbackIntfIs(NimbalTypes::NimbalPort(0, unit, 60), "Loopback0");
      scsd.nimbalPortToLoopbackIntfIs(NimbalTypes::NimbalPort(0, unit, 61), "Loopback1");
      scsd.nimbalPortToLoopbackIntfIs(NimbalTypes::NimbalPort(0, unit, 62), "Loopback2");
   }

   void fileRequest(Oskel::QosClassDataKey const& key, Oskel::AclKey const& acl, U32 u,
                    Kiv::Ptr<NimbalTcam::RequestConfig> const& config) {
      helper_->requestConfigIs(key, acl, u, config);
   }
   void setEntryPorts(Kiv::Ptr<Oskel::QosClassData> const& cls) {
      helper_->setEntryPorts(pmapState(), cls, Qos::matchMacAccessGroup_, acl_, unit, 0x10005);
   }

   Kiv::ActivityScope lock_;
   CoppPlatform platform_;
   Kiv::Ptr<QosTcamAclHelperV1> helper_;
   Kiv::Ptr<NimbalTcam::IntfGroup> group_{new NimbalTcam::IntfGroup()};
   Kiv::Ptr<NimbalTcam::RequestConfig> config_;
   Oskel::AclKey acl_{"acl-bgp", 1};
};

// The fixture holds the activity lock, which a forked child could not take back: death tests
// run in a fresh process of their own.
class TcamEntryPortsDeathTest : public TcamEntryPorts {
  protected:
   void SetUp() override {
      GTEST_FLAG_SET(death_test_style, "threadsafe");
      TcamEntryPorts::SetUp();
   }
};

TEST_F(TcamEntryPorts, WidenTheRequestToEthernetThenCpuThenLoopbackInterfaces) {
   fileRequest(coppKey, acl_, unit, config_);
   AttributeSpy spy(group_.ptr());
   auto cls = classOf(coppKey, "Ethernet1");

   setEntryPorts(cls);

   std::vector<std::string> expected = {"ethernet"};
   for (auto const& kv : platform_.scsd->nimbalCpuPortToIntfCol()) {
      expected.push_back("intf " + kv.second.stringValue());
   }
   for (auto const& kv : platform_.scsd->nimbalPortToLoopbackIntfCol()) {
      expected.push_back("intf " + kv.second.stringValue());
   }
   std::vector<std::string> seen;
   for (auto const& e : spy.events()) {
      seen.push_back(e.key.has_value()
                         ? e.attr + " " + std::any_cast<Orvik::IntfId>(e.key).stringValue()
                         : e.attr);
   }
   EXPECT_EQ(seen, expected);
   EXPECT_TRUE(group_->ethernet());
   EXPECT_EQ(group_->intf(), 5u);
   EXPECT_FALSE(group_->intfHas("Ethernet1"));
   EXPECT_EQ(helper_->baseCalls(), std::vector<std::string>({"QosTcamAclHelper::setEntryPorts"}));
}

TEST_F(TcamEntryPorts, QosClassesAreWidenedToo) {
   fileRequest(qosKey, acl_, unit, config_);
   setEntryPorts(classOf(qosKey));
   EXPECT_TRUE(group_->ethernet());
   EXPECT_TRUE(group_->intfHas("Cpu0"));
   EXPECT_TRUE(group_->intfHas("Cpu1"));
   EXPECT_TRUE(group_->intfHas("Loopback2"));
   EXPECT_EQ(helper_->baseCalls(), std::vector<std::string>({"QosTcamAclHelper::setEntryPorts"}));
}

TEST_F(TcamEntryPorts, OnlyTheEntrysOwnRequestIsWidened) {
   Kiv::Ptr<NimbalTcam::IntfGroup> otherGroup(new NimbalTcam::IntfGroup());
   Kiv::Ptr<NimbalTcam::RequestConfig> other(new NimbalTcam::RequestConfig());
   other->intfGroupIs(otherGroup);
   fileRequest(coppKey, acl_, unit, config_);
   fileRequest(coppKey, acl_, 4, other);
   fileRequest(coppKey, Oskel::AclKey("acl-other", 1), unit, other);
   setEntryPorts(classOf(coppKey));
   EXPECT_TRUE(group_->ethernet());
   EXPECT_FALSE(otherGroup->ethernet());
   EXPECT_EQ(otherGroup->intf(), 0u);
}

TEST_F(TcamEntryPorts, WideningAgainChangesNothing) {
   fileRequest(coppKey, acl_, unit, config_);
   setEntryPorts(classOf(coppKey));
   AttributeSpy spy(group_.ptr());
   setEntryPorts(classOf(coppKey));
   EXPECT_TRUE(spy.events().empty());
   EXPECT_EQ(group_->intf(), 5u);
}

TEST_F(TcamEntryPorts, TracesTheClassKeyMatchOptionAndAclType) {
   fileRequest(coppKey, acl_, unit, config_);
   TraceCapture traces({"NimbalQosTcamAclSm", "NimbalQosSm", "ApiNimbal"});
   setEntryPorts(classOf(coppKey));
   ASSERT_EQ(traces.lines().size(), 1u);
   EXPECT_EQ(traces.lines()[0].handle, "NimbalQosTcamAclSm");
   EXPECT_EQ(traces.lines()[0].level, 4);
   EXPECT_EQ(traces.lines()[0].text,
             "QosTcamAclHelperV1( copp-system-policy,0,copp-system-bgp,0 )::setEntryPorts( 2,1 )");
}

TEST_F(TcamEntryPortsDeathTest, MissingClassRequestTableStopsTheAgent) {
   fileRequest(qosKey, acl_, unit, config_);
   auto cls = classOf(coppKey);
   EXPECT_DEATH(setEntryPorts(cls), "Assertion `classRequestTable' failed");
}

TEST_F(TcamEntryPortsDeathTest, MissingAclRequestTableStopsTheAgent) {
   fileRequest(coppKey, Oskel::AclKey("acl-other", 1), unit, config_);
   auto cls = classOf(coppKey);
   EXPECT_DEATH(setEntryPorts(cls), "Assertion `aclRequestTable' failed");
}

TEST_F(TcamEntryPortsDeathTest, MissingRequestConfigOfTheUnitStopsTheAgent) {
   fileRequest(coppKey, acl_, 4, config_);
   auto cls = classOf(coppKey);
   EXPECT_DEATH(setEntryPorts(cls), "Assertion `RequestConfig is NULL' failed");
}

TEST_F(TcamEntryPortsDeathTest, NullRequestConfigStopsTheAgent) {
   fileRequest(coppKey, acl_, unit, nullptr);
   auto cls = classOf(coppKey);
   EXPECT_DEATH(setEntryPorts(cls), "Assertion `RequestConfig is NULL' failed");
}

TEST_F(TcamEntryPortsDeathTest, RequestWithoutInterfaceGroupStopsTheAgent) {
   fileRequest(coppKey, acl_, unit, new NimbalTcam::RequestConfig());
   auto cls = classOf(coppKey);
   EXPECT_DEATH(setEntryPorts(cls), "Assertion `requestConfig->intfGroup\\(\\)' failed");
}

}  // namespace

int main(int argc, char** argv) {
   ::testing::InitGoogleTest(&argc, argv);
   // Read the toggle now, from a file that says on, and take the file away again: the process
   // keeps what it read first.
   std::string const dir = makeToggleDir(true);
   ::setenv("NIMBAL_TOGGLE_DIR", dir.c_str(), 1);
   bool const on = Nimbal::toggleUseTcamAgentForPolicyQosEnabled();
   ::unsetenv("NIMBAL_TOGGLE_DIR");
   std::filesystem::remove_all(dir);
   if (!on) {
      std::fprintf(stderr, "the toggle UseTcamAgentForPolicyQos did not read as on\n");
      return 1;
   }
   return RUN_ALL_TESTS();
}
