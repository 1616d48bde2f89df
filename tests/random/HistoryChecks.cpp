#include "random/HistoryChecks.h"

namespace NimbalHistory {

Coverage& coverage() {
   static Coverage c;
   return c;
}

std::vector<std::string> const& HistoryChecks::invariants() {
   static std::vector<std::string> const names = {
       "kernel CoPP configuration",
       "kernel CoPP reactor",
       "kernel entry",
       "VXLAN entries follow VXLAN state",
       "VXLAN records have kernel records",
       "VXLAN source-port entry",
       "VXLAN entry pool",
       "per-port default policer",
       "VXLAN default policer",
       "missing VXLAN entries are retried",
       "no entry or meter without a record",
       "waiting kernel keys",
       "CPU queues",
       "hit counters move only with traffic",
       "software hit counts",
       "lifetime hits only grow",
       "packet driver counters",
       // One each for the steps of that kind.
       "traffic",
       "show tables",
       "counter poll",
       "verify",
   };
   return names;
}

void HistoryChecks::fail(std::string const& invariant, std::string const& detail) {
   violations_.push_back(Violation{invariant, detail});
}

std::vector<Violation> HistoryChecks::afterStep(Observation const& pre, Observation const& post,
                                                StepFacts const& facts) {
   violations_.clear();
   kernelConfiguration();
   kernelReactor();
   kernelEntries();
   vxlanEntries();
   vxlanPool();
   defaultPolicers();
   vxlanRetry(pre, post);
   nothingWithoutRecord();
   waitingKeys(facts);
   cpuQueues();
   hitCounters(pre, post, facts);
   softwareHits(pre, post);
   driverCounters(pre, post, facts);
   traffic(pre, post, facts);
   show(post, facts);
   poll(post, facts);
   verify(post, facts);
   Coverage& c = coverage();
   ++c.steps;
   c.waitingKeySteps += agent_.kernelCopp().failed().empty() ? 0 : 1;
   c.queueResets += static_cast<long>(model_.resetQueues.size());
   return violations_;
}

void settle(HistoryModel& model, Observation const& pre, Observation const& post) {
   for (auto const& [key, before] : pre.kernel) {
      auto const after = post.kernel.find(key);
      if (after != post.kernel.end() && after->second.statId == before.statId) {
         continue;
      }
      // The entry went: its hits, and those of its VXLAN twin, live on in software.
      U64 hits = before.packets;
      if (auto const v = pre.vxlan.find(key); v != pre.vxlan.end()) {
         hits += v->second.packets;
      }
      model.folded[key] += hits;
      coverage().foldedHits += static_cast<long>(hits);
   }
   for (auto const& [key, record] : post.kernel) {
      model.everProgrammed.insert(key);
   }
   for (auto it = model.tampered.begin(); it != model.tampered.end();) {
      auto const r = post.kernel.find(it->first);
      bool const same = r != post.kernel.end() && r->second.entry == it->second.entry &&
                        r->second.policer == it->second.policer;
      it = same ? std::next(it) : model.tampered.erase(it);
   }
}

}  // namespace NimbalHistory
