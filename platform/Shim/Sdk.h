#pragma once

#include <deque>
#include <map>
#include <optional>
#include <string>
#include <string_view>
#include <vector>

#include "Shim/BcmTypes.h"
#include "Shim/SimChip.h"

namespace Shim {

// One SDK call as the chip saw it.
struct SdkCall {
   std::string name;           // e.g. "bcm_field_qualify_InPort"
   std::string args;           // e.g. "0, 65536, 3, 0xffffffff"; ids decimal, data and masks hex
   int rc = 0;                 // what the call returned
   bool lockHeld = false;      // the activity lock was held during the call
   bool afterPreCall = false;  // the pre-call hook for this call ran just before it
   bool injected = false;      // the code came from fault injection; the call did nothing
   // "name(args)"
   std::string text() const { return name + "(" + args + ")"; }
};

// The SDK as the agent reaches it, backed by the simulated chip. Calls are journaled for tests;
// the journal keeps the most recent calls only, or none.
class Sdk {
  public:
   Sdk() = default;
   Sdk(Sdk const&) = delete;
   Sdk& operator=(Sdk const&) = delete;

   // The chip behind the calls: set-up, read-back, tampering, packets.
   SimChip& chip() { return chip_; }
   SimChip const& chip() const { return chip_; }
   // Empties the chip (unit 0 only), the journal (back to its default length), injected faults
   // and hook counts.
   void reset();

   // Return codes and their texts.
   int QV_BCM_E_NONE() const { return BCM_E_NONE; }
   int QV_BCM_E_RESOURCE() const { return BCM_E_RESOURCE; }
   char const* errmsg(int rc) const { return bcm_errmsg(rc); }
   // The one policer mode of every CoPP meter: committed rate and burst only.
   bcm_policer_mode_e coppPolicerMode() const { return bcmPolicerModeCommitted; }
   // The two statistics of a CoPP entry: 0 all packets matched, 1 the red ones.
   bcm_field_stat_t coppStatType(int index) const;
   // Zeroes a policer configuration.
   void bcm_policer_config_t_init(bcm_policer_config_s* config) const {
      Shim::bcm_policer_config_t_init(config);
   }

   // Port bitmaps of a unit (empty for an unknown unit), and their comparison.
   bcm_pbmp_t portBitmap(int unit) const { return chip_.portBitmap(unit); }
   bcm_pbmp_t allPortsBitmap(int unit) const { return chip_.allPortsBitmap(unit); }
   bool pbmpEq(bcm_pbmp_t const& a, bcm_pbmp_t const& b) const { return a == b; }

   // Hooks that bracket each direct call: counted so that tests see they ran. The pre-call
   // text must live until the call it announces (the call texts are literals).
   void preCall(std::string_view call) {
      ++preCalls_;
      pendingPreCall_ = call;
   }
   void callFailed(std::string const& call, int rc);
   U64 preCalls() const { return preCalls_; }
   U64 callFailures() const { return callFailures_; }
   std::string const& lastFailedCall() const { return lastFailedCall_; }
   int lastFailedRc() const { return lastFailedRc_; }

   // The journal of calls, in order: the last journalLimit() of them.
   std::deque<SdkCall> const& journal() const { return journal_; }
   // How many calls the journal keeps; 0 keeps none and spares the cost of recording them.
   void journalLimitIs(std::size_t calls);
   std::size_t journalLimit() const { return journalLimit_; }
   static constexpr std::size_t defaultJournalLimit = 100000;
   // The calls as "name(args)" texts; with a name, only the calls of that function.
   std::vector<std::string> journalTexts(std::string const& name = "") const;
   std::vector<std::string> journalNames() const;
   void journalDelAll() { journal_.clear(); }

   // The next call of function `name` returns `rc` and does nothing (once per injection).
   void failNextCallIs(std::string const& name, int rc) { faults_[name].push_back(rc); }
   std::size_t faultsPending() const;

   // Field processor: groups and entries.
   int bcm_field_group_create_id(int unit, bcm_field_group_t group);
   int bcm_field_group_compress(int unit, bcm_field_group_t group);
   int bcm_field_entry_create(int unit, bcm_field_group_t group, bcm_field_entry_t* entry);
   int bcm_field_entry_create_id(int unit, bcm_field_group_t group, bcm_field_entry_t entry);
   int bcm_field_entry_destroy(int unit, bcm_field_entry_t entry);
   // Writes the entry, with its attached policers, to hardware; a new meter comes from the
   // group's pool (BCM_E_RESOURCE when none is left, leaving the entry as it was).
   int bcm_field_entry_install(int unit, bcm_field_entry_t entry);
   // Takes the entry out of hardware and frees its meters; the software entry stays.
   int bcm_field_entry_remove(int unit, bcm_field_entry_t entry);
   int bcm_field_entry_prio_set(int unit, bcm_field_entry_t entry, int priority);

   // Qualifiers: value and mask; they reach hardware at the next install.
   int bcm_field_qualify_InPort(int unit, bcm_field_entry_t entry, bcm_port_t data,
                                bcm_port_t mask);
   int bcm_field_qualify_InPorts(int unit, bcm_field_entry_t entry, bcm_pbmp_t data,
                                 bcm_pbmp_t mask);
   int bcm_field_qualify_CpuQueue(int unit, bcm_field_entry_t entry, U8 data, U8 mask);
   int bcm_field_qualify_InnerVlanId(int unit, bcm_field_entry_t entry, bcm_vlan_t data,
                                     bcm_vlan_t mask);
   int bcm_field_qualify_InterfaceClassPort(int unit, bcm_field_entry_t entry, U32 data, U32 mask);

   // Actions: adding one again replaces its parameters. Get: BCM_E_NOT_FOUND without it,
   // BCM_E_PARAM for null pointers.
   int bcm_field_action_add(int unit, bcm_field_entry_t entry, int action, U32 param0, U32 param1);
   int bcm_field_action_get(int unit, bcm_field_entry_t entry, int action, U32* param0,
                            U32* param1);

   // Policers on entries, by level 0 or 1 (else BCM_E_PARAM); effective at the next install.
   int bcm_field_entry_policer_attach(int unit, bcm_field_entry_t entry, int level,
                                      bcm_policer_t policer);
   int bcm_field_entry_policer_detach(int unit, bcm_field_entry_t entry, int level);
   // BCM_E_NOT_FOUND when none is attached at that level.
   int bcm_field_entry_policer_get(int unit, bcm_field_entry_t entry, int level,
                                   bcm_policer_t* policer);

   // Policers: ids start at 1 per unit; destroying one still attached gives BCM_E_BUSY.
   int bcm_policer_create(int unit, bcm_policer_config_s* config, bcm_policer_t* policer);
   int bcm_policer_destroy(int unit, bcm_policer_t policer);
   int bcm_policer_get(int unit, bcm_policer_t policer, bcm_policer_config_s* config);

   // Entry statistics: a counter set of the given types, attached to one entry.
   int bcm_field_stat_create(int unit, bcm_field_group_t group, int nstat,
                             bcm_field_stat_t const* types, int* statId);
   int bcm_field_entry_stat_attach(int unit, bcm_field_entry_t entry, int statId);
   int bcm_field_stat_get(int unit, int statId, bcm_field_stat_t stat, U64* value);
   int bcm_field_stat_destroy(int unit, int statId);

  private:
   // One call: an injected fault, or the chip's work; then the journal. The arguments are
   // put into text only when the journal keeps them, and before the call changes them.
   template <class Args, class Body>
   int call(char const* name, Args&& args, Body&& body) {
      std::string text;
      if (journalLimit_ != 0) {
         text = args();
      }
      std::optional<int> const fault = faults_.empty() ? std::nullopt : injectedFault(name);
      int const rc = fault ? *fault : body();
      if (journalLimit_ != 0) {
         journalIs(name, std::move(text), rc, fault.has_value());
      }
      pendingPreCall_ = {};
      return rc;
   }
   std::optional<int> injectedFault(char const* name);
   void journalIs(char const* name, std::string args, int rc, bool injected);

   SimChip chip_;
   std::deque<SdkCall> journal_;
   std::size_t journalLimit_ = defaultJournalLimit;
   std::map<std::string, std::vector<int>, std::less<>> faults_;
   // The hook's text is a call text, a literal: kept by view until the call it announces.
   std::string_view pendingPreCall_;
   U64 preCalls_ = 0;
   U64 callFailures_ = 0;
   std::string lastFailedCall_;
   int lastFailedRc_ = 0;
};

// The agent's SDK shim; points at a process-wide simulated SDK unless replaced.
extern Sdk* sdk_;

}  // namespace Shim
