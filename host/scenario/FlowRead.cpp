// The traffic step: one flow as its own keys, or several under "flows"; synthetic flows with
// their arrival pattern, and capture flows.

#include <cmath>
#include <filesystem>
#include <limits>

#include "host/scenario/JsonReader.h"

namespace NimbalHost {
namespace scenario {

namespace {

class FlowReader {
  public:
   FlowReader(std::string const& file, ScenarioSwitch const& sw, StepState const& state,
              InterfaceCheck const& knownInterface)
       : file_(file), sw_(sw), state_(state), knownInterface_(knownInterface) {}

   step::Flow synthetic(Reader const& r, Json const& v, bool oneFlow = false) const {
      step::Flow f;
      f.interface = knownInterface_(r, v, "interface");
      destination(r, v, f.queue, f.cmapName, oneFlow ? "a traffic step" : "a flow");
      f.pps = static_cast<U32>(
          r.integer(r.member(v, "", "pps"), "pps", 1, std::numeric_limits<U32>::max()));
      if (v.contains("vxlan")) {
         f.vxlan = r.boolean(v.at("vxlan"), "vxlan");
      }
      if (f.vxlan && sw_.vxlanWorkaround && state_.recirc.empty()) {
         r.fail("vxlan",
                "tunnel traffic reaches the CPU through a recirculation interface on this "
                "switch; enable one with a recirc step first");
      }
      if (v.contains("exact")) {
         f.exact = r.boolean(v.at("exact"), "exact");
      }
      if (v.contains("pattern")) {
         f.pattern = pattern(r, v.at("pattern"), "pattern");
      }
      return f;
   }

   step::Flow capture(Reader const& r, Json const& v) const {
      r.object(v, "", {"interface", "pcap", "classes", "otherwise", "speed", "save"});
      step::Flow f;
      f.interface = knownInterface_(r, v, "interface");
      step::Capture c;
      c.file = r.string(v.at("pcap"), "pcap");
      c.path = besideScenario(c.file);
      Json const& classes = r.member(v, "", "classes");
      if (!classes.is_array()) {
         r.fail("classes",
                "must be a list of {\"class\" or \"queue\", \"filter\"}, not " + shown(classes));
      }
      for (std::size_t i = 0; i < classes.size(); ++i) {
         std::string const item = "classes[" + std::to_string(i) + "]";
         Json const& cv = classes.at(i);
         if (!cv.is_object()) {
            r.fail(item,
                   "must be an object {\"class\" or \"queue\", \"filter\"}, not " + shown(cv));
         }
         Reader const cr = r.within(item + ".");
         cr.object(cv, "", {"class", "queue", "filter"});
         step::CaptureClass cc;
         destination(cr, cv, cc.queue, cc.cmapName);
         cc.filter = cr.string(cr.member(cv, "", "filter"), "filter");
         c.classes.push_back(std::move(cc));
      }
      if (v.contains("otherwise")) {
         Json const& o = v.at("otherwise");
         if (o.is_number_integer()) {
            c.otherwise.queue =
                static_cast<U32>(r.integer(o, "otherwise", 0, Nimbal::mmuCpuQueues - 1));
         } else if (o.is_string() && o != "ignore") {
            c.otherwise.cmapName = r.string(o, "otherwise");
            knownClass(r, "otherwise", c.otherwise.cmapName);
         } else if (!o.is_string()) {
            r.fail("otherwise", "must be \"ignore\", a class or a CPU queue, not " + shown(o));
         }
      }
      if (v.contains("speed")) {
         c.speed = r.number(v.at("speed"), "speed", false);
      }
      if (v.contains("save")) {
         Json const& sv = v.at("save");
         r.object(sv, "save", {"allowed", "dropped"});
         if (sv.contains("allowed")) {
            c.saveAllowed = besideScenario(r.string(sv.at("allowed"), "save.allowed"));
         }
         if (sv.contains("dropped")) {
            c.saveDropped = besideScenario(r.string(sv.at("dropped"), "save.dropped"));
         }
      }
      f.capture = std::move(c);
      return f;
   }

  private:
   // A CPU queue given directly, or a class that has one by now.
   void destination(Reader const& r, Json const& v, std::optional<U32>& queue,
                    std::string& cmapName, char const* what = "a flow") const {
      if (v.contains("queue") == v.contains("class")) {
         r.fail((v.contains("queue") ? "class" : "queue"),
                std::string(what) + " names either a CPU \"queue\" or a \"class\", not both");
      }
      if (v.contains("queue")) {
         queue = static_cast<U32>(r.integer(v.at("queue"), "queue", 0, Nimbal::mmuCpuQueues - 1));
      } else {
         cmapName = r.string(v.at("class"), "class");
         knownClass(r, "class", cmapName);
      }
   }

   void knownClass(Reader const& r, std::string const& key, std::string const& cmapName) const {
      if (sw_.staticQueue(cmapName) < 0 && !state_.policedAnywhere(cmapName)) {
         r.fail(key, "unknown class " + inQuotes(cmapName) +
                         ": it has no static CPU queue and no police step before this one "
                         "gives it one");
      }
   }

   step::Pattern pattern(Reader const& r, Json const& v, std::string const& key) const {
      step::Pattern p;
      if (v.is_string()) {
         if (v != "constant") {
            r.fail(key,
                   "must be \"constant\", {\"bursts\": {\"size\": N}} or "
                   "{\"poisson\": {\"seed\": N}}, not " +
                       shown(v));
         }
         return p;
      }
      if (!v.is_object() || v.size() != 1) {
         r.fail(key,
                "must be \"constant\", {\"bursts\": {\"size\": N}} or "
                "{\"poisson\": {\"seed\": N}}, not " +
                    shown(v));
      }
      r.object(v, key, {"bursts", "poisson"});
      if (v.contains("bursts")) {
         Json const& b = v.at("bursts");
         r.object(b, key + ".bursts", {"size"});
         p.kind = step::Pattern::Kind::bursts;
         p.burstSize = static_cast<U32>(
             r.integer(r.member(b, key + ".bursts", "size"), key + ".bursts.size", 1, 1'000'000));
      } else {
         Json const& b = v.at("poisson");
         r.object(b, key + ".poisson", {"seed"});
         p.kind = step::Pattern::Kind::poisson;
         p.seed =
             static_cast<U64>(r.integer(r.member(b, key + ".poisson", "seed"),
                                        key + ".poisson.seed", 0, std::numeric_limits<S64>::max()));
      }
      return p;
   }

   std::string besideScenario(std::string const& name) const {
      std::filesystem::path const p(name);
      if (p.is_absolute()) {
         return name;
      }
      return (std::filesystem::path(file_).parent_path() / p).lexically_normal().string();
   }

   std::string const& file_;
   ScenarioSwitch const& sw_;
   StepState const& state_;
   InterfaceCheck const& knownInterface_;
};

}  // namespace

step::Traffic readTraffic(Reader const& r, Json const& v, std::string const& file,
                          ScenarioSwitch const& sw, StepState const& state,
                          InterfaceCheck const& knownInterface) {
   FlowReader const flows(file, sw, state, knownInterface);
   step::Traffic t;
   if (!v.is_object()) {
      r.fail("traffic",
             "must be an object, one flow or {\"seconds\": S, \"flows\": [...]}, not " + shown(v));
   }
   double packets = 0;
   if (v.contains("flows")) {
      r.object(v, "", {"seconds", "flows"});
      t.oneFlow = false;
      Json const& list = v.at("flows");
      if (!list.is_array()) {
         r.fail("flows", "must be a list of flows, not " + shown(list));
      }
      if (list.empty()) {
         r.fail("flows", "must list at least one flow");
      }
      for (std::size_t i = 0; i < list.size(); ++i) {
         std::string const item = "flows[" + std::to_string(i) + "]";
         Json const& fv = list.at(i);
         if (!fv.is_object()) {
            r.fail(item, "must be an object, a flow, not " + shown(fv));
         }
         Reader const fr = r.within(item + ".");
         if (fv.contains("pcap")) {
            t.flows.push_back(flows.capture(fr, fv));
         } else {
            fr.object(fv, "", {"interface", "queue", "class", "pps", "vxlan", "pattern", "exact"});
            t.flows.push_back(flows.synthetic(fr, fv));
         }
      }
   } else {
      r.object(v, "",
               {"interface", "queue", "class", "pps", "seconds", "vxlan", "pattern", "exact"});
      step::Flow f = flows.synthetic(r, v, true);
      t.interface = f.interface;
      t.queue = f.queue;
      t.cmapName = f.cmapName;
      t.pps = f.pps;
      t.vxlan = f.vxlan;
      t.flows.push_back(std::move(f));
   }
   t.seconds = r.number(r.member(v, "", "seconds"), "seconds", false);
   for (step::Flow const& f : t.flows) {
      packets += f.capture ? 0 : static_cast<double>(f.pps) * t.seconds;
   }
   if (packets > maxTrafficPackets) {
      r.fail(t.oneFlow ? "pps" : "flows", "pps * seconds is more than " +
                                              std::to_string(static_cast<long>(maxTrafficPackets)) +
                                              " packets; split the traffic into several steps");
   }
   return t;
}

}  // namespace scenario
}  // namespace NimbalHost
