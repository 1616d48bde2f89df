#pragma once

// A scenario of the simulated agent: the switch it runs on and the steps it plays, read from
// one JSON document and checked whole before anything runs.

#include <map>
#include <optional>
#include <stdexcept>
#include <string>
#include <variant>
#include <vector>

#include "Kiv/Types.h"
#include "Nimbal/MmuCpuQ.h"
#include "host/scenario/SwitchLayout.h"

namespace NimbalHost {

// A scenario that cannot be read or is invalid; what() is the one line the operator sees.
class ScenarioError : public std::runtime_error {
  public:
   explicit ScenarioError(std::string const& line) : std::runtime_error(line) {}
};

using ScenarioModule = SwitchModule;
using ScenarioInterface = SwitchInterface;
// Pool sizes of the egress CoPP groups; absent sizes stay as they are.
using ScenarioResources = SwitchResources;

struct ScenarioSwitch {
   std::vector<ScenarioModule> modules;
   std::vector<ScenarioInterface> interfaces;
   std::vector<ScenarioInterface> fabricInterfaces;
   std::vector<Nimbal::MmuCpuQRow> cpuQueues;
   U32 portDefaultCoppRate = 1000;
   bool vxlanWorkaround = false;
   ScenarioResources resources;
   // The toggle file's flags, in file order.
   std::vector<std::pair<std::string, bool>> toggles;

   bool toggle(std::string const& name) const;
   // Front-panel first, then fabric; null when the switch has no such interface.
   ScenarioInterface const* interface(std::string const& name) const;
   // The queue a class is statically mapped to, or -1.
   int staticQueue(std::string const& cmapName) const;
   // The classes statically mapped in the CPU queue table, in table order.
   std::vector<std::string> systemClasses() const;
   // Front-panel then fabric interface names, in file order.
   std::vector<std::string> interfaceNames() const;
};

namespace step {

struct Police {
   std::string interface;
   std::string cmapName;
   U32 cir = 0;
   U32 bc = 0;
};
struct Unpolice {
   std::string interface;
   std::string cmapName;
};
struct Vxlan {
   bool enabled = false;
};
struct Recirc {
   std::string interface;
   bool enabled = true;
};
struct Advance {
   double seconds = 0;
};
// How a synthetic flow's packets arrive.
struct Pattern {
   enum class Kind { constant, bursts, poisson };
   Kind kind = Kind::constant;
   U32 burstSize = 0;  // bursts
   U64 seed = 0;       // poisson
};
// Where a capture's packets that match a filter go: a CPU queue given directly, or a class's.
struct CaptureClass {
   std::optional<U32> queue;
   std::string cmapName;
   std::string filter;  // tcpdump's filter language
};
struct Capture {
   std::string file;  // as the scenario names it
   std::string path;  // to open: relative to the scenario's folder
   std::vector<CaptureClass> classes;
   // The packets that no filter matches: ignored when this has neither a queue nor a class.
   CaptureClass otherwise;
   double speed = 1;
   std::string saveAllowed;  // paths to open; empty: not saved
   std::string saveDropped;
   bool ignoresTheRest() const { return !otherwise.queue && otherwise.cmapName.empty(); }
};
struct Flow {
   std::string interface;
   std::optional<U32> queue;  // given directly, or
   std::string cmapName;      // the queue of this class
   U32 pps = 0;
   bool vxlan = false;
   bool exact = false;  // the constant pattern without its jitter
   Pattern pattern;
   std::optional<Capture> capture;  // a capture flow: no pps, no pattern
};
struct Traffic {
   // The one-flow form, as the file wrote it (flows holds that flow as well).
   std::string interface;
   std::optional<U32> queue;  // given directly, or
   std::string cmapName;      // the queue of this class
   U32 pps = 0;
   double seconds = 0;
   bool vxlan = false;
   // Every flow of the step, in the listed order.
   std::vector<Flow> flows;
   bool oneFlow = true;  // written in the one-flow form

   // The flows; a step made in code with only the one-flow fields has that one flow.
   std::vector<Flow> flowList() const {
      if (!flows.empty()) {
         return flows;
      }
      Flow f;
      f.interface = interface;
      f.queue = queue;
      f.cmapName = cmapName;
      f.pps = pps;
      f.vxlan = vxlan;
      return {f};
   }
};
struct Show {
   bool hw = true;
};
struct Clear {
   std::optional<std::string> interface;
   std::optional<U32> queue;
};
struct Poll {
   std::string interface;
   std::string cmapName;
};
struct Verify {};
struct Set {
   // Attribute name and value as text, in file order.
   std::vector<std::pair<std::string, std::string>> attributes;
};
struct Resources {
   ScenarioResources sizes;
};
struct Tamper {
   std::string interface;
   U32 queue = 0;
   U32 cir = 0;
   U32 bc = 0;
};
struct Fail {
   std::string call;
   int rc = 0;
};

}  // namespace step

using StepAction = std::variant<step::Police, step::Unpolice, step::Vxlan, step::Recirc,
                                step::Advance, step::Traffic, step::Show, step::Clear, step::Poll,
                                step::Verify, step::Set, step::Resources, step::Tamper, step::Fail>;

struct ScenarioStep {
   int number = 0;  // from 1, as the file counts them
   std::string name;
   StepAction action;
   std::string value;  // the step's value as the file wrote it, in compact JSON
};

// A goal of the advisor: a class on an interface (or on every interface its traffic reaches,
// "*") may lose at most this share of what it is offered.
struct AdviseGoal {
   std::string interface;  // "*": every interface
   std::string cmapName;
   double maxLoss = 0;
};

// What the advisor is asked: the classes to keep whole, the packets a port's CPU path may take,
// and the classes whose rates it may choose.
struct Advise {
   std::vector<AdviseGoal> protect;
   std::optional<U32> cpuBudget;      // pps per port; none: no budget
   std::vector<std::string> classes;  // empty: every class that the traffic reaches
};

struct Scenario {
   std::string file;
   std::string description;
   ScenarioSwitch sw;
   std::vector<ScenarioStep> steps;
   std::optional<Advise> advise;
   // The switch as the file wrote it, in compact JSON ("{}" when absent).
   std::string switchValue = "{}";

   // Whether the switch's resources or a `resources` step size a pool.
   bool namesResources() const {
      SwitchResources const& r = sw.resources;
      if (r.efpCoppEntries || r.efpCoppMeters || r.efpDefaultMeters) {
         return true;
      }
      for (ScenarioStep const& s : steps) {
         if (std::holds_alternative<step::Resources>(s.action)) {
            return true;
         }
      }
      return false;
   }
};

// The step names, in the order the help lists them.
std::vector<std::string> const& scenarioStepNames();
// The SDK functions whose next call a `fail` step can make fail.
std::vector<std::string> const& failableSdkCalls();
// The highest class rate: the port's default policer meters twice it, in 32 bits.
inline constexpr U32 maxClassRate = 0xFFFFFFFFu / 2;
// The most packets one traffic step may send.
inline constexpr double maxTrafficPackets = 10'000'000;

// The classes that the traffic steps send to, by interface, in the order they first appear:
// flows given by class and the classes of capture flows.
std::vector<std::pair<std::string, std::string>> trafficClasses(Scenario const& s);

// Reads and checks a scenario; `file` names it in messages. Throws ScenarioError.
Scenario scenarioFromText(std::string const& text, std::string const& file);
Scenario scenarioFromFile(std::string const& path);

}  // namespace NimbalHost
