// Loads the CoPP library the way the agent does and checks, in a process of its own, what the
// library declares while loaded, which helper class the factory builds for the toggle file of
// NIMBAL_TOGGLE_DIR, that the toggle is read only once, and that unloading takes back what the
// library declared. Usage: nimbal_factory_check EXPECTED_CLASS

#include <dlfcn.h>

#include <algorithm>
#include <cstdio>
#include <cstdlib>
#include <fstream>
#include <string>
#include <vector>

#include "Kiv/Log.h"
#include "Kiv/Trace.h"
#include "Kiv/Type.h"
#include "Nimbal/NimbalCommonSmData.h"
#include "Nimbal/TcamEntryManager.h"
#include "Nimbal/TcamGroupManager.h"
#include "NimbalQos/NimbalQosSharedHelper.h"

namespace {

int failures = 0;

void check(bool ok, std::string const& what) {
   std::printf("%s: %s\n", ok ? "ok" : "FAILED", what.c_str());
   if (!ok) {
      ++failures;
   }
}

std::vector<std::string> const logKeys = {
    "NIMBAL_CONFIG_CHANGE",
    "NIMBAL_UNEXPECTED_RESTART",
    "QOS_SCH_SHP_UNIT_MISMATCH",
    "QOS_HW_RESOURCE_FULL",
    "QOS_HW_RESOURCE_NORMAL",
    "QOS_ECN_QUEUE_HW_FULL",
    "QOS_ECN_QUEUE_COUNTER_HW_FULL",
    "QOS_WRED_QUEUE_HW_FULL",
    "QOS_DP_THRESHOLDS_HW_FULL",
    "QOS_COPP_HW_RESOURCE_FULL",
    "QOS_COPP_HW_RESOURCE_NORMAL",
    "QOS_POLICY_HW_RESOURCE_FULL",
    "QOS_POLICY_HW_RESOURCE_NORMAL",
    "QOS_POLICY_COUNTER_HW_RESOURCE_FULL",
    "PDP_POLICY_HW_RESOURCE_FULL",
    "PDP_POLICY_HW_RESOURCE_NORMAL",
    "QOS_POLICY_MULTIPLE_ACTIONS",
    "QOS_POLICY_POLICER_RESOURCE_FULL",
    "QOS_VLAN_ACL_RULE_SVI_MISMATCH",
    "QOS_EGRESS_PMAP_ACTION_UNSUPPORTED",
    "QOS_MAC_ACL_RULE_IPV6_MISMATCH",
    "QOS_PMAP_FIELD_NOT_SUPPORTED",
    "ROUTING_CBF_HW_RESOURCE_FULL",
    "ROUTING_CBF_HW_RESOURCE_NORMAL",
    "QOS_LATENCY_THRESHOLD_QUEUE_HW_FULL",
};

std::vector<std::string> const typeNames = {
    "Nimbal::NimbalQosCoppPolicerData",
    "Nimbal::NimbalQosCoppIntfPolicerData",
    "Nimbal::NimbalQosKernelDynamicCoppData",
    "Nimbal::NimbalQosCoppIntfCounterData",
    "Nimbal::NimbalQosCoppQCounterData",
    "Nimbal::QosIntfCoppSm",
    "Nimbal::QosAclHelperV1",
    "Nimbal::QosTcamAclHelperV1",
};

std::vector<std::string> const traceHandleNames = {"ApiNimbal", "NimbalQosSm",
                                                   "NimbalQosTcamAclSm"};

// The library's default trace handles, reached as the agent reaches the factory.
using TraceHandleFunction = Kiv::TraceHandle const& (*)();
constexpr char defaultTraceHandleSymbol[] = "_ZN6Nimbal18defaultTraceHandleEv";
constexpr char tcamDefaultTraceHandleSymbol[] = "_ZN6Nimbal22tcamDefaultTraceHandleEv";

std::vector<std::string> currentLogKeys() {
   std::vector<std::string> out;
   for (auto const* h : Kiv::logHandles()) {
      out.push_back(h->key());
   }
   return out;
}

bool has(std::vector<std::string> const& names, std::string const& name) {
   return std::find(names.begin(), names.end(), name) != names.end();
}

bool hasNone(std::vector<std::string> const& names, std::vector<std::string> const& wanted) {
   return std::none_of(wanted.begin(), wanted.end(),
                       [&](std::string const& n) { return has(names, n); });
}

// The agent's state, with the ingress CoPP groups that hwInit binds.
struct AgentState {
   Kiv::Ptr<Qos::Status> qosStatus{new Qos::Status()};
   Kiv::Ptr<Qos::AclSliceHwStatus> qosAclSliceHwStatus{new Qos::AclSliceHwStatus()};
   Kiv::Ptr<Acl::Config> mainAclConfig{new Acl::Config()};
   Kiv::Ptr<Nimbal::MmuConfigSm> mmuSm{new Nimbal::MmuConfigSm()};
   Kiv::Ptr<Nimbal::NimbalCommonSmData> scsd{new Nimbal::NimbalCommonSmData()};
   Kiv::Ptr<Nimbal::NimbalTcamGroupManager> tcamGroupManager{new Nimbal::NimbalTcamGroupManager()};
   Kiv::Ptr<Nimbal::PktDrv> pktDrv{new Nimbal::PktDrv()};
   Kiv::Ptr<Oskel::KernelCoPPConfig> kernelCoppConfig{new Oskel::KernelCoPPConfig()};
   Kiv::Ptr<Qos::AclHwStatus> qosAclHwStatus{new Qos::AclHwStatus()};

   AgentState() {
      tcamGroupManager->entryMgrAdd(new Nimbal::NimbalUnboundedTcamEntryManager(34));
      tcamGroupManager->entryMgrAdd(new Nimbal::NimbalUnboundedTcamEntryManager(38));
   }

   Kiv::Ptr<Nimbal::QosAclHelper> build(Nimbal::GetQosAclHelperFunction factory) const {
      return factory(qosStatus, qosAclSliceHwStatus, mainAclConfig, mmuSm, scsd, tcamGroupManager,
                     pktDrv, new NimbalCentral::AclHwStatus(),
                     new NimbalVlanTopo::VlanTopoSliceStatus(),
                     new NimbalCentral::NimbalMiscConfig(), new NimbalL3::RoutingStatus(),
                     new NimbalCentral::VxlanSliceConfig(), kernelCoppConfig, 0, qosAclHwStatus);
   }
};

}  // namespace

int main(int argc, char** argv) {
   if (argc != 2 || !std::getenv("NIMBAL_TOGGLE_DIR")) {
      std::fprintf(stderr, "usage: NIMBAL_TOGGLE_DIR=DIR %s EXPECTED_CLASS\n", argv[0]);
      return 2;
   }
   std::string const expected = argv[1];
   std::string const toggleFile =
       std::string(std::getenv("NIMBAL_TOGGLE_DIR")) + "/NimbalTcam.json";

   check(hasNone(currentLogKeys(), logKeys), "no QoS log handle before the library is loaded");
   check(hasNone(Kiv::traceHandleNames(), traceHandleNames),
         "no library trace handle before loading");
   check(hasNone(Kiv::typeNames(), typeNames), "no library type before loading");

   void* library = ::dlopen(NIMBAL_QOS_LIBRARY_FILE, RTLD_NOW | RTLD_LOCAL);
   if (!library) {
      std::fprintf(stderr, "dlopen: %s\n", ::dlerror());
      return 1;
   }

   auto const keys = currentLogKeys();
   check(keys.size() >= logKeys.size() &&
             std::vector<std::string>(keys.end() - logKeys.size(), keys.end()) == logKeys,
         "the 25 log handles are created at load, in catalogue order");
   check(has(Kiv::traceHandleNames(), "ApiNimbal"), "ApiNimbal is created at load");
   check(!has(Kiv::traceHandleNames(), "NimbalQosSm") &&
             !has(Kiv::traceHandleNames(), "NimbalQosTcamAclSm"),
         "the default trace handles wait for their first use");
   auto const types = Kiv::typeNames();
   check(types.size() >= typeNames.size() &&
             std::vector<std::string>(types.end() - typeNames.size(), types.end()) == typeNames,
         "the types are registered at load, in order");

   auto factory = reinterpret_cast<Nimbal::GetQosAclHelperFunction>(
       ::dlsym(library, Nimbal::getQosAclHelperSymbol));
   check(factory != nullptr, "dlsym finds the factory under its mangled name");
   if (!factory) {
      return 1;
   }

   {
      AgentState agent;
      auto first = agent.build(factory);
      std::string const firstClass = first->fwkType()->fullName();
      check(firstClass == expected,
            "the factory builds " + expected + " (built " + firstClass + ")");
      check(first->hasNotificationActive(), "the helper comes with its notifications on");

      // Turn the toggle file around: the process keeps the answer it read first.
      bool const wasOn = expected == "Nimbal::QosTcamAclHelperV1";
      std::ofstream(toggleFile) << "{\"UseTcamAgentForPolicyQos\": " << (wasOn ? "false" : "true")
                                << "}\n";
      auto second = agent.build(factory);
      check(second->fwkType()->fullName() == expected,
            "a second call builds the same class after the toggle file changed");

      first->hwInit();
      if (!wasOn) {
         check(has(Kiv::traceHandleNames(), "NimbalQosSm"),
               "NimbalQosSm is created by its first use");
      }
   }

   // Both default handles in use, whichever helper was built.
   for (char const* symbol : {defaultTraceHandleSymbol, tcamDefaultTraceHandleSymbol}) {
      auto handle = reinterpret_cast<TraceHandleFunction>(::dlsym(library, symbol));
      check(handle != nullptr, std::string("dlsym finds ") + symbol);
      if (handle) {
         handle();
      }
   }
   check(has(Kiv::traceHandleNames(), "NimbalQosSm") &&
             has(Kiv::traceHandleNames(), "NimbalQosTcamAclSm"),
         "the default trace handles exist once used");

   ::dlclose(library);
   bool const unloaded = ::dlopen(NIMBAL_QOS_LIBRARY_FILE, RTLD_NOW | RTLD_NOLOAD) == nullptr;
   check(unloaded, "dlclose unloads the library");
   check(hasNone(currentLogKeys(), logKeys), "unloading destroys the log handles");
   check(hasNone(Kiv::typeNames(), typeNames), "unloading removes the types");
   check(hasNone(Kiv::traceHandleNames(), traceHandleNames),
         "unloading destroys the library's trace handles");

   std::printf("%d failed\n", failures);
   return failures == 0 ? 0 : 1;
}
