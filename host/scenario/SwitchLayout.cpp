#include "host/scenario/SwitchLayout.h"

namespace NimbalHost {

std::vector<SwitchInterface> defaultSwitchInterfaces() {
   std::vector<SwitchInterface> out;
   for (U16 port = 1; port <= 8; ++port) {
      out.push_back(SwitchInterface{"Ethernet" + std::to_string(port), 0, port});
   }
   return out;
}

}  // namespace NimbalHost
