#include "NimbalQos/NimbalQosProtectionHelper.h"

namespace Nimbal {

// Built with the policy ACL port programming; the agent's behaviour meanwhile.
void QosAclHelperV1::precreateAcl(Kiv::Ptr<Oskel::QosPolicyMapState> const& pmapState,
                                  Kiv::Ptr<Oskel::QosClassData> const& classData,
                                  Qos::ClassMapMatchOption matchOption, Oskel::AclKey const& aclKey,
                                  U32 aclType) {
   QosAclHelper::precreateAcl(pmapState, classData, matchOption, aclKey, aclType);
}

// Built with the policy ACL port programming; the agent's behaviour meanwhile.
void QosAclHelperV1::setEntryPorts(Kiv::Ptr<Oskel::QosPolicyMapState> const& pmapState,
                                   Kiv::Ptr<Oskel::QosClassData> const& classData,
                                   Qos::ClassMapMatchOption matchOption,
                                   Oskel::AclKey const& aclKey, U32 unit, U64 const& entry) {
   QosAclHelper::setEntryPorts(pmapState, classData, matchOption, aclKey, unit, entry);
}

// Built with the policy ACL port programming; the agent's behaviour meanwhile.
void QosAclHelperV1::compressAllGroups() {
   QosAclHelper::compressAllGroups();
}

// Built with the CoPP counter dispatch; the agent's behaviour meanwhile.
Oskel::QosClassCounterData QosAclHelperV1::counterUpdateRequest(
    Kiv::Ptr<Oskel::QosClassData> const& classData, Oskel::AclKey const& aclKey) {
   return QosAclHelper::counterUpdateRequest(classData, aclKey);
}

// Built with the policy ACL port programming; the agent's behaviour meanwhile.
void QosAclHelperV1::verifyRulePortsForUnit(Kiv::Ptr<Oskel::QosPolicyMapState> const& pmapState,
                                            Kiv::Ptr<Oskel::QosClassData> const& classData,
                                            Qos::ClassMapMatchOption matchOption,
                                            Oskel::AclKey const& aclKey, U32 unit, U32 entry,
                                            U32 seqNo, U32 aclType, U32 groupId,
                                            Acl::Action action) {
   QosAclHelper::verifyRulePortsForUnit(pmapState, classData, matchOption, aclKey, unit, entry,
                                        seqNo, aclType, groupId, action);
}

}  // namespace Nimbal
