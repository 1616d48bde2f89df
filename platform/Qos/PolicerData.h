#pragma once

#include "Kiv/Entity.h"
#include "Qos/QosTypes.h"

namespace Qos {

// The police action configured on a class.
class PolicerData : public Kiv::Entity {
  public:
   PolicerData() = default;
   PolicerData(U64 cir, RateUnit cirUnit, U32 bc) : cir_(cir), cirUnit_(cirUnit), bc_(bc) {}
   U64 cir() const { return cir_; }
   void cirIs(U64 v) { cir_ = v; }
   RateUnit cirUnit() const { return cirUnit_; }
   void cirUnitIs(RateUnit v) { cirUnit_ = v; }
   U32 bc() const { return bc_; }
   void bcIs(U32 v) { bc_ = v; }
   // False while the class's police action is not meant for hardware; verify skips such classes.
   bool hwProgrammed() const { return hwProgrammed_; }
   void hwProgrammedIs(bool v) { hwProgrammed_ = v; }

  private:
   U64 cir_ = 0;
   RateUnit cirUnit_ = rateUnitPps_;
   U32 bc_ = 0;
   bool hwProgrammed_ = true;
};

}  // namespace Qos
