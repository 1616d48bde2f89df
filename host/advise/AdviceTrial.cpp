#include "host/advise/AdviceTrial.h"

#include <algorithm>
#include <nlohmann/json.hpp>

#include "host/agent/SimAgent.h"

namespace NimbalHost {

namespace {

// Counts the traffic results of a run by class and by port. A capture flow reports per CPU
// queue: the queue is turned back into the class that the capture sent there.
class TrialCounter final : public TranscriptWriter {
  public:
   TrialCounter(Scenario const& s, TrialResult& out) : scenario_(s), out_(out) {}
   void agentIs(SimAgent* agent) { agent_ = agent; }

   void write(TranscriptEvent const& e) override {
      if (auto const* t = std::get_if<event::Traffic>(&e.what)) {
         count(e.step, *t);
      } else if (auto const* n = std::get_if<event::TrafficNotSent>(&e.what)) {
         if (n->reason == event::TrafficNotSent::Reason::noCpuQueue && stepAt(e.step)) {
            std::vector<step::Flow> const flows = stepAt(e.step)->flowList();
            if (n->flow < flows.size()) {
               out_.reachedNoQueue[{flows[n->flow].interface, n->cmapName}] = true;
            }
         }
      }
   }

  private:
   step::Traffic const* stepAt(int number) const {
      if (number < 1 || static_cast<std::size_t>(number) > scenario_.steps.size()) {
         return nullptr;
      }
      return std::get_if<step::Traffic>(&scenario_.steps[number - 1].action);
   }

   std::string classOf(step::Flow const& f, U32 queue) const {
      if (!f.capture) {
         return f.queue ? "" : f.cmapName;
      }
      std::vector<step::CaptureClass> slots = f.capture->classes;
      slots.push_back(f.capture->otherwise);
      for (step::CaptureClass const& c : slots) {
         std::optional<U32> const q =
             c.queue
                 ? c.queue
                 : (c.cmapName.empty() ? std::nullopt : agent_->classes().queueOfClass(c.cmapName));
         if (q == queue) {
            return c.queue ? "" : c.cmapName;
         }
      }
      return "";
   }

   void count(int stepNumber, event::Traffic const& t) {
      step::Traffic const* s = stepAt(stepNumber);
      if (!s || !agent_) {
         return;
      }
      std::vector<step::Flow> const flows = s->flowList();
      if (t.flow >= flows.size()) {
         return;
      }
      std::string const cmapName = classOf(flows[t.flow], t.queue);
      Admitted& port = out_.byPort[t.interface];
      port.offered += t.offered;
      port.allowed += t.allowed;
      if (!cmapName.empty()) {
         Admitted& c = out_.byClass[{t.interface, cmapName}];
         c.offered += t.offered;
         c.allowed += t.allowed;
      }
   }

   Scenario const& scenario_;
   TrialResult& out_;
   SimAgent* agent_ = nullptr;
};

bool isChosen(Candidate const& c, std::string const& intf, std::string const& cmapName) {
   return c.rates.count({intf, cmapName}) > 0;
}

}  // namespace

Scenario candidateScenario(Scenario const& s, Candidate const& c) {
   Scenario out;
   out.file = s.file;
   out.description = s.description;
   out.sw = s.sw;
   out.sw.portDefaultCoppRate = c.portDefaultRate;
   out.switchValue = s.switchValue;
   for (auto const& [key, rb] : c.rates) {
      ScenarioStep st;
      st.name = "police";
      st.action = step::Police{key.first, key.second, rb.rate, rb.burst};
      st.value = nlohmann::ordered_json{
          {"interface", key.first},
          {"class", key.second},
          {"cir", rb.rate},
          {"bc",
           rb.burst}}.dump();
      out.steps.push_back(std::move(st));
   }
   for (ScenarioStep const& st : s.steps) {
      if (auto const* p = std::get_if<step::Police>(&st.action)) {
         if (isChosen(c, p->interface, p->cmapName)) {
            continue;
         }
      }
      if (auto const* u = std::get_if<step::Unpolice>(&st.action)) {
         if (isChosen(c, u->interface, u->cmapName)) {
            continue;
         }
      }
      out.steps.push_back(st);
   }
   for (std::size_t i = 0; i < out.steps.size(); ++i) {
      out.steps[i].number = static_cast<int>(i + 1);
   }
   return out;
}

TrialResult playTrial(Scenario const& s) {
   TrialResult r;
   TrialCounter counter(s, r);
   SimAgent agent(s, counter);
   agent.recordTrafficIs(false);
   counter.agentIs(&agent);
   agent.run();
   return r;
}

}  // namespace NimbalHost
