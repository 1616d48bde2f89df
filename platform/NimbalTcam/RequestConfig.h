#pragma once

#include "Kiv/Collection.h"
#include "NimbalTcam/IntfGroup.h"
#include "NimbalTcam/RequestKey.h"
#include "Oskel/AclTypes.h"
#include "Oskel/QosClassDataKey.h"

namespace NimbalTcam {

// What the TCAM agent is asked to program for one entry: its key and the interfaces it
// applies to (no group until the request has been given one).
class RequestConfig : public Kiv::Entity {
  public:
   explicit RequestConfig(RequestKey const& key = RequestKey()) : key_(key) {
      hasNotificationActiveIs(true);
   }

   RequestKey const& key() const { return key_; }

   Kiv::Ptr<IntfGroup> intfGroup() const { return intfGroup_; }
   void intfGroupIs(Kiv::Ptr<IntfGroup> const& g) {
      if (g == intfGroup_) {
         return;
      }
      intfGroup_ = g;
      notify("intfGroup");
   }

  private:
   RequestKey key_;
   Kiv::Ptr<IntfGroup> intfGroup_;
};

// The requests of one ACL of a class, by unit.
class AclRequestTable : public Kiv::Entity {
  public:
   explicit AclRequestTable(Oskel::AclKey const& aclKey) : aclKey_(aclKey) {}
   Oskel::AclKey const& aclKey() const { return aclKey_; }

   KIV_ORDERED_MAP(U32, Kiv::Ptr<RequestConfig>, requestConfig)

  private:
   Oskel::AclKey aclKey_;
};

// The requests of one class of a policy map, by ACL.
class ClassRequestTable : public Kiv::Entity {
  public:
   explicit ClassRequestTable(Oskel::QosClassDataKey const& classKey) : classKey_(classKey) {}
   Oskel::QosClassDataKey const& classKey() const { return classKey_; }

   KIV_RECORD_COLLECTION(Oskel::AclKey, AclRequestTable, aclRequestTable)

  private:
   Oskel::QosClassDataKey classKey_;
};

}  // namespace NimbalTcam
