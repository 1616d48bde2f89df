#include "NimbalQos/NimbalQosProtectionHelper.h"

namespace Nimbal {

// Hardware hit counters of CoPP entries are never cleared on this platform: the clears below
// are deliberately empty, and the queue counters have no display of their own.

void QosAclHelperV1::clearPortDefaultCoppPolicerPktHits(U16, Orvik::IntfId) {}

void QosAclHelperV1::clearIntfQueueCoppPolicerPktHits(NimbalTypes::NimbalPort const&, U32) {}

void QosAclHelperV1::clearIntfCoppCounters() {}

void QosAclHelperV1::showCpuIntfCoppQueueCounters(U32) {}

}  // namespace Nimbal
