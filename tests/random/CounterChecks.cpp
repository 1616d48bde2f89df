// The counter invariants: hits and packet counts move only with traffic and only forward
// (except where a clear or a queue reset moves a baseline), every packet is counted by the
// entries it matches, and the show tables, polls and verify reports say what the chip holds.
#include <algorithm>
#include <cinttypes>
#include <cmath>
#include <cstdio>
#include <map>
#include <optional>
#include <sstream>

#include "Orvik/IntfNameCmp.h"
#include "Oskel/VerifyData.h"
#include "random/HistoryChecks.h"

namespace NimbalHistory {

namespace {

std::vector<std::string> words(std::string const& line) {
   std::istringstream is(line);
   std::vector<std::string> out;
   for (std::string w; is >> w;) {
      out.push_back(w);
   }
   return out;
}

bool startsWith(std::string const& s, std::string const& prefix) {
   return s.compare(0, prefix.size(), prefix) == 0;
}

// Where the packets of a traffic step reach the chip.
struct Packet {
   int unit = 0;
   U32 port = 0;
   U32 queue = 0;
   U32 innerVlan = 0;
};

// Tunnel traffic carries its source port in the inner VLAN; on a chip with the workaround it
// arrives from the first recirculation interface, of the source's unit if there is one.
std::optional<Packet> packetOf(HistoryModel const& model, NimbalHost::step::Traffic const& t) {
   ModelInterface const* source = model.interface(t.interface);
   std::optional<U32> const queue = t.queue ? t.queue : model.queueOfClass(t.cmapName);
   if (!source || !queue) {
      return std::nullopt;
   }
   Packet p{source->unit, source->port, *queue, 0};
   if (!t.vxlan) {
      return p;
   }
   p.innerVlan = source->port;
   if (!model.sw().vxlanWorkaround) {
      return p;
   }
   std::vector<std::string> recirc(model.recirc.begin(), model.recirc.end());
   std::sort(recirc.begin(), recirc.end(), Orvik::intfNameCmp);
   ModelInterface const* from = nullptr;
   for (std::string const& name : recirc) {
      ModelInterface const* r = model.interface(name);
      if (!from || (r->unit == source->unit && from->unit != source->unit)) {
         from = r;
      }
   }
   if (!from) {
      return std::nullopt;
   }
   p.unit = from->unit;
   p.port = from->port;
   return p;
}

bool matches(Shim::EntryProgram const& e, Packet const& p) {
   struct Field {
      Shim::QualKind kind;
      U32 value;
   };
   for (Field const& f :
        {Field{Shim::QualKind::InPort, p.port}, Field{Shim::QualKind::CpuQueue, p.queue & 0xFFu},
         Field{Shim::QualKind::InnerVlanId, p.innerVlan & 0xFFFFu},
         Field{Shim::QualKind::InterfaceClassPort, 2}}) {
      std::optional<Shim::Qualifier> const q = e.qualifier(f.kind);
      if (q && (f.value & q->mask) != (q->data & q->mask)) {
         return false;
      }
   }
   int const port = static_cast<int>(p.port);
   return !(e.inPorts && e.inPorts->mask.portMember(port) && !e.inPorts->data.portMember(port));
}

// The entry each group gives the packet: the highest priority installed match, the lowest id
// among equals. A plain walk over every entry, apart from the chip's own packet index.
std::map<int, Shim::FieldEntry const*> winners(Shim::SimChip const& chip, Packet const& p) {
   std::map<int, Shim::FieldEntry const*> best;
   for (int id : chip.entries(p.unit)) {
      Shim::FieldEntry const* e = chip.entry(p.unit, id);
      if (!e->installed || !matches(e->hw, p)) {
         continue;
      }
      Shim::FieldEntry const*& b = best[e->group];
      if (!b || e->hw.priority > b->hw.priority ||
          (e->hw.priority == b->hw.priority && e->id < b->id)) {
         b = e;
      }
   }
   return best;
}

U64 lifetimeHits(Observation const& o, Key const& key) {
   U64 hits = 0;
   if (auto it = o.softwareHits.find(key); it != o.softwareHits.end()) {
      hits += it->second;
   }
   if (auto k = o.kernel.find(key); k != o.kernel.end()) {
      hits += k->second.packets;
      if (auto v = o.vxlan.find(key); v != o.vxlan.end()) {
         hits += v->second.packets;
      }
   }
   return hits;
}

template <class T>
T const* stepAs(StepFacts const& facts) {
   NimbalHost::ScenarioStep const* s = facts.step ? facts.step->scenarioStep() : nullptr;
   return s ? std::get_if<T>(&s->action) : nullptr;
}

bool isTraffic(StepFacts const& facts) {
   return stepAs<NimbalHost::step::Traffic>(facts) != nullptr;
}

template <class Map>
typename Map::mapped_type valueOr(Map const& m, typename Map::key_type const& k) {
   auto it = m.find(k);
   return it == m.end() ? typename Map::mapped_type() : it->second;
}

}  // namespace

void HistoryChecks::hitCounters(Observation const& pre, Observation const& post,
                                StepFacts const& facts) {
   bool const traffic = isTraffic(facts);
   for (auto const& [stat, counts] : post.stats) {
      auto const before = pre.stats.find(stat);
      std::pair<U64, U64> const was =
          before == pre.stats.end() ? std::pair<U64, U64>(0, 0) : before->second;
      bool const back = counts.first < was.first || counts.second < was.second;
      if (back || (!traffic && counts != was)) {
         fail("hit counters move only with traffic",
              "counter set " + std::to_string(stat.second) + " of unit " +
                  std::to_string(stat.first) + " went from " + std::to_string(was.first) + " (" +
                  std::to_string(was.second) + " red) to " + std::to_string(counts.first) + " (" +
                  std::to_string(counts.second) + " red)");
      }
   }
}

void HistoryChecks::softwareHits(Observation const& pre, Observation const& post) {
   for (auto const& [key, hits] : post.softwareHits) {
      if (!model_.everProgrammed.count(key)) {
         fail("software hit counts", keyText(key) + " has a software count but never had an entry");
      } else if (hits != valueOr(model_.folded, key)) {
         fail("software hit counts", keyText(key) + " holds " + std::to_string(hits) +
                                         " hits of entries gone, expected " +
                                         std::to_string(valueOr(model_.folded, key)));
      }
   }
   for (Key const& key : model_.everProgrammed) {
      if (!post.softwareHits.count(key)) {
         fail("software hit counts", keyText(key) + " had an entry but has no software count");
      }
      // Only a VXLAN source-port entry that goes while its kernel entry stays takes its hits
      // with it.
      U64 allowance = 0;
      auto const vBefore = pre.vxlan.find(key);
      auto const vAfter = post.vxlan.find(key);
      auto const kBefore = pre.kernel.find(key);
      auto const kAfter = post.kernel.find(key);
      if (vBefore != pre.vxlan.end() &&
          (vAfter == post.vxlan.end() || vAfter->second.statId != vBefore->second.statId) &&
          kBefore != pre.kernel.end() && kAfter != post.kernel.end() &&
          kAfter->second.statId == kBefore->second.statId) {
         allowance = vBefore->second.packets;
      }
      U64 const before = lifetimeHits(pre, key);
      U64 const after = lifetimeHits(post, key);
      if (after + allowance < before) {
         fail("lifetime hits only grow", keyText(key) + " went from " + std::to_string(before) +
                                             " to " + std::to_string(after) + " hits");
      }
   }
   for (auto const& [intf, hits] : post.defaultHits) {
      U64 const before = valueOr(pre.defaultHits, intf) + valueOr(pre.vxlanDefaultHits, intf);
      U64 after = hits + valueOr(post.vxlanDefaultHits, intf);
      if (pre.vxlanDefaultStat.count(intf) &&
          valueOr(post.vxlanDefaultStat, intf) != valueOr(pre.vxlanDefaultStat, intf)) {
         after += valueOr(pre.vxlanDefaultHits, intf);
      }
      if (after < before) {
         fail("lifetime hits only grow", intf + " default policer went from " +
                                             std::to_string(before) + " to " +
                                             std::to_string(after) + " hits");
      }
   }
}

void HistoryChecks::driverCounters(Observation const& pre, Observation const& post,
                                   StepFacts const& facts) {
   // A traffic step's counts are checked packet by packet, below.
   if (isTraffic(facts)) {
      return;
   }
   std::set<UnitPortQueue> keys;
   for (auto const& [k, c] : pre.dde) {
      keys.insert(k);
   }
   for (auto const& [k, c] : post.dde) {
      keys.insert(k);
   }
   for (UnitPortQueue const& k : keys) {
      DdeCounters const before = valueOr(pre.dde, k);
      DdeCounters const after = valueOr(post.dde, k);
      // Giving a dynamic queue back zeroes its counters on every port.
      DdeCounters const expected =
          model_.resetQueues.count(std::get<2>(k)) ? DdeCounters() : before;
      if (after != expected) {
         fail("packet driver counters",
              "unit " + std::to_string(std::get<0>(k)) + " port " + std::to_string(std::get<1>(k)) +
                  " queue " + std::to_string(std::get<2>(k)) + " went from " +
                  std::to_string(before.dropped) + "/" + std::to_string(before.allowed) + " to " +
                  std::to_string(after.dropped) + "/" + std::to_string(after.allowed) +
                  " without traffic, expected " + std::to_string(expected.dropped) + "/" +
                  std::to_string(expected.allowed));
      }
   }
}

void HistoryChecks::traffic(Observation const& pre, Observation const& post,
                            StepFacts const& facts) {
   auto const* t = stepAs<NimbalHost::step::Traffic>(facts);
   if (!t) {
      return;
   }
   Shim::SimChip const& chip = agent_.sw().chip();
   std::map<UnitStat, U64> expectedHits;
   std::optional<Packet> packet;
   U64 offered = 0;
   std::optional<DdeCounters> reported;
   {
      packet = packetOf(model_, *t);
      offered = static_cast<U64>(std::floor(static_cast<double>(t->pps) * t->seconds + 1e-9));
      for (std::string const& l : facts.transcript) {
         unsigned long long o = 0, a = 0, d = 0;
         auto const at = l.find(": offered ");
         if (startsWith(l, "traffic ") && at != std::string::npos &&
             std::sscanf(l.c_str() + at, ": offered %llu allowed %llu dropped %llu", &o, &a, &d) ==
                 3) {
            reported = DdeCounters{d, a};
            if (o != offered || a + d != o) {
               fail("traffic", "the agent reports \"" + l + "\", " + std::to_string(offered) +
                                   " packets were sent");
            }
         }
      }
      if (!packet || !reported) {
         fail("traffic", "the step sent nothing or reported nothing");
         return;
      }
   }
   // Packets are counted where they reach the CPU, and nowhere else.
   std::set<UnitPortQueue> keys;
   for (auto const& [k, c] : pre.dde) {
      keys.insert(k);
   }
   for (auto const& [k, c] : post.dde) {
      keys.insert(k);
   }
   if (packet) {
      keys.insert({static_cast<U32>(packet->unit), packet->port, packet->queue});
   }
   for (UnitPortQueue const& k : keys) {
      DdeCounters const before = valueOr(pre.dde, k);
      DdeCounters const after = valueOr(post.dde, k);
      DdeCounters delta{after.dropped - before.dropped, after.allowed - before.allowed};
      bool const here =
          packet && k == UnitPortQueue{static_cast<U32>(packet->unit), packet->port, packet->queue};
      DdeCounters const expected = here ? *reported : DdeCounters();
      if (delta != expected) {
         fail("traffic",
              "unit " + std::to_string(std::get<0>(k)) + " port " + std::to_string(std::get<1>(k)) +
                  " queue " + std::to_string(std::get<2>(k)) + " counted " +
                  std::to_string(delta.dropped) + " dropped and " + std::to_string(delta.allowed) +
                  " allowed, expected " + std::to_string(expected.dropped) + " and " +
                  std::to_string(expected.allowed));
      }
   }
   coverage().tunnelTraffic += t->vxlan ? 1 : 0;
   coverage().droppedPackets += reported ? static_cast<long>(reported->dropped) : 0;
   // While the entries stay as they were, each group's winner counts every packet.
   if (pre.installed != post.installed) {
      return;
   }
   ++coverage().exactTraffic;
   std::map<int, Shim::FieldEntry const*> won;
   if (packet) {
      won = winners(chip, *packet);
   }
   U64 redOfWinners = 0;
   U64 mostRed = 0;
   for (auto const& [group, e] : won) {
      UnitStat const stat{packet->unit, e->statId};
      expectedHits[stat] = offered;
      auto const before = valueOr(pre.stats, stat);
      auto const after = valueOr(post.stats, stat);
      U64 const red = after.second - before.second;
      if (e->hw.hasAction(Shim::bcmFieldActionRpDrop)) {
         redOfWinners += red;
         mostRed = std::max(mostRed, red);
      }
   }
   for (auto const& [stat, counts] : post.stats) {
      auto const before = valueOr(pre.stats, stat);
      U64 const hits = counts.first - before.first;
      U64 const red = counts.second - before.second;
      U64 const expected = valueOr(expectedHits, stat);
      if (hits != expected || red > hits) {
         fail("traffic", "counter set " + std::to_string(stat.second) + " of unit " +
                             std::to_string(stat.first) + " counted " + std::to_string(hits) +
                             " hits (" + std::to_string(red) + " red), expected " +
                             std::to_string(expected) + " hits");
      }
   }
   if (reported && (reported->dropped > redOfWinners || reported->dropped < mostRed)) {
      fail("traffic", std::to_string(reported->dropped) +
                          " packets dropped, the matching entries coloured " +
                          std::to_string(redOfWinners) + " red (at most " +
                          std::to_string(mostRed) + " on one)");
   }
}

void HistoryChecks::show(Observation const& post, StepFacts const& facts) {
   auto const* show = stepAs<NimbalHost::step::Show>(facts);
   if (!show) {
      return;
   }
   using Rows = std::map<std::pair<std::string, std::string>, long long>;
   Rows expected;
   std::set<std::string> counted;
   for (Key const& key : model_.everProgrammed) {
      ModelInterface const* intf = model_.interfaceOf(key);
      std::string const queue = model_.queue(key.queue()).name;
      counted.insert(intf->name);
      if (show->hw) {
         U64 entryHits = 0;
         if (auto k = post.kernel.find(key); k != post.kernel.end()) {
            entryHits = k->second.packets + valueOr(post.vxlan, key).packets;
         }
         // The table adds in 32 bits.
         U32 const total =
             static_cast<U32>(valueOr(model_.folded, key)) + static_cast<U32>(entryHits);
         if (total) {
            expected[{intf->name, queue}] = total;
         }
      } else {
         DdeCounters const now = post.ddeOf(intf->unit, intf->port, key.queue());
         DdeCounters const base = valueOr(model_.swBaseline, key);
         U64 const dropped = now.dropped - base.dropped;
         U64 const allowed = now.allowed - base.allowed;
         if (dropped || allowed) {
            expected[{intf->name, queue + " dropped"}] = static_cast<long long>(dropped);
            expected[{intf->name, queue + " allowed"}] = static_cast<long long>(allowed);
         }
      }
   }
   if (show->hw) {
      for (std::string const& name : counted) {
         if (post.defaultHits.count(name)) {
            U64 const d = valueOr(post.defaultHits, name) + valueOr(post.vxlanDefaultHits, name);
            if (d) {
               expected[{name, "Default"}] = static_cast<long long>(d);
            }
         }
      }
   }

   Rows shown;
   std::vector<std::string> order;
   std::string current;
   bool inTable = false;
   for (std::string const& l : facts.transcript) {
      std::vector<std::string> const w = words(l);
      if (!inTable) {
         inTable = show->hw ? startsWith(l, "---") : (w.size() == 4 && w[0] == "Interface");
         continue;
      }
      if (w.empty() || (show->hw && w.size() != 2 && w.size() != 3) ||
          (!show->hw && w.size() != 3 && w.size() != 4)) {
         break;
      }
      bool const first = l[0] != ' ';
      if (first) {
         current = w[0];
         order.push_back(current);
      }
      std::size_t const q = first ? 1 : 0;
      if (show->hw) {
         shown[{current, w[q]}] = std::stoll(w[q + 1]);
      } else {
         shown[{current, w[q] + " dropped"}] = std::stoll(w[q + 1]);
         shown[{current, w[q] + " allowed"}] = std::stoll(w[q + 2]);
      }
   }
   ++coverage().showTables;
   char const* table = show->hw ? "hardware table" : "software table";
   if (!inTable) {
      fail("show tables", std::string("no ") + table + " in the output");
      return;
   }
   for (auto const& [row, value] : expected) {
      auto const it = shown.find(row);
      if (it == shown.end() || it->second != value) {
         fail("show tables", std::string(table) + ": " + row.first + " " + row.second + " shows " +
                                 (it == shown.end() ? "nothing" : std::to_string(it->second)) +
                                 ", expected " + std::to_string(value));
         return;
      }
   }
   for (auto const& [row, value] : shown) {
      if (!expected.count(row)) {
         fail("show tables", std::string(table) + ": " + row.first + " " + row.second + " shows " +
                                 std::to_string(value) + ", expected no row");
         return;
      }
   }
   if (!show->hw && !std::is_sorted(order.begin(), order.end(), Orvik::intfNameCmp)) {
      fail("show tables", "software table: interfaces out of order");
   }
}

void HistoryChecks::poll(Observation const& post, StepFacts const& facts) {
   auto const* p = stepAs<NimbalHost::step::Poll>(facts);
   if (!p) {
      return;
   }
   U64 pktHits = 0;
   U64 drop = 0;
   auto const c = model_.policed.find({p->interface, p->cmapName});
   if (c != model_.policed.end() && c->second.queue) {
      ModelInterface const* intf = model_.interface(p->interface);
      Key const key = model_.keyOf(*intf, *c->second.queue);
      DdeCounters const now = post.ddeOf(intf->unit, intf->port, key.queue());
      DdeCounters const base = valueOr(model_.cfgBaseline, key);
      pktHits = (now.dropped + now.allowed) - (base.dropped + base.allowed);
      drop = now.dropped - base.dropped;
   }
   char expected[256];
   std::snprintf(expected, sizeof expected,
                 "poll %s %s: pktHits=%" PRIu64 " drop=%" PRIu64 " byteHits=%" PRIu64
                 " dropBytes=%" PRIu64,
                 p->interface.c_str(), p->cmapName.c_str(), pktHits, drop, pktHits << 6, drop << 6);
   ++coverage().polls;
   for (std::string const& l : facts.transcript) {
      if (startsWith(l, "poll ")) {
         if (l != expected) {
            fail("counter poll", "\"" + l + "\", expected \"" + expected + "\"");
         }
         return;
      }
   }
   fail("counter poll", "no poll line");
}

void HistoryChecks::verify(Observation const& post, StepFacts const& facts) {
   if (!stepAs<NimbalHost::step::Verify>(facts)) {
      return;
   }
   // Only a meter changed behind the agent's back, on a key that a class polices, differs.
   std::size_t expected = 0;
   for (auto const& [id, c] : model_.policed) {
      if (!c.queue) {
         continue;
      }
      Key const key = model_.keyOf(*model_.interface(id.first), *c.queue);
      auto const t = model_.tampered.find(key);
      if (t != model_.tampered.end() && post.kernel.count(key)) {
         expected += (t->second.cir != c.cir ? 1 : 0) + (t->second.bc != c.bc ? 1 : 0);
      }
   }
   auto const& lines = agent_.sw().scsd()->verifyData()->cliVerifyOutput();
   ++coverage().verifies;
   coverage().verifyDifferences += static_cast<long>(std::min(lines.size(), expected));
   if (lines.size() != expected) {
      fail("verify", std::to_string(lines.size()) + " differences" +
                         (lines.empty() ? "" : ", the first \"" + lines.front().message + "\"") +
                         ", expected " + std::to_string(expected));
   }
}

}  // namespace NimbalHistory
