#include <gtest/gtest.h>

#include <stdexcept>
#include <string>
#include <vector>

#include "host/transcript/CounterTableRows.h"

namespace {

using NimbalHost::CounterTableRow;
using NimbalHost::counterTableRows;

std::string const hwHeader =
    "Interface              Queue           Hits\n"
    "----------------------------------------------------\n";
std::string const swHeader =
    "Interface       Queue                              Dropped         Allowed\n";
std::vector<std::string> const interfaces = {"Ethernet1", "Ethernet2", "Ethernet16"};

CounterTableRow hwRow(std::string intf, std::string queue, long long hits) {
   CounterTableRow r;
   r.interface = std::move(intf);
   r.queue = std::move(queue);
   r.hits = hits;
   return r;
}

CounterTableRow swRow(std::string intf, std::string queue, long long dropped, long long allowed) {
   CounterTableRow r;
   r.interface = std::move(intf);
   r.queue = std::move(queue);
   r.dropped = dropped;
   r.allowed = allowed;
   return r;
}

TEST(CounterTableRows, HardwareRowsUnderAnInterfaceTakeItsName) {
   std::string const table = hwHeader +
                             "Ethernet16      CoppSystemLacp                   500 \n"
                             "Ethernet1       Default                         2000\n"
                             "                CoppSystemBgp                   2000\n"
                             "\n\n";
   EXPECT_EQ(counterTableRows(table, true, interfaces),
             (std::vector<CounterTableRow>{hwRow("Ethernet16", "CoppSystemLacp", 500),
                                           hwRow("Ethernet1", "Default", 2000),
                                           hwRow("Ethernet1", "CoppSystemBgp", 2000)}));
}

TEST(CounterTableRows, SoftwareRowsCarryDroppedAndAllowed) {
   std::string const table =
       swHeader +
       "Ethernet1       CoppUserDefined8                       211             989\n"
       "                CoppUserDefined1                       291             109\n"
       "Ethernet2       CoppUserDefined1                       236             164\n";
   EXPECT_EQ(counterTableRows(table, false, interfaces),
             (std::vector<CounterTableRow>{swRow("Ethernet1", "CoppUserDefined8", 211, 989),
                                           swRow("Ethernet1", "CoppUserDefined1", 291, 109),
                                           swRow("Ethernet2", "CoppUserDefined1", 236, 164)}));
}

TEST(CounterTableRows, EmptyTablesHaveNoRows) {
   EXPECT_TRUE(counterTableRows(hwHeader + "\n\n", true, interfaces).empty());
   EXPECT_TRUE(counterTableRows(swHeader, false, interfaces).empty());
}

// Names wider than their column push the rest of the row to the right; names may hold blanks.
TEST(CounterTableRows, LongNamesAndNamesWithBlanksAreReadWhole) {
   std::string const table =
       swHeader +
       "Port-Channel1000.42 Copp Queue With Blanks           7               8\n"
       "Ethernet 1      CoppSystemBgp                           1               2\n";
   EXPECT_EQ(
       counterTableRows(table, false, {"Port-Channel1000.42", "Ethernet", "Ethernet 1"}),
       (std::vector<CounterTableRow>{swRow("Port-Channel1000.42", "Copp Queue With Blanks", 7, 8),
                                     swRow("Ethernet 1", "CoppSystemBgp", 1, 2)}));
}

// The library prints its unsigned counts as signed numbers; a count past 2^63 reads negative.
TEST(CounterTableRows, NegativeCountsAreKept) {
   std::string const table =
       swHeader + "Ethernet1       CoppSystemBgp                          -5               3\n";
   EXPECT_EQ(counterTableRows(table, false, interfaces).at(0).dropped, -5);
}

TEST(CounterTableRows, TextThatIsNotTheTableIsRefused) {
   EXPECT_THROW(counterTableRows(swHeader, true, interfaces), std::invalid_argument);
   EXPECT_THROW(counterTableRows(hwHeader, false, interfaces), std::invalid_argument);
   EXPECT_THROW(counterTableRows(swHeader + "Ethernet1       CoppSystemBgp     x     3\n", false,
                                 interfaces),
                std::invalid_argument);
   EXPECT_THROW(
       counterTableRows(swHeader + "                CoppSystemBgp   1   3\n", false, interfaces),
       std::invalid_argument);
   EXPECT_THROW(
       counterTableRows(hwHeader + "Ethernet1       Default      2\n\nextra\n", true, interfaces),
       std::invalid_argument);
   EXPECT_THROW(counterTableRows(swHeader + "Ethernet1 CoppSystemBgp 1 3", false, interfaces),
                std::invalid_argument);
}

}  // namespace
