#pragma once

#include <memory>

#include "Kiv/Allocator.h"
#include "Kiv/Clock.h"
#include "Kiv/Entity.h"
#include "Nimbal/NimbalCommonSmData.h"
#include "NimbalQos/NimbalQosExport.h"
#include "Orvik/IntfId.h"

namespace Nimbal {

class QosAclHelperV1;

// Keeps the helper's VXLAN CoPP entries in line with the agent's VXLAN state, and retries
// a minute later when entries ran out.
class NIMBAL_QOS_EXPORT QosIntfCoppSm : public Kiv::Entity {
  public:
   static constexpr double vxlanEntryRetryInterval = 60.0;

   // Follows the shared state's VXLAN flag and recirculation interfaces.
   class KivScsd : public Kiv::Notifiee<NimbalCommonSmData> {
     public:
      explicit KivScsd(QosIntfCoppSm* owner) : owner_(owner) {}
      void onAttribute(Kiv::AttrId attr) override;
      void onAttribute(Kiv::AttrId attr, Kiv::KeyRef const& key) override;

     protected:
      void onNotifier() override;

     private:
      QosIntfCoppSm* owner_;
   };

   // Wakes the machine when the retry time is reached.
   class KivVxlanEntryRetryTimer : public Kiv::Clock::Notifiee {
     public:
      explicit KivVxlanEntryRetryTimer(QosIntfCoppSm* owner) : owner_(owner) {}
      void onTimeMin() override;

     protected:
      void onNotifier() override;

     private:
      QosIntfCoppSm* owner_;
   };

   static Kiv::Ptr<QosIntfCoppSm> QosIntfCoppSmIs(Kiv::Ptr<NimbalCommonSmData const> const& scsd,
                                                  QosAclHelperV1* qosAclHelper);
   ~QosIntfCoppSm() override;

   Kiv::TypeDesc const* fwkType() const override;
   static Kiv::TypeDesc const* fwkTypeDesc();

   // The machine that hears of the helper's VXLAN entry failures: the one whose handler is
   // driving the helper at this moment (its first pass runs inside its construction, before
   // the helper holds it), else the helper's own; null when there is none.
   static QosIntfCoppSm* machineOf(QosAclHelperV1 const& qosAclHelper);

   Kiv::Ptr<NimbalCommonSmData const> scsd() const;
   QosAclHelperV1* qosAclHelper() const { return qosAclHelper_; }
   KivVxlanEntryRetryTimer* vxlanEntryRetryTimer() const { return vxlanEntryRetryTimer_.get(); }
   bool vxlanEntryExhausted() const { return vxlanEntryExhausted_; }
   bool initialized() const { return initialized_; }

   void vxlanEntryExhaustedIs(bool vxlanEntryExhausted);
   void initializedIs(bool initialized);
   void vxlanEntryRetryTimerIs(Kiv::Ptr<Kiv::Clock> const& clock);
   void scsdDel();
   void vxlanEntryRetryTimerDel();

   void handleInitialized();
   void handleVxlanEnabled();
   void handleVxlanRecircIntf(Orvik::IntfId intf);
   void handleVxlanRecircIntf();
   void handleVxlanEntryExhausted();
   void handleVxlanEntryRetryTimer();

  protected:
   QosIntfCoppSm(Kiv::Ptr<NimbalCommonSmData const> const& scsd, QosAclHelperV1* qosAclHelper);
   template <class T, class... A>
   friend T* Kiv::allocate(A&&... args);

  private:
   std::unique_ptr<KivScsd> scsd_;
   QosAclHelperV1* qosAclHelper_;
   std::unique_ptr<KivVxlanEntryRetryTimer> vxlanEntryRetryTimer_;
   bool vxlanEntryExhausted_ = false;
   bool initialized_ = false;
};

}  // namespace Nimbal
