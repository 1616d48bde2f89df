#include "NimbalQos/NimbalQosIntfCoppSm.h"

#include <limits>

#include "Kiv/Allocator.h"
#include "Kiv/Trace.h"
#include "Kiv/Type.h"
#include "NimbalQos/NimbalQosAttributeText.h"
#include "NimbalQos/NimbalQosProtectionHelper.h"
#include "NimbalQos/NimbalQosSharedHelper.h"

namespace Nimbal {

namespace {

// The machine whose handler is running a pass of its helper's VXLAN programming.
QosIntfCoppSm* drivingMachine = nullptr;

// Marks a machine as the one driving its helper for the length of a pass; passes may nest.
class DrivingScope {
  public:
   explicit DrivingScope(QosIntfCoppSm* sm) : previous_(drivingMachine) { drivingMachine = sm; }
   ~DrivingScope() { drivingMachine = previous_; }
   DrivingScope(DrivingScope const&) = delete;
   DrivingScope& operator=(DrivingScope const&) = delete;

  private:
   QosIntfCoppSm* previous_;
};

}  // namespace

// Reactors

void QosIntfCoppSm::KivScsd::onAttribute(Kiv::AttrId attr) {
   if (attr == "vxlanEnabled") {
      owner_->handleVxlanEnabled();
   }
}

void QosIntfCoppSm::KivScsd::onAttribute(Kiv::AttrId attr, Kiv::KeyRef const& key) {
   if (attr == "vxlanRecircIntf") {
      owner_->handleVxlanRecircIntf(key.as<Orvik::IntfId>());
   }
}

void QosIntfCoppSm::KivScsd::onNotifier() {
   if (isActive()) {
      owner_->handleVxlanEnabled();
   }
}

void QosIntfCoppSm::KivVxlanEntryRetryTimer::onTimeMin() {
   owner_->handleVxlanEntryRetryTimer();
}

void QosIntfCoppSm::KivVxlanEntryRetryTimer::onNotifier() {
   if (isActive()) {
      owner_->handleVxlanEntryRetryTimer();
   }
}

// The machine

Kiv::Ptr<QosIntfCoppSm> QosIntfCoppSm::QosIntfCoppSmIs(
    Kiv::Ptr<NimbalCommonSmData const> const& scsd, QosAclHelperV1* qosAclHelper) {
   // Through the framework's accounting, like every object the agent may count.
   Kiv::Ptr<QosIntfCoppSm> sm(Kiv::allocate<QosIntfCoppSm>(scsd, qosAclHelper));
   sm->hasNotificationActiveIs(true);
   return sm;
}

QosIntfCoppSm::QosIntfCoppSm(Kiv::Ptr<NimbalCommonSmData const> const& scsd,
                             QosAclHelperV1* qosAclHelper)
    : qosAclHelper_(qosAclHelper) {
   if (scsd) {
      scsd_ = std::make_unique<KivScsd>(this);
      scsd_->isActiveIs(true);
      scsd_->notifierIs(scsd);
   }
   vxlanEntryExhausted_ = false;
   initialized_ = false;
   vxlanEntryRetryTimerIs(Kiv::activityClock());
   handleInitialized();
}

QosIntfCoppSm::~QosIntfCoppSm() {
   vxlanEntryRetryTimerDel();
   scsdDel();
}

Kiv::TypeDesc const* QosIntfCoppSm::fwkType() const {
   return fwkTypeDesc();
}

Kiv::TypeDesc const* QosIntfCoppSm::fwkTypeDesc() {
   using T = QosIntfCoppSm;
   static Kiv::TypeDesc const desc = [] {
      Kiv::TypeDesc d("Nimbal::QosIntfCoppSm", Kiv::entityTypeDesc());
      d.attributeIs("scsd", [](Kiv::Entity const& e) {
         return attributeText(dynamic_cast<T const&>(e).scsd());
      });
      d.attributeIs("qosAclHelper", [](Kiv::Entity const& e) {
         return Kiv::String(dynamic_cast<T const&>(e).qosAclHelper() ? "set" : "null");
      });
      // The timer reads as its wake time.
      d.attributeIs("vxlanEntryRetryTimer", [](Kiv::Entity const& e) {
         auto const* timer = dynamic_cast<T const&>(e).vxlanEntryRetryTimer();
         if (!timer) {
            return Kiv::String("null");
         }
         return timer->timeMin() == Kiv::never ? Kiv::String("never")
                                               : Kiv::toString(timer->timeMin());
      });
      Kiv::attributeIs<T, bool>(
          d, "vxlanEntryExhausted", [](T const& sm) { return sm.vxlanEntryExhausted(); },
          [](T& sm, bool v) { sm.vxlanEntryExhaustedIs(v); });
      Kiv::attributeIs<T, bool>(
          d, "initialized", [](T const& sm) { return sm.initialized(); },
          [](T& sm, bool v) { sm.initializedIs(v); });
      return d;
   }();
   return &desc;
}

QosIntfCoppSm* QosIntfCoppSm::machineOf(QosAclHelperV1 const& qosAclHelper) {
   if (drivingMachine && drivingMachine->qosAclHelper() == &qosAclHelper) {
      return drivingMachine;
   }
   return qosAclHelper.qosIntfCoppSm().ptr();
}

Kiv::Ptr<NimbalCommonSmData const> QosIntfCoppSm::scsd() const {
   return scsd_ ? scsd_->notifier() : Kiv::Ptr<NimbalCommonSmData const>();
}

void QosIntfCoppSm::vxlanEntryExhaustedIs(bool vxlanEntryExhausted) {
   if (vxlanEntryExhausted == vxlanEntryExhausted_) {
      return;
   }
   vxlanEntryExhausted_ = vxlanEntryExhausted;
   handleVxlanEntryExhausted();
   notify("vxlanEntryExhausted");
}

void QosIntfCoppSm::initializedIs(bool initialized) {
   if (initialized == initialized_) {
      return;
   }
   initialized_ = initialized;
   notify("initialized");
}

void QosIntfCoppSm::vxlanEntryRetryTimerIs(Kiv::Ptr<Kiv::Clock> const& clock) {
   if (!vxlanEntryRetryTimer_) {
      vxlanEntryRetryTimer_ = std::make_unique<KivVxlanEntryRetryTimer>(this);
   }
   vxlanEntryRetryTimer_->notifierIs(clock);
   notify("vxlanEntryRetryTimer");
}

void QosIntfCoppSm::scsdDel() {
   if (!scsd_) {
      return;
   }
   scsd_.reset();
   notify("scsd");
}

void QosIntfCoppSm::vxlanEntryRetryTimerDel() {
   if (!vxlanEntryRetryTimer_) {
      return;
   }
   vxlanEntryRetryTimer_.reset();
   notify("vxlanEntryRetryTimer");
}

void QosIntfCoppSm::handleInitialized() {
   KIV_TRACE(defaultTraceHandle(), 4,
             "QosIntfCoppSm::"
                 << "handleInitialized");
   initializedIs(true);
   vxlanEntryExhaustedIs(false);
   if (vxlanEntryRetryTimer_) {
      vxlanEntryRetryTimer_->timeMinIs(Kiv::never);
   }
   handleVxlanEnabled();
   handleVxlanRecircIntf();
}

void QosIntfCoppSm::handleVxlanEnabled() {
   Kiv::Ptr<NimbalCommonSmData const> const shared = scsd();
   KIV_TRACE(defaultTraceHandle(), 4,
             "QosIntfCoppSm::"
                 << "handleVxlanEnabled"
                 << " vxlan enabled: " << (shared && shared->vxlanEnabled()));
   if (!initialized_) {
      return;
   }
   DrivingScope const driving(this);
   qosAclHelper_->syncCoppVxlanEntries(false);
}

void QosIntfCoppSm::handleVxlanRecircIntf(Orvik::IntfId intf) {
   KIV_TRACE(defaultTraceHandle(), 4,
             "QosIntfCoppSm::"
                 << "handleVxlanRecircIntf"
                 << " intf: " << intf);
   if (!initialized_) {
      return;
   }
   Kiv::Ptr<NimbalCommonSmData const> const shared = scsd();
   // An interface that left the collection is handled as disabled.
   bool const enabled = shared && shared->vxlanRecircIntfCol().value(intf).value_or(false);
   qosAclHelper_->updateIntfCoppOnVxlanRecircIntfEnabled(intf, enabled);
}

void QosIntfCoppSm::handleVxlanRecircIntf() {
   KIV_TRACE(defaultTraceHandle(), 4,
             "QosIntfCoppSm::"
                 << "handleVxlanRecircIntf");
   Kiv::Ptr<NimbalCommonSmData const> const shared = scsd();
   if (!shared) {
      return;
   }
   for (Orvik::IntfId const& intf : shared->vxlanRecircIntfCol().keys()) {
      handleVxlanRecircIntf(intf);
   }
}

void QosIntfCoppSm::handleVxlanEntryExhausted() {
   KIV_TRACE(defaultTraceHandle(), 4,
             "QosIntfCoppSm::"
                 << "handleVxlanEntryExhausted"
                 << " entry exhausted: " << vxlanEntryExhausted_);
   if (!vxlanEntryExhausted_ || !vxlanEntryRetryTimer_ || !vxlanEntryRetryTimer_->notifier()) {
      return;
   }
   // An armed timer keeps its time: the retry comes a minute after the first failure.
   if (vxlanEntryRetryTimer_->timeMin() > std::numeric_limits<double>::max()) {
      vxlanEntryRetryTimer_->timeMinIs(vxlanEntryRetryTimer_->notifier()->now() +
                                       vxlanEntryRetryInterval);
   }
}

void QosIntfCoppSm::handleVxlanEntryRetryTimer() {
   KIV_TRACE(defaultTraceHandle(), 4,
             "QosIntfCoppSm::"
                 << "handleVxlanEntryRetryTimer");
   if (!initialized_) {
      return;
   }
   vxlanEntryExhaustedIs(false);
   if (vxlanEntryRetryTimer_) {
      vxlanEntryRetryTimer_->timeMinIs(Kiv::never);
   }
   DrivingScope const driving(this);
   qosAclHelper_->syncCoppVxlanEntries(true);
}

}  // namespace Nimbal
