#include "Nimbal/MmuCpuQ.h"

#include <set>
#include <stdexcept>

#include "Kiv/Assert.h"

namespace Nimbal {

std::vector<MmuCpuQRow> const& builtInCpuQTable() {
   // id, display name, default rate (pps), default burst (packets), static classes, dynamic
   static std::vector<MmuCpuQRow> const table = {
       {0, "CoppSystemDrop", 0, 0, {}, false},
       {1, "CoppSystemBgp", 5000, 500, {"copp-system-bgp"}, false},
       {2, "CoppSystemOspf", 2500, 250, {"copp-system-ospf"}, false},
       {3, "CoppSystemIsis", 2500, 250, {"copp-system-isis"}, false},
       {4, "CoppSystemBfd", 5000, 500, {"copp-system-bfd"}, false},
       {5, "CoppSystemLacp", 1000, 100, {"copp-system-lacp"}, false},
       {6, "CoppSystemLldp", 500, 50, {"copp-system-lldp"}, false},
       {7, "CoppSystemStp", 1000, 100, {"copp-system-stp"}, false},
       {8, "CoppSystemArp", 1000, 100, {"copp-system-arp"}, false},
       {9, "CoppSystemArpResolver", 1000, 100, {"copp-system-arpresolver"}, false},
       {10, "CoppSystemNd", 1000, 100, {"copp-system-nd"}, false},
       {11, "CoppSystemIpUnicast", 1000, 100, {"copp-system-ipunicast"}, false},
       {12, "CoppSystemIpMcast", 1000, 100, {"copp-system-ipmc"}, false},
       {13, "CoppSystemIpMcastMiss", 1000, 100, {"copp-system-ipmcmiss"}, false},
       {14, "CoppSystemL3Ttl1", 500, 50, {"copp-system-l3ttl1"}, false},
       {15, "CoppSystemL3SlowPath", 500, 50, {"copp-system-l3slowpath"}, false},
       {16, "CoppSystemL2Broadcast", 500, 50, {"copp-system-l2broadcast"}, false},
       {17, "CoppSystemL2Unknown", 500, 50, {"copp-system-l2unknown"}, false},
       {18, "CoppSystemAclLog", 500, 50, {"copp-system-acllog"}, false},
       {19, "CoppSystemSflow", 2000, 200, {"copp-system-sflow"}, false},
       {20, "CoppSystemIgmp", 1000, 100, {"copp-system-igmp"}, false},
       {21, "CoppSystemPim", 1000, 100, {"copp-system-pim"}, false},
       {22, "CoppSystemMld", 1000, 100, {"copp-system-mld"}, false},
       {23, "CoppSystemVrrp", 1000, 100, {"copp-system-vrrp"}, false},
       {24, "CoppSystemDhcp", 500, 50, {"copp-system-dhcp"}, false},
       {25, "CoppSystemDhcpRelay", 500, 50, {"copp-system-dhcprelay"}, false},
       {26, "CoppSystemMgmt", 2000, 200, {"copp-system-ssh"}, false},
       {27, "CoppSystemNtp", 500, 50, {"copp-system-ntp"}, false},
       {28, "CoppSystemAaa", 500, 50, {"copp-system-aaa"}, false},
       {29, "CoppSystemPtp", 1000, 100, {"copp-system-ptp"}, false},
       {30, "CoppSystemMplsTtl1", 500, 50, {"copp-system-mplsttl1"}, false},
       {31, "CoppSystemMplsLabelMiss", 500, 50, {"copp-system-mplslabelmiss"}, false},
       {32, "CoppSystemVxlan", 500, 50, {"copp-system-vxlan"}, false},
       {33, "CoppSystemMirroring", 500, 50, {"copp-system-mirroring"}, false},
       {34, "CoppSystemIpBroadcast", 500, 50, {"copp-system-ipbroadcast"}, false},
       {35, "CoppSystemL3Mtu", 500, 50, {"copp-system-l3mtu"}, false},
       {36, "CoppSystemCfm", 500, 50, {"copp-system-cfm"}, false},
       {37, "CoppSystemLinkLocal", 500, 50, {"copp-system-linklocal"}, false},
       {38, "CoppSystemMlag", 5000, 500, {"copp-system-mlag"}, false},
       {39, "CoppSystemDefault", 500, 50, {"copp-system-default"}, false},
       {40, "CoppUserDefined1", 1000, 100, {}, true},
       {41, "CoppUserDefined2", 1000, 100, {}, true},
       {42, "CoppUserDefined3", 1000, 100, {}, true},
       {43, "CoppUserDefined4", 1000, 100, {}, true},
       {44, "CoppUserDefined5", 1000, 100, {}, true},
       {45, "CoppUserDefined6", 1000, 100, {}, true},
       {46, "CoppUserDefined7", 1000, 100, {}, true},
       {47, "CoppUserDefined8", 1000, 100, {}, true},
   };
   return table;
}

MmuCpuQ::MmuCpuQ(U32 cpuQId) : cpuQId_(cpuQId) {
   hasNotificationActiveIs(true);
}

void MmuCpuQ::cpuQRateIs(Qos::ActionRateType r) {
   if (r == cpuQRate_) {
      return;
   }
   cpuQRate_ = r;
   notify("cpuQRate");
}

void MmuCpuQ::configIs(MmuCpuQRow const& row, Kiv::Name const& coppPMapName) {
   name_ = row.name;
   dynamic_ = row.dynamic;
   defaultCoppRate_ = row.rate;
   defaultCoppBurst_ = row.burst;
   staticClasses_ = row.classes;
   cpuQRate_ = row.rate;
   if (staticClasses_.empty()) {
      holderIs("", Qos::mapControlPlane_, "", Qos::mapControlPlane_);
   } else {
      holderIs(coppPMapName, Qos::mapControlPlane_, staticClasses_.front(), Qos::mapControlPlane_);
   }
}

void MmuCpuQ::holderIs(Kiv::Name const& pmapName, Qos::MapType pmapType, Kiv::Name const& cmapName,
                       Qos::MapType cmapType) {
   pmapName_ = pmapName;
   pmapType_ = pmapType;
   cmapName_ = cmapName;
   cmapType_ = cmapType;
}

void MmuCpuQ::usersIs(U32 users) {
   if (users == users_) {
      return;
   }
   users_ = users;
   notify("allocated");
}

void MmuCpuQ::bandwidthIs(CpuQBandwidth const& bw) {
   bandwidth_ = bw;
   ++bandwidthProgrammings_;
   notify("bandwidth");
}

MmuCpuQSm::MmuCpuQSm(Kiv::Ptr<MmuCpuQColl> const& cpuQColl) : cpuQColl_(cpuQColl) {
   hasNotificationActiveIs(true);
   KIV_ASSERT(cpuQColl_);
   cpuQTableIs(builtInCpuQTable());
}

void MmuCpuQSm::coppPMapNameIs(Kiv::Name const& name) {
   if (name == coppPMapName_) {
      return;
   }
   coppPMapName_ = name;
   // Static queues belong to the CoPP policy map under whatever name it has.
   for (auto const& [id, cpuQ] : cpuQColl_->cpuQCol()) {
      if (!cpuQ->staticClasses().empty()) {
         cpuQ->holderIs(coppPMapName_, Qos::mapControlPlane_, cpuQ->staticClasses().front(),
                        Qos::mapControlPlane_);
      }
   }
   notify("coppPMapName");
}

Kiv::String MmuCpuQSm::cpuQTableError(std::vector<MmuCpuQRow> const& rows) {
   if (rows.size() != mmuCpuQueues) {
      return "the CPU queue table needs exactly " + std::to_string(mmuCpuQueues) + " queues, not " +
             std::to_string(rows.size());
   }
   std::set<U32> ids;
   std::set<Kiv::String> classes;
   for (MmuCpuQRow const& row : rows) {
      std::string const queue = "CPU queue " + std::to_string(row.id);
      if (row.id >= mmuCpuQueues) {
         return queue + ": id must be below " + std::to_string(mmuCpuQueues);
      }
      if (!ids.insert(row.id).second) {
         return queue + ": id appears twice";
      }
      if (row.name.empty()) {
         return queue + ": name is empty";
      }
      if (row.dynamic && !row.classes.empty()) {
         return queue + ": a dynamic queue has no static classes";
      }
      if (row.classes.size() > 1) {
         return queue + ": a static queue serves one class, not " +
                std::to_string(row.classes.size());
      }
      if (row.id == cpuCosqDrop_ && (row.dynamic || !row.classes.empty())) {
         return queue + ": the drop queue takes no class";
      }
      for (Kiv::String const& c : row.classes) {
         if (c.empty()) {
            return queue + ": class name is empty";
         }
         if (!classes.insert(c).second) {
            return queue + ": class " + c + " is mapped to another queue too";
         }
      }
   }
   return "";
}

void MmuCpuQSm::cpuQTableIs(std::vector<MmuCpuQRow> const& rows) {
   Kiv::String const error = cpuQTableError(rows);
   if (!error.empty()) {
      throw std::invalid_argument(error);
   }
   staticClassCpuQ_.clear();
   cpuQColl_->cpuQDelAll();
   for (MmuCpuQRow const& row : rows) {
      Kiv::Ptr<MmuCpuQ> cpuQ(new MmuCpuQ(row.id));
      cpuQ->configIs(row, coppPMapName_);
      for (Kiv::String const& c : row.classes) {
         staticClassCpuQ_[c] = row.id;
      }
      cpuQColl_->cpuQIs(row.id, cpuQ);
   }
}

int MmuCpuQSm::allocateDynamicCpuQ(Kiv::Ptr<Qos::PolicyMapStatus const> const& pmapStatus,
                                   Kiv::Ptr<Qos::ClassMapStatus const> const& cmapStatus) {
   KIV_ASSERT(pmapStatus);
   KIV_ASSERT(cmapStatus);
   // A class map keeps one queue however many policy maps use it.
   for (auto const& [id, cpuQ] : cpuQColl_->cpuQCol()) {
      if (cpuQ->dynamic() && cpuQ->users() > 0 && cpuQ->cmapName() == cmapStatus->name()) {
         cpuQ->usersIs(cpuQ->users() + 1);
         return static_cast<int>(id);
      }
   }
   for (auto const& [id, cpuQ] : cpuQColl_->cpuQCol()) {
      if (cpuQ->dynamic() && cpuQ->users() == 0) {
         cpuQ->holderIs(pmapStatus->name(), pmapStatus->mapType(), cmapStatus->name(),
                        cmapStatus->mapType());
         cpuQ->usersIs(1);
         return static_cast<int>(id);
      }
   }
   ++allocationFailures_;
   return -1;
}

void MmuCpuQSm::deallocateDynamicCpuQ(int cpuQId) {
   if (cpuQId < 0) {
      ++noQueueDeallocations_;
      return;
   }
   Kiv::Ptr<MmuCpuQ> cpuQ = cpuQColl_->cpuQ(static_cast<U32>(cpuQId));
   KIV_ASSERT(cpuQ);
   KIV_ASSERT(cpuQ->dynamic());
   KIV_ASSERT(cpuQ->users() > 0);
   cpuQ->usersIs(cpuQ->users() - 1);
   if (cpuQ->users() == 0) {
      cpuQ->holderIs("", Qos::mapControlPlane_, "", Qos::mapControlPlane_);
   }
}

void MmuCpuQSm::programCpuQBandwidth(int cpuQId, Qos::ActionRateType minRate,
                                     Qos::ActionRateType maxRate, Qos::RateUnit unit, bool copp) {
   KIV_ASSERT(cpuQId >= 0);
   Kiv::Ptr<MmuCpuQ> cpuQ = cpuQColl_->cpuQ(static_cast<U32>(cpuQId));
   KIV_ASSERT(cpuQ);
   cpuQ->bandwidthIs(CpuQBandwidth{minRate, maxRate, unit, copp});
}

int MmuCpuQSm::staticClassToCpuQId(Kiv::Name const& pmapName, Qos::MapType pmapType,
                                   Kiv::Name const& cmapName, Qos::MapType cmapType) const {
   if (pmapName != coppPMapName_ || pmapType != Qos::mapControlPlane_ ||
       cmapType != Qos::mapControlPlane_) {
      return -1;
   }
   auto it = staticClassCpuQ_.find(cmapName);
   return it == staticClassCpuQ_.end() ? -1 : static_cast<int>(it->second);
}

}  // namespace Nimbal
