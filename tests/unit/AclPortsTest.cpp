#include <gtest/gtest.h>
#include <stdlib.h>

#include <string>
#include <vector>

#include "Kiv/Activity.h"
#include "Oskel/VerifyData.h"
#include "Shim/Sdk.h"
#include "unit/AbortReport.h"
#include "unit/CoppHelperFixture.h"

namespace {

using CoppTest::CoppPlatform;
using CoppTest::TraceCapture;
using DeathTest::abortReportIs;
using Nimbal::QosAclHelperV1;

constexpr U32 unit = 3;

Oskel::QosClassDataKey const coppKey("copp-system-policy", Qos::mapControlPlane_, Qos::input_,
                                     "copp-system-bgp", Qos::mapControlPlane_);
Oskel::QosClassDataKey const qosKey("pmap-qos", Qos::mapQos_, Qos::input_, "cmap-qos",
                                    Qos::mapQos_);

Kiv::Ptr<Oskel::QosClassData> classOf(Oskel::QosClassDataKey const& key) {
   return Kiv::Ptr<Oskel::QosClassData>(new Oskel::QosClassData(key));
}

std::string joined(std::vector<std::string> const& parts) {
   std::string out;
   for (auto const& p : parts) {
      out += p + ";";
   }
   return out;
}

// A unit with eight front-panel ports, the ingress CoPP groups bound, and one entry of the
// IPv4 CoPP group; the test holds the activity lock as the event loop does.
class AclPorts : public ::testing::Test {
  protected:
   void SetUp() override {
      ::unsetenv("SIMULATION_VMID");
      Shim::sdk_->reset();
      chip().unitIs(unit);
      chip().portBitmapIs(unit, Shim::pbmpOf({1, 2, 3, 4, 5, 6, 7, 8}));
      platform_.coppGroupsAdd();
      helper_ = platform_.helper();
      helper_->hwInit();
      helper_->baseCallsDelAll();
      entry_ = platform_.coppIpEntryMgr->getEntryWithStats(unit, "copp-system-bgp",
                                                           Nimbal::RequestKey(), {});
      ASSERT_NE(entry_, 0u);
      Shim::sdk_->journalDelAll();
   }
   void TearDown() override { ::unsetenv("SIMULATION_VMID"); }

   static Shim::SimChip& chip() { return Shim::sdk_->chip(); }

   void setEntryPorts(Kiv::Ptr<Oskel::QosClassData> const& cls) {
      U64 const entry = entry_;
      helper_->setEntryPorts(pmapState_, cls, Qos::matchIpAccessGroup_, aclKey_, unit, entry);
   }
   void verifyRulePorts(Kiv::Ptr<Oskel::QosClassData> const& cls) {
      helper_->verifyRulePortsForUnit(pmapState_, cls, Qos::matchIpAccessGroup_, aclKey_, unit,
                                      entry_, 10, 0, 34, Acl::actionPermit_);
   }

   Kiv::ActivityScope lock_;
   CoppPlatform platform_;
   Kiv::Ptr<QosAclHelperV1> helper_;
   Kiv::Ptr<Oskel::QosPolicyMapState> pmapState_{
       new Oskel::QosPolicyMapState("copp-system-policy")};
   Oskel::AclKey aclKey_{"acl-bgp", 0};
   U32 entry_ = 0;
};

// The fixture holds the activity lock; a forked child could not take it back after an SDK call,
// so death tests run in a fresh process of their own.
class AclPortsDeathTest : public AclPorts {
  protected:
   void SetUp() override {
      GTEST_FLAG_SET(death_test_style, "threadsafe");
      AclPorts::SetUp();
   }
};

// Entry ports

TEST_F(AclPorts, CoppEntryGetsTheWholeUnitBitmapEvenForASubsetOfInterfaces) {
   chip().allPortsBitmapIs(unit, Shim::pbmpOf({0, 1, 2, 3, 4, 5, 6, 7, 8, 63}));
   auto cls = classOf(coppKey);
   cls->intfIdIs("Ethernet2");

   setEntryPorts(cls);

   Shim::FieldEntry const* programmed = chip().entry(unit, entry_);
   ASSERT_NE(programmed, nullptr);
   ASSERT_TRUE(programmed->sw.inPorts != nullptr);
   EXPECT_EQ(programmed->sw.inPorts->data.text(), "{1,2,3,4,5,6,7,8}");
   EXPECT_EQ(programmed->sw.inPorts->mask.text(), "{0,1,2,3,4,5,6,7,8,63}");
   EXPECT_EQ(platform_.coppIpEntryMgr->tcamEntryBcmPbmp(unit, entry_).text(), "{1,2,3,4,5,6,7,8}");
   EXPECT_EQ(platform_.coppIpEntryMgr->tcamEntryBcmPbmpMask(unit, entry_).text(),
             "{0,1,2,3,4,5,6,7,8,63}");
   EXPECT_TRUE(platform_.coppIpEntryMgr->tcamEntryBcmPbmpPermanent(unit, entry_));
   EXPECT_TRUE(helper_->baseCalls().empty());
}

TEST_F(AclPorts, CoppInPortsAreWrittenOnceWithTheLockReleasedAfterThePreCallHook) {
   setEntryPorts(classOf(coppKey));
   auto const& journal = Shim::sdk_->journal();
   ASSERT_EQ(journal.size(), 1u);
   EXPECT_EQ(journal[0].text(), "bcm_field_qualify_InPorts(3, " + std::to_string(entry_) +
                                    ", {1,2,3,4,5,6,7,8}, {1,2,3,4,5,6,7,8})");
   EXPECT_FALSE(journal[0].lockHeld);
   EXPECT_TRUE(journal[0].afterPreCall);
   EXPECT_TRUE(Kiv::activityLock().held());
}

TEST_F(AclPorts, PermanentCoppPortsSurviveALaterPortSetChange) {
   setEntryPorts(classOf(coppKey));
   EXPECT_FALSE(platform_.coppIpEntryMgr->addInPortsForEntry(unit, entry_, Shim::pbmpOf({2}),
                                                             Shim::pbmpOf({2})));
   EXPECT_EQ(platform_.coppIpEntryMgr->tcamEntryBcmPbmp(unit, entry_).text(), "{1,2,3,4,5,6,7,8}");
}

TEST_F(AclPorts, QosClassGoesStraightToTheBaseWithoutInPortsOrPermanentFlag) {
   auto cls = classOf(qosKey);
   cls->intfIdIs("Ethernet2");
   setEntryPorts(cls);
   EXPECT_TRUE(Shim::sdk_->journalTexts("bcm_field_qualify_InPorts").empty());
   EXPECT_TRUE(Shim::sdk_->journal().empty());
   EXPECT_FALSE(chip().entry(unit, entry_)->sw.inPorts != nullptr);
   EXPECT_FALSE(platform_.coppIpEntryMgr->tcamEntryBcmPbmpPermanent(unit, entry_));
   EXPECT_TRUE(platform_.coppIpEntryMgr->tcamEntryBcmPbmp(unit, entry_).empty());
   EXPECT_EQ(helper_->baseCalls(), std::vector<std::string>({"QosAclHelper::setEntryPorts"}));
}

TEST_F(AclPorts, PdpClassIsNotACoppClass) {
   Oskel::QosClassDataKey const pdpKey("pmap-pdp", Qos::mapPdp_, Qos::input_, "cmap-pdp",
                                       Qos::mapControlPlane_);
   setEntryPorts(classOf(pdpKey));
   EXPECT_TRUE(Shim::sdk_->journal().empty());
   EXPECT_EQ(helper_->baseCalls(), std::vector<std::string>({"QosAclHelper::setEntryPorts"}));
}

TEST_F(AclPorts, SetEntryPortsTracesTheClassKeyUnitAndEntry) {
   TraceCapture traces({"NimbalQosSm", "ApiNimbal"});
   setEntryPorts(classOf(coppKey));
   ASSERT_EQ(traces.lines().size(), 2u);
   EXPECT_EQ(traces.lines()[0].handle, "NimbalQosSm");
   EXPECT_EQ(traces.lines()[0].level, 4);
   EXPECT_EQ(traces.lines()[0].text,
             "QosAclHelperV1( copp-system-policy,0,copp-system-bgp,0 )::setEntryPorts( 3," +
                 std::to_string(entry_) + " )");
   EXPECT_EQ(traces.lines()[1].handle, "ApiNimbal");
   std::string const api = traces.lines()[1].text;
   std::string const prefix = "NimbalQos/NimbalQosAclPorts.cpp:";
   std::string const suffix = " bcm_field_qualify_InPorts( unit, entry, pbm, allPortsMask ) (rc:0)";
   EXPECT_EQ(api.substr(0, prefix.size()), prefix) << api;
   ASSERT_GT(api.size(), suffix.size());
   EXPECT_EQ(api.substr(api.size() - suffix.size()), suffix) << api;
}

TEST_F(AclPorts, SetEntryPortsTracesQosClassesToo) {
   TraceCapture traces({"NimbalQosSm", "ApiNimbal"});
   setEntryPorts(classOf(qosKey));
   EXPECT_EQ(traces.texts(), std::vector<std::string>({"QosAclHelperV1( pmap-qos,1,cmap-qos,1 "
                                                       ")::setEntryPorts( 3," +
                                                       std::to_string(entry_) + " )"}));
}

TEST_F(AclPortsDeathTest, FailingInPortsQualifierStopsTheAgentWithTheCallText) {
   Shim::sdk_->failNextCallIs("bcm_field_qualify_InPorts", -4);
   auto cls = classOf(coppKey);
   EXPECT_DEATH(
       setEntryPorts(cls),
       "NimbalQos/NimbalQosAclPorts\\.cpp:[0-9]+ bcm_field_qualify_InPorts\\( unit, entry, "
       "pbm, allPortsMask \\) API ERROR:Invalid parameter \\(-4\\)\n.*Assertion `0' failed");
}

TEST_F(AclPortsDeathTest, FailingInPortsQualifierLeavesTheManagersPortsAlone) {
   Shim::sdk_->failNextCallIs("bcm_field_qualify_InPorts", -14);
   auto cls = classOf(coppKey);
   auto mgr = platform_.coppIpEntryMgr;
   U32 const entry = entry_;
   EXPECT_DEATH(
       {
          abortReportIs([mgr, entry] {
             return "permanent=" + std::to_string(mgr->tcamEntryBcmPbmpPermanent(unit, entry)) +
                    " ports=" + mgr->tcamEntryBcmPbmp(unit, entry).text();
          });
          setEntryPorts(cls);
       },
       "No resources for operation \\(-14\\).*report: permanent=0 ports=\\{\\}");
}

TEST_F(AclPortsDeathTest, CoppEntryWithoutAManagerStopsTheAgent) {
   auto cls = classOf(coppKey);
   EXPECT_DEATH(helper_->setEntryPorts(pmapState_, cls, Qos::matchIpAccessGroup_, aclKey_, unit,
                                       U64(0x7777)),
                "Assertion `entryMgr' failed");
}

// Pre-creation

TEST_F(AclPorts, PrecreateAclTracesTheClassMatchAndAclTypeThenCallsTheBase) {
   TraceCapture traces({"NimbalQosSm"});
   helper_->precreateAcl(pmapState_, classOf(coppKey), Qos::matchIpv6AccessGroup_, aclKey_, 1);
   ASSERT_EQ(traces.lines().size(), 1u);
   EXPECT_EQ(traces.lines()[0].level, 4);
   EXPECT_EQ(traces.lines()[0].text,
             "QosAclHelperV1( copp-system-policy,0,copp-system-bgp,0 )::precreateAcl( 1,1 )");
   EXPECT_EQ(helper_->baseCalls(), std::vector<std::string>({"QosAclHelper::precreateAcl"}));
   EXPECT_TRUE(Shim::sdk_->journal().empty());
}

TEST_F(AclPorts, PrecreateAclOfAQosClassAlsoOnlyTracesAndForwards) {
   TraceCapture traces({"NimbalQosSm"});
   helper_->precreateAcl(pmapState_, classOf(qosKey), Qos::matchMacAccessGroup_, aclKey_, 0);
   EXPECT_EQ(traces.texts(), std::vector<std::string>(
                                 {"QosAclHelperV1( pmap-qos,1,cmap-qos,1 )::precreateAcl( 2,0 )"}));
   EXPECT_EQ(helper_->baseCalls(), std::vector<std::string>({"QosAclHelper::precreateAcl"}));
}

// Group compression

TEST_F(AclPorts, CompressAllGroupsPacksIpv4ThenIpv6CoppGroupsUnitByUnit) {
   chip().unitIs(4);
   chip().unitIs(6);
   platform_.scsd->nimbalModIdToUnitIs(0, 3);
   platform_.scsd->nimbalModIdToUnitIs(1, 4);
   platform_.scsd->nimbalModIdToUnitIs(2, 6);
   TraceCapture traces({"NimbalQosSm"});

   helper_->compressAllGroups();

   std::vector<std::string> expected;
   for (auto const& modIdUnit : platform_.scsd->nimbalModIdToUnitCol()) {
      std::string const u = std::to_string(modIdUnit.second);
      expected.push_back("bcm_field_group_compress(" + u + ", 34)");
      expected.push_back("bcm_field_group_compress(" + u + ", 38)");
   }
   EXPECT_EQ(Shim::sdk_->journalTexts("bcm_field_group_compress"), expected);
   for (U32 u : {3u, 4u, 6u}) {
      EXPECT_EQ(platform_.coppIpEntryMgr->compressions(u), 1u) << u;
      EXPECT_EQ(platform_.coppIp6EntryMgr->compressions(u), 1u) << u;
   }
   EXPECT_EQ(helper_->baseCalls(), std::vector<std::string>({"QosAclHelper::compressAllGroups"}));
   EXPECT_EQ(traces.texts(), std::vector<std::string>({"compressAllGroups"}));
}

TEST_F(AclPorts, CompressAllGroupsWithoutModulesCompressesOnlyTheBaseGroups) {
   helper_->compressAllGroups();
   EXPECT_TRUE(Shim::sdk_->journal().empty());
   EXPECT_EQ(helper_->baseCalls(), std::vector<std::string>({"QosAclHelper::compressAllGroups"}));
}

TEST_F(AclPortsDeathTest, CompressAllGroupsCompressesTheBaseGroupsBeforeTheCoppGroups) {
   platform_.scsd->nimbalModIdToUnitIs(0, 3);
   // The first CoPP compression fails: by then the base must already have run.
   Shim::sdk_->failNextCallIs("bcm_field_group_compress", -1);
   auto helper = helper_;
   EXPECT_DEATH(
       {
          abortReportIs([helper] { return "base calls: " + joined(helper->baseCalls()); });
          helper->compressAllGroups();
       },
       "report: base calls: QosAclHelper::compressAllGroups;\n");
}

TEST_F(AclPortsDeathTest, CompressAllGroupsStartsWithTheIpv4CoppGroup) {
   platform_.scsd->nimbalModIdToUnitIs(0, 3);
   Shim::sdk_->failNextCallIs("bcm_field_group_compress", -1);
   auto helper = helper_;
   EXPECT_DEATH(
       {
          abortReportIs([] { return "calls: " + joined(Shim::sdk_->journalTexts()); });
          helper->compressAllGroups();
       },
       "report: calls: bcm_field_group_compress\\(3, 34\\);\n");
}

// Counter dispatch

TEST_F(AclPorts, CounterUpdateRequestOfACoppClassReadsTheCoppCounters) {
   platform_.scsd->intfPortIs("Ethernet1", NimbalTypes::NimbalPort(0, unit, 5));
   auto cls = classOf(coppKey);
   cls->intfIdIs("Ethernet1");
   helper_->coppIntfPolicerDataIs("Ethernet1")->policerDataColIs(coppKey)->cpuQIdIs(9);
   platform_.pktDrv->ddeCoppCountersIs(unit, 5, 9, 7, 30);
   TraceCapture traces({"NimbalQosSm"});

   Oskel::QosClassCounterData const counters = helper_->counterUpdateRequest(cls, aclKey_);

   EXPECT_EQ(counters.pktHits(), 37u);
   EXPECT_EQ(counters.drop(), 7u);
   EXPECT_EQ(counters.byteHits(), 37u * 64);
   EXPECT_EQ(counters.dropBytes(), 7u * 64);
   EXPECT_TRUE(helper_->baseCalls().empty());
   ASSERT_FALSE(traces.texts().empty());
   EXPECT_EQ(traces.texts()[0], "coppCounterUpdateRequest");
   EXPECT_TRUE(counters == helper_->coppCounterUpdateRequest(cls));
}

TEST_F(AclPorts, CounterUpdateRequestOfAQosClassGoesToTheBase) {
   platform_.scsd->intfPortIs("Ethernet1", NimbalTypes::NimbalPort(0, unit, 5));
   auto cls = classOf(qosKey);
   cls->intfIdIs("Ethernet1");
   helper_->coppIntfPolicerDataIs("Ethernet1")->policerDataColIs(qosKey)->cpuQIdIs(9);
   platform_.pktDrv->ddeCoppCountersIs(unit, 5, 9, 7, 30);
   TraceCapture traces({"NimbalQosSm"});

   Oskel::QosClassCounterData const counters = helper_->counterUpdateRequest(cls, aclKey_);

   EXPECT_TRUE(counters == Oskel::QosClassCounterData());
   EXPECT_EQ(helper_->baseCalls(),
             std::vector<std::string>({"QosAclHelper::counterUpdateRequest"}));
   EXPECT_TRUE(traces.texts().empty());
}

// Port verification

TEST_F(AclPorts, VerifyOfProgrammedCoppPortsReportsNothing) {
   Kiv::Ptr<Oskel::VerifyData> verifyData(new Oskel::VerifyData());
   platform_.scsd->verifyDataIs(verifyData);
   auto cls = classOf(coppKey);
   setEntryPorts(cls);
   verifyRulePorts(cls);
   EXPECT_TRUE(verifyData->cliVerifyOutput().empty());
   EXPECT_TRUE(verifyData->verifyOutputs().empty());
   EXPECT_TRUE(helper_->baseCalls().empty());
}

TEST_F(AclPorts, VerifyReportsCoppPortsThatDifferFromTheUnit) {
   Kiv::Ptr<Oskel::VerifyData> verifyData(new Oskel::VerifyData());
   platform_.scsd->verifyDataIs(verifyData);
   auto cls = classOf(coppKey);
   setEntryPorts(cls);
   // A port joins the unit after the entry was programmed.
   chip().allPortsBitmapIs(unit, Shim::pbmpOf({1, 2, 3, 4, 5, 6, 7, 8, 9}));

   verifyRulePorts(cls);

   std::string const message = "copp-system-policy/acl-bgp seq 10 incorrect ports bit mask";
   ASSERT_EQ(verifyData->cliVerifyOutput().size(), 1u);
   EXPECT_EQ(verifyData->cliVerifyOutput()[0].function,
             "void Nimbal::QosAclHelperV1::verifyRulePortsForUnit(const "
             "Kiv::Ptr<Oskel::QosPolicyMapState>&, const Kiv::Ptr<Oskel::QosClassData>&, "
             "Qos::ClassMapMatchOption, const Oskel::AclKey&, U32, U32, U32, U32, U32, "
             "Acl::Action)");
   EXPECT_EQ(verifyData->cliVerifyOutput()[0].message, message);
   ASSERT_EQ(verifyData->verifyOutputs().size(), 1u);
   Oskel::VerifyOutput const& out = verifyData->verifyOutputs()[0];
   EXPECT_EQ(out.message(), message);
   EXPECT_EQ(out.file(), "NimbalQos/NimbalQosAclPorts.cpp");
   EXPECT_GT(out.line(), 0u);
   EXPECT_EQ(out.function(), "verifyRulePortsForUnit");
   EXPECT_EQ(out.severity(), 3u);
   EXPECT_TRUE(helper_->baseCalls().empty());
}

TEST_F(AclPorts, VerifyReportsACoppEntryWhosePortsWereNeverSet) {
   Kiv::Ptr<Oskel::VerifyData> verifyData(new Oskel::VerifyData());
   platform_.scsd->verifyDataIs(verifyData);
   verifyRulePorts(classOf(coppKey));
   ASSERT_EQ(verifyData->cliVerifyOutput().size(), 1u);
   EXPECT_EQ(verifyData->cliVerifyOutput()[0].message,
             "copp-system-policy/acl-bgp seq 10 incorrect ports bit mask");
}

TEST_F(AclPorts, VerifyOfAQosClassGoesToTheBaseAndReportsNothingItself) {
   Kiv::Ptr<Oskel::VerifyData> verifyData(new Oskel::VerifyData());
   platform_.scsd->verifyDataIs(verifyData);
   verifyRulePorts(classOf(qosKey));
   EXPECT_TRUE(verifyData->cliVerifyOutput().empty());
   EXPECT_TRUE(verifyData->verifyOutputs().empty());
   EXPECT_EQ(helper_->baseCalls(),
             std::vector<std::string>({"QosAclHelper::verifyRulePortsForUnit"}));
}

TEST_F(AclPorts, VerifyWithoutVerifyDataDropsTheDifference) {
   ASSERT_FALSE(platform_.scsd->verifyData());
   verifyRulePorts(classOf(coppKey));
   EXPECT_TRUE(helper_->baseCalls().empty());
   EXPECT_TRUE(Shim::sdk_->journal().empty());
}

TEST_F(AclPortsDeathTest, VerifyDifferenceInSimulationIsRecordedAndStopsTheAgent) {
   Kiv::Ptr<Oskel::VerifyData> verifyData(new Oskel::VerifyData());
   platform_.scsd->verifyDataIs(verifyData);
   auto cls = classOf(coppKey);
   EXPECT_DEATH(
       {
          ::setenv("SIMULATION_VMID", "1", 1);
          abortReportIs([verifyData] {
             std::string out = "cli=" + std::to_string(verifyData->cliVerifyOutput().size());
             for (auto const& o : verifyData->verifyOutputs()) {
                out += " [" + o.message() + "|" + o.file() + "|" + o.function() + "|" +
                       std::to_string(o.severity()) + "]";
             }
             return out;
          });
          verifyRulePorts(cls);
       },
       "incorrect ports bit mask' failed.*report: cli=0 \\[copp-system-policy/acl-bgp seq 10 "
       "incorrect ports bit "
       "mask\\|NimbalQos/NimbalQosAclPorts.cpp\\|verifyRulePortsForUnit\\|3\\]");
}

TEST_F(AclPorts, VerifyInSimulationWithMatchingPortsCarriesOn) {
   Kiv::Ptr<Oskel::VerifyData> verifyData(new Oskel::VerifyData());
   platform_.scsd->verifyDataIs(verifyData);
   auto cls = classOf(coppKey);
   setEntryPorts(cls);
   ::setenv("SIMULATION_VMID", "1", 1);
   verifyRulePorts(cls);
   EXPECT_TRUE(verifyData->verifyOutputs().empty());
}

}  // namespace
