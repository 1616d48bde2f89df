#include "Shim/BcmTypes.h"

#include <sstream>

namespace Shim {

char const* bcm_errmsg(int rc) {
   switch (rc) {
      case BCM_E_NONE:
         return "Ok";
      case BCM_E_INTERNAL:
         return "Internal error";
      case BCM_E_MEMORY:
         return "Out of memory";
      case BCM_E_UNIT:
         return "Invalid unit";
      case BCM_E_PARAM:
         return "Invalid parameter";
      case BCM_E_EMPTY:
         return "Table empty";
      case BCM_E_FULL:
         return "Table full";
      case BCM_E_NOT_FOUND:
         return "Entry not found";
      case BCM_E_EXISTS:
         return "Entry exists";
      case BCM_E_TIMEOUT:
         return "Operation timed out";
      case BCM_E_BUSY:
         return "Operation still running";
      case BCM_E_FAIL:
         return "Operation failed";
      case BCM_E_DISABLED:
         return "Operation disabled";
      case BCM_E_BADID:
         return "Invalid identifier";
      case BCM_E_RESOURCE:
         return "No resources for operation";
      case BCM_E_CONFIG:
         return "Invalid configuration";
      case BCM_E_UNAVAIL:
         return "Feature unavailable";
      case BCM_E_INIT:
         return "Feature not initialized";
      case BCM_E_PORT:
         return "Invalid port";
      default:
         return "Unknown error";
   }
}

std::string bcm_policer_config_s::text() const {
   std::ostringstream os;
   os << "{flags=0x" << std::hex << flags_ << std::dec << " mode=" << mode_
      << " ckbits_sec=" << ckbits_sec_ << " ckbits_burst=" << ckbits_burst_
      << " pkbits_sec=" << pkbits_sec_ << " pkbits_burst=" << pkbits_burst_ << "}";
   return os.str();
}

void bcm_policer_config_t_init(bcm_policer_config_s* config) {
   if (config) {
      *config = bcm_policer_config_s();
   }
}

std::vector<int> _shr_pbmp::ports() const {
   std::vector<int> out;
   for (int p = 0; p < maxPorts; ++p) {
      if (portMember(p)) {
         out.push_back(p);
      }
   }
   return out;
}

std::string _shr_pbmp::text() const {
   std::ostringstream os;
   os << "{";
   char const* sep = "";
   for (int p : ports()) {
      os << sep << p;
      sep = ",";
   }
   os << "}";
   return os.str();
}

bcm_pbmp_t pbmpOf(std::vector<int> const& ports) {
   bcm_pbmp_t out;
   for (int p : ports) {
      out.portAdd(p);
   }
   return out;
}

}  // namespace Shim
