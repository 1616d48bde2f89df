// The steps that configure, show, verify and break the switch.

#include "host/agent/SimAgent.h"

#include <algorithm>
#include <cmath>

#include "Kiv/Clock.h"
#include "Kiv/Log.h"
#include "Kiv/Type.h"
#include "Orvik/IntfNameCmp.h"
#include "Oskel/VerifyData.h"
#include "host/scenario/NameHints.h"

namespace NimbalHost {

void SimAgent::police(step::Police const& s) {
   Orvik::IntfId const intf(s.interface);
   U32 const defaultRate = switch_->helper()->portDefaultCoppPolicerHwData(intf).policerRate();
   if (scenario_.sw.staticQueue(s.cmapName) < 0) {
      if (auto const closest = closestName(s.cmapName, scenario_.sw.systemClasses())) {
         emit(event::ClassNameNote{s.interface, s.cmapName, *closest});
      }
   }
   QosClassConfig::PoliceOutcome const o = classes_->police(s.interface, s.cmapName, s.cir, s.bc);
   if (!o.cpuQ) {
      emit(event::ClassNotProgrammed{s.interface, s.cmapName});
      return;
   }
   emit(event::ClassPoliced{s.interface, s.cmapName, *o.cpuQ, queueName(*o.cpuQ), o.dynamic, s.cir,
                            s.bc, o.rateChange});
   portDefaultPolicerReport(intf, defaultRate);
}

void SimAgent::unpolice(step::Unpolice const& s) {
   Orvik::IntfId const intf(s.interface);
   U32 const defaultRate = switch_->helper()->portDefaultCoppPolicerHwData(intf).policerRate();
   QosClassConfig::UnpoliceOutcome const o = classes_->unpolice(s.interface, s.cmapName);
   emit(event::ClassUnpoliced{s.interface, s.cmapName, o.cpuQ,
                              o.cpuQ ? queueName(*o.cpuQ) : std::nullopt, o.dynamic});
   if (o.cpuQ) {
      portDefaultPolicerReport(intf, defaultRate);
   }
}

void SimAgent::portDefaultPolicerReport(Orvik::IntfId const& intf, U32 rateBefore) {
   Nimbal::NimbalQosPolicerHwData const d = switch_->helper()->portDefaultCoppPolicerHwData(intf);
   if (d.policerRate() != rateBefore) {
      emit(event::PortDefaultPolicer{intf.stringValue(), d.policerRate(), d.policerBurst()});
   }
}

void SimAgent::vxlan(step::Vxlan const& s) {
   switch_->scsd()->vxlanEnabledIs(s.enabled);
   std::size_t const entries = switch_->helper()->kernelDynamicCoppVxlanData() +
                               switch_->helper()->portDefaultCoppPolicerVxlanHwData();
   emit(event::Vxlan{s.enabled, entries});
}

void SimAgent::recirc(step::Recirc const& s) {
   Orvik::IntfId const intf(s.interface);
   if (s.enabled) {
      switch_->scsd()->vxlanRecircIntfIs(intf, true);
   } else {
      switch_->scsd()->vxlanRecircIntfDel(intf);
   }
   emit(event::Recirc{s.interface, s.enabled});
}

void SimAgent::show(step::Show const& s) {
   std::string text = libraryOutput(s.hw ? "showCoppIntfCountersHw" : "showCoppIntfCountersSw");
   std::vector<std::string> interfaces;
   for (Orvik::IntfId const& intf : switch_->interfaces()) {
      interfaces.push_back(intf.stringValue());
   }
   std::vector<CounterTableRow> rows = counterTableRows(text, s.hw, interfaces);
   emit(event::Show{s.hw, std::move(text), std::move(rows)});
}

std::string SimAgent::libraryOutput(char const* operation) {
   // The library writes to a descriptor; a file of our own takes it whole.
   std::unique_ptr<std::FILE, int (*)(std::FILE*)> file(std::tmpfile(), &std::fclose);
   if (!file) {
      throw std::runtime_error(std::string("cannot make a file for ") + operation);
   }
   Kiv::invoke(*switch_->helper(), operation, {std::to_string(::fileno(file.get()))});
   std::rewind(file.get());
   std::string text;
   char buf[4096];
   std::size_t n;
   while ((n = std::fread(buf, 1, sizeof buf, file.get())) > 0) {
      text.append(buf, n);
   }
   return text;
}

void SimAgent::clear(step::Clear const& s) {
   std::optional<NimbalTypes::NimbalPort> port;
   if (s.interface) {
      port = switch_->port(Orvik::IntfId(*s.interface));
   }
   std::vector<Oskel::ModIdPortQueueKey> keys =
       switch_->helper()->kernelDynamicCoppDataCol().keys();
   std::sort(keys.begin(), keys.end());
   std::size_t cleared = 0;
   for (auto const& key : keys) {
      if (port && (key.modId() != port->modId() || key.port() != port->logicalPort())) {
         continue;
      }
      if (s.queue && key.queue() != *s.queue) {
         continue;
      }
      // The agent's clear command reaches the full clear by name.
      Kiv::invoke(*switch_->helper(), "clearCoppIntfSwCounterByPortQueue",
                  {std::to_string(key.modId()), std::to_string(key.port()),
                   std::to_string(key.queue()), "false"});
      ++cleared;
   }
   emit(event::Clear{cleared});
}

void SimAgent::poll(step::Poll const& s) {
   Oskel::QosClassCounterData const c = classes_->poll(s.interface, s.cmapName);
   emit(event::Poll{s.interface, s.cmapName, c.pktHits(), c.drop(), c.byteHits(), c.dropBytes()});
}

void SimAgent::verify() {
   Kiv::Ptr<Oskel::VerifyData> const data = switch_->scsd()->verifyData();
   data->clear();
   classes_->verifyAll();
   // The per-port default policers are verified by name, as the agent's verify command does.
   Kiv::invoke(*switch_->helper(), "verifyCoppPerPortDefaultPolicer", {});
   event::Verify e;
   for (auto const& cli : data->cliVerifyOutput()) {
      e.differences.push_back(cli.message);
   }
   e.keysNotInHardware = kernel_->failed().size();
   emit(std::move(e));
}

void SimAgent::set(ScenarioStep const& step, step::Set const& s) {
   for (auto const& [name, value] : s.attributes) {
      try {
         Kiv::attributeValueIs(*switch_->helper(), name, value);
      } catch (std::invalid_argument const& e) {
         throw ScenarioError(scenario_.file + ": step " + std::to_string(step.number) +
                             " (set): key \"" + name + "\": " + e.what());
      }
      emit(event::AttributeSet{name, Kiv::attributeValue(*switch_->helper(), name)});
   }
}

void SimAgent::resources(step::Resources const& s) {
   switch_->resourcesIs(s.sizes);
   event::Resources e;
   for (U16 unit : switch_->units()) {
      Shim::FieldGroup const* copp = switch_->chip().group(unit, Switch::efpCoppGroupId);
      Shim::FieldGroup const* def = switch_->chip().group(unit, Switch::efpCoppDefAndVxlanGroupId);
      if (!copp || !def) {
         continue;
      }
      e.units.push_back({unit, copp->entriesInUse, copp->entryPoolSize, copp->metersInUse,
                         copp->meterPoolSize, def->metersInUse, def->meterPoolSize});
   }
   emit(std::move(e));
}

void SimAgent::tamper(step::Tamper const& s) {
   Oskel::ModIdPortQueueKey const key = keyOf(s.interface, s.queue);
   Kiv::Ptr<Nimbal::NimbalQosKernelDynamicCoppData> const data =
       switch_->helper()->kernelDynamicCoppData(key);
   int const unit = switch_->port(Orvik::IntfId(s.interface)).unit();
   Shim::Policer const* policer =
       data ? switch_->chip().policer(unit, static_cast<Shim::bcm_policer_t>(data->policerId()))
            : nullptr;
   if (!policer) {
      emit(event::Tamper{s.interface, s.queue, std::nullopt, s.cir, s.bc});
      return;
   }
   Shim::bcm_policer_config_s config = policer->config;
   config.ckbits_sec_is(s.cir);
   config.ckbits_burst_is(s.bc);
   switch_->chip().tamperPolicer(unit, policer->id, config);
   emit(event::Tamper{s.interface, s.queue, static_cast<U32>(policer->id), s.cir, s.bc});
}

void SimAgent::fail(step::Fail const& s) {
   switch_->sdk().failNextCallIs(s.call, s.rc);
   emit(event::Fail{s.call, s.rc, Shim::bcm_errmsg(s.rc)});
}

}  // namespace NimbalHost
