// A first look at the CoPP library as the agent sees it: a small switch state, the library
// loaded with dlopen, the helper built by the exported factory and initialised, and the
// helper's attributes read through the framework's generic attribute interface.

#include <dlfcn.h>

#include <cstdio>
#include <string>

#include "Kiv/Activity.h"
#include "Kiv/Type.h"
#include "Nimbal/NimbalCommonSmData.h"
#include "Nimbal/TcamEntryManager.h"
#include "Nimbal/TcamGroupManager.h"
#include "NimbalQos/NimbalQosSharedHelper.h"

namespace {

// The agent's state for one module with eight front-panel ports.
struct SwitchState {
   Kiv::Ptr<Nimbal::NimbalCommonSmData> scsd{new Nimbal::NimbalCommonSmData()};
   Kiv::Ptr<Nimbal::NimbalTcamGroupManager> tcamGroupManager{new Nimbal::NimbalTcamGroupManager()};

   SwitchState() {
      scsd->nimbalModIdToUnitIs(0, 0);
      scsd->nimbalModIdIs(0, Nimbal::NimbalModInfo(0, 0, NimbalCentral::ChipInfo(0)));
      for (U16 port = 1; port <= 8; ++port) {
         scsd->intfPortIs(Orvik::IntfId("Ethernet" + std::to_string(port)),
                          NimbalTypes::NimbalPort(0, 0, port));
      }
      // The ingress CoPP groups for IPv4 and IPv6.
      tcamGroupManager->entryMgrAdd(new Nimbal::NimbalUnboundedTcamEntryManager(34));
      tcamGroupManager->entryMgrAdd(new Nimbal::NimbalUnboundedTcamEntryManager(38));
   }
};

}  // namespace

int main() {
   Kiv::ActivityScope activity;
   SwitchState state;

   void* library = ::dlopen(NIMBAL_QOS_LIBRARY_FILE, RTLD_NOW);
   if (!library) {
      std::fprintf(stderr, "cannot load %s: %s\n", NIMBAL_QOS_LIBRARY_FILE, ::dlerror());
      return 1;
   }
   auto factory = reinterpret_cast<Nimbal::GetQosAclHelperFunction>(
       ::dlsym(library, Nimbal::getQosAclHelperSymbol));
   if (!factory) {
      std::fprintf(stderr, "no factory in %s: %s\n", NIMBAL_QOS_LIBRARY_FILE, ::dlerror());
      return 1;
   }

   {
      Kiv::Ptr<Nimbal::QosAclHelper> helper =
          factory(new Qos::Status(), new Qos::AclSliceHwStatus(), new Acl::Config(),
                  new Nimbal::MmuConfigSm(), state.scsd, state.tcamGroupManager,
                  new Nimbal::PktDrv(), new NimbalCentral::AclHwStatus(),
                  new NimbalVlanTopo::VlanTopoSliceStatus(), new NimbalCentral::NimbalMiscConfig(),
                  new NimbalL3::RoutingStatus(), new NimbalCentral::VxlanSliceConfig(),
                  new Oskel::KernelCoPPConfig(), 0, new Qos::AclHwStatus());
      helper->hwInit();

      Kiv::TypeDesc const* type = helper->fwkType();
      std::printf("helper: %s\n", type->fullName().c_str());
      for (auto const& name : type->attributeNames()) {
         std::printf("  %s = %s\n", name.c_str(), Kiv::attributeValue(*helper, name).c_str());
      }
      for (auto const& name : type->operationNames()) {
         std::printf("  operation %s\n", name.c_str());
      }
   }

   ::dlclose(library);
   return 0;
}
