#pragma once

// The agent's QoS configuration of CoPP classes: the police actions of the classes of the
// control-plane policy map, one interface each, as the agent's QoS layer hands them to the
// helper.

#include <map>
#include <optional>
#include <string>
#include <utility>
#include <vector>

#include "Oskel/QosClassCounterData.h"
#include "Oskel/QosClassData.h"
#include "host/agent/SwitchBuilder.h"

namespace NimbalHost {

class QosClassConfig {
  public:
   explicit QosClassConfig(Switch& sw);

   struct Policed {
      Kiv::Ptr<Oskel::QosClassData> classData;
      bool dynamic = false;  // the class has no static queue
      // The queue the class runs on; none for a dynamic class that got no queue.
      std::optional<U32> cpuQ;
   };

   struct PoliceOutcome {
      bool rateChange = false;  // the class was policed and programmed already
      bool dynamic = false;
      std::optional<U32> cpuQ;  // none: no dynamic queue was free, nothing programmed
   };
   // Configures the police action of a class on an interface: a dynamic class first gets a
   // queue; then the helper creates and attaches the policer. Policing again changes the rate.
   PoliceOutcome police(std::string const& intf, std::string const& cmapName, U32 cir, U32 bc);

   struct UnpoliceOutcome {
      bool dynamic = false;
      std::optional<U32> cpuQ;  // the queue the class had
   };
   // Removes the police action: destroyPolicer, then a dynamic class's queue goes back.
   UnpoliceOutcome unpolice(std::string const& intf, std::string const& cmapName);

   // The counter poll of a class (zero for one that is not configured).
   Oskel::QosClassCounterData poll(std::string const& intf, std::string const& cmapName);
   // verifyPolicer for every configured class that has a queue, in (interface, class) order.
   void verifyAll();

   // The CPU queue of a class: its static queue, or the dynamic one it holds.
   std::optional<U32> queueOfClass(std::string const& cmapName) const;
   Policed const* policed(std::string const& intf, std::string const& cmapName) const;
   std::map<std::pair<std::string, std::string>, Policed> const& all() const { return policed_; }

   Oskel::QosClassDataKey classKey(std::string const& cmapName) const;

  private:
   Switch& sw_;
   std::map<std::pair<std::string, std::string>, Policed> policed_;
};

}  // namespace NimbalHost
