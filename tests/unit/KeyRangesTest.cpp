#include <gtest/gtest.h>

#include "host/transcript/KeyRanges.h"

using NimbalHost::KeyName;
using NimbalHost::keyRanges;
using NimbalHost::keyRangesText;

namespace {

std::vector<std::string> ports(int from, int to) {
   std::vector<std::string> out;
   for (int i = from; i <= to; ++i) {
      out.push_back("Ethernet" + std::to_string(i));
   }
   return out;
}

}  // namespace

TEST(KeyRanges, NeighbouringInterfacesAndQueuesReadAsRanges) {
   std::vector<KeyName> keys;
   for (int p = 8; p <= 14; ++p) {
      for (unsigned q = 1; q <= 16; ++q) {
         keys.push_back({"Ethernet" + std::to_string(p), q, "CpuQ" + std::to_string(q)});
      }
   }
   EXPECT_EQ(keyRangesText(keys, ports(1, 16)), "Ethernet8-Ethernet14 queues 1-16 (CpuQ1-CpuQ16)");
}

TEST(KeyRanges, OneKeyReadsAsItself) {
   EXPECT_EQ(keyRangesText({{"Ethernet6", 38, "CoppSystemMlag"}}, ports(1, 8)),
             "Ethernet6 queue 38 (CoppSystemMlag)");
}

TEST(KeyRanges, InterfacesWithOtherQueuesFormTheirOwnGroup) {
   std::vector<KeyName> keys = {{"Ethernet2", 38, "A"},
                                {"Ethernet1", 38, "A"},
                                {"Ethernet3", 39, "B"},
                                {"Ethernet4", 38, "A"}};
   EXPECT_EQ(keyRanges(keys, ports(1, 8)),
             (std::vector<std::string>{"Ethernet1-Ethernet2, Ethernet4 queue 38 (A)",
                                       "Ethernet3 queue 39 (B)"}));
}

TEST(KeyRanges, GapsInQueuesAreListed) {
   std::vector<KeyName> keys = {
       {"Ethernet1", 1, "A"}, {"Ethernet1", 2, "B"}, {"Ethernet1", 7, "G"}};
   EXPECT_EQ(keyRangesText(keys, ports(1, 2)), "Ethernet1 queues 1-2, 7 (A-B, G)");
}

TEST(KeyRanges, QueuesWithoutNamesAreWrittenByNumberOnly) {
   EXPECT_EQ(keyRangesText({{"Ethernet1", 3, ""}, {"Ethernet1", 4, ""}}, ports(1, 2)),
             "Ethernet1 queues 3-4");
}

TEST(KeyRanges, UnlistedInterfacesComeLastAndAlone) {
   std::vector<KeyName> keys = {{"Recirc1", 5, "Q"}, {"Recirc2", 5, "Q"}, {"Ethernet1", 5, "Q"}};
   EXPECT_EQ(keyRangesText(keys, ports(1, 2)), "Ethernet1, Recirc1, Recirc2 queue 5 (Q)");
}

TEST(KeyRanges, NothingGivesNothing) {
   EXPECT_TRUE(keyRanges({}, ports(1, 2)).empty());
}
