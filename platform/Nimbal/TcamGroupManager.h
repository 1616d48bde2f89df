#pragma once

#include "Kiv/Collection.h"
#include "Nimbal/TcamEntryManager.h"
#include "Shim/BcmTypes.h"

namespace Nimbal {

// The agent's TCAM group manager: the entry managers of the field-processor groups, by id,
// the managers of allocated entries, by entry, and the policers (meters) of the chip.
class NimbalTcamGroupManager : public Kiv::Entity {
  public:
   NimbalTcamGroupManager() { hasNotificationActiveIs(true); }
   ~NimbalTcamGroupManager() override;

   KIV_VALUE_MAP(U32, Kiv::Ptr<NimbalTcamEntryManager>, entryMgr)
   // The manager that allocated an entry; entries come and go with their managers' allocations.
   KIV_VALUE_MAP(U64, Kiv::Ptr<NimbalTcamEntryManager>, tcamEntryMgr)

  public:
   // Registers a manager under its group id and binds it to this group manager.
   void entryMgrAdd(Kiv::Ptr<NimbalTcamEntryManager> const& mgr);

   // Creates a policer in the unit; ids start at 1. A failure is fatal.
   U32 createPolicer(U32 unit, Shim::bcm_policer_config_s const& config);
   // Destroys a policer; one that is already gone is left alone.
   void removePolicer(U32 unit, U32 policerId);

   // While set, an entry manager's installEntry hands a failing SDK code back to its caller
   // instead of treating it as fatal.
   bool returnErrorOnInstall() const { return returnErrorOnInstall_; }
   void returnErrorOnInstallIs(bool v) { returnErrorOnInstall_ = v; }

  private:
   bool returnErrorOnInstall_ = false;
};

}  // namespace Nimbal
