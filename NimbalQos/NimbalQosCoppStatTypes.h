#pragma once

#include "Nimbal/StatTypes.h"
#include "Shim/Sdk.h"

namespace Nimbal {

// The two statistics of every CoPP entry, as the SDK shim names them: the packets the entry
// matched (read back as its hits) and the red ones among them.
inline StatTypes coppEntryStatTypes() {
   StatTypes statTypes;
   statTypes.typeIs(0, ::Shim::sdk_->coppStatType(0));
   statTypes.typeIs(1, ::Shim::sdk_->coppStatType(1));
   return statTypes;
}

}  // namespace Nimbal
