#include "Orvik/IntfNameCmp.h"

namespace Orvik {

namespace {

bool isDigit(char c) {
   return c >= '0' && c <= '9';
}

// Compares the digit runs a[ia, ea) and b[ib, eb) by value: <0, 0 or >0.
int compareNumbers(Kiv::String const& a, std::size_t ia, std::size_t ea, Kiv::String const& b,
                   std::size_t ib, std::size_t eb) {
   while (ia + 1 < ea && a[ia] == '0') {
      ++ia;
   }
   while (ib + 1 < eb && b[ib] == '0') {
      ++ib;
   }
   std::size_t const la = ea - ia;
   std::size_t const lb = eb - ib;
   if (la != lb) {
      return la < lb ? -1 : 1;
   }
   return a.compare(ia, la, b, ib, lb);
}

}  // namespace

bool intfNameCmp(Kiv::String const& a, Kiv::String const& b) {
   std::size_t i = 0;
   std::size_t j = 0;
   while (i < a.size() && j < b.size()) {
      if (isDigit(a[i]) && isDigit(b[j])) {
         std::size_t ei = i;
         while (ei < a.size() && isDigit(a[ei])) {
            ++ei;
         }
         std::size_t ej = j;
         while (ej < b.size() && isDigit(b[ej])) {
            ++ej;
         }
         int const c = compareNumbers(a, i, ei, b, j, ej);
         if (c != 0) {
            return c < 0;
         }
         i = ei;
         j = ej;
         continue;
      }
      // A digit against anything else: no other character lies between '0' and '9', so the
      // plain comparison orders a digit run the same way whatever its first digit.
      if (a[i] != b[j]) {
         return static_cast<unsigned char>(a[i]) < static_cast<unsigned char>(b[j]);
      }
      ++i;
      ++j;
   }
   if (i < a.size() || j < b.size()) {
      return i == a.size();
   }
   return a < b;
}

}  // namespace Orvik
