#pragma once

#include "Kiv/Collection.h"
#include "Nimbal/TcamEntryManager.h"

namespace Nimbal {

// The agent's TCAM group manager: the entry managers of the field-processor groups, by id.
class NimbalTcamGroupManager : public Kiv::Entity {
  public:
   NimbalTcamGroupManager() { hasNotificationActiveIs(true); }
   ~NimbalTcamGroupManager() override;

   KIV_VALUE_MAP(U32, Kiv::Ptr<NimbalTcamEntryManager>, entryMgr)

  public:
   // Registers a manager under its group id and binds it to this group manager.
   void entryMgrAdd(Kiv::Ptr<NimbalTcamEntryManager> const& mgr);
};

}  // namespace Nimbal
