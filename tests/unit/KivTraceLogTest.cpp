#include <gtest/gtest.h>

#include <string>
#include <vector>

#include "Kiv/Log.h"
#include "Kiv/Trace.h"

namespace {

struct Captured {
   std::vector<std::string> lines;
   Captured() {
      Kiv::traceSinkIs([this](std::string const& h, int level, std::string const& line) {
         lines.push_back(h + "/" + std::to_string(level) + ": " + line);
      });
   }
   ~Captured() { Kiv::traceSinkIs(nullptr); }
};

struct Expensive {
   int* formatted;
};
std::ostream& operator<<(std::ostream& os, Expensive const& e) {
   ++*e.formatted;
   return os << "x";
}

TEST(KivTrace, OffByDefaultAndFormatsNothingWhenOff) {
   Captured c;
   auto& h = Kiv::traceHandle("KivTraceTest.off");
   int formatted = 0;
   KIV_TRACE(h, 1, "value " << Expensive{&formatted});
   EXPECT_EQ(formatted, 0);
   EXPECT_TRUE(c.lines.empty());
}

TEST(KivTrace, LevelsUpToTheConfiguredOneAreWritten) {
   Captured c;
   Kiv::traceConfigIs("KivTraceTest.on:4");
   auto& h = Kiv::traceHandle("KivTraceTest.on");
   KIV_TRACE(h, 1, "one");
   KIV_TRACE(h, 4, "four " << 4);
   KIV_TRACE(h, 5, "five");
   EXPECT_EQ(c.lines,
             std::vector<std::string>({"KivTraceTest.on/1: one", "KivTraceTest.on/4: four 4"}));
}

TEST(KivTrace, ConfigurationAppliesToHandlesMadeLater) {
   Captured c;
   Kiv::traceConfigIs("KivTraceTest.later:1,KivTraceTest.other:9");
   auto& h = Kiv::traceHandle("KivTraceTest.later");
   EXPECT_TRUE(h.enabled(1));
   EXPECT_FALSE(h.enabled(2));
   EXPECT_EQ(&h, &Kiv::traceHandle("KivTraceTest.later"));
}

TEST(KivTrace, HandlesAreListedInCreationOrder) {
   Kiv::traceHandle("KivTraceTest.first");
   Kiv::traceHandle("KivTraceTest.second");
   auto names = Kiv::traceHandleNames();
   auto first = std::find(names.begin(), names.end(), "KivTraceTest.first");
   auto second = std::find(names.begin(), names.end(), "KivTraceTest.second");
   ASSERT_NE(first, names.end());
   EXPECT_LT(first, second);
}

TEST(KivTrace, RemovedHandleLeavesTheListAndItsLevelStaysWithTheName) {
   Kiv::traceConfigIs("KivTraceTest.removed:3");
   Kiv::traceHandle("KivTraceTest.removed");
   Kiv::traceHandle("KivTraceTest.kept");
   EXPECT_TRUE(Kiv::traceHandleDel("KivTraceTest.removed"));
   auto const names = Kiv::traceHandleNames();
   EXPECT_EQ(std::find(names.begin(), names.end(), "KivTraceTest.removed"), names.end());
   EXPECT_NE(std::find(names.begin(), names.end(), "KivTraceTest.kept"), names.end());
   EXPECT_FALSE(Kiv::traceHandleDel("KivTraceTest.removed"));
   // Made again, it is switched on as its name was.
   EXPECT_TRUE(Kiv::traceHandle("KivTraceTest.removed").enabled(3));
   EXPECT_TRUE(Kiv::traceHandleDel("KivTraceTest.removed"));
   EXPECT_TRUE(Kiv::traceHandleDel("KivTraceTest.kept"));
}

TEST(KivLog, RaisedMessageIsFormattedAndReachesTheSink) {
   Kiv::LogHandle h("KIV_TEST_MESSAGE", 3, "Insufficient %s resources to program the %s.",
                    "explanation", Kiv::NoActionRequired, 0.0, 1.0, 0, 0);
   std::vector<std::string> got;
   Kiv::logSinkIs([&](Kiv::LogHandle const& handle, std::string const& message) {
      got.push_back(handle.key() + ": " + message);
   });
   h.log("egress TCAM", std::string("default control plane policer (vxlan) on Ethernet1"));
   Kiv::logSinkIs(nullptr);
   EXPECT_EQ(got, std::vector<std::string>({"KIV_TEST_MESSAGE: Insufficient egress TCAM resources "
                                            "to program the default control plane policer "
                                            "(vxlan) on Ethernet1."}));
   EXPECT_EQ(Kiv::logHandle("KIV_TEST_MESSAGE"), &h);
}

TEST(KivLog, HandleLeavesTheRegistryWhenDestroyed) {
   {
      Kiv::LogHandle h("KIV_TEST_GONE", 4, "f", "e", "a", 0.0, 1.0, 0, 0);
      EXPECT_NE(Kiv::logHandle("KIV_TEST_GONE"), nullptr);
   }
   EXPECT_EQ(Kiv::logHandle("KIV_TEST_GONE"), nullptr);
}

TEST(KivFormat, PrintfStyleWithStrings) {
   EXPECT_EQ(Kiv::format("%-15s|%5d|%s", std::string("Ethernet1"), 42, "x"),
             "Ethernet1      |   42|x");
}

}  // namespace
