#include "NimbalQos/NimbalQosProtectionHelper.h"

namespace Nimbal {

// Built with the CoPP policer verification; the agent's behaviour meanwhile.
void QosAclHelperV1::verifyPolicer(Kiv::Ptr<Oskel::QosClassData> const& classData) {
   QosAclHelper::verifyPolicer(classData);
}

}  // namespace Nimbal
