#pragma once

#include <string>
#include <unordered_map>
#include <vector>

#include "Kiv/Collection.h"
#include "Qos/Action.h"
#include "Qos/QosTypes.h"
#include "Qos/Status.h"

namespace Nimbal {

// The CPU queue that takes the packets the chip drops to the CPU; never given to a class.
inline constexpr U32 cpuCosqDrop_ = 0;
// The chip has exactly this many CPU queues.
inline constexpr U32 mmuCpuQueues = 48;

// One row of a CPU queue table: how a queue is named, what it lets through by default, and
// which CoPP classes are mapped to it for good (static) or whether it serves the pool of
// queues given to classes that have none (dynamic).
struct MmuCpuQRow {
   U32 id = 0;
   Kiv::String name;
   U32 rate = 0;   // default CoPP rate, packets per second
   U32 burst = 0;  // default CoPP burst, packets
   std::vector<Kiv::String> classes;
   bool dynamic = false;
};

// The switch's own CPU queue table.
std::vector<MmuCpuQRow> const& builtInCpuQTable();

// The bandwidth last programmed on a CPU queue.
struct CpuQBandwidth {
   Qos::ActionRateType minRate = 0;  // guaranteed
   Qos::ActionRateType maxRate = 0;  // ceiling
   Qos::RateUnit unit = Qos::rateUnitInvalid_;
   bool copp = false;
   bool operator==(CpuQBandwidth const& o) const = default;
};

// A CPU queue of the MMU. It is allocated while it has holders: its static classes plus the
// classes that share it as a dynamic queue.
class MmuCpuQ : public Kiv::Entity {
  public:
   explicit MmuCpuQ(U32 cpuQId);

   U32 cpuQId() const { return cpuQId_; }
   Kiv::String const& name() const { return name_; }
   bool dynamic() const { return dynamic_; }
   U32 defaultCoppRate() const { return defaultCoppRate_; }
   U32 defaultCoppBurst() const { return defaultCoppBurst_; }
   std::vector<Kiv::String> const& staticClasses() const { return staticClasses_; }

   U32 allocated() const { return static_cast<U32>(staticClasses_.size()) + users_; }
   // Classes holding the queue from the dynamic pool.
   U32 users() const { return users_; }

   // The policy map and class map that hold the queue; for a static queue the CoPP policy
   // map and its first static class.
   Kiv::Name const& pmapName() const { return pmapName_; }
   Qos::MapType pmapType() const { return pmapType_; }
   Kiv::Name const& cmapName() const { return cmapName_; }
   Qos::MapType cmapType() const { return cmapType_; }

   // The queue's own rate, used for its bandwidth when the platform says so.
   Qos::ActionRateType cpuQRate() const { return cpuQRate_; }
   void cpuQRateIs(Qos::ActionRateType r);

   CpuQBandwidth const& bandwidth() const { return bandwidth_; }
   U32 bandwidthProgrammings() const { return bandwidthProgrammings_; }

  private:
   friend class MmuCpuQSm;
   void configIs(MmuCpuQRow const& row, Kiv::Name const& coppPMapName);
   void holderIs(Kiv::Name const& pmapName, Qos::MapType pmapType, Kiv::Name const& cmapName,
                 Qos::MapType cmapType);
   void usersIs(U32 users);
   void bandwidthIs(CpuQBandwidth const& bw);

   U32 cpuQId_;
   Kiv::String name_;
   bool dynamic_ = false;
   U32 defaultCoppRate_ = 0;
   U32 defaultCoppBurst_ = 0;
   std::vector<Kiv::String> staticClasses_;
   U32 users_ = 0;
   Kiv::Name pmapName_;
   Qos::MapType pmapType_ = Qos::mapControlPlane_;
   Kiv::Name cmapName_;
   Qos::MapType cmapType_ = Qos::mapControlPlane_;
   Qos::ActionRateType cpuQRate_ = 0;
   CpuQBandwidth bandwidth_;
   U32 bandwidthProgrammings_ = 0;
};

// The CPU queues by id, iterated in id order.
class MmuCpuQColl : public Kiv::Entity {
  public:
   MmuCpuQColl() { hasNotificationActiveIs(true); }

   KIV_ORDERED_MAP(U32, Kiv::Ptr<MmuCpuQ>, cpuQ)

  public:
   U32 cpuQs() const { return static_cast<U32>(cpuQ()); }
   auto begin() const { return cpuQCol().begin(); }
   auto end() const { return cpuQCol().end(); }
};

// The CPU queue state machine: the static class-to-queue table, the pool of dynamic queues
// and the queues' bandwidth.
class MmuCpuQSm : public Kiv::Entity {
  public:
   explicit MmuCpuQSm(Kiv::Ptr<MmuCpuQColl> const& cpuQColl);

   Kiv::Ptr<MmuCpuQColl> const& cpuQColl() const { return cpuQColl_; }

   Kiv::Name const& coppPMapName() const { return coppPMapName_; }
   void coppPMapNameIs(Kiv::Name const& name);

   // An empty text when the table can be used, else what is wrong with it.
   static Kiv::String cpuQTableError(std::vector<MmuCpuQRow> const& rows);
   // Rebuilds every queue from the table; throws std::invalid_argument for a bad table.
   void cpuQTableIs(std::vector<MmuCpuQRow> const& rows);

   // The lowest free dynamic queue for the class, or the one its class-map name already
   // holds; -1 when none is free.
   int allocateDynamicCpuQ(Kiv::Ptr<Qos::PolicyMapStatus const> const& pmapStatus,
                           Kiv::Ptr<Qos::ClassMapStatus const> const& cmapStatus);
   // Gives up one hold of a dynamic queue; -1 stands for no queue.
   void deallocateDynamicCpuQ(int cpuQId);
   void programCpuQBandwidth(int cpuQId, Qos::ActionRateType minRate, Qos::ActionRateType maxRate,
                             Qos::RateUnit unit, bool copp);
   // The static queue of a CoPP class, or -1.
   int staticClassToCpuQId(Kiv::Name const& pmapName, Qos::MapType pmapType,
                           Kiv::Name const& cmapName, Qos::MapType cmapType) const;

   // Observable outcomes of the pool.
   U32 allocationFailures() const { return allocationFailures_; }
   U32 noQueueDeallocations() const { return noQueueDeallocations_; }

  private:
   Kiv::Ptr<MmuCpuQColl> cpuQColl_;
   Kiv::Name coppPMapName_ = "copp-system-policy";
   std::unordered_map<Kiv::Name, U32> staticClassCpuQ_;
   U32 allocationFailures_ = 0;
   U32 noQueueDeallocations_ = 0;
};

}  // namespace Nimbal
