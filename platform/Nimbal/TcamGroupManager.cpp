#include "Nimbal/TcamGroupManager.h"

#include "Kiv/Assert.h"
#include "Shim/Sdk.h"

namespace Nimbal {

NimbalTcamGroupManager::~NimbalTcamGroupManager() {
   for (auto const& kv : entryMgrCol()) {
      kv.second->groupManagerIs(nullptr);
   }
   for (auto const& kv : tcamEntryMgrCol()) {
      kv.second->groupManagerIs(nullptr);
   }
}

void NimbalTcamGroupManager::entryMgrAdd(Kiv::Ptr<NimbalTcamEntryManager> const& mgr) {
   mgr->groupManagerIs(this);
   entryMgrIs(mgr->groupId(), mgr);
}

U32 NimbalTcamGroupManager::createPolicer(U32 unit, Shim::bcm_policer_config_s const& config) {
   Shim::bcm_policer_config_s cfg = config;
   Shim::bcm_policer_t id = 0;
   int rc = ::Shim::sdk_->bcm_policer_create(unit, &cfg, &id);
   KIV_ASSERT(rc == ::Shim::BCM_E_NONE);
   return static_cast<U32>(id);
}

void NimbalTcamGroupManager::removePolicer(U32 unit, U32 policerId) {
   int rc = ::Shim::sdk_->bcm_policer_destroy(unit, policerId);
   KIV_ASSERT(rc == ::Shim::BCM_E_NONE || rc == ::Shim::BCM_E_NOT_FOUND);
}

}  // namespace Nimbal
