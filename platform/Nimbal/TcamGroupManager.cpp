#include "Nimbal/TcamGroupManager.h"

namespace Nimbal {

NimbalTcamGroupManager::~NimbalTcamGroupManager() {
   for (auto const& kv : entryMgrCol()) {
      kv.second->groupManagerIs(nullptr);
   }
}

void NimbalTcamGroupManager::entryMgrAdd(Kiv::Ptr<NimbalTcamEntryManager> const& mgr) {
   mgr->groupManagerIs(this);
   entryMgrIs(mgr->groupId(), mgr);
}

}  // namespace Nimbal
