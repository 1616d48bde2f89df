#include "Shim/Sdk.h"

#include <sstream>

#include "Kiv/Activity.h"

namespace Shim {

namespace {

Sdk& processSdk() {
   static Sdk sdk;
   return sdk;
}

struct Hex {
   U32 v;
};

void put(std::ostream& os, Hex h) {
   os << "0x" << std::hex << h.v << std::dec;
}
void put(std::ostream& os, int v) {
   os << v;
}
void put(std::ostream& os, bcm_pbmp_t const& p) {
   os << p.text();
}
void put(std::ostream& os, std::string const& s) {
   os << s;
}
template <class T>
void put(std::ostream& os, T* p) {
   os << (p ? "&" : "NULL");
}

template <class... A>
std::string argsText(A const&... args) {
   std::ostringstream os;
   char const* sep = "";
   auto one = [&](auto const& a) {
      os << sep;
      put(os, a);
      sep = ", ";
   };
   (one(args), ...);
   return os.str();
}

// The hook's text names the call it precedes, alone or as the start of the call's text.
bool hookNames(std::string_view hook, std::string_view name) {
   if (hook.compare(0, name.size(), name) != 0) {
      return false;
   }
   return hook.size() == name.size() || hook[name.size()] == '(' || hook[name.size()] == ' ';
}

}  // namespace

Sdk* sdk_ = &processSdk();

void Sdk::reset() {
   chip_.reset();
   journal_.clear();
   journalLimit_ = defaultJournalLimit;
   faults_.clear();
   pendingPreCall_ = {};
   preCalls_ = 0;
   callFailures_ = 0;
   lastFailedCall_.clear();
   lastFailedRc_ = 0;
}

bcm_field_stat_t Sdk::coppStatType(int index) const {
   return index == 0 ? bcmFieldStatPackets : bcmFieldStatRedPackets;
}

void Sdk::journalLimitIs(std::size_t calls) {
   journalLimit_ = calls;
   while (journal_.size() > journalLimit_) {
      journal_.pop_front();
   }
}

std::optional<int> Sdk::injectedFault(char const* name) {
   auto it = faults_.find(std::string_view(name));
   if (it == faults_.end() || it->second.empty()) {
      return std::nullopt;
   }
   int const rc = it->second.front();
   it->second.erase(it->second.begin());
   return rc;
}

void Sdk::journalIs(char const* name, std::string args, int rc, bool injected) {
   SdkCall c;
   c.name = name;
   c.args = std::move(args);
   c.rc = rc;
   c.lockHeld = Kiv::activityLock().held();
   c.afterPreCall = !pendingPreCall_.empty() && hookNames(pendingPreCall_, c.name);
   c.injected = injected;
   if (journal_.size() == journalLimit_) {
      journal_.pop_front();
   }
   journal_.push_back(std::move(c));
}

void Sdk::callFailed(std::string const& call, int rc) {
   ++callFailures_;
   lastFailedCall_ = call;
   lastFailedRc_ = rc;
}

std::vector<std::string> Sdk::journalTexts(std::string const& name) const {
   std::vector<std::string> out;
   for (SdkCall const& c : journal_) {
      if (name.empty() || c.name == name) {
         out.push_back(c.text());
      }
   }
   return out;
}

std::vector<std::string> Sdk::journalNames() const {
   std::vector<std::string> out;
   for (SdkCall const& c : journal_) {
      out.push_back(c.name);
   }
   return out;
}

std::size_t Sdk::faultsPending() const {
   std::size_t n = 0;
   for (auto const& kv : faults_) {
      n += kv.second.size();
   }
   return n;
}

int Sdk::bcm_field_group_create_id(int unit, bcm_field_group_t group) {
   return call(
       __func__, [&] { return argsText(unit, group); },
       [&] { return chip_.groupCreate(unit, group); });
}

int Sdk::bcm_field_group_compress(int unit, bcm_field_group_t group) {
   return call(
       __func__, [&] { return argsText(unit, group); },
       [&] { return chip_.groupCompress(unit, group); });
}

int Sdk::bcm_field_entry_create(int unit, bcm_field_group_t group, bcm_field_entry_t* entry) {
   return call(
       __func__, [&] { return argsText(unit, group, entry); },
       [&] { return chip_.entryCreate(unit, group, entry); });
}

int Sdk::bcm_field_entry_create_id(int unit, bcm_field_group_t group, bcm_field_entry_t entry) {
   return call(
       __func__, [&] { return argsText(unit, group, entry); },
       [&] { return chip_.entryCreateId(unit, group, entry); });
}

int Sdk::bcm_field_entry_destroy(int unit, bcm_field_entry_t entry) {
   return call(
       __func__, [&] { return argsText(unit, entry); },
       [&] { return chip_.entryDestroy(unit, entry); });
}

int Sdk::bcm_field_entry_install(int unit, bcm_field_entry_t entry) {
   return call(
       __func__, [&] { return argsText(unit, entry); },
       [&] { return chip_.entryInstall(unit, entry); });
}

int Sdk::bcm_field_entry_remove(int unit, bcm_field_entry_t entry) {
   return call(
       __func__, [&] { return argsText(unit, entry); },
       [&] { return chip_.entryRemove(unit, entry); });
}

int Sdk::bcm_field_entry_prio_set(int unit, bcm_field_entry_t entry, int priority) {
   return call(
       __func__, [&] { return argsText(unit, entry, priority); },
       [&] { return chip_.entryPrioSet(unit, entry, priority); });
}

int Sdk::bcm_field_qualify_InPort(int unit, bcm_field_entry_t entry, bcm_port_t data,
                                  bcm_port_t mask) {
   U32 d = static_cast<U32>(data), m = static_cast<U32>(mask);
   return call(
       __func__, [&] { return argsText(unit, entry, Hex{d}, Hex{m}); },
       [&] { return chip_.qualify(unit, entry, QualKind::InPort, d, m); });
}

int Sdk::bcm_field_qualify_InPorts(int unit, bcm_field_entry_t entry, bcm_pbmp_t data,
                                   bcm_pbmp_t mask) {
   return call(
       __func__, [&] { return argsText(unit, entry, data, mask); },
       [&] { return chip_.qualifyInPorts(unit, entry, data, mask); });
}

int Sdk::bcm_field_qualify_CpuQueue(int unit, bcm_field_entry_t entry, U8 data, U8 mask) {
   return call(
       __func__, [&] { return argsText(unit, entry, Hex{data}, Hex{mask}); },
       [&] { return chip_.qualify(unit, entry, QualKind::CpuQueue, data, mask); });
}

int Sdk::bcm_field_qualify_InnerVlanId(int unit, bcm_field_entry_t entry, bcm_vlan_t data,
                                       bcm_vlan_t mask) {
   return call(
       __func__, [&] { return argsText(unit, entry, Hex{data}, Hex{mask}); },
       [&] { return chip_.qualify(unit, entry, QualKind::InnerVlanId, data, mask); });
}

int Sdk::bcm_field_qualify_InterfaceClassPort(int unit, bcm_field_entry_t entry, U32 data,
                                              U32 mask) {
   return call(
       __func__, [&] { return argsText(unit, entry, Hex{data}, Hex{mask}); },
       [&] { return chip_.qualify(unit, entry, QualKind::InterfaceClassPort, data, mask); });
}

int Sdk::bcm_field_action_add(int unit, bcm_field_entry_t entry, int action, U32 param0,
                              U32 param1) {
   return call(
       __func__, [&] { return argsText(unit, entry, action, Hex{param0}, Hex{param1}); },
       [&] { return chip_.actionAdd(unit, entry, action, param0, param1); });
}

int Sdk::bcm_field_action_get(int unit, bcm_field_entry_t entry, int action, U32* param0,
                              U32* param1) {
   return call(
       __func__, [&] { return argsText(unit, entry, action, param0, param1); },
       [&] { return chip_.actionGet(unit, entry, action, param0, param1); });
}

int Sdk::bcm_field_entry_policer_attach(int unit, bcm_field_entry_t entry, int level,
                                        bcm_policer_t policer) {
   return call(
       __func__, [&] { return argsText(unit, entry, level, policer); },
       [&] { return chip_.policerAttach(unit, entry, level, policer); });
}

int Sdk::bcm_field_entry_policer_detach(int unit, bcm_field_entry_t entry, int level) {
   return call(
       __func__, [&] { return argsText(unit, entry, level); },
       [&] { return chip_.policerDetach(unit, entry, level); });
}

int Sdk::bcm_field_entry_policer_get(int unit, bcm_field_entry_t entry, int level,
                                     bcm_policer_t* policer) {
   return call(
       __func__, [&] { return argsText(unit, entry, level, policer); },
       [&] { return chip_.entryPolicerGet(unit, entry, level, policer); });
}

int Sdk::bcm_policer_create(int unit, bcm_policer_config_s* config, bcm_policer_t* policer) {
   auto args = [&] {
      return argsText(unit, config ? config->text() : std::string("NULL"), policer);
   };
   return call(__func__, args, [&] { return chip_.policerCreate(unit, config, policer); });
}

int Sdk::bcm_policer_destroy(int unit, bcm_policer_t policer) {
   return call(
       __func__, [&] { return argsText(unit, policer); },
       [&] { return chip_.policerDestroy(unit, policer); });
}

int Sdk::bcm_policer_get(int unit, bcm_policer_t policer, bcm_policer_config_s* config) {
   return call(
       __func__, [&] { return argsText(unit, policer, config); },
       [&] { return chip_.policerGet(unit, policer, config); });
}

int Sdk::bcm_field_stat_create(int unit, bcm_field_group_t group, int nstat,
                               bcm_field_stat_t const* types, int* statId) {
   std::vector<int> t;
   for (int i = 0; types && i < nstat; ++i) {
      t.push_back(types[i]);
   }
   auto args = [&] {
      std::string list = "{";
      for (std::size_t i = 0; i < t.size(); ++i) {
         list += (i ? "," : "") + std::to_string(t[i]);
      }
      return argsText(unit, group, nstat, list + "}", statId);
   };
   return call(__func__, args, [&] {
      return chip_.statCreate(unit, group, nstat, types ? t.data() : nullptr, statId);
   });
}

int Sdk::bcm_field_entry_stat_attach(int unit, bcm_field_entry_t entry, int statId) {
   return call(
       __func__, [&] { return argsText(unit, entry, statId); },
       [&] { return chip_.statAttach(unit, entry, statId); });
}

int Sdk::bcm_field_stat_get(int unit, int statId, bcm_field_stat_t stat, U64* value) {
   return call(
       __func__, [&] { return argsText(unit, statId, static_cast<int>(stat), value); },
       [&] { return chip_.statGet(unit, statId, stat, value); });
}

int Sdk::bcm_field_stat_destroy(int unit, int statId) {
   return call(
       __func__, [&] { return argsText(unit, statId); },
       [&] { return chip_.statDestroy(unit, statId); });
}

}  // namespace Shim
