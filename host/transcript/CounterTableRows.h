#pragma once

// The rows of the library's two CoPP counter tables, read back from the text it writes.

#include <string>
#include <vector>

namespace NimbalHost {

// A row of the hardware table (hits) or of the software table (dropped, allowed). The
// interface is filled in on every row, also where the table leaves it blank under the row
// before. The per-port default policer is the queue "Default" of the hardware table.
struct CounterTableRow {
   std::string interface;
   std::string queue;
   long long hits = 0;
   long long dropped = 0;
   long long allowed = 0;

   bool operator==(CounterTableRow const&) const = default;
};

// Reads the rows of a table as showCoppIntfCountersHw (`hw`) or showCoppIntfCountersSw wrote
// it. `interfaces` are the switch's interface names: a name may hold blanks, so the row's
// interface is the longest of them that the row starts with. Throws std::invalid_argument for
// text that is not such a table.
std::vector<CounterTableRow> counterTableRows(std::string const& table, bool hw,
                                              std::vector<std::string> const& interfaces);

}  // namespace NimbalHost
