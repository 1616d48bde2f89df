#include <gtest/gtest.h>

// Tests hold the agent's activity lock as the event loop does; a forked death-test child could
// not take it back, so death tests run in a fresh process.
int main(int argc, char** argv) {
   GTEST_FLAG_SET(death_test_style, "threadsafe");
   ::testing::InitGoogleTest(&argc, argv);
   return RUN_ALL_TESTS();
}
