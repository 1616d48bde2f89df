#include <algorithm>
#include <vector>

#include "Kiv/Assert.h"
#include "Kiv/Trace.h"
#include "Nimbal/MmuCpuQ.h"
#include "NimbalQos/NimbalQosProtectionHelper.h"
#include "NimbalQos/NimbalQosSharedHelper.h"
#include "Orvik/IntfNameCmp.h"

// The C library's checked dprintf: what a fortified build makes of dprintf, called by its own
// name with flag 1 so that every build writes the tables alike. Each line goes straight to the
// descriptor: the CLI shows rows as they come, and a failed write loses that line only.
extern "C" int __dprintf_chk(int fd, int flag, char const* format, ...)
    __attribute__((format(printf, 3, 4)));

namespace Nimbal {

namespace {

// A counter record exists only for an interface that had a port when its entry was made.
NimbalTypes::NimbalPort counterIntfPort(Kiv::Ptr<NimbalCommonSmData const> const& scsd,
                                        Orvik::IntfId const& intf) {
   NimbalTypes::NimbalPort const sp = getNimbalPortFromIntfId(scsd, intf);
   KIV_ASSERT_MSG(sp != NimbalTypes::NimbalPort::noPort(), "!!sp");
   return sp;
}

// The display name of a CPU queue; the port-queue code keeps counters only for known queues.
char const* cpuQName(MmuCpuQColl const& cpuQs, U32 queue) {
   auto const it = cpuQs.cpuQCol().findIter(queue);
   MmuCpuQ const* const cpuQ = it == cpuQs.cpuQCol().end() ? nullptr : it->second.ptr();
   KIV_ASSERT(cpuQ);
   return cpuQ->name().c_str();
}

}  // namespace

void QosAclHelperV1::showCoppIntfCountersHw(U32 socket) {
   KIV_TRACE(defaultTraceHandle(), 4, "void Nimbal::QosAclHelperV1::showCoppIntfCountersHw(U32)");
   int const fd = static_cast<int>(socket);
   __dprintf_chk(fd, 1, "Interface              Queue           Hits\n");
   __dprintf_chk(fd, 1, "----------------------------------------------------\n");
   Kiv::Ptr<MmuCpuQColl const> const cpuQs = mmuSm()->cpuQColl();
   for (auto const& [intf, counterData] : coppIntfCounterDataCol()) {
      NimbalTypes::NimbalPort const port = counterIntfPort(scsd(), intf);
      char const* const intfName = intf.stringValue().c_str();
      bool intfPrinted = false;
      U64 const defaultHits = getPortDefaultCoppPolicerPktHits(port.unit(), intf);
      if (defaultHits != 0) {
         __dprintf_chk(fd, 1, "%-15s %-20s %15lld\n", intfName, "Default",
                       static_cast<long long>(defaultHits));
         intfPrinted = true;
      }
      for (auto const& [queue, swCounter] : counterData->qCounterColCol()) {
         // Kept to 32 bits as the table has always shown it: a total that wraps to 0 is not
         // shown.
         U32 const total = static_cast<U32>(swCounter.pktHits()) +
                           static_cast<U32>(getIntfQueueCoppPolicerPktHits(port, queue));
         if (total == 0) {
            continue;
         }
         char const* const queueName = cpuQName(*cpuQs, queue);
         if (!intfPrinted) {
            __dprintf_chk(fd, 1, "%-15s %-20s %15lld \n", intfName, queueName,
                          static_cast<long long>(total));
         } else {
            __dprintf_chk(fd, 1, "%-15s %-20s %15lld\n", "", queueName,
                          static_cast<long long>(total));
         }
         intfPrinted = true;
      }
   }
   __dprintf_chk(fd, 1, "\n\n");
}

void QosAclHelperV1::showCoppIntfCountersSw(U32 socket) {
   KIV_TRACE(defaultTraceHandle(), 4, "void Nimbal::QosAclHelperV1::showCoppIntfCountersSw(U32)");
   int const fd = static_cast<int>(socket);
   __dprintf_chk(fd, 1, "%-15s %-26s %15s %15s\n", "Interface", "Queue", "Dropped", "Allowed");
   std::vector<Kiv::String> intfNames;
   for (auto const& [intf, counterData] : coppIntfCounterDataCol()) {
      intfNames.push_back(intf.stringValue());
   }
   std::sort(intfNames.begin(), intfNames.end(), Orvik::intfNameCmp);
   Kiv::Ptr<MmuCpuQColl const> const cpuQs = mmuSm()->cpuQColl();
   for (Kiv::String const& intfName : intfNames) {
      Orvik::IntfId const intf(intfName);
      NimbalTypes::NimbalPort const port = counterIntfPort(scsd(), intf);
      Kiv::Ptr<NimbalQosCoppIntfCounterData> const counterData = coppIntfCounterData(intf);
      bool intfPrinted = false;
      for (auto const& [queue, swCounter] : counterData->qCounterColCol()) {
         auto const [drop, allowed] =
             pktDrv()->getDdeCoppCounters(port.unit(), port.logicalPort(), queue);
         Oskel::QosClassCounterData const snapshot =
             lastClearCoppSwCounterCol()
                 .value(Oskel::ModIdPortQueueKey(port.modId(), port.logicalPort(), queue))
                 .value_or(Oskel::QosClassCounterData());
         // The snapshot keeps drop + allowed as its packet hits: what was allowed at the clear
         // is pktHits - drop. Unsigned and wrapping, like every counter read against a
         // snapshot.
         U64 const dropped = drop - snapshot.drop();
         U64 const allowedSinceClear = allowed + snapshot.drop() - snapshot.pktHits();
         if (dropped == 0 && allowedSinceClear == 0) {
            continue;
         }
         __dprintf_chk(fd, 1, "%-15s %-26s %15lld %15lld\n", intfPrinted ? "" : intfName.c_str(),
                       cpuQName(*cpuQs, queue), static_cast<long long>(dropped),
                       static_cast<long long>(allowedSinceClear));
         intfPrinted = true;
      }
   }
}

}  // namespace Nimbal
