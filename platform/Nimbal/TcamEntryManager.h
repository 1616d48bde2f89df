#pragma once

#include "Kiv/Entity.h"

namespace Nimbal {

class NimbalTcamGroupManager;

// Owns the field entries of one field-processor group of the chip.
class NimbalTcamEntryManager : public Kiv::Entity {
  public:
   explicit NimbalTcamEntryManager(U32 groupId) : groupId_(groupId) {
      hasNotificationActiveIs(true);
   }
   U32 groupId() const { return groupId_; }

   NimbalTcamGroupManager* groupManager() const { return groupManager_; }
   void groupManagerIs(NimbalTcamGroupManager* g) { groupManager_ = g; }

  private:
   U32 groupId_;
   NimbalTcamGroupManager* groupManager_ = nullptr;
};

// Entries allocated on demand, anywhere in the group.
class NimbalUnboundedTcamEntryManager : public NimbalTcamEntryManager {
  public:
   using NimbalTcamEntryManager::NimbalTcamEntryManager;
};

// Entries at fixed indices from a base index.
class NimbalBoundedTcamEntryManager : public NimbalTcamEntryManager {
  public:
   NimbalBoundedTcamEntryManager(U32 groupId, U32 baseIndex)
       : NimbalTcamEntryManager(groupId), baseIndex_(baseIndex) {}
   U32 baseIndex() const { return baseIndex_; }
   void baseIndexIs(U32 v) { baseIndex_ = v; }

  private:
   U32 baseIndex_;
};

}  // namespace Nimbal
