#pragma once

#include "Kiv/Log.h"
#include "Kiv/Trace.h"
#include "Nimbal/QosAclHelper.h"
#include "NimbalQos/NimbalQosExport.h"
#include "Oskel/KernelCoPPConfig.h"

namespace Nimbal {

// The library's entry point: builds the QoS ACL helper that stands in for the agent's own. The
// toggle "UseTcamAgentForPolicyQos" of "NimbalTcam.json", read once per process, chooses the
// TCAM-agent variant.
NIMBAL_QOS_EXPORT Kiv::Ptr<QosAclHelper> getQosAclHelper(
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
    Kiv::Ptr<Qos::AclHwStatus const> const& qosAclHwStatus);

// What the agent finds with dlsym: the factory is a C++ function, so its mangled name.
using GetQosAclHelperFunction = decltype(&getQosAclHelper);
inline constexpr char getQosAclHelperSymbol[] =
    "_ZN6Nimbal15getQosAclHelperERKN3Kiv3PtrIKN3Qos6StatusEEERKNS1_INS2_16AclSliceHwStatusEEE"
    "RKNS1_IKN3Acl6ConfigEEERKNS1_INS_11MmuConfigSmEEERKNS1_INS_18NimbalCommonSmDataEEERKNS1_"
    "INS_22NimbalTcamGroupManagerEEERKNS1_INS_6PktDrvEEERKNS1_IKN13NimbalCentral11AclHwStatus"
    "EEERKNS1_IN14NimbalVlanTopo19VlanTopoSliceStatusEEERKNS1_IKNSY_16NimbalMiscConfigEEERKNS"
    "1_IKN8NimbalL313RoutingStatusEEERKNS1_IKNSY_16VxlanSliceConfigEEERKNS1_IN5Oskel16KernelC"
    "oPPConfigEEEjRKNS1_IKNS2_11AclHwStatusEEE";

// The toggle "UseTcamAgentForPolicyQos", read on first use and kept for the process.
NIMBAL_QOS_EXPORT bool toggleUseTcamAgentForPolicyQosEnabled();

// The CoPP resource messages that the library raises, and the texts it fills them with.
NIMBAL_QOS_EXPORT Kiv::LogHandle const& qosCoppHwResourceFullLog();
NIMBAL_QOS_EXPORT Kiv::LogHandle const& qosCoppHwResourceNormalLog();
inline constexpr char const* coppEgressTcamText = "egress TCAM";
inline constexpr char const* coppVxlanClassPolicerFormat =
    "control plane policer (vxlan) for class %s on %s";
inline constexpr char const* coppVxlanDefaultPolicerFormat =
    "default control plane policer (vxlan) on %s";

// Trace handles: SDK calls ("ApiNimbal"), the helper and its state machine ("NimbalQosSm"),
// the TCAM-agent variant ("NimbalQosTcamAclSm"). The last two are made on first use.
NIMBAL_QOS_EXPORT Kiv::TraceHandle const& apiTraceHandle();
NIMBAL_QOS_EXPORT Kiv::TraceHandle const& defaultTraceHandle();
NIMBAL_QOS_EXPORT Kiv::TraceHandle const& tcamDefaultTraceHandle();

}  // namespace Nimbal
