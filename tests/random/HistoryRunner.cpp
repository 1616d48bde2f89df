#include "random/HistoryRunner.h"

#include <unistd.h>

#include <csignal>
#include <cstring>
#include <iostream>

namespace NimbalHistory {

namespace {

char abortContext[1024] = "";

void onAbort(int) {
   // Only async-signal-safe calls here.
   ssize_t const n = ::write(2, abortContext, std::strlen(abortContext));
   (void)n;
}

std::string replayCommand(U64 seed, int steps) {
   return "nimbal_random_histories --seed=" + std::to_string(seed) +
          " --steps=" + std::to_string(steps);
}

}  // namespace

void historyContextIs(U64 seed, int step, int steps, std::string const& text) {
   std::snprintf(abortContext, sizeof abortContext,
                 "\nthe agent ended in random history seed %llu, step %d: %s\nreplay: %s\n",
                 static_cast<unsigned long long>(seed), step, text.c_str(),
                 replayCommand(seed, std::min(step, steps)).c_str());
}

void historyAbortReportIs() {
   struct sigaction action {};
   action.sa_handler = onAbort;
   sigemptyset(&action.sa_mask);
   ::sigaction(SIGABRT, &action, nullptr);
}

HistoryRunner::HistoryRunner(U64 seed, int steps, bool verbose)
    : seed_(seed), steps_(steps), verbose_(verbose), rng_(seed) {
   start(randomSwitch(rng_));
}

HistoryRunner::HistoryRunner(U64 seed, int steps, RandomSwitch const& sw, bool verbose)
    : seed_(seed), steps_(steps), verbose_(verbose), rng_(seed) {
   start(sw);
}

void HistoryRunner::start(RandomSwitch const& rs) {
   scenario_.file = "random history " + std::to_string(seed_);
   scenario_.sw = rs.sw;
   out_ = std::tmpfile();
   if (!out_) {
      throw std::runtime_error("no temporary file for the agent's transcript");
   }
   historyContextIs(seed_, 0, steps_, "start-up");
   agent_ = std::make_unique<NimbalHost::SimAgent>(scenario_, out_);
   model_ = std::make_unique<HistoryModel>(rs.sw, rs.dynamicClasses);
   generator_ = std::make_unique<StepGenerator>(rng_, *model_, *agent_);
   checks_ = std::make_unique<HistoryChecks>(*agent_, *model_);
   std::vector<std::string> const startUp = drainTranscript();
   if (verbose_) {
      for (std::string const& l : startUp) {
         std::cout << l << "\n";
      }
   }
   // The agent's start-up programmed what is there now.
   last_ = observe(*agent_, *model_);
   settle(*model_, last_, last_);
}

HistoryRunner::~HistoryRunner() {
   checks_.reset();
   generator_.reset();
   agent_.reset();
   if (out_) {
      std::fclose(out_);
   }
}

std::vector<std::string> HistoryRunner::drainTranscript() {
   std::fflush(out_);
   std::rewind(out_);
   std::string text;
   char buf[4096];
   std::size_t n;
   while ((n = std::fread(buf, 1, sizeof buf, out_)) > 0) {
      text.append(buf, n);
   }
   // Each step's transcript on its own: the file starts again empty.
   std::rewind(out_);
   if (::ftruncate(::fileno(out_), 0) != 0) {
      throw std::runtime_error("cannot empty the transcript file");
   }
   std::vector<std::string> lines;
   std::size_t start = 0;
   for (std::size_t nl = text.find('\n'); nl != std::string::npos; nl = text.find('\n', start)) {
      lines.push_back(text.substr(start, nl - start));
      start = nl + 1;
   }
   return lines;
}

bool HistoryRunner::run() {
   for (int i = 0; i < steps_; ++i) {
      if (!playNext()) {
         return false;
      }
   }
   return teardown();
}

bool HistoryRunner::playNext() {
   return play(generator_->next(stepsPlayed_ + 1));
}

bool HistoryRunner::teardown() {
   for (HistoryStep const& s : generator_->teardown(stepsPlayed_ + 1)) {
      if (!play(s)) {
         return false;
      }
   }
   historyContextIs(seed_, stepsPlayed_, steps_, "the check after everything was removed");
   std::vector<Violation> const v = checks_->afterTeardown();
   if (!v.empty()) {
      failed(nullptr, v, {});
      return false;
   }
   return true;
}

void HistoryRunner::applyToModel(HistoryStep const& step, Observation const& pre) {
   HistoryModel& m = *model_;
   auto dde = [&](Key const& key) {
      ModelInterface const* intf = m.interfaceOf(key);
      return pre.ddeOf(intf->unit, intf->port, key.queue());
   };
   if (KernelKeyStep const* k = std::get_if<KernelKeyStep>(&step.action)) {
      if (k->info) {
         m.kernel[k->key] = *k->info;
      } else {
         m.kernel.erase(k->key);
      }
      return;
   }
   namespace step_ = NimbalHost::step;
   NimbalHost::StepAction const& a = step.scenarioStep()->action;
   if (auto const* p = std::get_if<step_::Police>(&a)) {
      m.police(p->interface, p->cmapName, p->cir, p->bc, dde);
   } else if (auto const* u = std::get_if<step_::Unpolice>(&a)) {
      m.unpolice(u->interface, u->cmapName, dde);
   } else if (auto const* v = std::get_if<step_::Vxlan>(&a)) {
      m.vxlanEnabled = v->enabled;
   } else if (auto const* r = std::get_if<step_::Recirc>(&a)) {
      if (r->enabled) {
         m.recirc.insert(r->interface);
      } else {
         m.recirc.erase(r->interface);
      }
   } else if (auto const* c = std::get_if<step_::Clear>(&a)) {
      // The full clear of every programmed key that matches.
      ModelInterface const* intf = c->interface ? m.interface(*c->interface) : nullptr;
      for (auto const& [key, record] : pre.kernel) {
         if ((intf && (key.modId() != intf->modId || key.port() != intf->port)) ||
             (c->queue && key.queue() != *c->queue)) {
            continue;
         }
         m.swBaseline[key] = dde(key);
         m.cfgBaseline[key] = dde(key);
      }
   } else if (auto const* s = std::get_if<step_::Set>(&a)) {
      for (auto const& [name, value] : s->attributes) {
         if (name == "createCoppPolicerAlwaysFalse") {
            m.alwaysFalse = value == "true";
         }
      }
   } else if (auto const* t = std::get_if<step_::Tamper>(&a)) {
      Key const key = m.keyOf(*m.interface(t->interface), t->queue);
      auto const r = pre.kernel.find(key);
      if (r != pre.kernel.end() &&
          agent_->sw().chip().policer(m.unitOfModule(key.modId()),
                                      static_cast<int>(r->second.policer))) {
         m.tampered[key] = Tampered{r->second.entry, r->second.policer, t->cir, t->bc};
      }
   }
}

bool HistoryRunner::play(HistoryStep const& step) {
   std::string const text = step.text();
   stepTexts_.push_back(text);
   stepsPlayed_ = step.number;
   historyContextIs(seed_, step.number, steps_, text);
   Observation const pre = std::move(last_);
   bool clockMoved = false;
   if (NimbalHost::ScenarioStep const* s = step.scenarioStep()) {
      clockMoved = std::holds_alternative<NimbalHost::step::Advance>(s->action) ||
                   std::holds_alternative<NimbalHost::step::Traffic>(s->action);
      agent_->step(*s);
   } else {
      KernelKeyStep const& k = std::get<KernelKeyStep>(step.action);
      // The agent's kernel CoPP configuration changes on its own; its reactor follows.
      if (k.info) {
         agent_->sw().kernelCoppConfig()->coppInfoIs(k.key, *k.info);
      } else {
         agent_->sw().kernelCoppConfig()->coppInfoDel(k.key);
      }
   }
   std::vector<std::string> const transcript = drainTranscript();
   if (verbose_) {
      std::cout << "step " << step.number << ": " << text << "\n";
      for (std::string const& l : transcript) {
         std::cout << "  | " << l << "\n";
      }
   }
   applyToModel(step, pre);
   last_ = observe(*agent_, *model_);
   Observation const& post = last_;
   settle(*model_, pre, post);
   StepFacts const facts{&step, clockMoved, transcript};
   std::vector<Violation> const v = checks_->afterStep(pre, post, facts);
   model_->resetQueues.clear();
   if (!v.empty()) {
      failed(&step, v, transcript);
      return false;
   }
   return true;
}

std::vector<Violation> HistoryRunner::checkNow(bool clockMoved) {
   Observation const now = observe(*agent_, *model_);
   return checks_->afterStep(now, now, StepFacts{nullptr, clockMoved, {}});
}

void HistoryRunner::failed(HistoryStep const* step, std::vector<Violation> const& violations,
                           std::vector<std::string> const& transcript) {
   std::string out = "random history seed " + std::to_string(seed_) + ", ";
   out += step ? "step " + std::to_string(step->number) + ": " + step->text()
               : "after step " + std::to_string(stepsPlayed_) + ", everything removed";
   out += "\n";
   for (Violation const& v : violations) {
      out += "  invariant \"" + v.invariant + "\" broken: " + v.detail + "\n";
   }
   if (!transcript.empty()) {
      out += "  the agent wrote:\n";
      for (std::string const& l : transcript) {
         out += "  | " + l + "\n";
      }
   }
   out += "  replay: " + replayCommand(seed_, std::min(stepsPlayed_, steps_)) + " --verbose\n";
   failure_ = out;
}

}  // namespace NimbalHistory
