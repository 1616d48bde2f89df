#include "host/scenario/NameHints.h"

#include <algorithm>
#include <cctype>

namespace NimbalHost {

std::size_t editDistance(std::string const& a, std::string const& b) {
   // Optimal string alignment: a swapped pair of letters is one slip, not two.
   std::vector<std::vector<std::size_t>> d(a.size() + 1, std::vector<std::size_t>(b.size() + 1));
   for (std::size_t i = 0; i <= a.size(); ++i) {
      d[i][0] = i;
   }
   for (std::size_t j = 0; j <= b.size(); ++j) {
      d[0][j] = j;
   }
   for (std::size_t i = 1; i <= a.size(); ++i) {
      for (std::size_t j = 1; j <= b.size(); ++j) {
         std::size_t const cost = a[i - 1] == b[j - 1] ? 0 : 1;
         d[i][j] = std::min({d[i - 1][j] + 1, d[i][j - 1] + 1, d[i - 1][j - 1] + cost});
         if (i > 1 && j > 1 && a[i - 1] == b[j - 2] && a[i - 2] == b[j - 1]) {
            d[i][j] = std::min(d[i][j], d[i - 2][j - 2] + 1);
         }
      }
   }
   return d[a.size()][b.size()];
}

std::optional<std::string> closestName(std::string const& name,
                                       std::vector<std::string> const& names,
                                       std::size_t maxDistance) {
   // A known name is no slip.
   if (std::find(names.begin(), names.end(), name) != names.end()) {
      return std::nullopt;
   }
   std::optional<std::string> best;
   std::size_t bestDistance = maxDistance + 1;
   for (std::string const& candidate : names) {
      std::size_t const d = editDistance(name, candidate);
      if (d > 0 && d < bestDistance) {
         best = candidate;
         bestDistance = d;
      }
   }
   return best;
}

namespace {

struct Numbered {
   std::string prefix;
   long number = -1;  // -1: no trailing number
};

Numbered numbered(std::string const& name) {
   std::size_t i = name.size();
   while (i > 0 && std::isdigit(static_cast<unsigned char>(name[i - 1]))) {
      --i;
   }
   // Leading zeros or overlong digits would not read back as the same name.
   if (i == name.size() || name.size() - i > 9 || (name[i] == '0' && i + 1 < name.size())) {
      return {name, -1};
   }
   return {name.substr(0, i), std::stol(name.substr(i))};
}

}  // namespace

std::string namePrefix(std::string const& name) {
   std::size_t i = name.size();
   while (i > 0 && std::isdigit(static_cast<unsigned char>(name[i - 1]))) {
      --i;
   }
   return name.substr(0, i);
}

std::string nameRangesText(std::vector<std::string> const& names) {
   std::string out;
   std::size_t i = 0;
   while (i < names.size()) {
      Numbered const first = numbered(names[i]);
      std::size_t j = i + 1;
      if (first.number >= 0) {
         while (j < names.size()) {
            Numbered const next = numbered(names[j]);
            if (next.prefix != first.prefix ||
                next.number != first.number + static_cast<long>(j - i)) {
               break;
            }
            ++j;
         }
      }
      out += (out.empty() ? "" : ", ") + names[i];
      if (j - i > 1) {
         out += "-" + names[j - 1];
      }
      i = j;
   }
   return out;
}

}  // namespace NimbalHost
