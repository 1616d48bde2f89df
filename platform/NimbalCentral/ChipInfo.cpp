#include "NimbalCentral/ChipInfo.h"

namespace NimbalCentral {

NimbalAttributes& nimbalAttributes() {
   static NimbalAttributes attributes;
   return attributes;
}

}  // namespace NimbalCentral
