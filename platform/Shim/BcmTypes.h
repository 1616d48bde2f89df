#pragma once

#include <array>
#include <string>
#include <vector>

#include "Kiv/Types.h"

// The names and numbers of the switch SDK, as the agent's code uses them.
namespace Shim {

using bcm_field_entry_t = int;
using bcm_field_group_t = int;
using bcm_policer_t = int;
using bcm_port_t = int;
using bcm_vlan_t = U16;

// Return codes of every SDK call.
enum bcm_error_e : int {
   BCM_E_NONE = 0,
   BCM_E_INTERNAL = -1,
   BCM_E_MEMORY = -2,
   BCM_E_UNIT = -3,
   BCM_E_PARAM = -4,
   BCM_E_EMPTY = -5,
   BCM_E_FULL = -6,
   BCM_E_NOT_FOUND = -7,
   BCM_E_EXISTS = -8,
   BCM_E_TIMEOUT = -9,
   BCM_E_BUSY = -10,
   BCM_E_FAIL = -11,
   BCM_E_DISABLED = -12,
   BCM_E_BADID = -13,
   BCM_E_RESOURCE = -14,
   BCM_E_CONFIG = -15,
   BCM_E_UNAVAIL = -16,
   BCM_E_INIT = -17,
   BCM_E_PORT = -18,
};

// The SDK's text of a return code; "Unknown error" for values it does not define.
char const* bcm_errmsg(int rc);

enum bcm_field_action_t : int {
   bcmFieldActionCopyToCpu = 23,
   bcmFieldActionDrop = 39,
   bcmFieldActionRpDrop = 52,
};

enum bcm_field_stat_t : int {
   bcmFieldStatPackets = 1,
   bcmFieldStatRedPackets = 7,
};

enum bcm_policer_mode_e : U32 {
   bcmPolicerModeSrTcm = 0,
   bcmPolicerModeCommitted = 1,
   bcmPolicerModePeak = 2,
   bcmPolicerModeTrTcm = 3,
   bcmPolicerModeTrTcmDs = 4,
   bcmPolicerModeGreen = 5,
   bcmPolicerModePassThrough = 6,
};
using bcm_policer_mode_t = bcm_policer_mode_e;

inline constexpr U32 BCM_POLICER_WITH_ID = 0x01;
inline constexpr U32 BCM_POLICER_REPLACE = 0x02;
inline constexpr U32 BCM_POLICER_COLOR_BLIND = 0x04;
inline constexpr U32 BCM_POLICER_DROP_RED = 0x08;
inline constexpr U32 BCM_POLICER_MODE_BYTES = 0x40;
inline constexpr U32 BCM_POLICER_MODE_PACKETS = 0x80;

// A policer's configuration. Rates and bursts are in packets (per second) when the
// packet-mode flag is set, which is the only mode the agent programs.
class bcm_policer_config_s {
  public:
   U32 flags() const { return flags_; }
   U32 mode() const { return mode_; }
   U32 ckbits_sec() const { return ckbits_sec_; }
   U32 ckbits_burst() const { return ckbits_burst_; }
   U32 pkbits_sec() const { return pkbits_sec_; }
   U32 pkbits_burst() const { return pkbits_burst_; }

   void flags_is(U32 v) { flags_ = v; }
   void flags_or(U32 v) { flags_ |= v; }
   void mode_is(U32 v) { mode_ = v; }
   void ckbits_sec_is(U32 v) { ckbits_sec_ = v; }
   void ckbits_burst_is(U32 v) { ckbits_burst_ = v; }
   void pkbits_sec_is(U32 v) { pkbits_sec_ = v; }
   void pkbits_burst_is(U32 v) { pkbits_burst_ = v; }

   bool operator==(bcm_policer_config_s const& o) const = default;
   // "{flags=0x84 mode=1 ckbits_sec=300 ckbits_burst=30 pkbits_sec=0 pkbits_burst=0}"
   std::string text() const;

  private:
   U32 flags_ = 0;
   U32 mode_ = 0;
   U32 ckbits_sec_ = 0;
   U32 ckbits_burst_ = 0;
   U32 pkbits_sec_ = 0;
   U32 pkbits_burst_ = 0;
};
using bcm_policer_config_t = bcm_policer_config_s;

// The SDK's initialiser: zeroes the whole record.
void bcm_policer_config_t_init(bcm_policer_config_s* config);

// A port bitmap: port p is bit p % 32 of word p / 32. Compared and copied whole.
struct _shr_pbmp {
   static constexpr int words = 32;
   static constexpr int maxPorts = words * 32;
   std::array<U32, words> pbits{};

   void portAdd(int port) { pbits[port / 32] |= 1u << (port % 32); }
   void portRemove(int port) { pbits[port / 32] &= ~(1u << (port % 32)); }
   bool portMember(int port) const {
      return port >= 0 && port < maxPorts && (pbits[port / 32] >> (port % 32)) & 1u;
   }
   bool empty() const { return *this == _shr_pbmp(); }
   std::vector<int> ports() const;
   // The member ports in braces, e.g. "{1,2,8}".
   std::string text() const;
   bool operator==(_shr_pbmp const& o) const = default;
};
using bcm_pbmp_t = _shr_pbmp;

// A bitmap of the given ports.
bcm_pbmp_t pbmpOf(std::vector<int> const& ports);

}  // namespace Shim
