// Bad input at the library's boundary: module ids and ports out of range give the range errors
// with their texts and change nothing; unknown interfaces, ports, modules and keys give the
// "none" values; names that hold printf directives are written as they are, in log messages,
// traces, entry descriptions, show tables and verify output.

#include <gtest/gtest.h>
#include <stdlib.h>

#include <cstdio>
#include <fstream>
#include <functional>
#include <sstream>
#include <string>
#include <vector>

#include "Kiv/Exception.h"
#include "Kiv/Type.h"
#include "NimbalCentral/ChipInfo.h"
#include "Oskel/AclTypes.h"
#include "unit/AgentBench.h"
#include "unit/CoppHelperFixture.h"

namespace {

using AgentTest::AgentBench;
using AgentTest::Holdings;
using Key = Oskel::ModIdPortQueueKey;

constexpr char moduleRangeText[] = "ModId::value < ModId::min or > ModId::null not allowed";
constexpr char portRangeText[] =
    "NimbalPort::logicalPort < 0 or > NimbalPort::defaultPort not allowed";

NimbalHost::SwitchConfig vxlanSwitch() {
   NimbalHost::SwitchConfig config;
   config.vxlanWorkaround = true;
   return config;
}

// The range error an operation throws, "" when it throws none.
std::string rangeError(std::function<void()> const& operation) {
   try {
      operation();
   } catch (Kiv::RangeException const& e) {
      return e.what();
   }
   return "";
}

// Everything the helper keeps, beyond what the chip holds: the counter baselines too.
struct Kept {
   Holdings holdings;
   std::size_t swBaselines;
   std::size_t cfgBaselines;
   std::size_t counterRecords;
   bool operator==(Kept const&) const = default;
};

void PrintTo(Kept const& k, std::ostream* os) {
   *os << k.holdings << " baselines " << k.swBaselines << "/" << k.cfgBaselines
       << " counter records " << k.counterRecords;
}

Kept kept(AgentBench const& b) {
   return {b.holdings(), b.helper()->lastClearCoppSwCounter(),
           b.helper()->lastClearCoppSwCfgCounter(), b.helper()->coppIntfCounterData()};
}

// Range errors

struct OutOfRange {
   char const* name;
   bool vxlan;
   // The operation with a module id or a port out of range.
   std::function<void(AgentBench&, Key const&)> operation;
};

void PrintTo(OutOfRange const& o, std::ostream* os) {
   *os << o.name;
}

OutOfRange const outOfRangeOperations[] = {
    {"KernelKeyProgramming", false,
     [](AgentBench& b, Key const& key) { b.helper()->createCoppPolicerByPortQueue(key); }},
    {"SoftwareCounterClear", false,
     [](AgentBench& b, Key const& key) {
        b.helper()->clearCoppIntfSwCounterByPortQueue(key, false);
     }},
    {"SoftwareCounterClearByName", false,
     [](AgentBench& b, Key const& key) {
        Kiv::invoke(*b.helper(), "clearCoppIntfSwCounterByPortQueue",
                    {std::to_string(key.modId()), std::to_string(key.port()),
                     std::to_string(key.queue()), "false"});
     }},
    {"VxlanSourcePortEntry", true,
     [](AgentBench& b, Key const& key) {
        b.helper()->createCoppVxlanSrcPortPolicerByPortQueue(key);
     }},
    {"PortOfAKey", false,
     [](AgentBench& b, Key const& key) {
        Nimbal::getNimbalPortFromModIdPortQueueKey(b.sw().scsd(), key);
     }},
};

class RangeOfKeys : public ::testing::TestWithParam<OutOfRange> {};

TEST_P(RangeOfKeys, ModuleAbove64AndPortAbove1023GiveTheRangeErrorsAndChangeNothing) {
   AgentBench b(GetParam().vxlan ? vxlanSwitch() : NimbalHost::SwitchConfig());
   if (GetParam().vxlan) {
      b.vxlanIs(true);
   }
   // A module the agent knows although its id is out of range.
   b.sw().scsd()->nimbalModIdIs(65, Nimbal::NimbalModInfo(65, 0, NimbalCentral::ChipInfo(0)));
   b.sw().scsd()->nimbalModIdToUnitIs(65, 0);
   Kept const before = kept(b);
   auto const operation = GetParam().operation;

   EXPECT_EQ(rangeError([&] { operation(b, Key(65, 5, 9)); }), moduleRangeText);
   EXPECT_EQ(rangeError([&] { operation(b, Key(0, 1024, 9)); }), portRangeText);
   EXPECT_EQ(rangeError([&] { operation(b, Key(0, 0xFFFF, 9)); }), portRangeText);
   // The module is checked first.
   EXPECT_EQ(rangeError([&] { operation(b, Key(65, 5000, 9)); }), moduleRangeText);
   EXPECT_EQ(kept(b), before);
   // The limits themselves are in range.
   EXPECT_EQ(rangeError([&] { operation(b, Key(64, 1023, 9)); }), "");
}

INSTANTIATE_TEST_SUITE_P(EveryKeyedOperation, RangeOfKeys,
                         ::testing::ValuesIn(outOfRangeOperations),
                         [](::testing::TestParamInfo<OutOfRange> const& info) {
                            return std::string(info.param.name);
                         });

TEST(RangeOfKeys, KeysOutOfRangeOfAModuleTheAgentDoesNotKnowNeedNothing) {
   AgentBench b;
   Kept const before = kept(b);
   EXPECT_TRUE(b.helper()->createCoppPolicerByPortQueue(Key(65, 5, 9)));
   EXPECT_TRUE(b.helper()->createCoppPolicerByPortQueue(Key(0x10000, 5, 9)));
   b.helper()->destroyCoppPolicerByPortQueue(Key(65, 5, 9));
   b.helper()->destroyCoppPolicerByPortQueue(Key(0, 1024, 9));
   EXPECT_FALSE(b.helper()->checkKernelCoppEntryExists(Key(65, 1024, 9)));
   EXPECT_FALSE(b.helper()->checkUserCoppEntryExists(Key(65, 1024, 9)));
   EXPECT_EQ(kept(b), before);
}

TEST(RangeOfKeys, NumbersThatDoNotFitTheArgumentsOfAnOperationByNameAreRefused) {
   AgentBench b;
   b.police("Ethernet5", "copp-system-bgp", 300, 30);
   Kept const before = kept(b);
   // 2^32 would be module 0 once cut to 32 bits.
   EXPECT_THROW(Kiv::invoke(*b.helper(), "clearCoppIntfSwCounterByPortQueue",
                            {"4294967296", "5", "1", "false"}),
                std::invalid_argument);
   EXPECT_THROW(Kiv::invoke(*b.helper(), "clearCoppIntfSwCounterByPortQueue",
                            {"0", "4294967301", "1", "false"}),
                std::invalid_argument);
   EXPECT_THROW(
       Kiv::invoke(*b.helper(), "clearIntfQueueCoppPolicerPktHits", {"65600", "0", "5", "1"}),
       std::invalid_argument);
   EXPECT_THROW(Kiv::invoke(*b.helper(), "verifyCoppPolicerData", {"65536", "1", "1", "1", "1"}),
                std::invalid_argument);
   EXPECT_THROW(Kiv::invoke(*b.helper(), "showCoppIntfCountersHw", {"-1"}), std::invalid_argument);
   EXPECT_THROW(
       Kiv::invoke(*b.helper(), "clearCoppIntfSwCounterByPortQueue", {"0", "5", "1", "maybe"}),
       std::invalid_argument);
   EXPECT_EQ(kept(b), before);
   EXPECT_TRUE(b.verifyData()->cliVerifyOutput().empty());
}

// The pool index of a VXLAN source-port entry is taken only for a key in range.
TEST(RangeOfKeys, AVxlanSourcePortEntryOutOfRangeTakesNoPoolIndex) {
   AgentBench b(vxlanSwitch());
   b.vxlanIs(true);
   std::size_t const inUse = b.helper()->coppVxlanDynEntryInUse();
   EXPECT_THROW(b.helper()->createCoppVxlanSrcPortPolicerByPortQueue(Key(0, 1024, 9)),
                Kiv::RangeException);
   EXPECT_EQ(b.helper()->coppVxlanDynEntryInUse(), inUse);
   // The next entry takes the lowest free index, as if nothing had happened.
   b.police("Ethernet1", "user-telnet", 300, 30);
   auto const record = b.helper()->kernelDynamicCoppVxlanData(b.key("Ethernet1", 40));
   ASSERT_TRUE(record);
   EXPECT_EQ(record->entry(), NimbalHost::Switch::efpCoppDefAndVxlanBaseIndex +
                                  Nimbal::QosAclHelperV1::coppVxlanDynEntryOffset + inUse);
}

// "None" values

TEST(NoneValues, UnknownInterfacesPortsModulesAndKeys) {
   AgentBench b;
   Kiv::Ptr<Nimbal::NimbalCommonSmData const> const scsd = b.sw().scsd();
   NimbalTypes::NimbalPort const none =
       Nimbal::getNimbalPortFromIntfId(scsd, Orvik::IntfId("Nope"));
   EXPECT_EQ(none.modId(), 0xDEADu);
   EXPECT_EQ(none.unit(), 0xFFFFu);
   EXPECT_EQ(none.logicalPort(), 1023u);
   EXPECT_EQ(none.flags(), 0u);
   NimbalTypes::NimbalPort unknownPort(0, 0, 100);
   EXPECT_EQ(Nimbal::getIntfIdFromNimbalPort(scsd, unknownPort), Orvik::IntfId::emptyIntfId());
   NimbalTypes::NimbalPort otherUnit(0, 9, 5);
   EXPECT_EQ(Nimbal::getIntfIdFromNimbalPort(scsd, otherUnit), Orvik::IntfId::emptyIntfId());
   EXPECT_EQ(Nimbal::getNimbalPortFromModIdPortQueueKey(scsd, Key(7, 5, 9)).unit(), 0u);
   EXPECT_FALSE(b.helper()->checkKernelCoppEntryExists(Key(0, 100, 9)));
   EXPECT_FALSE(b.helper()->checkKernelCoppEntryExists(Key(0, 0, 0)));
   EXPECT_FALSE(b.helper()->checkUserCoppEntryExists(Key(0, 5, 9)));
   EXPECT_EQ(b.helper()->getPortDefaultCoppPolicerPktHits(0, Orvik::IntfId("Nope")), 0u);
   EXPECT_EQ(b.helper()->getIntfQueueCoppPolicerPktHits(unknownPort, 9), 0u);
   EXPECT_FALSE(b.helper()->kernelDynamicCoppData(Key(0, 100, 9)));
   EXPECT_FALSE(b.helper()->coppVxlanDynEntryInUse(12345));
}

TEST(NoneValues, OperationsOnUnknownThingsChangeNothing) {
   AgentBench b;
   Kept const before = kept(b);
   // A class on an interface that is not on the chip.
   Kiv::Ptr<Oskel::QosClassData> const cls(
       new Oskel::QosClassData(b.classes().classKey("copp-system-bgp")));
   cls->intfIdIs(Orvik::IntfId("Nope"));
   cls->policerDataIs(new Qos::PolicerData(300, Qos::rateUnitPps_, 30));
   std::size_t const published = b.sw().kernelCoppConfig()->coppInfo();
   EXPECT_TRUE(b.helper()->createAndAttachPolicer(cls));
   b.helper()->destroyPolicer(cls);
   EXPECT_EQ(b.helper()->counterUpdateRequest(cls, Oskel::AclKey()), Oskel::QosClassCounterData());
   b.helper()->verifyPolicer(cls);
   EXPECT_EQ(b.sw().kernelCoppConfig()->coppInfo(), published);
   // Keys of an unknown module, of a port without interface, never programmed.
   EXPECT_TRUE(b.helper()->createCoppPolicerByPortQueue(Key(7, 5, 9)));
   EXPECT_TRUE(b.helper()->createCoppPolicerByPortQueue(Key(0, 100, 9)));
   b.helper()->destroyCoppPolicerByPortQueue(Key(0, 100, 9));
   b.helper()->clearCoppIntfSwCounterByPortQueue(Key(7, 5, 9), false);
   b.helper()->clearCoppIntfSwCounterByPortQueue(Key(0, 100, 9), false);
   EXPECT_EQ(kept(b), before);
   EXPECT_TRUE(b.verifyData()->cliVerifyOutput().empty());
}

// Names that hold printf directives

constexpr char oddIntf[] = "Et%s%n%d%%x";
constexpr char oddClass[] = "user-%s%n%d%%";
constexpr char oddQueue[] = "CoppUser%s%n%d%%";

// A switch with an interface and a dynamic queue whose names are printf directives.
NimbalHost::SwitchConfig oddSwitch(bool vxlan, bool withEthernet3 = true) {
   NimbalHost::SwitchConfig config;
   config.vxlanWorkaround = vxlan;
   config.interfaces = {NimbalHost::SwitchInterface{oddIntf, 0, 2}};
   if (withEthernet3) {
      config.interfaces.push_back(NimbalHost::SwitchInterface{"Ethernet3", 0, 3});
   }
   config.cpuQueues = Nimbal::builtInCpuQTable();
   config.cpuQueues.at(40).name = oddQueue;
   return config;
}

std::string padded(std::string s, std::size_t width) {
   s.resize(std::max(width, s.size()), ' ');
   return s;
}

std::string rightAligned(std::string const& s, std::size_t width) {
   return std::string(width > s.size() ? width - s.size() : 0, ' ') + s;
}

std::string shown(AgentBench& b, char const* table) {
   std::FILE* file = std::tmpfile();
   Kiv::invoke(*b.helper(), table, {std::to_string(::fileno(file))});
   std::rewind(file);
   std::string out;
   char buf[512];
   std::size_t n;
   while ((n = std::fread(buf, 1, sizeof buf, file)) > 0) {
      out.append(buf, n);
   }
   std::fclose(file);
   return out;
}

bool contains(std::vector<std::string> const& lines, std::string const& text) {
   for (auto const& line : lines) {
      if (line.find(text) != std::string::npos) {
         return true;
      }
   }
   return false;
}

TEST(PrintfDirectivesInNames, AppearAsTheyAreInTracesDescriptionsAndShowTables) {
   AgentBench b(oddSwitch(false));
   CoppTest::TraceCapture traces({"NimbalQosSm"}, 4);
   ASSERT_EQ(b.police(oddIntf, oddClass, 300, 30).cpuQ, 40u);
   Key const key = b.key(oddIntf, 40);
   auto const record = b.helper()->kernelDynamicCoppData(key);
   ASSERT_TRUE(record);
   EXPECT_EQ(b.sw().efpCoppEntryMgr()->entryDescription(0, record->entry()),
             std::string("Dynamic Kernel Copp for ") + oddIntf + ", " + oddClass);
   EXPECT_TRUE(contains(traces.texts(), std::string(oddClass) +
                                            ",0 )::createAndAttachCoppPolicer on intf: " + oddIntf +
                                            " update kernel copp with user policer: "));
   EXPECT_TRUE(contains(traces.texts(), std::string(oddClass) +
                                            " )::createCoppPolicerByPortQueue on intf: " + oddIntf +
                                            " allocate entry: "));

   // Five packets, the burst lets them all through.
   for (int i = 0; i < 5; ++i) {
      ASSERT_TRUE(b.sw().pktDrv()->sendToCpu(0, 2, 40));
   }
   EXPECT_EQ(shown(b, "showCoppIntfCountersHw"),
             "Interface              Queue           Hits\n"
             "----------------------------------------------------\n" +
                 padded(oddIntf, 15) + " " + padded("Default", 20) + " " + rightAligned("5", 15) +
                 "\n" + padded("", 15) + " " + padded(oddQueue, 20) + " " + rightAligned("5", 15) +
                 "\n\n\n");
   EXPECT_EQ(shown(b, "showCoppIntfCountersSw"),
             padded("Interface", 15) + " " + padded("Queue", 26) + " " +
                 rightAligned("Dropped", 15) + " " + rightAligned("Allowed", 15) + "\n" +
                 padded(oddIntf, 15) + " " + padded(oddQueue, 26) + " " + rightAligned("0", 15) +
                 " " + rightAligned("5", 15) + "\n");

   traces.clear();
   b.classes().verifyAll();
   EXPECT_TRUE(contains(traces.texts(), std::string(oddClass) + ",0 )::verifyCoppPolicer"));
   EXPECT_TRUE(b.verifyData()->cliVerifyOutput().empty());
}

TEST(PrintfDirectivesInNames, AppearAsTheyAreInLogMessagesAndVxlanDescriptions) {
   AgentBench b(oddSwitch(true, false));
   ASSERT_EQ(b.police(oddIntf, oddClass, 300, 30).cpuQ, 40u);
   Holdings const start = b.holdings();
   // The VXLAN default entry fits, the source-port entries do not.
   b.resourcesIs(
       NimbalHost::SwitchResources{std::nullopt, std::nullopt, start.defAndVxlanMeters + 1});
   b.logsDelAll();
   b.vxlanIs(true);
   std::string const full =
       "QOS_COPP_HW_RESOURCE_FULL: Insufficient egress TCAM resources to "
       "program the control plane policer (vxlan) for class ";
   EXPECT_TRUE(contains(b.logs(), full + oddClass + " on " + oddIntf + "."));

   b.resourcesIs(NimbalHost::SwitchResources{std::nullopt, std::nullopt, 4096});
   b.logsDelAll();
   b.advance(60);
   EXPECT_TRUE(contains(b.logs(), std::string("QOS_COPP_HW_RESOURCE_NORMAL: default control plane "
                                              "policer (vxlan) on ") +
                                      oddIntf + " is programmed in egress TCAM."));
   Key const key = b.key(oddIntf, 40);
   auto const record = b.helper()->kernelDynamicCoppVxlanData(key);
   ASSERT_TRUE(record);
   EXPECT_EQ(b.sw().efpCoppDefAndVxlanEntryMgr()->entryDescription(0, record->entry()),
             std::string("Dynamic Kernel Copp (Vxlan) for ") + oddQueue + ", " + oddIntf);
   U32 const vxlanDefault =
       b.helper()->portDefaultCoppPolicerVxlanHwData(Orvik::IntfId(oddIntf)).entryId();
   EXPECT_EQ(b.sw().efpCoppDefAndVxlanEntryMgr()->entryDescription(0, vxlanDefault),
             std::string("Default Copp (vxlan): ") + oddIntf);

   // The VXLAN default entry of the interface finds no meter on the next enable.
   b.vxlanIs(false);
   b.resourcesIs(NimbalHost::SwitchResources{std::nullopt, std::nullopt, start.defAndVxlanMeters});
   b.logsDelAll();
   b.vxlanIs(true);
   EXPECT_EQ(b.logs(), std::vector<std::string>({std::string("QOS_COPP_HW_RESOURCE_FULL: "
                                                             "Insufficient egress TCAM resources "
                                                             "to program the default control "
                                                             "plane policer (vxlan) on ") +
                                                 oddIntf + "."}));
}

TEST(PrintfDirectivesInNames, AppearAsTheyAreInVerifyOutput) {
   ::unsetenv("SIMULATION_VMID");
   AgentBench b(oddSwitch(false));
   U32 const unit = b.sw().unit();
   U32 const entry =
       b.sw().coppIpEntryMgr()->getEntryWithStats(unit, oddClass, Nimbal::RequestKey(), {});
   Kiv::Ptr<Oskel::QosClassData> const cls(new Oskel::QosClassData(b.classes().classKey(oddClass)));
   b.helper()->verifyRulePortsForUnit(new Oskel::QosPolicyMapState("pmap%s%n"), cls,
                                      Qos::matchIpAccessGroup_, Oskel::AclKey("acl%d%%", 0), unit,
                                      entry, 10, 0, 34, Acl::actionPermit_);
   ASSERT_EQ(b.verifyData()->cliVerifyOutput().size(), 1u);
   EXPECT_EQ(b.verifyData()->cliVerifyOutput()[0].message,
             "pmap%s%n/acl%d%% seq 10 incorrect ports bit mask");
   ASSERT_EQ(b.verifyData()->verifyOutputs().size(), 1u);
   EXPECT_EQ(b.verifyData()->verifyOutputs()[0].message(),
             "pmap%s%n/acl%d%% seq 10 incorrect ports bit mask");
}

TEST(PrintfDirectivesInNamesDeathTest, AppearAsTheyAreInTheAssertionOfASimulationRun) {
   EXPECT_DEATH(
       {
          AgentBench b(oddSwitch(false));
          U32 const unit = b.sw().unit();
          U32 const entry =
              b.sw().coppIpEntryMgr()->getEntryWithStats(unit, oddClass, Nimbal::RequestKey(), {});
          Kiv::Ptr<Oskel::QosClassData> const cls(
              new Oskel::QosClassData(b.classes().classKey(oddClass)));
          ::setenv("SIMULATION_VMID", "1", 1);
          b.helper()->verifyRulePortsForUnit(new Oskel::QosPolicyMapState("pmap%s%n"), cls,
                                             Qos::matchIpAccessGroup_, Oskel::AclKey("acl%d%%", 0),
                                             unit, entry, 10, 0, 34, Acl::actionPermit_);
       },
       "Assertion `pmap%s%n/acl%d%% seq 10 incorrect ports bit mask' failed\\.");
}

}  // namespace
