#include "host/agent/KernelCoppReactor.h"

#include <algorithm>
#include <vector>

namespace NimbalHost {

void KernelCoppReactor::onAttribute(Kiv::AttrId attr, Kiv::KeyRef const& key) {
   if (attr != "coppInfo") {
      return;
   }
   // A copy: the reaction may change the collection the key was told from.
   Key const changed = key.as<Key>();
   handle(changed);
}

void KernelCoppReactor::sync() {
   Kiv::Ptr<Oskel::KernelCoPPConfig const> const config = notifier();
   if (!config) {
      return;
   }
   // In key order; sorted in place, not copied into a tree: a switch has tens of thousands.
   std::vector<Key> keys = config->coppInfoCol().keys();
   std::sort(keys.begin(), keys.end());
   for (Key const& key : keys) {
      if (!programmed_.count(key) && !failed_.count(key)) {
         handle(key);
      }
   }
}

void KernelCoppReactor::retry() {
   Kiv::Ptr<Oskel::KernelCoPPConfig const> const config = notifier();
   std::vector<Key> const keys(failed_.begin(), failed_.end());
   for (Key const& key : keys) {
      if (!failed_.count(key)) {
         continue;  // handled meanwhile by a change of the configuration
      }
      failed_.erase(key);
      if (config && config->coppInfoHas(key)) {
         create(key);
      }
   }
}

void KernelCoppReactor::handle(Key const& key) {
   Kiv::Ptr<Oskel::KernelCoPPConfig const> const config = notifier();
   if (!failed_.empty()) {
      failed_.erase(key);
   }
   if (!config || !config->coppInfoHas(key)) {
      if (programmed_.erase(key)) {
         helper_->destroyCoppPolicerByPortQueue(key);
      }
      return;
   }
   // A new key is entered as programmed with the one lookup that tells whether it was.
   if (!programmed_.insert(key)) {
      helper_->destroyCoppPolicerByPortQueue(key);
   }
   createEntered(key);
}

void KernelCoppReactor::create(Key const& key) {
   programmed_.insert(key);
   createEntered(key);
}

// The key stands as programmed; a create that fails takes it out again, to be retried.
void KernelCoppReactor::createEntered(Key const& key) {
   if (!helper_->createCoppPolicerByPortQueue(key)) {
      programmed_.erase(key);
      failed_.insert(key);
   }
}

}  // namespace NimbalHost
