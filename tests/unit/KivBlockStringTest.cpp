#include <gtest/gtest.h>

#include <string>
#include <utility>

#include "Kiv/BlockString.h"

namespace {

TEST(KivBlockString, KeepsItsTextExactly) {
   EXPECT_EQ(Kiv::BlockString().view(), "");
   EXPECT_EQ(Kiv::BlockString("").view(), "");
   EXPECT_EQ(Kiv::BlockString("Dynamic Kernel Copp for CpuTm1, Ethernet7").view(),
             "Dynamic Kernel Copp for CpuTm1, Ethernet7");
   std::string const withNul("a\0b", 3);
   EXPECT_EQ(Kiv::BlockString(withNul).string(), withNul);
}

TEST(KivBlockString, TextLargerThanABlockComesFromTheHeapAndBack) {
   std::string const longText(2000, 'q');
   Kiv::BlockString const s(longText);
   EXPECT_EQ(s.string(), longText);
}

TEST(KivBlockString, CopiesAreTheirOwnAndMovesLeaveNothing) {
   Kiv::BlockString a("first");
   Kiv::BlockString b(a);
   a = Kiv::BlockString("second");
   EXPECT_EQ(a.view(), "second");
   EXPECT_EQ(b.view(), "first");
   Kiv::BlockString c(std::move(b));
   EXPECT_EQ(c.view(), "first");
   EXPECT_EQ(b.view(), "");  // NOLINT(bugprone-use-after-move): moved-from is empty
   c = a;
   EXPECT_EQ(c.view(), "second");
   Kiv::BlockString const& same = c;
   c = same;
   EXPECT_EQ(c.view(), "second");
}

}  // namespace
