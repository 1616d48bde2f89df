#include "NimbalQos/NimbalQosCoppState.h"

#include "NimbalQos/NimbalQosAttributeText.h"

namespace Nimbal {

// NimbalQosCoppPolicerData

NimbalQosCoppPolicerData::NimbalQosCoppPolicerData(Oskel::QosClassDataKey const& key) : key_(key) {}

NimbalQosCoppPolicerData::~NimbalQosCoppPolicerData() = default;

Kiv::TypeDesc const* NimbalQosCoppPolicerData::fwkType() const {
   return fwkTypeDesc();
}

Kiv::TypeDesc const* NimbalQosCoppPolicerData::fwkTypeDesc() {
   using T = NimbalQosCoppPolicerData;
   static Kiv::TypeDesc const desc = [] {
      Kiv::TypeDesc d("Nimbal::NimbalQosCoppPolicerData", Kiv::entityTypeDesc());
      Kiv::readOnlyAttributeIs<T>(d, "key", [](T const& r) { return r.key(); });
      Kiv::attributeIs<T, I32>(
          d, "cpuQId", [](T const& r) { return r.cpuQId(); }, [](T& r, I32 v) { r.cpuQIdIs(v); });
      Kiv::attributeIs<T, U32>(
          d, "policerRate", [](T const& r) { return r.policerRate(); },
          [](T& r, U32 v) { r.policerRateIs(v); });
      Kiv::attributeIs<T, U32>(
          d, "policerBurst", [](T const& r) { return r.policerBurst(); },
          [](T& r, U32 v) { r.policerBurstIs(v); });
      Kiv::attributeIs<T, bool>(
          d, "isDynamic", [](T const& r) { return r.isDynamic(); },
          [](T& r, bool v) { r.isDynamicIs(v); });
      Kiv::readOnlyAttributeIs<T>(d, "policerHwData", [](T const& r) { return r.policerHwData(); });
      return d;
   }();
   return &desc;
}

void NimbalQosCoppPolicerData::cpuQIdIs(I32 cpuQId) {
   if (cpuQId == cpuQId_) {
      return;
   }
   cpuQId_ = cpuQId;
   notify("cpuQId");
}

void NimbalQosCoppPolicerData::policerRateIs(U32 policerRate) {
   if (policerRate == policerRate_) {
      return;
   }
   policerRate_ = policerRate;
   notify("policerRate");
}

void NimbalQosCoppPolicerData::policerBurstIs(U32 policerBurst) {
   if (policerBurst == policerBurst_) {
      return;
   }
   policerBurst_ = policerBurst;
   notify("policerBurst");
}

void NimbalQosCoppPolicerData::isDynamicIs(bool isDynamic) {
   if (isDynamic == isDynamic_) {
      return;
   }
   isDynamic_ = isDynamic;
   notify("isDynamic");
}

void NimbalQosCoppPolicerData::policerHwDataIs(NimbalQosPolicerHwData const& policerHwData) {
   if (policerHwData == policerHwData_) {
      return;
   }
   policerHwData_ = policerHwData;
   notify("policerHwData");
}

// NimbalQosCoppIntfPolicerData

NimbalQosCoppIntfPolicerData::NimbalQosCoppIntfPolicerData(Orvik::IntfId const& intfId)
    : intfId_(intfId) {}

NimbalQosCoppIntfPolicerData::~NimbalQosCoppIntfPolicerData() {
   // The class records go one by one, so that whoever follows them sees each leave.
   policerDataColDelAll();
}

Kiv::TypeDesc const* NimbalQosCoppIntfPolicerData::fwkType() const {
   return fwkTypeDesc();
}

Kiv::TypeDesc const* NimbalQosCoppIntfPolicerData::fwkTypeDesc() {
   using T = NimbalQosCoppIntfPolicerData;
   static Kiv::TypeDesc const desc = [] {
      Kiv::TypeDesc d("Nimbal::NimbalQosCoppIntfPolicerData", Kiv::entityTypeDesc());
      Kiv::readOnlyAttributeIs<T>(d, "intfId", [](T const& r) { return r.intfId(); });
      d.attributeIs("policerDataCol", [](Kiv::Entity const& e) {
         return collectionText(dynamic_cast<T const&>(e).policerDataColCol());
      });
      return d;
   }();
   return &desc;
}

// NimbalQosKernelDynamicCoppData

NimbalQosKernelDynamicCoppData::NimbalQosKernelDynamicCoppData(Oskel::ModIdPortQueueKey const& key)
    : key_(key) {}

NimbalQosKernelDynamicCoppData::~NimbalQosKernelDynamicCoppData() = default;

Kiv::TypeDesc const* NimbalQosKernelDynamicCoppData::fwkType() const {
   return fwkTypeDesc();
}

Kiv::TypeDesc const* NimbalQosKernelDynamicCoppData::fwkTypeDesc() {
   using T = NimbalQosKernelDynamicCoppData;
   static Kiv::TypeDesc const desc = [] {
      Kiv::TypeDesc d("Nimbal::NimbalQosKernelDynamicCoppData", Kiv::entityTypeDesc());
      Kiv::readOnlyAttributeIs<T>(d, "key", [](T const& r) { return r.key(); });
      Kiv::attributeIs<T, U32>(
          d, "entry", [](T const& r) { return r.entry(); }, [](T& r, U32 v) { r.entryIs(v); });
      Kiv::attributeIs<T, U32>(
          d, "policerId", [](T const& r) { return r.policerId(); },
          [](T& r, U32 v) { r.policerIdIs(v); });
      return d;
   }();
   return &desc;
}

void NimbalQosKernelDynamicCoppData::entryIs(U32 entry) {
   if (entry == entry_) {
      return;
   }
   entry_ = entry;
   notify("entry");
}

void NimbalQosKernelDynamicCoppData::policerIdIs(U32 policerId) {
   if (policerId == policerId_) {
      return;
   }
   policerId_ = policerId;
   notify("policerId");
}

// NimbalQosCoppQCounterData

NimbalQosCoppQCounterData::NimbalQosCoppQCounterData(Kiv::String const& text) {
   static constexpr char named[] = "pktHits=";
   bool isNamed = text.rfind(named, 0) == 0;
   pktHits_ = Kiv::fromString<U64>(isNamed ? text.substr(sizeof(named) - 1) : text);
}

Kiv::TypeDesc const* NimbalQosCoppQCounterData::fwkType() const {
   return fwkTypeDesc();
}

Kiv::TypeDesc const* NimbalQosCoppQCounterData::fwkTypeDesc() {
   // A value: it travels as its text form, so the descriptor only names it.
   static Kiv::TypeDesc const desc("Nimbal::NimbalQosCoppQCounterData");
   return &desc;
}

// NimbalQosCoppIntfCounterData

NimbalQosCoppIntfCounterData::NimbalQosCoppIntfCounterData(Orvik::IntfId const& intfId)
    : intfId_(intfId) {}

NimbalQosCoppIntfCounterData::~NimbalQosCoppIntfCounterData() = default;

Kiv::TypeDesc const* NimbalQosCoppIntfCounterData::fwkType() const {
   return fwkTypeDesc();
}

Kiv::TypeDesc const* NimbalQosCoppIntfCounterData::fwkTypeDesc() {
   using T = NimbalQosCoppIntfCounterData;
   static Kiv::TypeDesc const desc = [] {
      Kiv::TypeDesc d("Nimbal::NimbalQosCoppIntfCounterData", Kiv::entityTypeDesc());
      Kiv::readOnlyAttributeIs<T>(d, "intfId", [](T const& r) { return r.intfId(); });
      d.attributeIs("qCounterCol", [](Kiv::Entity const& e) {
         return collectionText(dynamic_cast<T const&>(e).qCounterColCol());
      });
      return d;
   }();
   return &desc;
}

}  // namespace Nimbal
