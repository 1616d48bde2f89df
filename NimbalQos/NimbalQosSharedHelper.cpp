#include "NimbalQos/NimbalQosSharedHelper.h"

#include <memory>
#include <vector>

#include "Kiv/Allocator.h"
#include "Kiv/Assert.h"
#include "Kiv/Type.h"
#include "Nimbal/Toggle.h"
#include "NimbalQos/NimbalQosCoppState.h"
#include "NimbalQos/NimbalQosIntfCoppSm.h"
#include "NimbalQos/NimbalQosProtectionHelper.h"
#include "NimbalQos/NimbalQosTcamProtectionHelper.h"

namespace Nimbal {

namespace {

struct LogCatalogueRow {
   char const* key;
   Kiv::LogSeverity severity;
   char const* format;
   char const* explanation;
   char const* recommendedAction;
};

// The structured messages of the agent's QoS family. The library raises only the two CoPP
// resource messages; the agent's other QoS components raise the rest.
LogCatalogueRow const logCatalogue[] = {
    {"NIMBAL_CONFIG_CHANGE", 6, "Configuration change requires the Nimbal agent %s to restart",
     "Configuration change requires the switch ASIC to be reconfigured, requiring the Nimbal agent "
     "to restart.",
     Kiv::NoActionRequired},
    {"NIMBAL_UNEXPECTED_RESTART", 3, "Unexpected restart of Nimbal agent %s occurred",
     "Unexpected restart of the Nimbal agent occurred.", Kiv::CallSupportIfPersists},
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
     "The switch was able to program entire QoS configuration in the TCAM.", Kiv::NoActionRequired},
    {"QOS_ECN_QUEUE_HW_FULL", 3,
     "Hardware resources insufficient to program tx-queue ECN on queue %s for port %s",
     "The switch is unable to program ECN configuration due to insufficient hardware resources.",
     Kiv::NoActionRequired},
    {"QOS_ECN_QUEUE_COUNTER_HW_FULL", 3,
     "Hardware resources insufficient for ECN queue counters for %s queue %d",
     "The switch is unable to allocate ECN queue counters due to insufficient hardware resources.",
     Kiv::NoActionRequired},
    {"QOS_WRED_QUEUE_HW_FULL", 3,
     "Hardware resources insufficient to program tx-queue WRED on queue %s for port %s",
     "The switch is unable to program WRED configuration due to insufficient hardware resources.",
     Kiv::NoActionRequired},
    {"QOS_DP_THRESHOLDS_HW_FULL", 3,
     "Hardware resources insufficient to program tx-queue DropThresholds on tc %s for port %s",
     "The switch is unable to program tail drop threshold configuration due to insufficient "
     "hardware resources.",
     Kiv::NoActionRequired},
    {"QOS_COPP_HW_RESOURCE_FULL", 3, "Insufficient %s resources to program the %s.",
     "The switch is unable to program QoS CoPP configuration due to insufficient TCAM resources.",
     "Reduce number of ACL rules in policy map classes or reconfigure your ACLs to free some "
     "resources for CoPP"},
    {"QOS_COPP_HW_RESOURCE_NORMAL", 3, "%s is programmed in %s.",
     "The switch was able to program entire CoPP configuration in the TCAM.",
     Kiv::NoActionRequired},
    {"QOS_POLICY_HW_RESOURCE_FULL", 3,
     "Insufficient hardware resources to program the %s policy-map %s.",
     "The switch is unable to program QoS policy-map configuration due to insufficient hardware "
     "resources.",
     "Reduce number of ACL rules in policy-map classes or reconfigure your ACLs to free some "
     "resources for policy-mapIf there is a policer in one of the classes, detaching policy-map "
     "from one of the interfaces also frees up resourcs"},
    {"QOS_POLICY_HW_RESOURCE_NORMAL", 3, "Programmed %s policy-map %s in hardware.",
     "The switch was able to program entire policy-map configuration in the hardware.",
     Kiv::NoActionRequired},
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
     "The switch was able to program entire policy-map configuration in the hardware.",
     Kiv::NoActionRequired},
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
     Kiv::NoActionRequired},
    {"QOS_VLAN_ACL_RULE_SVI_MISMATCH", 4,
     "ACL %s with VLAN rule associated to class-map %s. ACL rules with VLAN filter will be ignored "
     "for VLAN interfaces.",
     "Either remove VLAN rule from ACL or remove service-policy configuration from the VLAN "
     "interface.",
     Kiv::NoActionRequired},
    {"QOS_EGRESS_PMAP_ACTION_UNSUPPORTED", 4,
     "%s action is not supported in output service policies on this platform",
     "this action will have no effect in output service policies on this platform",
     Kiv::NoActionRequired},
    {"QOS_MAC_ACL_RULE_IPV6_MISMATCH", 4,
     "Policy-map %s is configured with both MAC ACL and IPV6 ACL rule. ACL rules will be ignored "
     "for class-map %s.",
     "Class map with MAC ACL and Class map with IPV6 ACL can not exist in the same policy-map on "
     "this platform. Remove the MAC ACL associated class-map from policy-map",
     Kiv::NoActionRequired},
    {"QOS_PMAP_FIELD_NOT_SUPPORTED", 3,
     "Access list matching %s %s associated with QOS service policy class map %s cannot be fully "
     "programmed in the hardware",
     "Matching %s within QOS service policies is not supported. The %s are ignored in programming "
     "the service policy in the hardware. This may result in improper classification of packets on "
     "interfaces using the QOS service policy.",
     Kiv::NoActionRequired},
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
     Kiv::NoActionRequired},
    {"QOS_LATENCY_THRESHOLD_QUEUE_HW_FULL", 3,
     "Hardware resources insufficient to program tx-queue latency threshold on queue %s for port "
     "%s",
     "The switch is unable to program latency threshold configuration due to insufficient hardware "
     "resources.",
     Kiv::NoActionRequired},
};

constexpr std::size_t qosCoppHwResourceFullRow = 9;
constexpr std::size_t qosCoppHwResourceNormalRow = 10;

// Everything the library declares to the agent's process while it is loaded. One object in
// one unit, so that the order of creation is certain and the order of removal its reverse.
class LibraryLoad {
  public:
   LibraryLoad() {
      for (auto const& row : logCatalogue) {
         logHandles_.push_back(
             std::make_unique<Kiv::LogHandle>(row.key, row.severity, row.format, row.explanation,
                                              row.recommendedAction, 0.0, 1.0, 0u, 0u));
      }
      traceHandles_.push_back(&Kiv::traceHandle("ApiNimbal"));
      types_ = {
          NimbalQosCoppPolicerData::fwkTypeDesc(),
          NimbalQosCoppIntfPolicerData::fwkTypeDesc(),
          NimbalQosKernelDynamicCoppData::fwkTypeDesc(),
          NimbalQosCoppIntfCounterData::fwkTypeDesc(),
          NimbalQosCoppQCounterData::fwkTypeDesc(),
          QosIntfCoppSm::fwkTypeDesc(),
          QosAclHelperV1::fwkTypeDesc(),
          QosTcamAclHelperV1::fwkTypeDesc(),
      };
      for (Kiv::TypeDesc const* type : types_) {
         Kiv::typeIs(type);
      }
   }

   // Removal in reverse order of creation: the trace handles made on first use (after the
   // types), the types, "ApiNimbal", then the log handles.
   ~LibraryLoad() {
      while (traceHandles_.size() > 1) {
         Kiv::traceHandleDel(traceHandles_.back()->name());
         traceHandles_.pop_back();
      }
      for (auto it = types_.rbegin(); it != types_.rend(); ++it) {
         Kiv::typeDel((*it)->fullName());
      }
      while (!traceHandles_.empty()) {
         Kiv::traceHandleDel(traceHandles_.back()->name());
         traceHandles_.pop_back();
      }
      while (!logHandles_.empty()) {
         logHandles_.pop_back();
      }
   }

   LibraryLoad(LibraryLoad const&) = delete;
   LibraryLoad& operator=(LibraryLoad const&) = delete;

   Kiv::LogHandle const& logHandle(std::size_t row) const { return *logHandles_.at(row); }
   Kiv::TraceHandle const& apiTraceHandle() const { return *traceHandles_.front(); }
   // A handle made on its first use; its caller keeps it in a one-time-initialised value.
   Kiv::TraceHandle const& traceHandleIs(char const* name) {
      traceHandles_.push_back(&Kiv::traceHandle(name));
      return *traceHandles_.back();
   }

  private:
   std::vector<std::unique_ptr<Kiv::LogHandle>> logHandles_;
   std::vector<Kiv::TraceHandle*> traceHandles_;
   std::vector<Kiv::TypeDesc const*> types_;
};

LibraryLoad libraryLoad;

}  // namespace

bool toggleUseTcamAgentForPolicyQosEnabled() {
   // Read once: a change of the toggle takes a restart of the agent.
   static bool const enabled =
       getToggleState("UseTcamAgentForPolicyQos", "NimbalTcam.json", true) & 1;
   return enabled;
}

Kiv::Ptr<QosAclHelper> getQosAclHelper(
    Kiv::Ptr<Qos::Status const> const& qosStatus,
    Kiv::Ptr<Qos::AclSliceHwStatus> const& qosAclSliceHwStatus,
    Kiv::Ptr<Acl::Config const> const& mainAclConfig, Kiv::Ptr<MmuConfigSm> const& mmuSm,
    Kiv::Ptr<NimbalCommonSmData> const& scsd,
    Kiv::Ptr<NimbalTcamGroupManager> const& tcamGroupManager, Kiv::Ptr<PktDrv> const& pktDrv,
    Kiv::Ptr<NimbalCentral::AclHwStatus const> const& aclHwStatus,
    Kiv::Ptr<NimbalVlanTopo::VlanTopoSliceStatus> const& vlanTopoSliceStatus,
    Kiv::Ptr<NimbalCentral::NimbalMiscConfig const> const& scMiscConfig,
    Kiv::Ptr<NimbalL3::RoutingStatus const> const& routingStatus,
    Kiv::Ptr<NimbalCentral::VxlanSliceConfig const> const& vxlanSliceConfig,
    Kiv::Ptr<Oskel::KernelCoPPConfig> const& kernelCoppConfig, U32 unit,
    Kiv::Ptr<Qos::AclHwStatus const> const& qosAclHwStatus) {
   Kiv::Ptr<QosAclHelperV1> helper;
   if (toggleUseTcamAgentForPolicyQosEnabled()) {
      helper = Kiv::allocate<QosTcamAclHelperV1>(
          qosStatus, qosAclSliceHwStatus, mainAclConfig, mmuSm, scsd, tcamGroupManager, pktDrv,
          aclHwStatus, vlanTopoSliceStatus, scMiscConfig, routingStatus, vxlanSliceConfig, unit,
          qosAclHwStatus, kernelCoppConfig);
   } else {
      helper = Kiv::allocate<QosAclHelperV1>(
          qosStatus, qosAclSliceHwStatus, mainAclConfig, mmuSm, scsd, tcamGroupManager, pktDrv,
          aclHwStatus, vlanTopoSliceStatus, scMiscConfig, routingStatus, vxlanSliceConfig, unit,
          qosAclHwStatus, kernelCoppConfig);
   }
   helper->hasNotificationActiveIs(true);
   return helper;
}

Kiv::LogHandle const& qosCoppHwResourceFullLog() {
   return libraryLoad.logHandle(qosCoppHwResourceFullRow);
}

Kiv::LogHandle const& qosCoppHwResourceNormalLog() {
   return libraryLoad.logHandle(qosCoppHwResourceNormalRow);
}

Kiv::TraceHandle const& apiTraceHandle() {
   return libraryLoad.apiTraceHandle();
}

Kiv::TraceHandle const& defaultTraceHandle() {
   static Kiv::TraceHandle const& handle = libraryLoad.traceHandleIs("NimbalQosSm");
   return handle;
}

Kiv::TraceHandle const& tcamDefaultTraceHandle() {
   static Kiv::TraceHandle const& handle = libraryLoad.traceHandleIs("NimbalQosTcamAclSm");
   return handle;
}

NimbalTypes::NimbalPort getNimbalPortFromIntfId(Kiv::Ptr<NimbalCommonSmData const> const& scsd,
                                                Orvik::IntfId const& intfId) {
   NimbalTypes::NimbalPort port = NimbalTypes::NimbalPort::noPort();
   if (auto found = scsd->nimbalIntfToPortCol().value(intfId);
       found && *found != NimbalTypes::NimbalPort::noPort()) {
      return *found;
   }
   if (auto found = scsd->nimbalFabricIntfToPortCol().value(intfId)) {
      port = *found;
   }
   return port;
}

Orvik::IntfId getIntfIdFromNimbalPort(Kiv::Ptr<NimbalCommonSmData const> const& scsd,
                                      NimbalTypes::NimbalPort& port) {
   Orvik::IntfId intfId;
   KIV_ASSERT(intfId.intfId() == Orvik::IntfId::emptyIntfId());
   auto const& ports = scsd->nimbalPortToIntfCol();
   if (auto const found = ports.findIter(port);
       found != ports.end() && found->second != Orvik::IntfId::emptyIntfId()) {
      return found->second;
   }
   if (auto found = scsd->nimbalFabricPortToIntfCol().value(port)) {
      intfId = *found;
   }
   return intfId;
}

NimbalTypes::NimbalPort getNimbalPortFromModIdPortQueueKey(
    Kiv::Ptr<NimbalCommonSmData const> const& scsd, Oskel::ModIdPortQueueKey const& key) {
   ModId const modId(key.modId());
   U16 const unit = scsd->nimbalModIdToUnitCol().value(modId.value()).value_or(0);
   U16 const port = NimbalTypes::checkedLogicalPort(key.port());
   return NimbalTypes::NimbalPort(modId.value(), unit, port, 0);
}

}  // namespace Nimbal
