#pragma once

// What the simulated agent reports while it plays a scenario, one event per thing an operator
// would see. The text transcript and the JSON Lines transcript are two renderings of the same
// events, so that neither can say something the other does not.

#include <optional>
#include <string>
#include <variant>
#include <vector>

#include "Kiv/Types.h"
#include "host/transcript/CounterTableRows.h"

namespace NimbalHost {

namespace event {

struct Scenario {
   std::string file;
   std::string description;
};
struct Switch {
   std::size_t modules = 0;
   std::size_t interfaces = 0;
   std::size_t fabricInterfaces = 0;
   std::size_t cpuQueues = 0;
   std::size_t dynamicCpuQueues = 0;
   U32 portDefaultCoppRate = 0;
   bool vxlanWorkaround = false;
};
struct Helper {
   std::string type;
   bool fromLibraryFile = false;
};
struct StartUp {
   std::size_t portDefaultPolicers = 0;
   std::size_t kernelKeysProgrammed = 0;
   // Ports from this one up get no per-port default CoPP entry.
   U32 highPortsFrom = 0;
   std::size_t interfacesOnHighPorts = 0;
   // Interfaces below that port whose default entry found no room.
   std::vector<std::string> interfacesWithoutDefaultPolicer;
};
struct Step {
   int number = 0;
   std::string name;
   std::string value;  // as the file wrote it, in compact JSON
   std::string text;   // how it reads after "step N at T s: "
};
struct ClassPoliced {
   std::string interface;
   std::string cmapName;
   U32 queue = 0;
   std::optional<std::string> queueName;
   bool dynamic = false;
   U32 cir = 0;
   U32 bc = 0;
   bool rateChanged = false;
};
// A class without a static queue whose name is a slip away from a system class: it becomes a
// user class on a dynamic queue while the system class stays as it was.
struct ClassNameNote {
   std::string interface;
   std::string cmapName;
   std::string systemClass;  // the closest
};
// A class without a static queue that found no dynamic one free.
struct ClassNotProgrammed {
   std::string interface;
   std::string cmapName;
};
struct PortDefaultPolicer {
   std::string interface;
   U32 rate = 0;
   U32 burst = 0;
};
struct ClassUnpoliced {
   std::string interface;
   std::string cmapName;
   std::optional<U32> queue;  // none: the class was never programmed
   std::optional<std::string> queueName;
   bool dynamic = false;
};
struct Vxlan {
   bool enabled = false;
   std::size_t entries = 0;  // VXLAN CoPP entries programmed afterwards
};
struct Recirc {
   std::string interface;
   bool enabled = false;
};
struct TrafficNotSent {
   enum class Reason { noCpuQueue, noRecirculationInterface };
   Reason reason = Reason::noCpuQueue;
   std::string cmapName;  // for noCpuQueue
   std::size_t flow = 0;  // the flow of the step, from 0
};
struct TunnelTraffic {
   std::string interface;
   std::string recircInterface;
   U32 innerVlan = 0;
};
// A traffic step too short for its rate to send a packet.
struct TrafficEmpty {
   std::string interface;
   U32 pps = 0;
   double seconds = 0;
};
struct Traffic {
   std::string interface;
   U32 queue = 0;
   std::optional<std::string> queueName;
   bool vxlan = false;
   U64 offered = 0;
   U64 allowed = 0;
   U64 dropped = 0;
   std::size_t flow = 0;  // the flow of the step, from 0
   std::string pattern;   // constant, exact, bursts, poisson or capture
};
// What a capture flow replayed.
struct CaptureSummary {
   std::size_t flow = 0;
   std::string file;
   U64 packets = 0;
   U64 classified = 0;
   U64 ignored = 0;
};
// One of the library's counter tables: its text as the library wrote it, and its rows.
struct Show {
   bool hw = true;
   std::string text;
   std::vector<CounterTableRow> rows;
};
struct Clear {
   std::size_t keys = 0;
};
struct Poll {
   std::string interface;
   std::string cmapName;
   U64 pktHits = 0;
   U64 drop = 0;
   U64 byteHits = 0;
   U64 dropBytes = 0;
};
struct Verify {
   std::vector<std::string> differences;
   // Configured kernel CoPP keys that verify skips: they wait for hardware.
   std::size_t keysNotInHardware = 0;
};
struct AttributeSet {
   std::string name;
   std::string value;
};
struct Resources {
   struct Unit {
      U32 unit = 0;
      U32 coppEntriesInUse = 0;
      U32 coppEntries = 0;
      U32 coppMetersInUse = 0;
      U32 coppMeters = 0;
      U32 defaultMetersInUse = 0;
      U32 defaultMeters = 0;
   };
   std::vector<Unit> units;
};
struct Tamper {
   std::string interface;
   U32 queue = 0;
   std::optional<U32> policer;  // none: the key has no programmed meter, nothing changed
   U32 cir = 0;
   U32 bc = 0;
};
struct Fail {
   std::string call;
   int rc = 0;
   std::string rcText;
};
// A kernel CoPP key, with the interface of its port.
struct KernelKey {
   std::string interface;
   U32 modId = 0;
   U32 port = 0;
   U32 queue = 0;
   std::optional<std::string> queueName;
};
// The kernel CoPP keys waiting for hardware, reported when their number changes.
struct KernelCopp {
   std::vector<KernelKey> waiting;
};
// The state machine's VXLAN retry, reported when it changes.
struct VxlanRetry {
   bool exhausted = false;
   double retryAt = 0;  // seconds since the start, while exhausted
};
struct Log {
   std::string key;
   int severity = 0;
   std::string text;
   double minInterval = 0;
   double maxInterval = 0;
   unsigned burst = 0;
   unsigned flags = 0;
};
struct End {
   std::size_t kernelKeysProgrammed = 0;
   std::size_t kernelKeysWaiting = 0;
   // What stays unpoliced: keys waiting for hardware, and programmed keys that VXLAN needs an
   // entry for and have none.
   std::vector<KernelKey> waiting;
   std::vector<KernelKey> vxlanWithoutEntry;
   // The switch's interfaces in order, to write the keys as ranges.
   std::vector<std::string> interfaceOrder;
};

}  // namespace event

using TranscriptPayload =
    std::variant<event::Scenario, event::Switch, event::Helper, event::StartUp, event::Step,
                 event::ClassPoliced, event::ClassNameNote, event::ClassNotProgrammed,
                 event::PortDefaultPolicer, event::ClassUnpoliced, event::Vxlan, event::Recirc,
                 event::TrafficNotSent, event::TunnelTraffic, event::TrafficEmpty, event::Traffic,
                 event::CaptureSummary, event::Show, event::Clear, event::Poll, event::Verify,
                 event::AttributeSet, event::Resources, event::Tamper, event::Fail,
                 event::KernelCopp, event::VxlanRetry, event::Log, event::End>;

struct TranscriptEvent {
   double time = 0;  // virtual seconds since the agent started
   int step = 0;     // the step it belongs to; 0 for the switch and the start-up
   TranscriptPayload what;
};

// Where the agent's events go.
class TranscriptWriter {
  public:
   virtual ~TranscriptWriter() = default;
   virtual void write(TranscriptEvent const& e) = 0;
};

// Where events go when nobody reads them.
class SilentTranscript : public TranscriptWriter {
  public:
   void write(TranscriptEvent const&) override {}
};

}  // namespace NimbalHost
