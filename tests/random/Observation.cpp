#include "random/Observation.h"

#include "Kiv/Clock.h"
#include "Shim/SimChip.h"

namespace NimbalHistory {

DdeCounters Observation::ddeOf(U32 unit, U32 port, U32 queue) const {
   auto it = dde.find({unit, port, queue});
   return it == dde.end() ? DdeCounters() : it->second;
}

U64 statOf(NimbalHost::SimAgent& agent, int unit, int entry, int statType) {
   return agent.sw().chip().entryStat(unit, entry, statType);
}

Observation observe(NimbalHost::SimAgent& agent, HistoryModel const& model) {
   NimbalHost::Switch& sw = agent.sw();
   Shim::SimChip const& chip = sw.chip();
   Kiv::Ptr<Nimbal::QosAclHelperV1> const helper = sw.helper();
   Observation o;
   o.now = Kiv::activityClock()->now();

   auto record = [&](Key const& key, Kiv::Ptr<Nimbal::NimbalQosKernelDynamicCoppData> const& d) {
      RecordView v;
      v.entry = d->entry();
      v.policer = d->policerId();
      int const unit = model.unitOfModule(key.modId());
      if (Shim::FieldEntry const* e = chip.entry(unit, static_cast<int>(v.entry))) {
         v.statId = e->statId;
         v.packets = chip.entryStat(unit, e->id, Shim::bcmFieldStatPackets);
      }
      return v;
   };
   for (auto const& [key, d] : helper->kernelDynamicCoppDataCol()) {
      o.kernel[key] = record(key, d);
   }
   for (auto const& [key, d] : helper->kernelDynamicCoppVxlanDataCol()) {
      o.vxlan[key] = record(key, d);
   }
   for (ModelInterface const& intf : model.interfaces()) {
      Orvik::IntfId const id(intf.name);
      if (auto const counters = helper->coppIntfCounterData(id)) {
         for (auto const& [queue, count] : counters->qCounterColCol()) {
            o.softwareHits[model.keyOf(intf, queue)] = count.pktHits();
         }
      }
      if (auto hw = helper->portDefaultCoppPolicerHwDataCol().value(id)) {
         o.defaultHits[intf.name] =
             chip.entryStat(intf.unit, static_cast<int>(hw->entryId()), Shim::bcmFieldStatPackets);
      }
      if (auto hw = helper->portDefaultCoppPolicerVxlanHwDataCol().value(id)) {
         o.vxlanDefaultHits[intf.name] =
             chip.entryStat(intf.unit, static_cast<int>(hw->entryId()), Shim::bcmFieldStatPackets);
         Shim::FieldEntry const* e = chip.entry(intf.unit, static_cast<int>(hw->entryId()));
         o.vxlanDefaultStat[intf.name] = e ? e->statId : 0;
      }
   }
   for (U16 unit : model.units()) {
      for (int id : chip.entries(unit)) {
         Shim::FieldEntry const* e = chip.entry(unit, id);
         if (e->statId) {
            o.stats[{unit, e->statId}] = {chip.entryStat(unit, id, Shim::bcmFieldStatPackets),
                                          chip.entryStat(unit, id, Shim::bcmFieldStatRedPackets)};
         }
         if (e->installed) {
            o.installed[{unit, id}] = InstalledEntry{e->statId, e->hw.policer[0]};
         }
      }
      for (ModelInterface const& intf : model.interfaces()) {
         for (U32 q = 0; q < Nimbal::mmuCpuQueues; ++q) {
            auto const [dropped, allowed] = sw.pktDrv()->getDdeCoppCounters(unit, intf.port, q);
            if (dropped || allowed) {
               o.dde[{unit, intf.port, q}] = DdeCounters{dropped, allowed};
            }
         }
      }
   }
   Kiv::Ptr<Nimbal::QosIntfCoppSm> const sm = helper->qosIntfCoppSm();
   o.vxlanRetryAt = sm ? sm->vxlanEntryRetryTimer()->timeMin() : Kiv::never;
   return o;
}

}  // namespace NimbalHistory
