// The search. Class meters of different ports and queues do not meet, so every protected class
// is searched at once, each with its own interval, in the same trials; the per-port default
// policer, which every packet of a port meets, is held open meanwhile and searched last.

#include "host/advise/Advisor.h"

#include <algorithm>
#include <cmath>
#include <functional>
#include <set>

namespace NimbalHost {

namespace {

double pps(U64 packets, double seconds) {
   return seconds > 0 ? static_cast<double>(packets) / seconds : 0.0;
}

// The largest burst tried: far more than one step sends, well inside 32 bits.
constexpr S64 maxBurst = 0x40000000;

class Search {
  public:
   explicit Search(Scenario const& s) : s_(s) {
      for (ScenarioStep const& st : s.steps) {
         if (auto const* t = std::get_if<step::Traffic>(&st.action)) {
            seconds_ += t->seconds;
         }
      }
   }

   Advice run() {
      Advice a;
      a.file = s_.file;
      a.seconds = seconds_;
      a.cpuBudget = s_.advise->cpuBudget;
      a.portDefaultToday = s_.sw.portDefaultCoppRate;
      rows(a);
      ++trials_;
      TrialResult const today = playTrial(s_);

      // Everything open: what each class is offered, and goals that no rate can meet.
      Candidate c;
      c.portDefaultRate = openPortDefaultRate;
      for (AdviceRow const& r : a.rows) {
         if (r.chosen) {
            c.rates[r.key] = RateBurst{openClassRate, static_cast<U32>(maxBurst)};
         }
      }
      TrialResult const open = trial(c);
      for (AdviceRow const& r : a.rows) {
         if (r.chosen) {
            c.rates[r.key] = r.maxLoss ? c.rates[r.key] : base(r);
         }
      }
      searchProtected(a, c, open);
      searchBudget(a, c);
      searchPortDefault(a, c);

      TrialResult const after = trial(c);
      a.advised = c;
      a.portDefaultAdvised = c.portDefaultRate;
      for (AdviceRow& r : a.rows) {
         r.before = at(today.byClass, r.key);
         r.after = at(after.byClass, r.key);
         if (r.chosen) {
            r.advised = c.rates.at(r.key);
         }
      }
      for (std::string const& intf : s_.sw.interfaceNames()) {
         if (today.byPort.count(intf) || after.byPort.count(intf)) {
            a.ports.push_back({intf, at(today.byPort, intf), at(after.byPort, intf)});
         }
      }
      verdict(a, after);
      a.trials = trials_;
      return a;
   }

  private:
   template <typename K>
   static Admitted at(std::map<K, Admitted> const& m, K const& k) {
      auto const it = m.find(k);
      return it == m.end() ? Admitted{} : it->second;
   }

   TrialResult trial(Candidate const& c) {
      ++trials_;
      return playTrial(candidateScenario(s_, c));
   }

   // The classes the traffic reaches, by interface in the switch's order, with today's rates
   // and the goals that name them.
   void rows(Advice& a) {
      Advise const& q = *s_.advise;
      auto const reached = trafficClasses(s_);
      std::map<ClassOnPort, RateBurst> police;
      std::map<ClassOnPort, RateBurst> today;
      for (ScenarioStep const& st : s_.steps) {
         if (auto const* p = std::get_if<step::Police>(&st.action)) {
            police[{p->interface, p->cmapName}] = RateBurst{p->cir, p->bc};
         } else if (auto const* u = std::get_if<step::Unpolice>(&st.action)) {
            police.erase({u->interface, u->cmapName});
         } else if (std::holds_alternative<step::Traffic>(st.action)) {
            for (auto const& [key, rb] : police) {
               today.emplace(key, rb);
            }
         }
      }
      for (std::string const& intf : s_.sw.interfaceNames()) {
         for (auto const& key : reached) {
            if (key.first != intf) {
               continue;
            }
            AdviceRow r;
            r.key = key;
            r.chosen = q.classes.empty() ||
                       std::find(q.classes.begin(), q.classes.end(), key.second) != q.classes.end();
            for (AdviseGoal const& g : q.protect) {
               if (g.cmapName == key.second && (g.interface == "*" || g.interface == intf)) {
                  r.maxLoss = std::min(r.maxLoss.value_or(1.0), g.maxLoss);
               }
            }
            if (auto const it = today.find(key); it != today.end()) {
               r.today = it->second;
            } else if (int const q0 = s_.sw.staticQueue(key.second); q0 >= 0) {
               Nimbal::MmuCpuQRow const& row = s_.sw.cpuQueues.at(static_cast<std::size_t>(q0));
               r.today = RateBurst{row.rate, row.burst};
               r.todayIsQueueDefault = true;
            }
            a.rows.push_back(r);
         }
      }
   }

   static RateBurst base(AdviceRow const& r) { return r.today.value_or(RateBurst{}); }

   bool holds(AdviceRow const& r, TrialResult const& t) const {
      return at(t.byClass, r.key).loss() <= *r.maxLoss + 1e-12;
   }

   // Intervals narrowed together, one trial a round, each by halves towards the boundary of
   // its own condition: the condition holds at `good` and not at `bad`, and `good` is the
   // answer once the two are neighbours. Lowest-good searches start with good above bad,
   // largest-good ones below.
   struct Interval {
      S64 good = 0;
      S64 bad = 0;
      bool open() const { return good - bad > 1 || bad - good > 1; }
      S64 middle() const { return bad + (good - bad) / 2; }
   };
   template <typename K>
   void narrow(std::map<K, Interval>& xs, Candidate& c,
               std::function<void(K const&, S64)> const& set,
               std::function<bool(K const&, TrialResult const&)> const& holdsAt) {
      for (;;) {
         bool any = false;
         for (auto& [k, x] : xs) {
            set(k, x.open() ? x.middle() : x.good);
            any = any || x.open();
         }
         if (!any) {
            return;
         }
         TrialResult const t = trial(c);
         for (auto& [k, x] : xs) {
            if (x.open()) {
               (holdsAt(k, t) ? x.good : x.bad) = x.middle();
            }
         }
      }
   }

   // Each protected class: the smallest burst its clumps need at twice its mean rate, then the
   // lowest rate with that burst (and one packet more), then the smallest burst at that rate.
   void searchProtected(Advice& a, Candidate& c, TrialResult const& open) {
      std::map<ClassOnPort, AdviceRow const*> goals;
      std::map<ClassOnPort, Interval> burst, rate;
      for (AdviceRow const& r : a.rows) {
         if (!r.chosen || !r.maxLoss) {
            continue;
         }
         U64 const offered = at(open.byClass, r.key).offered;
         if (offered == 0 || !holds(r, open)) {
            // Nothing to measure, or no rate helps: today's rate stays, the verdict says why.
            c.rates.at(r.key) = base(r);
            continue;
         }
         goals[r.key] = &r;
         S64 const high = std::min<S64>(
             openClassRate,
             std::max<S64>(
                 2, static_cast<S64>(std::ceil(2.0 * static_cast<double>(offered) / seconds_))));
         c.rates.at(r.key) = RateBurst{static_cast<U32>(high), 0};
         burst[r.key] = {static_cast<S64>(std::min<U64>(offered, maxBurst)), 0};
         rate[r.key] = {high, 0};
      }
      auto goalHolds = [&goals, this](ClassOnPort const& k, TrialResult const& t) {
         return holds(*goals.at(k), t);
      };
      auto setBurst = [&c](ClassOnPort const& k, S64 v) {
         c.rates.at(k).burst = static_cast<U32>(v);
      };
      auto setRate = [&c](ClassOnPort const& k, S64 v) {
         c.rates.at(k).rate = static_cast<U32>(v);
      };
      narrow<ClassOnPort>(burst, c, setBurst, goalHolds);
      // The rate is searched with one packet more than the clumps need, so that a flow whose
      // packets jitter is not given a rate that refills between its two closest packets.
      for (auto& [k, x] : burst) {
         x = {std::min<S64>(x.good + 1, maxBurst), 0};
         setBurst(k, x.good);
      }
      narrow<ClassOnPort>(rate, c, setRate, goalHolds);
      narrow<ClassOnPort>(burst, c, setBurst, goalHolds);
   }

   // A port over its budget: the classes that are chosen and not protected keep the largest
   // share of today's rates (in thousandths) at which the port fits.
   void searchBudget(Advice& a, Candidate& c) {
      if (!a.cpuBudget) {
         return;
      }
      double const budget = *a.cpuBudget;
      TrialResult const t = trial(c);
      std::map<std::string, Interval> share;
      for (auto const& [intf, adm] : t.byPort) {
         if (pps(adm.allowed, seconds_) > budget && cutOnPort(a, intf)) {
            share[intf] = {0, 1000};
         }
      }
      auto setShare = [&a, &c](std::string const& intf, S64 k) {
         for (AdviceRow const& r : a.rows) {
            if (r.key.first == intf && r.chosen && !r.maxLoss) {
               RateBurst const b = base(r);
               c.rates.at(r.key) = RateBurst{static_cast<U32>(U64{b.rate} * k / 1000),
                                             static_cast<U32>(U64{b.burst} * k / 1000)};
            }
         }
      };
      auto fits = [budget, this](std::string const& intf, TrialResult const& u) {
         return pps(at(u.byPort, intf).allowed, seconds_) <= budget;
      };
      narrow<std::string>(share, c, setShare, fits);
   }

   bool cutOnPort(Advice const& a, std::string const& intf) const {
      return std::any_of(a.rows.begin(), a.rows.end(), [&intf](AdviceRow const& r) {
         return r.key.first == intf && r.chosen && !r.maxLoss;
      });
   }

   // The lowest configured default rate, from the budget up, at which every protected class
   // that holds with the default open still holds.
   void searchPortDefault(Advice& a, Candidate& c) {
      TrialResult const t = trial(c);
      std::vector<AdviceRow const*> goals;
      for (AdviceRow const& r : a.rows) {
         if (r.maxLoss && holds(r, t)) {
            goals.push_back(&r);
         }
      }
      // Never below the budget, which the port may send the CPU, or, without a budget, below
      // today's rate: a port that sent nothing in the scenario still needs its default.
      std::map<int, Interval> rate = {
          {0,
           {openPortDefaultRate, static_cast<S64>(a.cpuBudget.value_or(a.portDefaultToday)) - 1}}};
      auto setRate = [&c](int, S64 v) { c.portDefaultRate = static_cast<U32>(v); };
      auto allHold = [&goals, this](int, TrialResult const& u) {
         return std::all_of(goals.begin(), goals.end(),
                            [&u, this](AdviceRow const* r) { return holds(*r, u); });
      };
      narrow<int>(rate, c, setRate, allHold);
   }

   void verdict(Advice& a, TrialResult const& t) const {
      for (AdviceRow const& r : a.rows) {
         if (!r.maxLoss) {
            continue;
         }
         Admitted const got = at(t.byClass, r.key);
         if (t.reachedNoQueue.count(r.key) && got.offered == 0) {
            a.unmet.push_back({"protect " + r.key.first + " " + r.key.second,
                               "its packets find no CPU queue (no dynamic queue is free)"});
         } else if (!holds(r, t)) {
            a.unmet.push_back(
                {"protect " + r.key.first + " " + r.key.second + " within " + percent(*r.maxLoss),
                 "loses " + percent(got.loss()) +
                     (r.chosen ? "" : " at its rate of today, which is not chosen")});
         }
      }
      if (a.cpuBudget) {
         for (PortAdvice const& p : a.ports) {
            double const admitted = pps(p.after.allowed, seconds_);
            if (admitted > *a.cpuBudget) {
               a.unmet.push_back(
                   {"cpuBudget of " + std::to_string(*a.cpuBudget) + " pps on " + p.interface,
                    "it admits " + fixed1(admitted) + " pps" +
                        (cutOnPort(a, p.interface) ? " with its unprotected chosen classes at 0"
                                                   : ", and it has no unprotected class to cut")});
            }
         }
      }
   }

  public:
   static std::string percent(double share) { return fixed1(share * 100) + " %"; }
   static std::string fixed1(double v) {
      char buf[64];
      std::snprintf(buf, sizeof buf, "%.1f", v);
      return buf;
   }

  private:
   Scenario const& s_;
   double seconds_ = 0;
   std::size_t trials_ = 0;
};

}  // namespace

Advice advise(Scenario const& s) {
   return Search(s).run();
}

}  // namespace NimbalHost
