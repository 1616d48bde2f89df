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
   std::vector<std::pair<U32, U32>> queueTotals;
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
      // The interface's totals are all read before its rows are written: the reads, each a
      // walk through the entry manager and the chip, then overlap instead of each waiting
      // behind the previous row's write.
      queueTotals.clear();
      for (auto const& [queue, swCounter] : counterData->qCounterColCol()) {
         // Kept to 32 bits as the table has always shown it: a total that wraps to 0 is not
         // shown.
         queueTotals.push_back({queue, static_cast<U32>(swCounter.pktHits()) +
                                           static_cast<U32>(getIntfQueueCoppPolicerPktHits(port, queue))});
      }
      for (auto const& [queue, total] : queueTotals) {
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
   struct QueueCounts {
      U32 queue;
      U64 dropped;
      U64 allowed;  // since the last full clear
   };
   std::vector<QueueCounts> queueCounts;
   Kiv::Ptr<MmuCpuQColl const> const cpuQs = mmuSm()->cpuQColl();
   for (Kiv::String const& intfName : intfNames) {
      Orvik::IntfId const intf(intfName);
      NimbalTypes::NimbalPort const port = counterIntfPort(scsd(), intf);
      Kiv::Ptr<NimbalQosCoppIntfCounterData> const counterData = coppIntfCounterData(intf);
      // Read first, then written, as in the hardware table.
      queueCounts.clear();
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
         queueCounts.push_back(
             {queue, drop - snapshot.drop(), allowed + snapshot.drop() - snapshot.pktHits()});
      }
      bool intfPrinted = false;
      for (QueueCounts const& c : queueCounts) {
         if (c.dropped == 0 && c.allowed == 0) {
            continue;
         }
         __dprintf_chk(fd, 1, "%-15s %-26s %15lld %15lld\n", intfPrinted ? "" : intfName.c_str(),
                       cpuQName(*cpuQs, c.queue), static_cast<long long>(c.dropped),
                       static_cast<long long>(c.allowed));
         intfPrinted = true;
      }
   }
}

}  // namespace Nimbal
