#pragma once

// Line charts as SVG: one panel per traffic flow, each with its axes, ticks, legend and title,
// stacked in one document that a browser shows as it is.

#include <string>
#include <vector>

namespace NimbalHost {

// One line of a panel: a value per bin of time.
struct PlotSeries {
   std::string name;
   std::string color;  // an SVG colour, e.g. "#2ca02c"
   std::vector<double> values;
   double width = 1.5;
   std::string dash;  // an SVG dash array, e.g. "5,3"; empty for a solid line
};

struct PlotPanel {
   std::string title;
   std::string subtitle;
   double binWidth = 1.0;  // seconds; bin i covers [i * binWidth, (i + 1) * binWidth)
   std::vector<PlotSeries> series;
};

// Tick positions for an axis from 0 to `top`: multiples of 1, 2 or 5 times a power of ten,
// about `wanted` of them, the last one at or above `top`.
std::vector<double> axisTicks(double top, int wanted);
// A tick label: whole numbers without decimals, others with as few as they need.
std::string tickLabel(double value);
// Text broken at blanks into lines of at most `width` characters (longer words stand alone).
std::vector<std::string> wrapped(std::string const& text, std::size_t width);
// Escapes text for XML.
std::string xmlText(std::string const& text);

// The document: a title and a note under it, then the panels one below the other over the time
// 0 to `timeEnd`.
std::string svgChart(std::string const& title, std::string const& note,
                     std::vector<PlotPanel> const& panels, double timeEnd);

}  // namespace NimbalHost
