#pragma once

#include <functional>
#include <ostream>
#include <tuple>

#include "Kiv/Types.h"

namespace NimbalTcam {

// Identifies a request to the TCAM agent: the feature group it belongs to and its name
// within that group. The default value is the empty key.
class RequestKey {
  public:
   RequestKey() = default;
   RequestKey(U32 featureGroupType, Kiv::Name name)
       : featureGroupType_(featureGroupType), name_(std::move(name)) {}
   U32 featureGroupType() const { return featureGroupType_; }
   Kiv::Name const& name() const { return name_; }
   bool empty() const { return featureGroupType_ == 0 && name_.empty(); }
   bool operator==(RequestKey const& o) const = default;
   bool operator<(RequestKey const& o) const {
      return std::tie(featureGroupType_, name_) < std::tie(o.featureGroupType_, o.name_);
   }

  private:
   U32 featureGroupType_ = 0;
   Kiv::Name name_;
};

inline std::ostream& operator<<(std::ostream& os, RequestKey const& k) {
   return os << k.featureGroupType() << ":" << k.name();
}

}  // namespace NimbalTcam

template <>
struct std::hash<NimbalTcam::RequestKey> {
   std::size_t operator()(NimbalTcam::RequestKey const& k) const {
      return std::hash<std::string>()(k.name()) * 31 + k.featureGroupType();
   }
};
