#include "NimbalQos/NimbalQosProtectionHelper.h"

namespace Nimbal {

// Built with the CPU queue allocation; the agent's behaviour meanwhile.
S32 QosAclHelperV1::coppAllocateCpuQ(Kiv::Ptr<Oskel::QosClassData> const& classData) {
   return QosAclHelper::coppAllocateCpuQ(classData);
}

// Built with the CPU queue allocation; the agent's behaviour meanwhile.
void QosAclHelperV1::coppDeallocateCpuQ(Kiv::Ptr<Oskel::QosClassData> const& classData) {
   QosAclHelper::coppDeallocateCpuQ(classData);
}

// Built with the class CoPP policers; the agent's behaviour meanwhile.
bool QosAclHelperV1::createAndAttachPolicer(Kiv::Ptr<Oskel::QosClassData> const& classData) {
   return QosAclHelper::createAndAttachPolicer(classData);
}

// Built with the class CoPP policers; the agent's behaviour meanwhile.
void QosAclHelperV1::destroyPolicer(Kiv::Ptr<Oskel::QosClassData> const& classData) {
   QosAclHelper::destroyPolicer(classData);
}

// Built with the class CoPP policers; the agent's behaviour meanwhile.
bool QosAclHelperV1::createAndAttachCoppPolicer(Kiv::Ptr<Oskel::QosClassData> const& classData) {
   return QosAclHelper::createAndAttachCoppPolicer(classData);
}

// Built with the class CoPP policers; the agent's behaviour meanwhile.
void QosAclHelperV1::destroyCoppPolicer(Kiv::Ptr<Oskel::QosClassData> const& classData) {
   QosAclHelper::destroyCoppPolicer(classData);
}

// Built with the class CoPP policers; the agent's behaviour meanwhile.
bool QosAclHelperV1::checkUserCoppEntryExists(Oskel::ModIdPortQueueKey const& key) {
   return QosAclHelper::checkUserCoppEntryExists(key);
}

// Built with the class CoPP policers; the agent's behaviour meanwhile.
bool QosAclHelperV1::checkKernelCoppEntryExists(Oskel::ModIdPortQueueKey const& key) {
   return QosAclHelper::checkKernelCoppEntryExists(key);
}

// Built with the port-queue CoPP policers; the agent's behaviour meanwhile.
bool QosAclHelperV1::createCoppPolicerByPortQueue(Oskel::ModIdPortQueueKey const& key) {
   return QosAclHelper::createCoppPolicerByPortQueue(key);
}

// Built with the port-queue CoPP policers; the agent's behaviour meanwhile.
void QosAclHelperV1::destroyCoppPolicerByPortQueue(Oskel::ModIdPortQueueKey const& key) {
   QosAclHelper::destroyCoppPolicerByPortQueue(key);
}

// Built with the default CoPP rates; the agent's behaviour meanwhile.
void QosAclHelperV1::createDefaultCoppRates() {
   QosAclHelper::createDefaultCoppRates();
}

}  // namespace Nimbal
