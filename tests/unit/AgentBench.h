#pragma once

// The agent around the CoPP library, for tests that reach the library through its public
// operations as nimbal-copp-sim does: a switch made by the builder, the agent's QoS class
// configuration and its kernel CoPP reactor, with the activity lock held as the event loop
// holds it. And a count of everything the library holds in the chip and in its records, so that
// a test can show that a failed operation left nothing behind.

#include <memory>
#include <ostream>
#include <string>
#include <vector>

#include "Kiv/Activity.h"
#include "Kiv/Clock.h"
#include "Kiv/Log.h"
#include "Oskel/VerifyData.h"
#include "host/agent/KernelCoppReactor.h"
#include "host/agent/QosClassConfig.h"
#include "host/agent/SwitchBuilder.h"

namespace AgentTest {

// What the CoPP entries take from the chip, summed over the switch's units, and what the
// helper records of them.
struct Holdings {
   U32 coppEntries = 0;  // of the egress CoPP group
   U32 coppMeters = 0;
   U32 defAndVxlanEntries = 0;  // of the default-and-VXLAN group
   U32 defAndVxlanMeters = 0;
   std::size_t entries = 0;  // every field entry of the units
   std::size_t installed = 0;
   std::size_t policers = 0;
   std::size_t stats = 0;
   std::size_t managedEntries = 0;  // entries the two egress entry managers hold
   std::size_t kernelRecords = 0;
   std::size_t vxlanRecords = 0;
   std::size_t vxlanDefaults = 0;
   std::size_t vxlanPoolInUse = 0;
   std::size_t portDefaults = 0;
   std::size_t intfPolicers = 0;
   bool operator==(Holdings const&) const = default;
};

inline std::ostream& operator<<(std::ostream& os, Holdings const& h) {
   return os << "{copp entries " << h.coppEntries << " meters " << h.coppMeters
             << ", default/vxlan entries " << h.defAndVxlanEntries << " meters "
             << h.defAndVxlanMeters << ", chip entries " << h.entries << " installed "
             << h.installed << " policers " << h.policers << " stats " << h.stats << ", managed "
             << h.managedEntries << ", records kernel " << h.kernelRecords << " vxlan "
             << h.vxlanRecords << " vxlan defaults " << h.vxlanDefaults << " pool "
             << h.vxlanPoolInUse << " defaults " << h.portDefaults << " class interfaces "
             << h.intfPolicers << "}";
}

class AgentBench {
  public:
   explicit AgentBench(NimbalHost::SwitchConfig const& config = NimbalHost::SwitchConfig())
       : sw_(switchOf(config)) {
      if (!sw_->scsd()->verifyData()) {
         sw_->scsd()->verifyDataIs(new Oskel::VerifyData());
      }
      classes_ = std::make_unique<NimbalHost::QosClassConfig>(*sw_);
      kernel_ = std::make_unique<NimbalHost::KernelCoppReactor>(sw_->helper().ptr());
      kernel_->notifierIs(sw_->kernelCoppConfig());
   }
   ~AgentBench() {
      kernel_.reset();
      classes_.reset();
      sw_.reset();
      Kiv::logSinkIs(nullptr);
   }
   AgentBench(AgentBench const&) = delete;
   AgentBench& operator=(AgentBench const&) = delete;

   NimbalHost::Switch& sw() const { return *sw_; }
   Kiv::Ptr<Nimbal::QosAclHelperV1> helper() const { return sw_->helper(); }
   NimbalHost::QosClassConfig& classes() const { return *classes_; }
   NimbalHost::KernelCoppReactor& kernel() const { return *kernel_; }
   Kiv::Ptr<Oskel::VerifyData> verifyData() const { return sw_->scsd()->verifyData(); }
   // The log messages raised since the bench was made, as "KEY: message".
   std::vector<std::string> const& logs() const { return *logs_; }
   void logsDelAll() { logs_->clear(); }

   // The agent's configuration steps.
   NimbalHost::QosClassConfig::PoliceOutcome police(std::string const& intf,
                                                    std::string const& cmapName, U32 cir, U32 bc) {
      return classes_->police(intf, cmapName, cir, bc);
   }
   NimbalHost::QosClassConfig::UnpoliceOutcome unpolice(std::string const& intf,
                                                        std::string const& cmapName) {
      return classes_->unpolice(intf, cmapName);
   }
   void vxlanIs(bool enabled) { sw_->scsd()->vxlanEnabledIs(enabled); }
   void recircIs(std::string const& intf, bool enabled) {
      if (enabled) {
         sw_->scsd()->vxlanRecircIntfIs(Orvik::IntfId(intf), true);
      } else {
         sw_->scsd()->vxlanRecircIntfDel(Orvik::IntfId(intf));
      }
   }
   // Timers fire on the way; then the kernel keys that ran out of hardware are tried again.
   void advance(double seconds) {
      Kiv::activityClock()->advance(seconds);
      kernel_->retry();
   }
   void resourcesIs(NimbalHost::SwitchResources const& resources) { sw_->resourcesIs(resources); }

   // The key of an interface's CPU queue.
   Oskel::ModIdPortQueueKey key(std::string const& intf, U32 queue) const {
      NimbalTypes::NimbalPort const p = sw_->port(Orvik::IntfId(intf));
      return Oskel::ModIdPortQueueKey(p.modId(), p.logicalPort(), queue);
   }

   Holdings holdings() const {
      Holdings h;
      Shim::SimChip const& chip = sw_->chip();
      auto const copp = static_cast<int>(NimbalHost::Switch::efpCoppGroupId);
      auto const defAndVxlan = static_cast<int>(NimbalHost::Switch::efpCoppDefAndVxlanGroupId);
      for (U16 unit : sw_->units()) {
         h.coppEntries += chip.entriesInUse(unit, copp);
         h.coppMeters += chip.metersInUse(unit, copp);
         h.defAndVxlanEntries += chip.entriesInUse(unit, defAndVxlan);
         h.defAndVxlanMeters += chip.metersInUse(unit, defAndVxlan);
         for (Shim::bcm_field_entry_t id : chip.entries(unit)) {
            ++h.entries;
            h.installed += chip.entry(unit, id)->installed ? 1 : 0;
         }
         h.policers += chip.policers(unit);
         h.stats += chip.stats(unit);
      }
      h.managedEntries =
          sw_->efpCoppEntryMgr()->entryCount() + sw_->efpCoppDefAndVxlanEntryMgr()->entryCount();
      Kiv::Ptr<Nimbal::QosAclHelperV1> const helper = sw_->helper();
      h.kernelRecords = helper->kernelDynamicCoppData();
      h.vxlanRecords = helper->kernelDynamicCoppVxlanData();
      h.vxlanDefaults = helper->portDefaultCoppPolicerVxlanHwData();
      h.vxlanPoolInUse = helper->coppVxlanDynEntryInUse();
      h.portDefaults = helper->portDefaultCoppPolicerHwData();
      h.intfPolicers = helper->coppIntfPolicerData();
      return h;
   }

  private:
   // Log messages are caught from the start: the agent's start-up may already raise some.
   std::unique_ptr<NimbalHost::Switch> switchOf(NimbalHost::SwitchConfig const& config) {
      std::shared_ptr<std::vector<std::string>> const logs = logs_;
      Kiv::logSinkIs([logs](Kiv::LogHandle const& handle, std::string const& message) {
         logs->push_back(handle.key() + ": " + message);
      });
      return NimbalHost::buildSwitch(config);
   }

   // Taken first and released last: the switch is built and torn down under the lock.
   Kiv::ActivityScope activity_;
   std::shared_ptr<std::vector<std::string>> logs_ = std::make_shared<std::vector<std::string>>();
   std::unique_ptr<NimbalHost::Switch> sw_;
   std::unique_ptr<NimbalHost::QosClassConfig> classes_;
   std::unique_ptr<NimbalHost::KernelCoppReactor> kernel_;
};

}  // namespace AgentTest
