// Every direct SDK call site of the library, failed on purpose through the library's public
// operations on a switch made by the builder. A failing call ends the agent with one line on
// standard error that names the call site, the call and the SDK's error; a failing read-back of
// the verify command is judged by its caller. The table of sites is compared with the library's
// sources, so that a new call site without a test here fails.

#include <gtest/gtest.h>
#include <stdlib.h>

#include <algorithm>
#include <functional>
#include <map>
#include <set>
#include <string>
#include <tuple>
#include <vector>

#include "Kiv/Type.h"
#include "Oskel/AclTypes.h"
#include "unit/AbortReport.h"
#include "unit/AgentBench.h"
#include "unit/LibrarySourceScan.h"

namespace {

using AgentTest::AgentBench;
using SourceScan::regexQuoted;

// The library's direct SDK calls, as NIMBAL_SDK_CALL (fatal on a negative code) and
// NIMBAL_SDK_READ (verify read-backs whose code the caller judges) make them.
struct SdkCallSite {
   char const* file;
   char const* macro;
   char const* callText;
};

constexpr char protectionHelper[] = "NimbalQos/NimbalQosProtectionHelper.cpp";
constexpr char coppVxlan[] = "NimbalQos/NimbalQosCoppVxlan.cpp";
constexpr char coppVerify[] = "NimbalQos/NimbalQosCoppVerify.cpp";
constexpr char aclPorts[] = "NimbalQos/NimbalQosAclPorts.cpp";

constexpr char inPortCall[] = "bcm_field_qualify_InPort( unit, entry, srcPortVal, srcPortMask )";
constexpr char cpuQueueCall[] = "bcm_field_qualify_CpuQueue( unit, entry, cpuQVal, cpuQMask )";
constexpr char innerVlanCall[] =
    "bcm_field_qualify_InnerVlanId( unit, entry, innerVlanVal, innerVlanMask )";
constexpr char classPortCall[] =
    "bcm_field_qualify_InterfaceClassPort( unit, entry, classCpuPort_, classCpuPort_ )";
constexpr char actionAddCall[] = "bcm_field_action_add( unit, entry, bcmFieldActionRpDrop, 0, 0 )";
constexpr char entryRemoveCall[] = "bcm_field_entry_remove( unit, entry )";
constexpr char recircCpuQueueCall[] =
    "bcm_field_qualify_CpuQueue( sp.unit(), entry, cpuCosqDrop_, mask )";
constexpr char inPortsCall[] = "bcm_field_qualify_InPorts( unit, entry, pbm, allPortsMask )";
constexpr char policerGetCall[] = "bcm_policer_get( unit, expPolicerId, &policerCfg )";
constexpr char entryPolicerGetCall[] = "bcm_field_entry_policer_get( unit, entry, 0, &policerId )";
constexpr char defaultActionGetCall[] =
    "bcm_field_action_get( unit, iter->entryId(), bcmFieldActionRpDrop, &actionValue, &param )";
constexpr char vxlanDefaultActionGetCall[] =
    "bcm_field_action_get( unit, vxlanData.entryId(), bcmFieldActionRpDrop, &actionValue, "
    "&param )";

SdkCallSite const sdkCallSites[] = {
    {protectionHelper, "NIMBAL_SDK_CALL", inPortCall},
    {protectionHelper, "NIMBAL_SDK_CALL", cpuQueueCall},
    {protectionHelper, "NIMBAL_SDK_CALL", innerVlanCall},
    {protectionHelper, "NIMBAL_SDK_CALL", classPortCall},
    {protectionHelper, "NIMBAL_SDK_CALL", actionAddCall},
    {protectionHelper, "NIMBAL_SDK_CALL", entryRemoveCall},
    {coppVxlan, "NIMBAL_SDK_CALL", recircCpuQueueCall},
    {aclPorts, "NIMBAL_SDK_CALL", inPortsCall},
    {coppVerify, "NIMBAL_SDK_READ", policerGetCall},
    {coppVerify, "NIMBAL_SDK_READ", entryPolicerGetCall},
    {coppVerify, "NIMBAL_SDK_READ", defaultActionGetCall},
    {coppVerify, "NIMBAL_SDK_READ", vxlanDefaultActionGetCall},
};

SdkCallSite const& siteOf(std::string const& callText) {
   for (SdkCallSite const& site : sdkCallSites) {
      if (site.callText == callText) {
         return site;
      }
   }
   throw std::logic_error("no call site " + callText);
}

// The SDK function a call text calls.
std::string functionOf(std::string const& callText) {
   return callText.substr(0, callText.find('('));
}

// The SDK's texts of its codes.
std::map<int, std::string> const errorTexts = {
    {-1, "Internal error"},
    {-2, "Out of memory"},
    {-3, "Invalid unit"},
    {-4, "Invalid parameter"},
    {-5, "Table empty"},
    {-6, "Table full"},
    {-7, "Entry not found"},
    {-8, "Entry exists"},
    {-9, "Operation timed out"},
    {-10, "Operation still running"},
    {-11, "Operation failed"},
    {-12, "Operation disabled"},
    {-13, "Invalid identifier"},
    {-14, "No resources for operation"},
    {-15, "Invalid configuration"},
    {-16, "Feature unavailable"},
    {-17, "Feature not initialized"},
    {-18, "Invalid port"},
    {-99, "Unknown error"},
};

// The one use of a site in the library's sources.
SourceScan::Use siteUse(SdkCallSite const& site) {
   for (SourceScan::Use const& use : SourceScan::uses({site.macro})) {
      std::string text;
      if (use.file == site.file && SourceScan::literalText(use.args.at(0), text) &&
          text == site.callText) {
         return use;
      }
   }
   throw std::logic_error(std::string("call site not in the sources: ") + site.callText);
}

// Where an entry belongs, from its id: what the abort report says of the failed call's entry.
std::string entryKind(AgentBench const& bench, U32 unit, U32 entry) {
   U32 const base = NimbalHost::Switch::efpCoppDefAndVxlanBaseIndex;
   if (bench.sw().efpCoppEntryMgr()->entryHas(unit, entry)) {
      return "kernel";
   }
   if (bench.sw().coppIpEntryMgr()->entryHas(unit, entry)) {
      return "policy";
   }
   if (entry >= base && entry < base + Nimbal::QosAclHelperV1::coppVxlanDynEntryOffset) {
      return "port default";
   }
   if (entry >= base + Nimbal::QosAclHelperV1::coppVxlanDynEntryOffset &&
       entry < base + Nimbal::QosAclHelperV1::coppVxlanDynEntryMax) {
      return "vxlan source-port";
   }
   if (entry >= base + Nimbal::QosAclHelperV1::coppVxlanDefaultOffset) {
      return "vxlan default";
   }
   return "unknown";
}

// The SDK's failure hook, and the entry of the failed call (its second argument).
std::string failureReport(AgentBench const& bench) {
   Shim::Sdk const& sdk = bench.sw().sdk();
   std::string entry = "none";
   if (!sdk.journal().empty()) {
      std::string const& args = sdk.journal().back().args;
      std::size_t const comma = args.find(", ");
      U32 const unit = static_cast<U32>(std::stoul(args.substr(0, comma)));
      U32 const id = static_cast<U32>(std::stoul(args.substr(comma + 2)));
      entry = entryKind(bench, unit, id);
   }
   return "hook " + sdk.lastFailedCall() + " (" + std::to_string(sdk.lastFailedRc()) +
          ") failures " + std::to_string(sdk.callFailures()) + " entry " + entry;
}

// How the agent reaches a call site.
struct Path {
   bool vxlanWorkaround = false;
   std::function<void(AgentBench&)> setUp;    // before the fault is injected
   std::function<void(AgentBench&)> trigger;  // the operation that makes the failing call
   char const* entry;                         // the kind of entry the failing call is about
};

// A class's rate changes: the kernel reactor destroys its key's entry and programs a new one.
Path const classRateChange{false, [](AgentBench&) {},
                           [](AgentBench& b) { b.police("Ethernet1", "copp-system-bgp", 300, 30); },
                           "kernel"};
// VXLAN is enabled: each port gets its VXLAN default entry first.
Path const vxlanEnable{true, [](AgentBench&) {}, [](AgentBench& b) { b.vxlanIs(true); },
                       "vxlan default"};
// VXLAN is disabled: the VXLAN default entries go first.
Path const vxlanDisable{true, [](AgentBench& b) { b.vxlanIs(true); },
                        [](AgentBench& b) { b.vxlanIs(false); }, "vxlan default"};
// The state machine's retry makes the source-port entries that found no meter when VXLAN was
// enabled.
Path const vxlanRetry{true,
                      [](AgentBench& b) {
                         NimbalHost::SwitchResources tight;
                         tight.efpDefaultMeters = 16;  // the port defaults and their VXLAN twins
                         b.resourcesIs(tight);
                         b.vxlanIs(true);
                         NimbalHost::SwitchResources room;
                         room.efpDefaultMeters = 4096;
                         b.resourcesIs(room);
                      },
                      [](AgentBench& b) { b.advance(60); }, "vxlan source-port"};
// An interface becomes a VXLAN recirculation interface: its port default entry is narrowed.
Path const recircAdd{true, [](AgentBench&) {}, [](AgentBench& b) { b.recircIs("Ethernet8", true); },
                     "port default"};
// The agent's QoS layer sets the in-ports of a CoPP policy entry.
Path const policyEntryPorts{
    false, [](AgentBench&) {},
    [](AgentBench& b) {
       NimbalHost::Switch& sw = b.sw();
       U32 const unit = sw.unit();
       U32 const entry = sw.coppIpEntryMgr()->getEntryWithStats(unit, "copp-system-bgp",
                                                                Nimbal::RequestKey(), {});
       Kiv::Ptr<Oskel::QosClassData> const cls(
           new Oskel::QosClassData(b.classes().classKey("copp-system-bgp")));
       b.helper()->setEntryPorts(new Oskel::QosPolicyMapState("copp-system-policy"), cls,
                                 Qos::matchIpAccessGroup_, Oskel::AclKey("acl-bgp", 0), unit,
                                 U64(entry));
    },
    "policy"};

// A fatal call: the site, how the agent gets there, and the code it fails with. Every code of
// the SDK is used once, so that each of its texts is seen.
struct FatalCall {
   char const* name;
   char const* callText;
   Path const* path;
   int rc;
};

FatalCall const fatalCalls[] = {
    {"InPortOfAClassEntry", inPortCall, &classRateChange, -4},
    {"InPortOfAVxlanDefaultEntry", inPortCall, &vxlanEnable, -1},
    {"InPortOfAVxlanSourcePortEntry", inPortCall, &vxlanRetry, -18},
    {"CpuQueueOfAClassEntry", cpuQueueCall, &classRateChange, -7},
    {"CpuQueueOfAVxlanDefaultEntry", cpuQueueCall, &vxlanEnable, -13},
    {"CpuQueueOfAVxlanSourcePortEntry", cpuQueueCall, &vxlanRetry, -2},
    {"InnerVlanOfAClassEntry", innerVlanCall, &classRateChange, -3},
    {"InnerVlanOfAVxlanDefaultEntry", innerVlanCall, &vxlanEnable, -16},
    {"InnerVlanOfAVxlanSourcePortEntry", innerVlanCall, &vxlanRetry, -11},
    {"CpuPortClassOfAClassEntry", classPortCall, &classRateChange, -5},
    {"CpuPortClassOfAVxlanDefaultEntry", classPortCall, &vxlanEnable, -12},
    {"CpuPortClassOfAVxlanSourcePortEntry", classPortCall, &vxlanRetry, -15},
    {"RedDropOfAClassEntry", actionAddCall, &classRateChange, -6},
    {"RedDropOfAVxlanDefaultEntry", actionAddCall, &vxlanEnable, -9},
    {"RedDropOfAVxlanSourcePortEntry", actionAddCall, &vxlanRetry, -10},
    {"RemovalOfAClassEntry", entryRemoveCall, &classRateChange, -8},
    {"RemovalOfAVxlanDefaultEntry", entryRemoveCall, &vxlanDisable, -17},
    {"RecirculationQueueOfAPortDefaultEntry", recircCpuQueueCall, &recircAdd, -14},
    {"InPortsOfACoppPolicyEntry", inPortsCall, &policyEntryPorts, -99},
};

void PrintTo(FatalCall const& call, std::ostream* os) {
   *os << call.name;
}

// The lines a failing call leaves on standard error: its own, the assertion that ends the
// agent, and the report of the failure hook.
std::string fatalPattern(FatalCall const& call) {
   SourceScan::Use const use = siteUse(siteOf(call.callText));
   std::string const errorLine = call.callText + std::string(" API ERROR:") +
                                 errorTexts.at(call.rc) + " (" + std::to_string(call.rc) + ")";
   std::vector<SourceScan::Use> sdkAsserts;
   for (SourceScan::Use const& u : SourceScan::uses({"KIV_ASSERT"})) {
      if (u.file == "NimbalQos/NimbalQosSdkCall.cpp") {
         sdkAsserts.push_back(u);
      }
   }
   std::string const assertLine =
       "NimbalQos/NimbalQosSdkCall\\.cpp:" + SourceScan::linesPattern(sdkAsserts.at(0)) +
       ": [^\n]*Assertion `0' failed\\.\n";
   return "(^|\n)" + regexQuoted(use.file) + ":" + SourceScan::linesPattern(use) + " " +
          regexQuoted(errorLine) + "\n" + assertLine + "\nreport: hook " +
          regexQuoted(call.callText) + " \\(" + std::to_string(call.rc) + "\\) failures 1 entry " +
          call.path->entry + "\n";
}

class FatalSdkCall : public ::testing::TestWithParam<FatalCall> {};

TEST_P(FatalSdkCall, EndsTheAgentWithTheLineThatNamesTheCallSite) {
   FatalCall const call = GetParam();
   std::string const pattern = fatalPattern(call);
   EXPECT_DEATH(
       {
          NimbalHost::SwitchConfig config;
          config.vxlanWorkaround = call.path->vxlanWorkaround;
          AgentBench bench(config);
          call.path->setUp(bench);
          bench.sw().sdk().failNextCallIs(functionOf(call.callText), call.rc);
          DeathTest::abortReportIs([&bench] { return failureReport(bench); });
          call.path->trigger(bench);
          std::fprintf(stderr, "the failing call was not reached\n");
       },
       pattern);
}

// Without the fault the same path makes the call and goes on: the death above is the fault's.
TEST_P(FatalSdkCall, WithoutTheFaultThePathMakesTheCallAndGoesOn) {
   FatalCall const call = GetParam();
   NimbalHost::SwitchConfig config;
   config.vxlanWorkaround = call.path->vxlanWorkaround;
   AgentBench bench(config);
   call.path->setUp(bench);
   bench.sw().sdk().journalDelAll();
   call.path->trigger(bench);
   std::vector<std::string> const names = bench.sw().sdk().journalNames();
   EXPECT_NE(std::find(names.begin(), names.end(), functionOf(call.callText)), names.end());
   EXPECT_EQ(bench.sw().sdk().callFailures(), 0u);
}

INSTANTIATE_TEST_SUITE_P(EveryFatalCallSite, FatalSdkCall, ::testing::ValuesIn(fatalCalls),
                         [](::testing::TestParamInfo<FatalCall> const& info) {
                            return std::string(info.param.name);
                         });

// Read-backs of the verify command: a failing code is a difference to report, or for the
// red-drop action of a default entry a broken invariant that ends the agent.

class ReadBack : public ::testing::Test {
  protected:
   void SetUp() override { ::unsetenv("SIMULATION_VMID"); }

   // The differences that verify reports for one class policer of `bench`.
   static std::vector<std::string> classDifferences(AgentBench& bench) {
      bench.verifyData()->clear();
      bench.classes().verifyAll();
      std::vector<std::string> out;
      for (auto const& line : bench.verifyData()->cliVerifyOutput()) {
         out.push_back(line.message);
      }
      return out;
   }
};

// Every code the SDK has, and one it does not know.
std::vector<int> const failingCodes = {-1,  -2,  -3,  -4,  -5,  -6,  -7,  -8,  -9, -10,
                                       -11, -12, -13, -14, -15, -16, -17, -18, -99};

TEST_F(ReadBack, AFailingPolicerReadIsReportedWithTheZeroedConfigurationWhateverTheCode) {
   for (int rc : failingCodes) {
      AgentBench bench;
      bench.police("Ethernet2", "copp-system-bgp", 300, 30);
      Oskel::ModIdPortQueueKey const key = bench.key("Ethernet2", 1);
      auto const record = bench.helper()->kernelDynamicCoppData(key);
      ASSERT_TRUE(record);
      bench.sw().sdk().failNextCallIs(functionOf(policerGetCall), rc);
      std::string const policer = std::to_string(record->policerId());
      EXPECT_EQ(
          classDifferences(bench),
          std::vector<std::string>({"Copp Policer (" + policer + ") is not created in unit (0)",
                                    "PolicerMode programmed 0 != configured 1",
                                    "Policer Flags programmed 0 != configured 132",
                                    "Policer CIR (kbps) programmed 0 != configured 300",
                                    "Policer BC (kb) programmed 0 != configured 30"}))
          << "code " << rc;
      // The read was the only failure: the next verify finds nothing.
      EXPECT_EQ(classDifferences(bench), std::vector<std::string>()) << "code " << rc;
      EXPECT_EQ(bench.sw().sdk().callFailures(), 0u);
   }
}

TEST_F(ReadBack, AFailingAttachmentReadIsReportedAsADetachedPolicerWhateverTheCode) {
   for (int rc : failingCodes) {
      AgentBench bench;
      bench.police("Ethernet2", "copp-system-bgp", 300, 30);
      auto const record = bench.helper()->kernelDynamicCoppData(bench.key("Ethernet2", 1));
      ASSERT_TRUE(record);
      bench.sw().sdk().failNextCallIs(functionOf(entryPolicerGetCall), rc);
      EXPECT_EQ(classDifferences(bench),
                std::vector<std::string>({"Policer (" + std::to_string(record->policerId()) +
                                          ") is not attached to entry( " +
                                          std::to_string(record->entry()) + " )"}))
          << "code " << rc;
      EXPECT_EQ(classDifferences(bench), std::vector<std::string>()) << "code " << rc;
   }
}

// The assertion line of the n-th KIV_ASSERT of the verify code that says `text`.
std::string verifyAssertion(std::string const& text, std::size_t occurrence) {
   std::size_t seen = 0;
   for (SourceScan::Use const& use : SourceScan::uses({"KIV_ASSERT"})) {
      if (use.file == coppVerify && SourceScan::stringized(use.args.at(0)) == text &&
          ++seen == occurrence) {
         return "(^|\n)" + regexQuoted(use.file) + ":" + SourceScan::linesPattern(use) +
                ": [^\n]*Assertion `" + regexQuoted(text) + "' failed\\.";
      }
   }
   throw std::logic_error("no assertion " + text);
}

class ReadBackDeathTest : public ReadBack {};

TEST_F(ReadBackDeathTest, AFailingRedDropReadOfADefaultEntryEndsTheAgent) {
   std::string const pattern = verifyAssertion("ret == ::Shim::sdk_->QV_BCM_E_NONE()", 1);
   for (int rc : {-7, -1, -4}) {
      EXPECT_DEATH(
          {
             AgentBench bench;
             bench.sw().sdk().failNextCallIs(functionOf(defaultActionGetCall), rc);
             bench.helper()->verifyCoppPerPortDefaultPolicer();
          },
          pattern)
          << "code " << rc;
   }
}

TEST_F(ReadBackDeathTest, AFailingRedDropReadOfAVxlanDefaultEntryEndsTheAgent) {
   std::string const pattern = verifyAssertion("ret == ::Shim::sdk_->QV_BCM_E_NONE()", 2);
   for (int rc : {-7, -1, -4}) {
      EXPECT_DEATH(
          {
             NimbalHost::SwitchConfig config;
             config.vxlanWorkaround = true;
             AgentBench bench(config);
             bench.vxlanIs(true);
             // The read of the port default entry comes first and succeeds (an injected 0 does
             // nothing, as a read that finds the action with parameter 0); its VXLAN twin's fails.
             bench.sw().sdk().failNextCallIs(functionOf(defaultActionGetCall), 0);
             bench.sw().sdk().failNextCallIs(functionOf(defaultActionGetCall), rc);
             bench.helper()->verifyCoppPerPortDefaultPolicer();
          },
          pattern)
          << "code " << rc;
   }
}

// The SDK calls that the library makes through the agent's TCAM managers. Their failures are
// the managers' to judge: apart from the resource codes that the library handles (see the
// resource failure tests), a failing call ends the agent in the manager.

struct ManagerCall {
   char const* name;
   char const* function;  // the SDK function failed
   char const* site;      // the manager's operation that ends the agent, and its assertion
   char const* assertion;
};

void PrintTo(ManagerCall const& call, std::ostream* os) {
   *os << call.name;
}

constexpr char noneOnly[] = "rc == ::Shim::BCM_E_NONE";
constexpr char noneOrNotFound[] = "rc == ::Shim::BCM_E_NONE || rc == ::Shim::BCM_E_NOT_FOUND";

// A class's rate changes: its key's entry is released and a new one made, which reaches every
// manager operation that the library uses.
ManagerCall const managerCalls[] = {
    {"DetachingTheMeter", "bcm_field_entry_policer_detach", "NimbalTcamEntryManager::attachPolicer",
     noneOrNotFound},
    // The unmetered install of a release is not looked at but for resources: the meter it
    // still holds in hardware cannot be destroyed then.
    {"InstallingTheUnmeteredEntry", "bcm_field_entry_install",
     "NimbalTcamGroupManager::removePolicer", noneOrNotFound},
    {"DestroyingTheMeter", "bcm_policer_destroy", "NimbalTcamGroupManager::removePolicer",
     noneOrNotFound},
    {"DestroyingTheEntry", "bcm_field_entry_destroy", "NimbalTcamEntryManager::destroyEntry",
     noneOnly},
    {"DestroyingTheStatistics", "bcm_field_stat_destroy", "NimbalTcamEntryManager::destroyEntry",
     noneOnly},
    {"CreatingTheEntry", "bcm_field_entry_create", "NimbalTcamEntryManager::entryAllocate",
     noneOnly},
    {"CreatingTheStatistics", "bcm_field_stat_create", "NimbalTcamEntryManager::entryAllocate",
     noneOnly},
    {"AttachingTheStatistics", "bcm_field_entry_stat_attach",
     "NimbalTcamEntryManager::entryAllocate", noneOnly},
    {"SettingThePriority", "bcm_field_entry_prio_set",
     "NimbalTcamEntryManager::setPriorityForEntry", noneOnly},
    {"CreatingTheMeter", "bcm_policer_create", "NimbalTcamGroupManager::createPolicer", noneOnly},
    {"AttachingTheMeter", "bcm_field_entry_policer_attach", "NimbalTcamEntryManager::attachPolicer",
     noneOnly},
};

std::string managerFile(std::string const& site) {
   return site.rfind("NimbalTcamGroupManager::", 0) == 0 ? "platform/Nimbal/TcamGroupManager.cpp"
                                                         : "platform/Nimbal/TcamEntryManager.cpp";
}

class ManagerSdkCall : public ::testing::TestWithParam<ManagerCall> {};

TEST_P(ManagerSdkCall, ThatFailsEndsTheAgentInTheManager) {
   ManagerCall const call = GetParam();
   EXPECT_DEATH(
       {
          AgentBench bench;
          bench.sw().sdk().failNextCallIs(call.function, Shim::BCM_E_INTERNAL);
          bench.police("Ethernet1", "copp-system-bgp", 300, 30);
          std::fprintf(stderr, "nothing failed\n");
       },
       "(^|\n)" + regexQuoted(managerFile(call.site)) + ":[0-9]+: [^\n]*" + regexQuoted(call.site) +
           "[^\n]*Assertion `" + regexQuoted(call.assertion) + "' failed\\.");
}

INSTANTIATE_TEST_SUITE_P(EveryManagerCall, ManagerSdkCall, ::testing::ValuesIn(managerCalls),
                         [](::testing::TestParamInfo<ManagerCall> const& info) {
                            return std::string(info.param.name);
                         });

// An install that fails for another reason than resources is not looked at: the key is
// recorded as programmed although its entry is not in hardware.
TEST(ManagerSdkCalls, AnInstallFailingForAnotherReasonThanResourcesIsNotLookedAt) {
   AgentBench bench;
   Oskel::ModIdPortQueueKey const key = bench.key("Ethernet1", 40);
   bench.sw().sdk().failNextCallIs("bcm_field_entry_install", Shim::BCM_E_INTERNAL);
   ASSERT_EQ(bench.police("Ethernet1", "user-telnet", 300, 30).cpuQ, 40u);
   EXPECT_FALSE(bench.kernel().failed().count(key));
   auto const record = bench.helper()->kernelDynamicCoppData(key);
   ASSERT_TRUE(record);
   EXPECT_FALSE(bench.sw().chip().entry(0, static_cast<int>(record->entry()))->installed);
}

// The table against the library's sources.

TEST(SdkCallSites, TheTableListsEveryDirectCallOfTheLibrary) {
   std::set<std::tuple<std::string, std::string, std::string>> table;
   for (SdkCallSite const& site : sdkCallSites) {
      table.emplace(site.file, site.macro, site.callText);
   }
   std::set<std::tuple<std::string, std::string, std::string>> sources;
   std::size_t uses = 0;
   for (SourceScan::Use const& use : SourceScan::uses({"NIMBAL_SDK_CALL", "NIMBAL_SDK_READ"})) {
      std::string text;
      ASSERT_TRUE(SourceScan::literalText(use.args.at(0), text)) << use.file << ":" << use.line;
      sources.emplace(use.file, use.name, text);
      ++uses;
   }
   EXPECT_EQ(sources, table);
   // Each text names one site.
   EXPECT_EQ(uses, std::size(sdkCallSites));
}

TEST(SdkCallSites, EverySdkCallOfTheLibraryGoesThroughTheWrapper) {
   std::vector<SourceScan::Use> const wrapped =
       SourceScan::uses({"NIMBAL_SDK_CALL", "NIMBAL_SDK_READ"});
   std::vector<std::string> unwrapped;
   for (SourceScan::Use const& call :
        SourceScan::usesIf([](std::string const& name) { return name.rfind("bcm_", 0) == 0; })) {
      bool const inside =
          std::any_of(wrapped.begin(), wrapped.end(), [&call](SourceScan::Use const& w) {
             return w.file == call.file && call.line >= w.line && call.lastLine <= w.lastLine;
          });
      if (!inside) {
         unwrapped.push_back(call.file + ":" + std::to_string(call.line) + " " + call.name);
      }
   }
   // Initialising a policer configuration cannot fail.
   std::vector<SourceScan::Use> const init = SourceScan::uses({"bcm_policer_config_t_init"});
   ASSERT_EQ(init.size(), 1u);
   EXPECT_EQ(unwrapped,
             std::vector<std::string>({init[0].file + ":" + std::to_string(init[0].line) +
                                       " bcm_policer_config_t_init"}));
}

TEST(SdkCallSites, EveryFatalSiteIsFailedAndEveryReadBackIsJudged) {
   std::set<std::string> failed;
   std::set<int> codes;
   for (FatalCall const& call : fatalCalls) {
      failed.insert(call.callText);
      codes.insert(call.rc);
   }
   for (SdkCallSite const& site : sdkCallSites) {
      if (std::string(site.macro) == "NIMBAL_SDK_CALL") {
         EXPECT_TRUE(failed.count(site.callText)) << site.callText;
      } else {
         // The read-back tests above, one per read-back site.
         EXPECT_TRUE(std::string(site.callText) == policerGetCall ||
                     std::string(site.callText) == entryPolicerGetCall ||
                     std::string(site.callText) == defaultActionGetCall ||
                     std::string(site.callText) == vxlanDefaultActionGetCall)
             << site.callText;
      }
   }
   EXPECT_EQ(codes.size(), errorTexts.size());
}

}  // namespace
