// Several flows in one traffic step, through the simulated agent and its chip.

#include <gtest/gtest.h>

#include <algorithm>
#include <cmath>
#include <cstdio>
#include <optional>
#include <regex>
#include <string>
#include <vector>

#include "Kiv/Activity.h"
#include "SourceTree.h"
#include "host/agent/SimAgent.h"
#include "host/scenario/Scenario.h"

namespace {

struct Result {
   std::string interface;
   unsigned queue = 0;
   long offered = 0;
   long allowed = 0;
   long dropped = 0;
};

// Plays the steps on a fresh agent; the transcript's lines.
std::vector<std::string> play(std::string const& steps, std::string const& sw = "{}") {
   Kiv::ActivityScope activity;
   NimbalHost::Scenario const scenario = NimbalHost::scenarioFromText(
       "{\"switch\": " + sw + ", \"steps\": [" + steps + "]}", "t.json");
   std::FILE* out = std::tmpfile();
   {
      NimbalHost::SimAgent agent(scenario, out);
      agent.run();
   }
   std::fflush(out);
   std::rewind(out);
   std::vector<std::string> lines;
   char buf[4096];
   while (std::fgets(buf, sizeof buf, out)) {
      std::string line(buf);
      lines.push_back(line.substr(0, line.size() - 1));
   }
   std::fclose(out);
   return lines;
}

std::vector<Result> results(std::vector<std::string> const& lines) {
   std::regex const re(R"(^traffic (\S+) queue (\d+): offered (\d+) allowed (\d+) dropped (\d+)$)");
   std::vector<Result> out;
   for (std::string const& l : lines) {
      std::smatch m;
      if (std::regex_match(l, m, re)) {
         out.push_back({m[1], static_cast<unsigned>(std::stoul(m[2])), std::stol(m[3]),
                        std::stol(m[4]), std::stol(m[5])});
      }
   }
   return out;
}

std::string flood(int pps, std::string const& extra = "") {
   return R"({"interface": "Ethernet1", "class": "copp-system-bgp", "pps": )" +
          std::to_string(pps) + extra + "}";
}

}  // namespace

TEST(FlowTraffic, OneLinePerFlowInTheListedOrder) {
   auto const r = results(play(R"({"traffic": {"seconds": 1, "flows": [
       {"interface": "Ethernet3", "queue": 8, "pps": 10},
       {"interface": "Ethernet1", "queue": 6, "pps": 20},
       {"interface": "Ethernet2", "class": "copp-system-bgp", "pps": 30}]}})"));
   ASSERT_EQ(r.size(), 3u);
   EXPECT_EQ(r[0].interface, "Ethernet3");
   EXPECT_EQ(r[0].queue, 8u);
   EXPECT_EQ(r[0].offered, 10);
   EXPECT_EQ(r[1].interface, "Ethernet1");
   EXPECT_EQ(r[1].offered, 20);
   EXPECT_EQ(r[2].queue, 1u);
   EXPECT_EQ(r[2].offered, 30);
}

TEST(FlowTraffic, LoneFlowThroughLoneMeterKeepsItsArithmetic) {
   // Class at 300 pps, burst 30; the port's default (twice the rate) does not bind.
   auto const r = results(play(R"({"police": {"interface": "Ethernet1", "class": "copp-system-bgp",
                                             "cir": 300, "bc": 30}},
                                  {"traffic": {"seconds": 10, "flows": [)" +
                               flood(1000) + "]}}"));
   ASSERT_EQ(r.size(), 1u);
   EXPECT_EQ(r[0].offered, 10000);
   EXPECT_NEAR(r[0].allowed, 30 + 300 * 10, 1);
}

namespace {

// A 5,000 pps flood on a class at 600 pps (a port default of 1,200 pps) for 10 s, after
// `idle` seconds and, when `before` is set, one packet of another class on the same port that
// many seconds before the flood. Returns what the flood's class let through.
long floodAllowed(int idle, std::optional<double> before, std::string const& extra = "") {
   std::string steps = R"({"police": {"interface": "Ethernet1", "class": "copp-system-bgp",
                                       "cir": 600, "bc": 60}})";
   for (int i = 0; i < idle; ++i) {
      steps += R"(, {"advance": 1})";
   }
   if (before) {
      steps += R"(, {"traffic": {"seconds": )" + std::to_string(*before) +
               R"(, "flows": [{"interface": "Ethernet1", "queue": 6, "exact": true, "pps": )" +
               std::to_string(std::lround(1 / *before)) + "}]}}";
   }
   steps += R"(, {"traffic": {"seconds": 10, "flows": [)" + flood(5000, extra) + "]}}";
   auto const r = results(play(steps));
   return r.empty() ? -1 : r.back().allowed;
}

}  // namespace

// Each idle second moves the flood to a later step, which draws another jitter.
TEST(FlowTraffic, FloodThroughTwoMetersDoesNotHangOnTheJitterDrawn) {
   std::vector<long> allowed;
   for (int idle = 0; idle < 5; ++idle) {
      allowed.push_back(floodAllowed(idle, 0.00005));
   }
   long const lo = *std::min_element(allowed.begin(), allowed.end());
   long const hi = *std::max_element(allowed.begin(), allowed.end());
   EXPECT_GT(lo, 3000);
   EXPECT_LE(static_cast<double>(hi - lo), 0.03 * static_cast<double>(hi)) << lo << " " << hi;
}

// Both meters lose a token to every packet of the flood, so their relative phase stays where the
// port's earlier traffic left it: a packet of another class shortly before the flood moves the
// default meter's refills away from the class meter's.
TEST(FlowTraffic, FloodThroughTwoMetersFollowsThePortsEarlierTraffic) {
   long const fullMeters = floodAllowed(0, std::nullopt);
   EXPECT_EQ(fullMeters, 60 + 600 * 10 - 1);
   EXPECT_EQ(floodAllowed(0, std::nullopt, R"(, "exact": true)"), fullMeters);
   long const near = floodAllowed(0, 0.00005);
   long const far = floodAllowed(0, 0.0002);
   EXPECT_LT(near, fullMeters);
   EXPECT_GT(near, fullMeters / 2);
   EXPECT_LT(far, fullMeters / 10);
   // A packet long enough before leaves time for the default meter to fill again.
   EXPECT_EQ(floodAllowed(0, 0.002), fullMeters);
}

TEST(FlowTraffic, FlowsOfOnePortShareItsDefaultPolicer) {
   // 20 pps of BGP alone passes whole; beside a flood of another class on the same port it
   // meets a default policer that the flood keeps empty.
   std::string const dhcp =
       R"({"interface": "Ethernet1", "class": "copp-system-dhcp", "pps": 5000})";
   auto const alone = results(play(R"({"traffic": {"seconds": 5, "flows": [)" +
                                   std::string(R"({"interface": "Ethernet1", "class": )"
                                               R"("copp-system-bgp", "pps": 20})") +
                                   "]}}"));
   auto const beside = results(play(R"({"traffic": {"seconds": 5, "flows": [)" +
                                    std::string(R"({"interface": "Ethernet1", "class": )"
                                                R"("copp-system-bgp", "pps": 20}, )") +
                                    dhcp + "]}}"));
   ASSERT_EQ(alone.size(), 1u);
   ASSERT_EQ(beside.size(), 2u);
   EXPECT_EQ(alone[0].dropped, 0);
   EXPECT_GT(beside[0].dropped, 0);
}

TEST(FlowTraffic, GoodNeighbourOnAnotherPortLosesNothing) {
   auto const r = results(play(R"({"traffic": {"seconds": 5, "flows": [
       {"interface": "Ethernet1", "class": "copp-system-bgp", "pps": 20},
       {"interface": "Ethernet1", "class": "copp-system-dhcp", "pps": 5000,
        "pattern": {"bursts": {"size": 100}}},
       {"interface": "Ethernet2", "class": "copp-system-bgp", "pps": 20,
        "pattern": {"poisson": {"seed": 3}}}]}})"));
   ASSERT_EQ(r.size(), 3u);
   EXPECT_GT(r[1].dropped, 0);
   EXPECT_EQ(r[2].interface, "Ethernet2");
   EXPECT_GT(r[2].offered, 0);
   EXPECT_EQ(r[2].dropped, 0);
}

TEST(FlowTraffic, BurstsLoseWhatTheBucketCannotHold) {
   // Bursts of 80 into a class meter of burst 50: every burst beyond the first loses about 30.
   auto const r = results(play(R"({"police": {"interface": "Ethernet1", "class": "copp-system-bgp",
                                             "cir": 400, "bc": 50}},
                                  {"traffic": {"seconds": 2, "flows": [
       {"interface": "Ethernet1", "class": "copp-system-bgp", "pps": 400, "exact": true,
        "pattern": {"bursts": {"size": 80}}}]}})"));
   ASSERT_EQ(r.size(), 1u);
   EXPECT_EQ(r[0].offered, 800);
   EXPECT_GE(r[0].dropped, 9 * 30 - 10);
   EXPECT_LE(r[0].dropped, 10 * 30 + 10);
}

TEST(FlowTraffic, SameSeedSamePackets) {
   std::string const steps = R"({"traffic": {"seconds": 3, "flows": [
       {"interface": "Ethernet1", "class": "copp-system-lldp", "pps": 700,
        "pattern": {"poisson": {"seed": 11}}}]}})";
   auto const a = results(play(steps));
   auto const b = results(play(steps));
   ASSERT_EQ(a.size(), 1u);
   ASSERT_EQ(b.size(), 1u);
   EXPECT_EQ(a[0].offered, b[0].offered);
   EXPECT_EQ(a[0].allowed, b[0].allowed);
}

TEST(FlowTraffic, CaptureReplaySaysWhatItReplayed) {
   auto const lines = play(std::string(R"({"traffic": {"seconds": 10, "flows": [
       {"interface": "Ethernet1", "pcap": ")") +
                           SourceTree::path("examples/capture.pcap") + R"(",
        "classes": [{"class": "copp-system-bgp", "filter": "tcp port 179"},
                    {"class": "copp-system-arp", "filter": "arp"}]}]}})");
   auto const r = results(lines);
   ASSERT_EQ(r.size(), 2u);
   EXPECT_EQ(r[0].queue, 1u);
   EXPECT_EQ(r[1].queue, 8u);
   std::regex const summary(
       R"(^capture \S+capture\.pcap: (\d+) packets, (\d+) classified, (\d+) ignored$)");
   bool found = false;
   for (std::string const& l : lines) {
      std::smatch m;
      if (std::regex_match(l, m, summary)) {
         found = true;
         EXPECT_EQ(std::stol(m[2]), r[0].offered + r[1].offered);
         EXPECT_EQ(std::stol(m[1]), std::stol(m[2]) + std::stol(m[3]));
      }
   }
   EXPECT_TRUE(found);
}
