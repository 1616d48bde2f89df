#pragma once

// A consistent switch for the CoPP library: the agent's state for a chip, the helper loaded
// from the library the way the agent loads it, and the agent's own start-up around it (the
// per-port default CoPP entries and the default CoPP rates). Tests and the simulated agent
// build on it.

#include <memory>
#include <optional>
#include <string>
#include <vector>

#include "Kiv/Types.h"
#include "Nimbal/MmuCpuQ.h"
#include "NimbalQos/NimbalQosProtectionHelper.h"
#include "Shim/Sdk.h"
#include "host/scenario/SwitchLayout.h"

namespace NimbalHost {

struct SwitchConfig {
   std::vector<SwitchModule> modules{SwitchModule{0, 0}};
   std::vector<SwitchInterface> interfaces = defaultSwitchInterfaces();
   std::vector<SwitchInterface> fabricInterfaces;
   // Exactly 48 rows, or empty for the switch's built-in table.
   std::vector<Nimbal::MmuCpuQRow> cpuQueues;
   U32 portDefaultCoppRate = 1000;
   bool vxlanWorkaround = false;
   SwitchResources resources;
   // The start-up ends with createDefaultCoppRates; a benchmark leaves it out to time it alone.
   bool publishDefaultCoppRates = true;
};

// The switch and the helper running on it. Building one resets the process-wide simulated
// chip, so switches built one after another are independent; only one is meant to live at a
// time.
class Switch {
  public:
   // Field-processor groups: the ingress CoPP groups the helper looks for at hwInit, and the two
   // egress CoPP groups the agent hands it.
   static constexpr U32 coppIpGroupId = 34;
   static constexpr U32 coppIp6GroupId = 38;
   static constexpr U32 efpCoppGroupId = 40;
   static constexpr U32 efpCoppDefAndVxlanGroupId = 41;
   // First entry of the default-and-VXLAN group; well below the chip's automatic entry ids.
   static constexpr U32 efpCoppDefAndVxlanBaseIndex = 8192;
   // Ports below this get a per-port default CoPP entry at base + port.
   static constexpr U32 defaultEntryPorts = 256;

   // Builds the switch and runs the agent's start-up. Throws std::invalid_argument for a
   // configuration that does not make a consistent switch, and std::runtime_error when the
   // library gives no CoPP helper.
   explicit Switch(SwitchConfig config);
   ~Switch();
   Switch(Switch const&) = delete;
   Switch& operator=(Switch const&) = delete;

   SwitchConfig const& config() const { return config_; }

   // The helper, and whether it came through dlopen and dlsym of the library file (else the
   // factory was called directly).
   Kiv::Ptr<Nimbal::QosAclHelperV1> helper() const { return helper_; }
   bool helperFromLibraryFile() const { return helperFromLibraryFile_; }

   // The agent's state handed to the factory.
   Kiv::Ptr<Qos::Status> qosStatus() const { return qosStatus_; }
   Kiv::Ptr<Qos::AclSliceHwStatus> qosAclSliceHwStatus() const { return qosAclSliceHwStatus_; }
   Kiv::Ptr<Acl::Config> mainAclConfig() const { return mainAclConfig_; }
   Kiv::Ptr<Nimbal::MmuConfigSm> mmuSm() const { return mmuSm_; }
   Kiv::Ptr<Nimbal::NimbalCommonSmData> scsd() const { return scsd_; }
   Kiv::Ptr<Nimbal::NimbalTcamGroupManager> tcamGroupManager() const { return tcamGroupManager_; }
   Kiv::Ptr<Nimbal::PktDrv> pktDrv() const { return pktDrv_; }
   Kiv::Ptr<NimbalCentral::AclHwStatus> aclHwStatus() const { return aclHwStatus_; }
   Kiv::Ptr<NimbalVlanTopo::VlanTopoSliceStatus> vlanTopoSliceStatus() const {
      return vlanTopoSliceStatus_;
   }
   Kiv::Ptr<NimbalCentral::NimbalMiscConfig> scMiscConfig() const { return scMiscConfig_; }
   Kiv::Ptr<NimbalL3::RoutingStatus> routingStatus() const { return routingStatus_; }
   Kiv::Ptr<NimbalCentral::VxlanSliceConfig> vxlanSliceConfig() const { return vxlanSliceConfig_; }
   Kiv::Ptr<Oskel::KernelCoPPConfig> kernelCoppConfig() const { return kernelCoppConfig_; }
   Kiv::Ptr<Qos::AclHwStatus> qosAclHwStatus() const { return qosAclHwStatus_; }
   // The unit given to the factory: that of the first module.
   U32 unit() const { return unit_; }

   // The entry managers.
   Kiv::Ptr<Nimbal::NimbalUnboundedTcamEntryManager> coppIpEntryMgr() const {
      return coppIpEntryMgr_;
   }
   Kiv::Ptr<Nimbal::NimbalUnboundedTcamEntryManager> coppIp6EntryMgr() const {
      return coppIp6EntryMgr_;
   }
   Kiv::Ptr<Nimbal::NimbalUnboundedTcamEntryManager> efpCoppEntryMgr() const {
      return efpCoppEntryMgr_;
   }
   Kiv::Ptr<Nimbal::NimbalBoundedTcamEntryManager> efpCoppDefAndVxlanEntryMgr() const {
      return efpCoppDefAndVxlanEntryMgr_;
   }

   // The SDK and the chip behind it.
   Shim::Sdk& sdk() const { return *::Shim::sdk_; }
   Shim::SimChip& chip() const { return ::Shim::sdk_->chip(); }

   // Interfaces and ports. Unknown names give the no-port value; unknown ports the empty id.
   NimbalTypes::NimbalPort port(Orvik::IntfId const& intf) const;
   Orvik::IntfId intf(NimbalTypes::NimbalPort const& port) const;
   // Front-panel interfaces, then fabric ones, in configuration order.
   std::vector<Orvik::IntfId> interfaces() const;
   // The most kernel CoPP keys the switch can hold: one per (port, CPU queue).
   std::size_t portQueueKeys() const {
      return (config_.interfaces.size() + config_.fabricInterfaces.size()) * Nimbal::mmuCpuQueues;
   }
   // The units of the modules, ascending, each once.
   std::vector<U16> units() const;
   // The unit of a module, 0 when there is no such module.
   U16 unitOfModule(U16 modId) const;
   // The per-port default CoPP entry of an interface: base + port, 0 when it has none.
   U32 defaultEntry(Orvik::IntfId const& intf) const;
   // Interfaces below the default-entry port limit whose default entry or meter could not be
   // made at start-up (the default-and-VXLAN group was too small).
   std::vector<Orvik::IntfId> const& interfacesWithoutDefaultPolicer() const {
      return interfacesWithoutDefaultPolicer_;
   }

   // Changes pool sizes from now on, on every unit. Shrinking takes nothing back that is in use:
   // it only refuses what would go beyond the new size.
   void resourcesIs(SwitchResources const& resources);

  private:
   void sharedStateIs();
   void chipIs();
   void tcamManagersIs();
   void helperIs();
   void portDefaultCoppEntriesIs();

   SwitchConfig config_;
   U32 unit_ = 0;
   bool previousVxlanWorkaround_ = false;

   Kiv::Ptr<Qos::Status> qosStatus_;
   Kiv::Ptr<Qos::AclSliceHwStatus> qosAclSliceHwStatus_;
   Kiv::Ptr<Acl::Config> mainAclConfig_;
   Kiv::Ptr<Nimbal::MmuConfigSm> mmuSm_;
   Kiv::Ptr<Nimbal::NimbalCommonSmData> scsd_;
   Kiv::Ptr<Nimbal::NimbalTcamGroupManager> tcamGroupManager_;
   Kiv::Ptr<Nimbal::PktDrv> pktDrv_;
   Kiv::Ptr<NimbalCentral::AclHwStatus> aclHwStatus_;
   Kiv::Ptr<NimbalVlanTopo::VlanTopoSliceStatus> vlanTopoSliceStatus_;
   Kiv::Ptr<NimbalCentral::NimbalMiscConfig> scMiscConfig_;
   Kiv::Ptr<NimbalL3::RoutingStatus> routingStatus_;
   Kiv::Ptr<NimbalCentral::VxlanSliceConfig> vxlanSliceConfig_;
   Kiv::Ptr<Oskel::KernelCoPPConfig> kernelCoppConfig_;
   Kiv::Ptr<Qos::AclHwStatus> qosAclHwStatus_;

   Kiv::Ptr<Nimbal::NimbalUnboundedTcamEntryManager> coppIpEntryMgr_;
   Kiv::Ptr<Nimbal::NimbalUnboundedTcamEntryManager> coppIp6EntryMgr_;
   Kiv::Ptr<Nimbal::NimbalUnboundedTcamEntryManager> efpCoppEntryMgr_;
   Kiv::Ptr<Nimbal::NimbalBoundedTcamEntryManager> efpCoppDefAndVxlanEntryMgr_;

   void* library_ = nullptr;
   bool helperFromLibraryFile_ = false;
   Kiv::Ptr<Nimbal::QosAclHelperV1> helper_;
   std::vector<Orvik::IntfId> interfacesWithoutDefaultPolicer_;
};

// Builds a switch: Switch's constructor behind a handle.
std::unique_ptr<Switch> buildSwitch(SwitchConfig const& config = SwitchConfig());

}  // namespace NimbalHost
