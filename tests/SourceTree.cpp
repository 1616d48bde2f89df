#include "SourceTree.h"

namespace SourceTree {

std::string const& dir() {
   static std::string const text = NIMBAL_SOURCE_DIR;
   return text;
}

std::string path(std::string const& relative) {
   return dir() + "/" + relative;
}

std::string const& simulator() {
   static std::string const text = NIMBAL_SIM_BINARY;
   return text;
}

}  // namespace SourceTree
