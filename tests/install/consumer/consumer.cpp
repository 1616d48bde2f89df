// A program built against an installed copy of the library: it links the factory and finds the
// same factory again by its symbol, as the agent does after loading the library. It prints the
// file the library was loaded from.
#include <dlfcn.h>

#include <cstdio>

#include "NimbalQos/NimbalQosSharedHelper.h"

int main() {
   void* const linked = reinterpret_cast<void*>(&Nimbal::getQosAclHelper);
   void* const found = ::dlsym(RTLD_DEFAULT, Nimbal::getQosAclHelperSymbol);
   if (found == nullptr || found != linked) {
      std::fprintf(stderr, "consumer: the factory's symbol does not name the linked factory\n");
      return 1;
   }
   Dl_info info{};
   if (::dladdr(linked, &info) == 0 || info.dli_fname == nullptr) {
      std::fprintf(stderr, "consumer: no library holds the factory\n");
      return 1;
   }
   std::printf("%s\n", info.dli_fname);
   return 0;
}
