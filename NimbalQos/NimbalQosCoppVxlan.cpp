#include "Kiv/Trace.h"
#include "NimbalCentral/ChipInfo.h"
#include "NimbalQos/NimbalQosProtectionHelper.h"
#include "NimbalQos/NimbalQosSharedHelper.h"

namespace Nimbal {

bool QosAclHelperV1::vxlanCoppSrcPortWorkAroundNeeded() {
   return NimbalCentral::nimbalAttributes().vxlanCoppSrcPortWorkAroundNeeded();
}

void QosAclHelperV1::syncCoppVxlanEntries(bool) {
   // Only chips that recirculate tunnel traffic to the CPU need VXLAN entries.
   if (!vxlanCoppSrcPortWorkAroundNeeded()) {
      return;
   }
   KIV_TRACE(defaultTraceHandle(), 4,
             "syncCoppVxlanEntries"
                 << " vxlan enabled: " << scsd()->vxlanEnabled());
   // Built with the VXLAN CoPP programming.
}

void QosAclHelperV1::updateIntfCoppOnVxlanRecircIntfEnabled(Orvik::IntfId intf, bool enabled) {
   if (!vxlanCoppSrcPortWorkAroundNeeded()) {
      return;
   }
   KIV_TRACE(defaultTraceHandle(), 4,
             "updateIntfCoppOnVxlanRecircIntfEnabled"
                 << " intf: " << intf << " enabled: " << enabled);
   // Built with the VXLAN CoPP programming.
}

}  // namespace Nimbal
