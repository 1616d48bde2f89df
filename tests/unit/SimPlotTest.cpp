#include <gtest/gtest.h>

#include <string>
#include <vector>

#include "host/transcript/SvgPlot.h"
#include "host/transcript/TrafficLog.h"

namespace {

using NimbalHost::axisTicks;
using NimbalHost::PlotPanel;
using NimbalHost::svgChart;
using NimbalHost::TrafficLog;

std::size_t occurrences(std::string const& text, std::string const& what) {
   std::size_t n = 0;
   for (std::size_t at = text.find(what); at != std::string::npos; at = text.find(what, at + 1)) {
      ++n;
   }
   return n;
}

TEST(SimPlot, AxisTicksAreRoundStepsCoveringTheTop) {
   EXPECT_EQ(axisTicks(10, 5), (std::vector<double>{0, 2, 4, 6, 8, 10}));
   EXPECT_EQ(axisTicks(2100, 5), (std::vector<double>{0, 500, 1000, 1500, 2000, 2500}));
   EXPECT_EQ(axisTicks(7, 8), (std::vector<double>{0, 1, 2, 3, 4, 5, 6, 7}));
   std::vector<double> const small = axisTicks(0.3, 3);
   ASSERT_EQ(small.size(), 4u);
   EXPECT_DOUBLE_EQ(small[1], 0.1);
   EXPECT_GE(small.back(), 0.3 - 1e-12);
   EXPECT_EQ(axisTicks(0, 5), (std::vector<double>{0, 1}));
}

TEST(SimPlot, TickLabelsDropNeedlessDecimals) {
   EXPECT_EQ(NimbalHost::tickLabel(2000), "2000");
   EXPECT_EQ(NimbalHost::tickLabel(0.5), "0.5");
   EXPECT_EQ(NimbalHost::tickLabel(0.25), "0.25");
   EXPECT_EQ(NimbalHost::tickLabel(0), "0");
}

TEST(SimPlot, TextIsEscapedForXml) {
   EXPECT_EQ(NimbalHost::xmlText("a<b & \"c\">"), "a&lt;b &amp; &quot;c&quot;&gt;");
}

TEST(SimPlot, ChartHasTitleAxesTicksLegendAndALinePerSeries) {
   PlotPanel panel;
   panel.title = "Ethernet1 to CPU queue 1 (CoppSystemBgp)";
   panel.subtitle = "offered 10";
   panel.binWidth = 1;
   panel.series = {{"offered", "#1f77b4", {100, 100}, 1.5, ""},
                   {"allowed", "#2ca02c", {40, 40}, 1.5, ""},
                   {"dropped", "#d62728", {60, 60}, 1.5, ""}};
   std::string const svg = svgChart("CPU-bound traffic: demo", "a note", {panel, panel}, 2);
   EXPECT_EQ(svg.rfind("<?xml version=\"1.0\" encoding=\"UTF-8\"?>\n<svg ", 0), 0u);
   EXPECT_NE(svg.find("xmlns=\"http://www.w3.org/2000/svg\""), std::string::npos);
   EXPECT_EQ(svg.substr(svg.size() - 7), "</svg>\n");
   EXPECT_NE(svg.find(">CPU-bound traffic: demo</text>"), std::string::npos);
   EXPECT_EQ(occurrences(svg, ">Ethernet1 to CPU queue 1 (CoppSystemBgp)</text>"), 2u);
   EXPECT_EQ(occurrences(svg, ">virtual time (s)</text>"), 2u);
   EXPECT_EQ(occurrences(svg, ">packets per second</text>"), 2u);
   EXPECT_EQ(occurrences(svg, "<polyline "), 6u);
   for (char const* name : {">offered</text>", ">allowed</text>", ">dropped</text>"}) {
      EXPECT_EQ(occurrences(svg, name), 2u) << name;
   }
   // Time ticks 0 to 2; rate ticks in steps of 50 past the highest value, 100.
   EXPECT_NE(svg.find(">2</text>"), std::string::npos);
   EXPECT_NE(svg.find(">150</text>"), std::string::npos);
   EXPECT_EQ(svg.find(">200</text>"), std::string::npos);
}

TEST(SimPlot, NoteIsWrappedUnderTheTitle) {
   std::string const note(200, 'x');
   std::string const words = "alpha beta gamma delta";
   EXPECT_EQ(NimbalHost::wrapped(words, 11),
             (std::vector<std::string>{"alpha beta", "gamma delta"}));
   EXPECT_EQ(NimbalHost::wrapped(words, 100), std::vector<std::string>{words});
   EXPECT_EQ(NimbalHost::wrapped("", 10), std::vector<std::string>{});
   EXPECT_EQ(NimbalHost::wrapped(note, 10), std::vector<std::string>{note});
   std::string const svg = svgChart("t", "one two <three>", {}, 1);
   EXPECT_NE(svg.find("fill=\"#555\">one two &lt;three&gt;</text>"), std::string::npos);
}

TEST(SimPlot, DashedSeriesAreDashedInLineAndLegend) {
   PlotPanel panel;
   panel.series = {{"dropped", "#d62728", {1}, 2, "6,4"}, {"allowed", "#2ca02c", {1}, 3, ""}};
   std::string const svg = svgChart("t", "", {panel}, 1);
   EXPECT_EQ(occurrences(svg, "stroke-dasharray=\"6,4\""), 2u);
   EXPECT_NE(svg.find("stroke=\"#2ca02c\" stroke-width=\"3\" stroke-linejoin"), std::string::npos);
}

TEST(SimPlot, ChartOfNoTrafficSaysSo) {
   std::string const svg = svgChart("t", "", {}, 5);
   EXPECT_NE(svg.find("No traffic was sent in this scenario."), std::string::npos);
   EXPECT_EQ(occurrences(svg, "<polyline "), 0u);
}

TEST(SimPlot, LinesStepThroughTheBins) {
   PlotPanel panel;
   panel.binWidth = 1;
   panel.series = {{"offered", "#000", {10, 0}, 1.5, ""}};
   std::string const svg = svgChart("t", "", {panel}, 2);
   std::size_t const from = svg.find("points=\"");
   ASSERT_NE(from, std::string::npos);
   std::size_t const to = svg.find('"', from + 8);
   // Two points per bin: the level held from the bin's start to its end.
   std::string const points = svg.substr(from + 8, to - from - 8);
   EXPECT_EQ(occurrences(points, ","), 4u);
}

TEST(SimPlot, BinWidthIsARoundNumber) {
   EXPECT_DOUBLE_EQ(NimbalHost::niceBinWidth(0.03), 0.05);
   EXPECT_DOUBLE_EQ(NimbalHost::niceBinWidth(0.1), 0.1);
   EXPECT_DOUBLE_EQ(NimbalHost::niceBinWidth(0.11), 0.2);
   EXPECT_DOUBLE_EQ(NimbalHost::niceBinWidth(3), 5);
   EXPECT_DOUBLE_EQ(NimbalHost::niceBinWidth(0), 1);
}

TEST(SimTrafficLog, PacketsAreEvenlySpaced) {
   TrafficLog log;
   NimbalHost::TrafficBurst& b = log.burstIs("Ethernet1", 1, "CoppSystemBgp", false, 2.0, 4);
   EXPECT_DOUBLE_EQ(b.packetTime(0), 2.0);
   EXPECT_DOUBLE_EQ(b.packetTime(1), 2.25);
   EXPECT_DOUBLE_EQ(b.packetTime(4), 3.0);
}

TEST(SimTrafficLog, BurstsOfOneFlowGoTogether) {
   TrafficLog log;
   log.burstIs("Ethernet1", 1, "Q1", false, 0, 10).dropped = {false, true};
   log.burstIs("Ethernet1", 2, "Q2", false, 0, 10).dropped = {false};
   log.burstIs("Ethernet1", 1, "Q1", true, 0, 10).dropped = {true};
   log.burstIs("Ethernet1", 1, "Q1", false, 5, 10).dropped = {true, true};
   ASSERT_EQ(log.flows().size(), 3u);
   EXPECT_EQ(log.flows()[0].bursts.size(), 2u);
   EXPECT_EQ(log.flows()[0].offered(), 4u);
   EXPECT_EQ(log.flows()[0].dropped(), 3u);
   EXPECT_TRUE(log.flows()[2].vxlan);
}

TEST(SimTrafficLog, PanelRatesArePacketsPerSecondOfEachBin) {
   TrafficLog log;
   // 100 pps for 2 s from t=1: the first half allowed, the second dropped.
   NimbalHost::TrafficBurst& b = log.burstIs("Ethernet3", 40, "CoppUserDefined1", false, 1, 100);
   for (int i = 0; i < 200; ++i) {
      b.dropped.push_back(i >= 100);
   }
   std::vector<PlotPanel> const panels = log.panels(4);
   ASSERT_EQ(panels.size(), 1u);
   PlotPanel const& p = panels[0];
   EXPECT_EQ(p.title, "Ethernet3 to CPU queue 40 (CoppUserDefined1)");
   EXPECT_EQ(p.subtitle,
             "offered 200, allowed 100, dropped 100 packets; rates averaged over 0.05 s");
   EXPECT_DOUBLE_EQ(p.binWidth, 0.05);
   ASSERT_EQ(p.series.size(), 3u);
   EXPECT_EQ(p.series[0].name, "offered");
   EXPECT_EQ(p.series[1].name, "allowed");
   EXPECT_EQ(p.series[2].name, "dropped");
   ASSERT_EQ(p.series[0].values.size(), 80u);
   EXPECT_DOUBLE_EQ(p.series[0].values[0], 0);     // before the traffic
   EXPECT_DOUBLE_EQ(p.series[0].values[20], 100);  // t = 1.00 to 1.05
   EXPECT_DOUBLE_EQ(p.series[1].values[20], 100);
   EXPECT_DOUBLE_EQ(p.series[2].values[20], 0);
   EXPECT_DOUBLE_EQ(p.series[1].values[50], 0);  // t = 2.50: dropped
   EXPECT_DOUBLE_EQ(p.series[2].values[50], 100);
   EXPECT_DOUBLE_EQ(p.series[0].values[70], 0);  // after the traffic
}

TEST(SimTrafficLog, TunnelFlowsSayTheyAreTunnelTraffic) {
   TrafficLog log;
   log.burstIs("Ethernet5", 5, "CoppSystemLacp", true, 0, 10).dropped = {false};
   EXPECT_EQ(log.panels(1)[0].title,
             "Ethernet5 to CPU queue 5 (CoppSystemLacp), VXLAN tunnel traffic");
}

}  // namespace
