#pragma once

#include <ostream>

#include "Kiv/Allocator.h"
#include "Kiv/Collection.h"
#include "Kiv/Type.h"
#include "Nimbal/NimbalQosPolicerHwData.h"
#include "NimbalQos/NimbalQosExport.h"
#include "Orvik/IntfId.h"
#include "Oskel/ModIdPortQueueKey.h"
#include "Oskel/QosClassDataKey.h"

namespace Nimbal {

// One CoPP class policer.
class NIMBAL_QOS_EXPORT NimbalQosCoppPolicerData : public Kiv::Entity {
  public:
   explicit NimbalQosCoppPolicerData(Oskel::QosClassDataKey const& key);
   ~NimbalQosCoppPolicerData() override;
   Kiv::TypeDesc const* fwkType() const override;
   static Kiv::TypeDesc const* fwkTypeDesc();

   Oskel::QosClassDataKey const& key() const { return key_; }
   I32 cpuQId() const { return cpuQId_; }
   void cpuQIdIs(I32 cpuQId);
   U32 policerRate() const { return policerRate_; }
   void policerRateIs(U32 policerRate);
   U32 policerBurst() const { return policerBurst_; }
   void policerBurstIs(U32 policerBurst);
   bool isDynamic() const { return isDynamic_; }
   void isDynamicIs(bool isDynamic);
   NimbalQosPolicerHwData const& policerHwData() const { return policerHwData_; }
   void policerHwDataIs(NimbalQosPolicerHwData const& policerHwData);

  private:
   Oskel::QosClassDataKey const key_;
   I32 cpuQId_ = 0;
   U32 policerRate_ = 0;
   U32 policerBurst_ = 0;
   bool isDynamic_ = false;
   NimbalQosPolicerHwData policerHwData_;
};

// The CoPP class policers of one interface.
class NIMBAL_QOS_EXPORT NimbalQosCoppIntfPolicerData : public Kiv::Entity {
  public:
   explicit NimbalQosCoppIntfPolicerData(Orvik::IntfId const& intfId);
   ~NimbalQosCoppIntfPolicerData() override;
   Kiv::TypeDesc const* fwkType() const override;
   static Kiv::TypeDesc const* fwkTypeDesc();

   Orvik::IntfId const& intfId() const { return intfId_; }

  private:
   Orvik::IntfId const intfId_;

  public:
   KIV_RECORD_COLLECTION(Oskel::QosClassDataKey, NimbalQosCoppPolicerData, policerDataCol)
};

// One dynamic kernel CoPP entry: the field entry and the policer on it.
class NIMBAL_QOS_EXPORT NimbalQosKernelDynamicCoppData : public Kiv::Entity {
  public:
   explicit NimbalQosKernelDynamicCoppData(Oskel::ModIdPortQueueKey const& key);
   ~NimbalQosKernelDynamicCoppData() override;
   Kiv::TypeDesc const* fwkType() const override;
   static Kiv::TypeDesc const* fwkTypeDesc();

   // One per programmed key, tens of thousands on a large switch: made from the framework's
   // blocks rather than one heap call each.
   static void* operator new(std::size_t size) { return Kiv::blockAllocate(size); }
   static void operator delete(void* record, std::size_t size) { Kiv::blockFree(record, size); }

   Oskel::ModIdPortQueueKey const& key() const { return key_; }
   U32 entry() const { return entry_; }
   void entryIs(U32 entry);
   U32 policerId() const { return policerId_; }
   void policerIdIs(U32 policerId);

  private:
   Oskel::ModIdPortQueueKey const key_;
   U32 entry_ = 0;
   U32 policerId_ = 0;
};

// Packets counted for one CPU queue of an interface; a value, not an entity.
class NIMBAL_QOS_EXPORT NimbalQosCoppQCounterData {
  public:
   NimbalQosCoppQCounterData() = default;
   explicit NimbalQosCoppQCounterData(U64 pktHits) : pktHits_(pktHits) {}
   // Parses the string form: the decimal count, optionally named as "pktHits=<count>".
   explicit NimbalQosCoppQCounterData(Kiv::String const& text);
   Kiv::TypeDesc const* fwkType() const;
   static Kiv::TypeDesc const* fwkTypeDesc();

   U64 pktHits() const { return pktHits_; }
   void pktHitsIs(U64 pktHits) { pktHits_ = pktHits; }

   bool operator==(NimbalQosCoppQCounterData const& o) const = default;
   bool operator<(NimbalQosCoppQCounterData const& o) const { return pktHits_ < o.pktHits_; }

  private:
   U64 pktHits_ = 0;
};

inline std::ostream& operator<<(std::ostream& os, NimbalQosCoppQCounterData const& c) {
   return os << c.pktHits();
}

// The CoPP counters of one interface, by CPU queue.
class NIMBAL_QOS_EXPORT NimbalQosCoppIntfCounterData : public Kiv::Entity {
  public:
   explicit NimbalQosCoppIntfCounterData(Orvik::IntfId const& intfId);
   ~NimbalQosCoppIntfCounterData() override;
   Kiv::TypeDesc const* fwkType() const override;
   static Kiv::TypeDesc const* fwkTypeDesc();

   Orvik::IntfId const& intfId() const { return intfId_; }

  private:
   Orvik::IntfId const intfId_;

  public:
   KIV_INNER_VALUE_MAP(U32, NimbalQosCoppQCounterData, qCounterCol)
};

}  // namespace Nimbal
