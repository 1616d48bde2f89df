#include <gtest/gtest.h>

#include "host/scenario/NameHints.h"

namespace {

using NimbalHost::closestName;
using NimbalHost::editDistance;
using NimbalHost::nameRangesText;

TEST(NameHints, EditDistanceCountsInsertsDeletesReplacesAndSwaps) {
   EXPECT_EQ(editDistance("copp-system-bgp", "copp-system-bgp"), 0u);
   EXPECT_EQ(editDistance("copp-sytem-bgp", "copp-system-bgp"), 1u);
   EXPECT_EQ(editDistance("copp-sytsem-bgp", "copp-system-bgp"), 1u);
   EXPECT_EQ(editDistance("copp-system-bpg", "copp-system-bgp"), 1u);
   EXPECT_EQ(editDistance("copp-system-bfdx", "copp-system-bgp"), 3u);
   EXPECT_EQ(editDistance("", "abc"), 3u);
}

TEST(NameHints, ClosestIsAtMostTwoEditsAwayAndNeverTheNameItself) {
   std::vector<std::string> const classes = {"copp-system-bfd", "copp-system-bgp",
                                             "copp-system-lldp"};
   EXPECT_EQ(closestName("copp-sytem-bgp", classes), "copp-system-bgp");
   EXPECT_EQ(closestName("copp-system-bgp", classes), std::nullopt);
   EXPECT_EQ(closestName("copp-user-telemetry", classes), std::nullopt);
   // The first of equally close names.
   EXPECT_EQ(closestName("copp-system-bfp", classes), "copp-system-bfd");
}

TEST(NameHints, ConsecutiveNumbersOfOnePrefixAreRanges) {
   EXPECT_EQ(nameRangesText({"Ethernet1", "Ethernet2", "Ethernet3", "Ethernet5", "Ethernet6",
                             "Fabric1", "Ethernet7", "Management"}),
             "Ethernet1-Ethernet3, Ethernet5-Ethernet6, Fabric1, Ethernet7, Management");
   EXPECT_EQ(nameRangesText({"Ethernet1"}), "Ethernet1");
   // Leading zeros do not count: Et01 after Et0 is not the next number.
   EXPECT_EQ(nameRangesText({"Et0", "Et01"}), "Et0, Et01");
   EXPECT_EQ(nameRangesText({}), "");
}

}  // namespace
