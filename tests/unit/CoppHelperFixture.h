#pragma once

// The agent's state that a CoPP helper is built from, and small observers for the tests.

#include <any>
#include <string>
#include <utility>
#include <vector>

#include "Kiv/Entity.h"
#include "Kiv/Log.h"
#include "Kiv/Trace.h"
#include "Nimbal/TcamEntryManager.h"
#include "Nimbal/TcamGroupManager.h"
#include "NimbalQos/NimbalQosProtectionHelper.h"
#include "NimbalQos/NimbalQosSharedHelper.h"
#include "NimbalQos/NimbalQosTcamProtectionHelper.h"

namespace CoppTest {

struct CoppPlatform {
   Kiv::Ptr<Qos::Status> qosStatus{new Qos::Status()};
   Kiv::Ptr<Qos::AclSliceHwStatus> qosAclSliceHwStatus{new Qos::AclSliceHwStatus()};
   Kiv::Ptr<Acl::Config> mainAclConfig{new Acl::Config()};
   Kiv::Ptr<Nimbal::MmuConfigSm> mmuSm{new Nimbal::MmuConfigSm()};
   Kiv::Ptr<Nimbal::NimbalCommonSmData> scsd{new Nimbal::NimbalCommonSmData()};
   Kiv::Ptr<Nimbal::NimbalTcamGroupManager> tcamGroupManager{new Nimbal::NimbalTcamGroupManager()};
   Kiv::Ptr<Nimbal::PktDrv> pktDrv{new Nimbal::PktDrv()};
   Kiv::Ptr<NimbalCentral::AclHwStatus> aclHwStatus{new NimbalCentral::AclHwStatus()};
   Kiv::Ptr<NimbalVlanTopo::VlanTopoSliceStatus> vlanTopoSliceStatus{
       new NimbalVlanTopo::VlanTopoSliceStatus()};
   Kiv::Ptr<NimbalCentral::NimbalMiscConfig> scMiscConfig{new NimbalCentral::NimbalMiscConfig()};
   Kiv::Ptr<NimbalL3::RoutingStatus> routingStatus{new NimbalL3::RoutingStatus()};
   Kiv::Ptr<NimbalCentral::VxlanSliceConfig> vxlanSliceConfig{
       new NimbalCentral::VxlanSliceConfig()};
   Kiv::Ptr<Oskel::KernelCoPPConfig> kernelCoppConfig{new Oskel::KernelCoPPConfig()};
   U32 unit = 3;
   Kiv::Ptr<Qos::AclHwStatus> qosAclHwStatus{new Qos::AclHwStatus()};

   // The ingress CoPP groups that hwInit looks for.
   Kiv::Ptr<Nimbal::NimbalUnboundedTcamEntryManager> coppIpEntryMgr{
       new Nimbal::NimbalUnboundedTcamEntryManager(34)};
   Kiv::Ptr<Nimbal::NimbalUnboundedTcamEntryManager> coppIp6EntryMgr{
       new Nimbal::NimbalUnboundedTcamEntryManager(38)};

   void coppGroupsAdd() {
      tcamGroupManager->entryMgrAdd(coppIpEntryMgr);
      tcamGroupManager->entryMgrAdd(coppIp6EntryMgr);
   }

   Kiv::Ptr<Nimbal::QosAclHelper> viaFactory() const {
      return Nimbal::getQosAclHelper(qosStatus, qosAclSliceHwStatus, mainAclConfig, mmuSm, scsd,
                                     tcamGroupManager, pktDrv, aclHwStatus, vlanTopoSliceStatus,
                                     scMiscConfig, routingStatus, vxlanSliceConfig,
                                     kernelCoppConfig, unit, qosAclHwStatus);
   }

   Kiv::Ptr<Nimbal::QosAclHelperV1> helper() const {
      Kiv::Ptr<Nimbal::QosAclHelperV1> h(new Nimbal::QosAclHelperV1(
          qosStatus, qosAclSliceHwStatus, mainAclConfig, mmuSm, scsd, tcamGroupManager, pktDrv,
          aclHwStatus, vlanTopoSliceStatus, scMiscConfig, routingStatus, vxlanSliceConfig, unit,
          qosAclHwStatus, kernelCoppConfig));
      h->hasNotificationActiveIs(true);
      return h;
   }

   Kiv::Ptr<Nimbal::QosTcamAclHelperV1> tcamHelper() const {
      Kiv::Ptr<Nimbal::QosTcamAclHelperV1> h(new Nimbal::QosTcamAclHelperV1(
          qosStatus, qosAclSliceHwStatus, mainAclConfig, mmuSm, scsd, tcamGroupManager, pktDrv,
          aclHwStatus, vlanTopoSliceStatus, scMiscConfig, routingStatus, vxlanSliceConfig, unit,
          qosAclHwStatus, kernelCoppConfig));
      h->hasNotificationActiveIs(true);
      return h;
   }
};

// Records what an entity announces, without holding the entity: it may die while watched.
class AttributeSpy : public Kiv::NotifieeBase {
  public:
   struct Event {
      std::string attr;
      std::any key;
   };

   explicit AttributeSpy(Kiv::Entity const* notifier, std::vector<std::string>* log = nullptr)
       : log_(log) {
      notifierBaseIs(notifier);
   }
   void onAttribute(Kiv::AttrId attr) override { record(attr, std::any()); }
   void onAttribute(Kiv::AttrId attr, Kiv::KeyRef const& key) override { record(attr, key.any()); }

   // False once the watched entity is gone.
   bool bound() const { return notifierBase() != nullptr; }
   std::vector<Event> const& events() const { return events_; }
   std::vector<std::string> attrs() const {
      std::vector<std::string> out;
      for (auto const& e : events_) {
         out.push_back(e.attr);
      }
      return out;
   }
   void clear() { events_.clear(); }

  private:
   void record(Kiv::AttrId attr, std::any const& key) {
      events_.push_back({std::string(attr), key});
      if (log_) {
         log_->push_back(std::string(attr));
      }
   }
   std::vector<std::string>* log_;
   std::vector<Event> events_;
};

// Captures the lines of the named trace handles, switched on at a level, for its lifetime.
class TraceCapture {
  public:
   explicit TraceCapture(std::vector<std::string> handles, int level = 9)
       : handles_(std::move(handles)) {
      Kiv::traceSinkIs([this](std::string const& handle, int lvl, std::string const& line) {
         lines_.push_back({handle, lvl, line});
      });
      for (auto const& h : handles_) {
         Kiv::traceConfigIs(h + ":" + std::to_string(level));
      }
   }
   ~TraceCapture() {
      for (auto const& h : handles_) {
         Kiv::traceConfigIs(h + ":0");
      }
      Kiv::traceSinkIs(nullptr);
   }
   TraceCapture(TraceCapture const&) = delete;
   TraceCapture& operator=(TraceCapture const&) = delete;

   struct Line {
      std::string handle;
      int level;
      std::string text;
   };
   std::vector<Line> const& lines() const { return lines_; }
   std::vector<std::string> texts() const {
      std::vector<std::string> out;
      for (auto const& l : lines_) {
         out.push_back(l.text);
      }
      return out;
   }
   void clear() { lines_.clear(); }

  private:
   std::vector<std::string> handles_;
   std::vector<Line> lines_;
};

// Captures raised log messages for its lifetime.
class LogCapture {
  public:
   LogCapture() {
      Kiv::logSinkIs([this](Kiv::LogHandle const& handle, std::string const& message) {
         messages_.emplace_back(handle.key(), message);
      });
   }
   ~LogCapture() { Kiv::logSinkIs(nullptr); }
   LogCapture(LogCapture const&) = delete;
   LogCapture& operator=(LogCapture const&) = delete;
   std::vector<std::pair<std::string, std::string>> const& messages() const { return messages_; }

  private:
   std::vector<std::pair<std::string, std::string>> messages_;
};

}  // namespace CoppTest
