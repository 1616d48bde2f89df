#include "host/agent/SwitchBuilder.h"

#include <dlfcn.h>

#include <algorithm>
#include <map>
#include <set>
#include <stdexcept>
#include <utility>

#include "NimbalCentral/ChipInfo.h"
#include "NimbalQos/NimbalQosSharedHelper.h"

namespace NimbalHost {

namespace {

// Every CoPP entry counts all packets it matched and the red ones among them.
Nimbal::StatTypes coppStatTypes() {
   Nimbal::StatTypes statTypes;
   statTypes.typeIs(0, ::Shim::sdk_->coppStatType(0));
   statTypes.typeIs(1, ::Shim::sdk_->coppStatType(1));
   return statTypes;
}

// What installCoppPolicer gives when no meter is left.
constexpr U32 noPolicer = 0xFFFFFFFF;

std::string interfaceText(SwitchInterface const& intf) {
   return "interface " + (intf.name.empty() ? std::string("without a name") : intf.name);
}

}  // namespace

Switch::Switch(SwitchConfig config)
    : config_(std::move(config)),
      qosStatus_(new Qos::Status()),
      qosAclSliceHwStatus_(new Qos::AclSliceHwStatus()),
      mainAclConfig_(new Acl::Config()),
      mmuSm_(new Nimbal::MmuConfigSm()),
      scsd_(new Nimbal::NimbalCommonSmData()),
      tcamGroupManager_(new Nimbal::NimbalTcamGroupManager()),
      pktDrv_(new Nimbal::PktDrv()),
      aclHwStatus_(new NimbalCentral::AclHwStatus()),
      vlanTopoSliceStatus_(new NimbalVlanTopo::VlanTopoSliceStatus()),
      scMiscConfig_(new NimbalCentral::NimbalMiscConfig()),
      routingStatus_(new NimbalL3::RoutingStatus()),
      vxlanSliceConfig_(new NimbalCentral::VxlanSliceConfig()),
      kernelCoppConfig_(new Oskel::KernelCoPPConfig()),
      qosAclHwStatus_(new Qos::AclHwStatus()) {
   // Everything that can refuse the configuration runs before the chip or the library is
   // touched.
   sharedStateIs();
   if (!config_.cpuQueues.empty()) {
      mmuSm_->cpuQTableIs(config_.cpuQueues);
   }
   scMiscConfig_->portDefaultCoppRateIs(config_.portDefaultCoppRate);

   // The chip attribute is process-wide: the next switch finds it as this one found it.
   previousVxlanWorkaround_ = NimbalCentral::nimbalAttributes().vxlanCoppSrcPortWorkAroundNeeded();
   try {
      chipIs();
      tcamManagersIs();
      helperIs();
      portDefaultCoppEntriesIs();
      if (config_.publishDefaultCoppRates) {
         helper_->createDefaultCoppRates();
      }
   } catch (...) {
      helper_ = nullptr;
      if (library_) {
         ::dlclose(library_);
      }
      NimbalCentral::nimbalAttributes().vxlanCoppSrcPortWorkAroundNeededIs(
          previousVxlanWorkaround_);
      throw;
   }
}

Switch::~Switch() {
   // The helper goes before the library that holds its code.
   helper_ = nullptr;
   if (library_) {
      ::dlclose(library_);
   }
   NimbalCentral::nimbalAttributes().vxlanCoppSrcPortWorkAroundNeededIs(previousVxlanWorkaround_);
}

void Switch::sharedStateIs() {
   if (config_.modules.empty()) {
      throw std::invalid_argument("a switch needs at least one module");
   }
   std::map<U16, U16> unitOfModule;
   for (SwitchModule const& m : config_.modules) {
      std::string const module = "module " + std::to_string(m.modId);
      if (m.modId > ModId::null) {
         throw std::invalid_argument(module + ": modId must be at most " +
                                     std::to_string(ModId::null));
      }
      if (m.unit > 255) {
         throw std::invalid_argument(module + ": unit must be at most 255");
      }
      if (!unitOfModule.emplace(m.modId, m.unit).second) {
         throw std::invalid_argument(module + " appears twice");
      }
   }
   unit_ = config_.modules.front().unit;

   // A chip port carries one front-panel and at most one fabric interface; a port in both
   // lists must be the same port.
   std::set<std::string> names;
   std::map<std::pair<U16, U16>, NimbalTypes::NimbalPort> frontPorts;
   std::map<std::pair<U16, U16>, NimbalTypes::NimbalPort> fabricPorts;
   auto check = [&](SwitchInterface const& intf, bool fabric) {
      if (intf.name.empty()) {
         throw std::invalid_argument("an interface needs a name");
      }
      if (!names.insert(intf.name).second) {
         throw std::invalid_argument(interfaceText(intf) + " appears twice");
      }
      auto module = unitOfModule.find(intf.modId);
      if (module == unitOfModule.end()) {
         throw std::invalid_argument(interfaceText(intf) + ": no module " +
                                     std::to_string(intf.modId));
      }
      if (intf.port > NimbalTypes::NimbalPort::defaultPort) {
         throw std::invalid_argument(interfaceText(intf) + ": port must be at most " +
                                     std::to_string(NimbalTypes::NimbalPort::defaultPort));
      }
      NimbalTypes::NimbalPort const port(intf.modId, module->second, intf.port);
      std::pair<U16, U16> const unitPort(module->second, intf.port);
      auto& mine = fabric ? fabricPorts : frontPorts;
      auto const& other = fabric ? frontPorts : fabricPorts;
      auto const otherPort = other.find(unitPort);
      if (mine.count(unitPort) || (otherPort != other.end() && otherPort->second != port)) {
         throw std::invalid_argument(interfaceText(intf) + ": port " + std::to_string(intf.port) +
                                     " of unit " + std::to_string(module->second) + " is taken");
      }
      mine.emplace(unitPort, port);
   };
   for (SwitchInterface const& intf : config_.interfaces) {
      check(intf, false);
   }
   for (SwitchInterface const& intf : config_.fabricInterfaces) {
      check(intf, true);
   }

   for (SwitchModule const& m : config_.modules) {
      scsd_->nimbalModIdToUnitIs(m.modId, m.unit);
      scsd_->nimbalModIdIs(
          m.modId,
          Nimbal::NimbalModInfo(m.modId, m.unit, NimbalCentral::ChipInfo(static_cast<U8>(m.unit))));
   }
   for (SwitchInterface const& intf : config_.interfaces) {
      scsd_->intfPortIs(Orvik::IntfId(intf.name),
                        NimbalTypes::NimbalPort(intf.modId, unitOfModule[intf.modId], intf.port));
   }
   for (SwitchInterface const& intf : config_.fabricInterfaces) {
      scsd_->intfPortIs(Orvik::IntfId(intf.name),
                        NimbalTypes::NimbalPort(intf.modId, unitOfModule[intf.modId], intf.port),
                        true);
   }
}

void Switch::chipIs() {
   // Each switch starts from an empty chip.
   sdk().reset();
   for (U16 unit : units()) {
      Shim::bcm_pbmp_t ports;
      for (Orvik::IntfId const& intf : interfaces()) {
         NimbalTypes::NimbalPort const p = port(intf);
         if (p.unit() == unit) {
            ports.portAdd(p.logicalPort());
         }
      }
      chip().unitIs(unit);
      chip().portBitmapIs(unit, ports);
   }
   NimbalCentral::nimbalAttributes().vxlanCoppSrcPortWorkAroundNeededIs(config_.vxlanWorkaround);
}

void Switch::tcamManagersIs() {
   coppIpEntryMgr_ = new Nimbal::NimbalUnboundedTcamEntryManager(coppIpGroupId);
   coppIp6EntryMgr_ = new Nimbal::NimbalUnboundedTcamEntryManager(coppIp6GroupId);
   efpCoppEntryMgr_ = new Nimbal::NimbalUnboundedTcamEntryManager(efpCoppGroupId);
   efpCoppDefAndVxlanEntryMgr_ = new Nimbal::NimbalBoundedTcamEntryManager(
       efpCoppDefAndVxlanGroupId, efpCoppDefAndVxlanBaseIndex);
   tcamGroupManager_->entryMgrAdd(coppIpEntryMgr_);
   tcamGroupManager_->entryMgrAdd(coppIp6EntryMgr_);
   tcamGroupManager_->entryMgrAdd(efpCoppEntryMgr_);
   tcamGroupManager_->entryMgrAdd(efpCoppDefAndVxlanEntryMgr_);

   // Large enough unless given: an entry and a meter for every (port, CPU queue) of the switch.
   // The default-and-VXLAN group needs at most one default and one VXLAN default entry per port
   // and the 512 dynamic VXLAN entries, which the chip's own pool size covers.
   U32 const perPortQueue =
       std::max(Shim::SimChip::defaultEntryPoolSize, static_cast<U32>(portQueueKeys()));
   SwitchResources sizes;
   sizes.efpCoppEntries = config_.resources.efpCoppEntries.value_or(perPortQueue);
   sizes.efpCoppMeters = config_.resources.efpCoppMeters.value_or(perPortQueue);
   sizes.efpDefaultMeters =
       config_.resources.efpDefaultMeters.value_or(Shim::SimChip::defaultMeterPoolSize);
   resourcesIs(sizes);
}

void Switch::helperIs() {
   // As the agent does: the factory found in the library file; a direct call only when the
   // file cannot be loaded.
   Nimbal::GetQosAclHelperFunction factory = nullptr;
   library_ = ::dlopen(NIMBAL_QOS_LIBRARY_FILE, RTLD_NOW);
   if (library_) {
      factory = reinterpret_cast<Nimbal::GetQosAclHelperFunction>(
          ::dlsym(library_, Nimbal::getQosAclHelperSymbol));
   }
   helperFromLibraryFile_ = factory != nullptr;
   if (!factory) {
      factory = &Nimbal::getQosAclHelper;
   }
   Kiv::Ptr<Nimbal::QosAclHelper> const helper =
       factory(qosStatus_, qosAclSliceHwStatus_, mainAclConfig_, mmuSm_, scsd_, tcamGroupManager_,
               pktDrv_, aclHwStatus_, vlanTopoSliceStatus_, scMiscConfig_, routingStatus_,
               vxlanSliceConfig_, kernelCoppConfig_, unit_, qosAclHwStatus_);
   helper_ = Kiv::ptr_cast<Nimbal::QosAclHelperV1>(helper);
   if (!helper_) {
      throw std::runtime_error("the library's factory gave no CoPP helper");
   }

   helper_->efpCoppEntryMgrIs(efpCoppEntryMgr_);
   helper_->efpCoppDefAndVxlanEntryMgrIs(efpCoppDefAndVxlanEntryMgr_);
   helper_->qosIntfCoppSmIs(scsd_, helper_.ptr());
   helper_->hwInit();
}

void Switch::portDefaultCoppEntriesIs() {
   Nimbal::StatTypes const statTypes = coppStatTypes();
   U32 const rate = config_.portDefaultCoppRate;
   U32 const burst = rate * 100 / 1000;
   Kiv::Ptr<Nimbal::NimbalBoundedTcamEntryManager> const entryMgr = efpCoppDefAndVxlanEntryMgr_;
   std::set<std::pair<U16, U16>> done;
   for (Orvik::IntfId const& intf : interfaces()) {
      NimbalTypes::NimbalPort const p = port(intf);
      // A port that is front-panel and fabric has one default entry, recorded for the
      // front-panel interface as the port-to-interface lookup finds it.
      if (p.logicalPort() >= defaultEntryPorts ||
          !done.insert({p.unit(), p.logicalPort()}).second) {
         continue;
      }
      U32 const unit = p.unit();
      U32 const entry = efpCoppDefAndVxlanBaseIndex + p.logicalPort();
      if (entryMgr->getEntryWithStats(unit, entry, "Default Copp: " + intf.stringValue(),
                                      Nimbal::RequestKey(), statTypes) == 0) {
         interfacesWithoutDefaultPolicer_.push_back(intf);
         continue;
      }
      entryMgr->setPriorityForEntry(unit, entry, entryMgr->entryPriority());
      // The exact source port, any CPU queue, any inner VLAN.
      Nimbal::setCoppEntryQual(unit, entry, p.logicalPort(), 0xFFFFFFFF, 0, 0, 0, 0);
      U32 const policer =
          Nimbal::installCoppPolicer(unit, entry, rate, burst, tcamGroupManager_, entryMgr);
      if (policer == noPolicer) {
         entryMgr->destroyEntry(unit, entry);
         interfacesWithoutDefaultPolicer_.push_back(intf);
         continue;
      }
      helper_->portDefaultCoppPolicerHwDataIs(
          intf, Nimbal::NimbalQosPolicerHwData(rate, burst, entry, policer));
   }
}

NimbalTypes::NimbalPort Switch::port(Orvik::IntfId const& intf) const {
   return Nimbal::getNimbalPortFromIntfId(scsd_, intf);
}

Orvik::IntfId Switch::intf(NimbalTypes::NimbalPort const& port) const {
   NimbalTypes::NimbalPort p = port;
   return Nimbal::getIntfIdFromNimbalPort(scsd_, p);
}

std::vector<Orvik::IntfId> Switch::interfaces() const {
   std::vector<Orvik::IntfId> out;
   for (SwitchInterface const& intf : config_.interfaces) {
      out.emplace_back(intf.name);
   }
   for (SwitchInterface const& intf : config_.fabricInterfaces) {
      out.emplace_back(intf.name);
   }
   return out;
}

std::vector<U16> Switch::units() const {
   std::set<U16> units;
   for (SwitchModule const& m : config_.modules) {
      units.insert(m.unit);
   }
   return std::vector<U16>(units.begin(), units.end());
}

U16 Switch::unitOfModule(U16 modId) const {
   return scsd_->nimbalModIdToUnitCol().value(modId).value_or(0);
}

U32 Switch::defaultEntry(Orvik::IntfId const& intf) const {
   return helper_->portDefaultCoppPolicerHwData(intf).entryId();
}

void Switch::resourcesIs(SwitchResources const& resources) {
   for (U16 unit : units()) {
      if (resources.efpCoppEntries) {
         chip().entryPoolSizeIs(unit, efpCoppGroupId, *resources.efpCoppEntries);
      }
      if (resources.efpCoppMeters) {
         chip().meterPoolSizeIs(unit, efpCoppGroupId, *resources.efpCoppMeters);
      }
      if (resources.efpDefaultMeters) {
         chip().meterPoolSizeIs(unit, efpCoppDefAndVxlanGroupId, *resources.efpDefaultMeters);
      }
   }
}

std::unique_ptr<Switch> buildSwitch(SwitchConfig const& config) {
   return std::make_unique<Switch>(config);
}

}  // namespace NimbalHost
