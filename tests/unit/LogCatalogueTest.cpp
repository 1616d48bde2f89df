#include <gtest/gtest.h>
#include <stdlib.h>

#include <algorithm>
#include <cstdio>
#include <string>
#include <vector>

#include "Kiv/Format.h"
#include "Kiv/Type.h"
#include "unit/CoppHelperFixture.h"

namespace {

using CoppTest::LogCapture;

struct Row {
   char const* key;
   int severity;
   char const* format;
   char const* explanation;
   char const* recommendedAction;
};

char const* const noAction = "No action is required.";
char const* const callSupport =
    "If this message persists, contact your customer support representative.";

Row const catalogue[] = {
    {"NIMBAL_CONFIG_CHANGE", 6, "Configuration change requires the Nimbal agent %s to restart",
     "Configuration change requires the switch ASIC to be reconfigured, requiring the Nimbal agent "
     "to restart.",
     noAction},
    {"NIMBAL_UNEXPECTED_RESTART", 3, "Unexpected restart of Nimbal agent %s occurred",
     "Unexpected restart of the Nimbal agent occurred.", callSupport},
    {"QOS_SCH_SHP_UNIT_MISMATCH", 3,
     "Shape rate is in %s and Bandwidth guaranteed is in %s causing unit mismatch for queue %s on "
     "port %s. Not programming %s ",
     "Both Shape rate and Bandwidth guaranteed have to be in same units to be programmed properly "
     "in hardware.",
     "Reconfigure shape rate units or bandwidth guaranteed units"},
    {"QOS_HW_RESOURCE_FULL", 3, "TCAM resources are insufficient to program %s for port %s",
     "The switch is unable to program QoS configuration due to insufficient TCAM resources.",
     "Reconfigure other features that use TCAMs to free up some resources for QoS."},
    {"QOS_HW_RESOURCE_NORMAL", 3, "%s is programmed in TCAM for all ports",
     "The switch was able to program entire QoS configuration in the TCAM.", noAction},
    {"QOS_ECN_QUEUE_HW_FULL", 3,
     "Hardware resources insufficient to program tx-queue ECN on queue %s for port %s",
     "The switch is unable to program ECN configuration due to insufficient hardware resources.",
     noAction},
    {"QOS_ECN_QUEUE_COUNTER_HW_FULL", 3,
     "Hardware resources insufficient for ECN queue counters for %s queue %d",
     "The switch is unable to allocate ECN queue counters due to insufficient hardware resources.",
     noAction},
    {"QOS_WRED_QUEUE_HW_FULL", 3,
     "Hardware resources insufficient to program tx-queue WRED on queue %s for port %s",
     "The switch is unable to program WRED configuration due to insufficient hardware resources.",
     noAction},
    {"QOS_DP_THRESHOLDS_HW_FULL", 3,
     "Hardware resources insufficient to program tx-queue DropThresholds on tc %s for port %s",
     "The switch is unable to program tail drop threshold configuration due to insufficient "
     "hardware resources.",
     noAction},
    {"QOS_COPP_HW_RESOURCE_FULL", 3, "Insufficient %s resources to program the %s.",
     "The switch is unable to program QoS CoPP configuration due to insufficient TCAM resources.",
     "Reduce number of ACL rules in policy map classes or reconfigure your ACLs to free some "
     "resources for CoPP"},
    {"QOS_COPP_HW_RESOURCE_NORMAL", 3, "%s is programmed in %s.",
     "The switch was able to program entire CoPP configuration in the TCAM.", noAction},
    {"QOS_POLICY_HW_RESOURCE_FULL", 3,
     "Insufficient hardware resources to program the %s policy-map %s.",
     "The switch is unable to program QoS policy-map configuration due to insufficient hardware "
     "resources.",
     "Reduce number of ACL rules in policy-map classes or reconfigure your ACLs to free some "
     "resources for policy-mapIf there is a policer in one of the classes, detaching policy-map "
     "from one of the interfaces also frees up resourcs"},
    {"QOS_POLICY_HW_RESOURCE_NORMAL", 3, "Programmed %s policy-map %s in hardware.",
     "The switch was able to program entire policy-map configuration in the hardware.", noAction},
    {"QOS_POLICY_COUNTER_HW_RESOURCE_FULL", 3,
     "Insufficient hardware resources to program the counter for the class-map %s in the "
     "policy-map %s on %s %s.",
     "The switch is unable to program the QoS policy-map counter due to insufficient hardware "
     "resources.",
     "Reduce number of ACL rules in policy-map classes"},
    {"PDP_POLICY_HW_RESOURCE_FULL", 3,
     "Insufficient hardware resources to program the %s policy-map %s.",
     "The switch is unable to program PDP policy-map configuration due to insufficient hardware "
     "resources.",
     "Reduce number of ACL rules in policy-map classes or reconfigure your ACLs to free some "
     "resources for policy-map"},
    {"PDP_POLICY_HW_RESOURCE_NORMAL", 3, "Programmed %s policy-map %s in hardware.",
     "The switch was able to program entire policy-map configuration in the hardware.", noAction},
    {"QOS_POLICY_MULTIPLE_ACTIONS", 3,
     "Multiple actions are attached to the class-map %s in the policy-map %s.",
     "In case of conflicting actions only a single action is applied. Dscp rewrite is programmed "
     "over any other action, cos rewrite is programmed over traffic-class selection. ",
     "Reconfigure policy-map and specify only one action per class."},
    {"QOS_POLICY_POLICER_RESOURCE_FULL", 3,
     "Insufficient hardware resources to program the police action for the class-map %s in the "
     "policy-map %s on %s %s.",
     "Remove some features using policer banks and reapply the policy-map to the interface to "
     "enable police action.",
     noAction},
    {"QOS_VLAN_ACL_RULE_SVI_MISMATCH", 4,
     "ACL %s with VLAN rule associated to class-map %s. ACL rules with VLAN filter will be ignored "
     "for VLAN interfaces.",
     "Either remove VLAN rule from ACL or remove service-policy configuration from the VLAN "
     "interface.",
     noAction},
    {"QOS_EGRESS_PMAP_ACTION_UNSUPPORTED", 4,
     "%s action is not supported in output service policies on this platform",
     "this action will have no effect in output service policies on this platform", noAction},
    {"QOS_MAC_ACL_RULE_IPV6_MISMATCH", 4,
     "Policy-map %s is configured with both MAC ACL and IPV6 ACL rule. ACL rules will be ignored "
     "for class-map %s.",
     "Class map with MAC ACL and Class map with IPV6 ACL can not exist in the same policy-map on "
     "this platform. Remove the MAC ACL associated class-map from policy-map",
     noAction},
    {"QOS_PMAP_FIELD_NOT_SUPPORTED", 3,
     "Access list matching %s %s associated with QOS service policy class map %s cannot be fully "
     "programmed in the hardware",
     "Matching %s within QOS service policies is not supported. The %s are ignored in programming "
     "the service policy in the hardware. This may result in improper classification of packets on "
     "interfaces using the QOS service policy.",
     noAction},
    {"ROUTING_CBF_HW_RESOURCE_FULL", 3,
     "Hardware resources are insufficient to program all class based forwarding FEC override "
     "mappings.",
     "The switch is unable to program all class based forwarding FEC override mappings due to "
     "insufficient hardware resources.",
     "Reconfigure or remove unused class based forwarding FEC override mappings."},
    {"ROUTING_CBF_HW_RESOURCE_NORMAL", 3,
     "All class based forwarding FEC override mappings are programmed in hardware.",
     "The switch was able to program all class based forwarding FEC override mappings in the "
     "hardware.",
     noAction},
    {"QOS_LATENCY_THRESHOLD_QUEUE_HW_FULL", 3,
     "Hardware resources insufficient to program tx-queue latency threshold on queue %s for port "
     "%s",
     "The switch is unable to program latency threshold configuration due to insufficient hardware "
     "resources.",
     noAction},
};

// Where the library's handles start among the process's log handles.
std::size_t firstCatalogueHandle(std::vector<Kiv::LogHandle const*> const& handles) {
   for (std::size_t i = 0; i < handles.size(); ++i) {
      if (handles[i]->key() == catalogue[0].key) {
         return i;
      }
   }
   return handles.size();
}

bool contains(std::vector<std::string> const& names, std::string const& name) {
   return std::find(names.begin(), names.end(), name) != names.end();
}

TEST(LogCatalogue, TwentyFiveHandlesInTableOrder) {
   auto const handles = Kiv::logHandles();
   std::size_t const first = firstCatalogueHandle(handles);
   ASSERT_LE(first + 25, handles.size());
   for (std::size_t row = 0; row < 25; ++row) {
      EXPECT_EQ(handles[first + row]->key(), catalogue[row].key) << "row " << row + 1;
   }
   EXPECT_TRUE(first + 25 == handles.size() ||
               std::none_of(handles.begin() + first + 25, handles.end(),
                            [](auto const* h) { return h->key() == "NIMBAL_CONFIG_CHANGE"; }));
}

TEST(LogCatalogue, EveryRowFieldByField) {
   auto const handles = Kiv::logHandles();
   std::size_t const first = firstCatalogueHandle(handles);
   ASSERT_LE(first + 25, handles.size());
   for (std::size_t row = 0; row < 25; ++row) {
      SCOPED_TRACE(catalogue[row].key);
      Kiv::LogHandle const& h = *handles[first + row];
      EXPECT_EQ(h.key(), catalogue[row].key);
      EXPECT_EQ(h.severity(), catalogue[row].severity);
      EXPECT_EQ(h.format(), catalogue[row].format);
      EXPECT_EQ(h.explanation(), catalogue[row].explanation);
      EXPECT_EQ(h.recommendedAction(), catalogue[row].recommendedAction);
      EXPECT_EQ(h.minInterval(), 0.0);
      EXPECT_EQ(h.maxInterval(), 1.0);
      EXPECT_EQ(h.burst(), 0u);
      EXPECT_EQ(h.flags(), 0u);
   }
}

TEST(LogCatalogue, StandardActionsAreTheFrameworksTexts) {
   EXPECT_STREQ(Kiv::NoActionRequired, noAction);
   EXPECT_STREQ(Kiv::CallSupportIfPersists, callSupport);
   EXPECT_EQ(Kiv::logHandle("QOS_POLICY_POLICER_RESOURCE_FULL")->recommendedAction(),
             Kiv::NoActionRequired);
   EXPECT_EQ(Kiv::logHandle("QOS_VLAN_ACL_RULE_SVI_MISMATCH")->recommendedAction(),
             Kiv::NoActionRequired);
   EXPECT_EQ(Kiv::logHandle("NIMBAL_UNEXPECTED_RESTART")->recommendedAction(),
             Kiv::CallSupportIfPersists);
}

TEST(LogCatalogue, TrailingBlanksAreKept) {
   std::string const format3 = Kiv::logHandle("QOS_SCH_SHP_UNIT_MISMATCH")->format();
   EXPECT_EQ(format3.substr(format3.size() - 4), " %s ");
   std::string const explanation17 = Kiv::logHandle("QOS_POLICY_MULTIPLE_ACTIONS")->explanation();
   EXPECT_EQ(explanation17.back(), ' ');
   EXPECT_EQ(explanation17.substr(explanation17.size() - 11), "selection. ");
}

TEST(LogCatalogue, PdpRowsShareTheQosPolicyTexts) {
   EXPECT_EQ(Kiv::logHandle("PDP_POLICY_HW_RESOURCE_FULL")->format(),
             Kiv::logHandle("QOS_POLICY_HW_RESOURCE_FULL")->format());
   EXPECT_EQ(Kiv::logHandle("PDP_POLICY_HW_RESOURCE_NORMAL")->format(),
             Kiv::logHandle("QOS_POLICY_HW_RESOURCE_NORMAL")->format());
   EXPECT_EQ(Kiv::logHandle("PDP_POLICY_HW_RESOURCE_NORMAL")->explanation(),
             Kiv::logHandle("QOS_POLICY_HW_RESOURCE_NORMAL")->explanation());
}

TEST(LogCatalogue, CoppResourceHandlesAreRowsTenAndEleven) {
   EXPECT_EQ(&Nimbal::qosCoppHwResourceFullLog(), Kiv::logHandle("QOS_COPP_HW_RESOURCE_FULL"));
   EXPECT_EQ(&Nimbal::qosCoppHwResourceNormalLog(), Kiv::logHandle("QOS_COPP_HW_RESOURCE_NORMAL"));
}

TEST(LogCatalogue, CoppResourceFullForTheDefaultVxlanPolicerOfEthernet1) {
   LogCapture logs;
   Nimbal::qosCoppHwResourceFullLog().log(
       Nimbal::coppEgressTcamText,
       Kiv::format(Nimbal::coppVxlanDefaultPolicerFormat, std::string("Ethernet1")));
   ASSERT_EQ(logs.messages().size(), 1u);
   EXPECT_EQ(logs.messages()[0].first, "QOS_COPP_HW_RESOURCE_FULL");
   EXPECT_EQ(logs.messages()[0].second,
             "Insufficient egress TCAM resources to program the default control plane policer "
             "(vxlan) on Ethernet1.");
}

TEST(LogCatalogue, CoppResourceTextsForClassPolicersAndRecovery) {
   LogCapture logs;
   Nimbal::qosCoppHwResourceFullLog().log(
       Nimbal::coppEgressTcamText,
       Kiv::format(Nimbal::coppVxlanClassPolicerFormat, std::string("copp-system-bgp"),
                   std::string("Ethernet2")));
   Nimbal::qosCoppHwResourceNormalLog().log(
       Kiv::format(Nimbal::coppVxlanDefaultPolicerFormat, std::string("Ethernet2")),
       Nimbal::coppEgressTcamText);
   ASSERT_EQ(logs.messages().size(), 2u);
   EXPECT_EQ(logs.messages()[0].second,
             "Insufficient egress TCAM resources to program the control plane policer (vxlan) for "
             "class copp-system-bgp on Ethernet2.");
   EXPECT_EQ(logs.messages()[1].first, "QOS_COPP_HW_RESOURCE_NORMAL");
   EXPECT_EQ(logs.messages()[1].second,
             "default control plane policer (vxlan) on Ethernet2 is programmed in egress TCAM.");
}

TEST(LogCatalogue, ApiNimbalTraceHandleExistsFromLoad) {
   EXPECT_TRUE(contains(Kiv::traceHandleNames(), "ApiNimbal"));
   EXPECT_EQ(Nimbal::apiTraceHandle().name(), "ApiNimbal");
   EXPECT_EQ(&Nimbal::apiTraceHandle(), &Kiv::traceHandle("ApiNimbal"));
}

TEST(LogCatalogue, DefaultTraceHandlesAreMadeOnFirstUse) {
   // A fresh process: only what the library made at load exists there.
   GTEST_FLAG_SET(death_test_style, "threadsafe");
   EXPECT_EXIT(
       {
          bool const before = contains(Kiv::traceHandleNames(), "NimbalQosSm") ||
                              contains(Kiv::traceHandleNames(), "NimbalQosTcamAclSm");
          bool const apiFirst = contains(Kiv::traceHandleNames(), "ApiNimbal");
          bool const names = Nimbal::defaultTraceHandle().name() == "NimbalQosSm" &&
                             Nimbal::tcamDefaultTraceHandle().name() == "NimbalQosTcamAclSm";
          bool const after = contains(Kiv::traceHandleNames(), "NimbalQosSm") &&
                             contains(Kiv::traceHandleNames(), "NimbalQosTcamAclSm");
          std::fprintf(stderr, "before %d api %d names %d after %d\n", before, apiFirst, names,
                       after);
          std::exit(!before && apiFirst && names && after ? 0 : 1);
       },
       ::testing::ExitedWithCode(0), "before 0 api 1 names 1 after 1");
}

TEST(LogCatalogue, DefaultTraceHandlesAreMadeOnce) {
   EXPECT_EQ(&Nimbal::defaultTraceHandle(), &Nimbal::defaultTraceHandle());
   EXPECT_EQ(&Nimbal::defaultTraceHandle(), &Kiv::traceHandle("NimbalQosSm"));
   EXPECT_EQ(&Nimbal::tcamDefaultTraceHandle(), &Kiv::traceHandle("NimbalQosTcamAclSm"));
}

TEST(LogCatalogue, TypesAreRegisteredAtLoadInOrder) {
   auto const names = Kiv::typeNames();
   std::vector<std::string> const expected = {"Nimbal::NimbalQosCoppPolicerData",
                                              "Nimbal::NimbalQosCoppIntfPolicerData",
                                              "Nimbal::NimbalQosKernelDynamicCoppData",
                                              "Nimbal::NimbalQosCoppIntfCounterData",
                                              "Nimbal::NimbalQosCoppQCounterData",
                                              "Nimbal::QosIntfCoppSm",
                                              "Nimbal::QosAclHelperV1",
                                              "Nimbal::QosTcamAclHelperV1"};
   auto first = std::find(names.begin(), names.end(), expected[0]);
   ASSERT_NE(first, names.end());
   ASSERT_LE(static_cast<std::size_t>(names.end() - first), names.size());
   ASSERT_GE(static_cast<std::size_t>(names.end() - first), expected.size());
   EXPECT_EQ(std::vector<std::string>(first, first + expected.size()), expected);
}

}  // namespace
