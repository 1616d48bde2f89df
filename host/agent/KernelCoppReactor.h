#pragma once

#include <set>

#include "Kiv/Entity.h"
#include "NimbalQos/NimbalQosProtectionHelper.h"
#include "Oskel/KernelCoPPConfig.h"
#include "host/agent/PortQueueKeySet.h"

namespace NimbalHost {

// The agent's reactor to the kernel CoPP configuration: a (module id, port, queue) that appears
// or changes is programmed with createCoppPolicerByPortQueue (after
// destroyCoppPolicerByPortQueue when it was programmed), one that disappears is destroyed, and
// one whose create ran out of hardware is tried again at every retry() until it succeeds.
class KernelCoppReactor : public Kiv::Notifiee<Oskel::KernelCoPPConfig> {
  public:
   using Key = Oskel::ModIdPortQueueKey;
   // A switch has tens of thousands, entered one port's queues after the other.
   using KeySet = PortQueueKeySet;

   explicit KernelCoppReactor(Nimbal::QosAclHelperV1* helper) : helper_(helper) {}

   void onAttribute(Kiv::AttrId attr, Kiv::KeyRef const& key) override;

   // Programs what the configuration holds now, in key order: the reactor joins after the
   // agent's start-up has already published the default rates.
   void sync();
   // Tries the failed keys again, in key order; those that left the configuration are dropped.
   void retry();

   KeySet const& programmed() const { return programmed_; }
   std::set<Key> const& failed() const { return failed_; }

  protected:
   void onNotifier() override { sync(); }

  private:
   void handle(Key const& key);
   void create(Key const& key);
   void createEntered(Key const& key);

   Nimbal::QosAclHelperV1* helper_;
   KeySet programmed_;
   std::set<Key> failed_;
};

}  // namespace NimbalHost
