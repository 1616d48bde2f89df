#include <gtest/gtest.h>

#include <algorithm>
#include <string>
#include <vector>

#include "Orvik/IntfNameCmp.h"

namespace {

using Orvik::intfNameCmp;

TEST(IntfNameCmp, NumbersCompareByValue) {
   EXPECT_TRUE(intfNameCmp("Ethernet2", "Ethernet10"));
   EXPECT_FALSE(intfNameCmp("Ethernet10", "Ethernet2"));
   EXPECT_TRUE(intfNameCmp("Ethernet9", "Ethernet10"));
   EXPECT_TRUE(intfNameCmp("Ethernet1", "Ethernet2"));
}

TEST(IntfNameCmp, EveryNumberOfASubInterfaceNameCompareByValue) {
   EXPECT_TRUE(intfNameCmp("Ethernet1/2", "Ethernet1/10"));
   EXPECT_FALSE(intfNameCmp("Ethernet1/10", "Ethernet1/2"));
   EXPECT_TRUE(intfNameCmp("Ethernet1/10", "Ethernet2/1"));
   EXPECT_TRUE(intfNameCmp("Ethernet3/1/4", "Ethernet3/1/12"));
   EXPECT_TRUE(intfNameCmp("Ethernet1.2", "Ethernet1.10"));
}

TEST(IntfNameCmp, DifferentKindsOfInterfaceCompareByName) {
   EXPECT_TRUE(intfNameCmp("Ethernet10", "Port-Channel1"));
   EXPECT_TRUE(intfNameCmp("Ethernet1", "Management1"));
   EXPECT_TRUE(intfNameCmp("Management2", "Port-Channel1"));
   EXPECT_FALSE(intfNameCmp("Vlan1", "Ethernet100"));
}

TEST(IntfNameCmp, ShorterNameThatStartsTheOtherComesFirst) {
   EXPECT_TRUE(intfNameCmp("Ethernet1", "Ethernet1/1"));
   EXPECT_FALSE(intfNameCmp("Ethernet1/1", "Ethernet1"));
   EXPECT_TRUE(intfNameCmp("Ethernet", "Ethernet1"));
   EXPECT_TRUE(intfNameCmp("", "Ethernet1"));
   EXPECT_FALSE(intfNameCmp("Ethernet1", ""));
}

TEST(IntfNameCmp, NameIsNotLessThanItself) {
   EXPECT_FALSE(intfNameCmp("Ethernet1/2", "Ethernet1/2"));
   EXPECT_FALSE(intfNameCmp("", ""));
}

TEST(IntfNameCmp, LeadingZerosReadAlikeAndAreOrderedByText) {
   // Equal in value, so exactly one of the two names must come first.
   EXPECT_NE(intfNameCmp("Ethernet01", "Ethernet1"), intfNameCmp("Ethernet1", "Ethernet01"));
   EXPECT_TRUE(intfNameCmp("Ethernet01", "Ethernet1"));
   EXPECT_TRUE(intfNameCmp("Ethernet01", "Ethernet2"));
}

TEST(IntfNameCmp, NumbersLongerThanAMachineWordStillCompareByValue) {
   EXPECT_TRUE(intfNameCmp("Ethernet99999999999999999999", "Ethernet100000000000000000000"));
   EXPECT_FALSE(intfNameCmp("Ethernet100000000000000000000", "Ethernet99999999999999999999"));
}

TEST(IntfNameCmp, SortingGivesTheOperatorsOrder) {
   std::vector<std::string> names = {"Port-Channel10", "Ethernet10",  "Ethernet1/10",
                                     "Ethernet2",      "Ethernet1/2", "Port-Channel2",
                                     "Ethernet1",      "Management1", "Ethernet1/1"};
   std::sort(names.begin(), names.end(), intfNameCmp);
   EXPECT_EQ(names, (std::vector<std::string>{"Ethernet1", "Ethernet1/1", "Ethernet1/2",
                                              "Ethernet1/10", "Ethernet2", "Ethernet10",
                                              "Management1", "Port-Channel2", "Port-Channel10"}));
}

TEST(IntfNameCmp, IsAStrictOrder) {
   std::vector<std::string> const names = {
       "",           "Ethernet",    "Ethernet0",  "Ethernet00", "Ethernet1",    "Ethernet01",
       "Ethernet1/", "Ethernet1/1", "Ethernet10", "Ethernet1a", "Ethernet 1",   "Ethernet-1",
       "Ethernet9",  "Ethernet09",  "Eth5",       "a1b2",       "a01b2",        "a1b02",
       "Vlan1",      "1",           "01",         "/1",         "Port-Channel1"};
   for (auto const& a : names) {
      EXPECT_FALSE(intfNameCmp(a, a)) << a;
      for (auto const& b : names) {
         if (a != b) {
            EXPECT_NE(intfNameCmp(a, b), intfNameCmp(b, a)) << a << " / " << b;
         }
         for (auto const& c : names) {
            if (intfNameCmp(a, b) && intfNameCmp(b, c)) {
               EXPECT_TRUE(intfNameCmp(a, c)) << a << " < " << b << " < " << c;
            }
         }
      }
   }
}

}  // namespace
