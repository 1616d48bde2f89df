#pragma once

#include <set>

#include "Kiv/Entity.h"
#include "Orvik/IntfId.h"
#include "Oskel/QosClassDataKey.h"
#include "Qos/PolicerData.h"

namespace Oskel {

// The agent's description of a class of a policy map.
class QosClassData : public Kiv::Entity {
  public:
   explicit QosClassData(QosClassDataKey const& key) : key_(key) {}

   QosClassDataKey const& key() const { return key_; }

   // The interfaces of the class: intfIds() counts them, the set iterates them.
   std::size_t intfIds() const { return intfIds_.size(); }
   std::set<Orvik::IntfId> const& intfIdSet() const { return intfIds_; }
   void intfIdIs(Orvik::IntfId const& i) { intfIds_.insert(i); }
   void intfIdDel(Orvik::IntfId const& i) { intfIds_.erase(i); }

   S32 cpuQId() const { return cpuQId_; }
   void cpuQIdIs(S32 v) { cpuQId_ = v; }

   Kiv::Ptr<Qos::PolicerData> policerData() const { return policerData_; }
   void policerDataIs(Kiv::Ptr<Qos::PolicerData> const& p) { policerData_ = p; }

  private:
   QosClassDataKey key_;
   std::set<Orvik::IntfId> intfIds_;
   S32 cpuQId_ = -1;
   Kiv::Ptr<Qos::PolicerData> policerData_;
};

}  // namespace Oskel
