#include "host/transcript/SvgPlot.h"

#include <algorithm>
#include <cmath>
#include <cstdio>
#include <sstream>

namespace NimbalHost {

namespace {

constexpr double chartWidth = 960;
constexpr double panelHeight = 300;
constexpr double titleHeight = 50;
constexpr double noteLineHeight = 16;
constexpr std::size_t noteLineLength = 130;
constexpr double marginLeft = 80;
constexpr double marginRight = 150;  // room for the legend
constexpr double marginTop = 50;     // panel title and subtitle
constexpr double marginBottom = 55;  // tick labels and axis title

std::string num(double v) {
   char buf[32];
   std::snprintf(buf, sizeof buf, "%.2f", v);
   std::string s = buf;
   // Trailing zeros only make the file bigger.
   while (!s.empty() && s.back() == '0') {
      s.pop_back();
   }
   if (!s.empty() && s.back() == '.') {
      s.pop_back();
   }
   return s == "-0" ? "0" : s;
}

std::string dashAttribute(std::string const& dash) {
   return dash.empty() ? "" : " stroke-dasharray=\"" + dash + "\"";
}

}  // namespace

std::vector<std::string> wrapped(std::string const& text, std::size_t width) {
   std::vector<std::string> out;
   std::string current;
   std::size_t start = 0;
   while (start < text.size()) {
      std::size_t end = text.find(' ', start);
      if (end == std::string::npos) {
         end = text.size();
      }
      std::string const word = text.substr(start, end - start);
      if (!current.empty() && current.size() + 1 + word.size() > width) {
         out.push_back(current);
         current.clear();
      }
      if (!word.empty()) {
         current += (current.empty() ? "" : " ") + word;
      }
      start = end + 1;
   }
   if (!current.empty()) {
      out.push_back(current);
   }
   return out;
}

std::vector<double> axisTicks(double top, int wanted) {
   if (!(top > 0) || wanted < 1) {
      return {0, 1};
   }
   double const raw = top / wanted;
   double const power = std::pow(10.0, std::floor(std::log10(raw)));
   double step = power;
   for (double m : {1.0, 2.0, 5.0, 10.0}) {
      if (m * power >= raw * 0.999) {
         step = m * power;
         break;
      }
   }
   std::vector<double> ticks;
   for (int i = 0;; ++i) {
      double const t = i * step;
      ticks.push_back(t);
      if (t >= top * 0.9999) {
         break;
      }
   }
   return ticks;
}

std::string tickLabel(double value) {
   if (std::fabs(value - std::round(value)) < 1e-9) {
      char buf[32];
      std::snprintf(buf, sizeof buf, "%.0f", value);
      return buf;
   }
   char buf[32];
   std::snprintf(buf, sizeof buf, "%.3f", value);
   std::string s = buf;
   while (s.back() == '0') {
      s.pop_back();
   }
   return s;
}

std::string xmlText(std::string const& text) {
   std::string out;
   for (char c : text) {
      switch (c) {
         case '&':
            out += "&amp;";
            break;
         case '<':
            out += "&lt;";
            break;
         case '>':
            out += "&gt;";
            break;
         case '"':
            out += "&quot;";
            break;
         default:
            out += c;
      }
   }
   return out;
}

std::string svgChart(std::string const& title, std::string const& note,
                     std::vector<PlotPanel> const& panels, double timeEnd) {
   std::size_t const count = std::max<std::size_t>(panels.size(), 1);
   std::vector<std::string> const noteLines = wrapped(note, noteLineLength);
   double const head = titleHeight + noteLineHeight * static_cast<double>(noteLines.size());
   double const height = head + panelHeight * static_cast<double>(count);
   std::ostringstream os;
   os << "<?xml version=\"1.0\" encoding=\"UTF-8\"?>\n"
      << "<svg xmlns=\"http://www.w3.org/2000/svg\" width=\"" << num(chartWidth) << "\" height=\""
      << num(height) << "\" viewBox=\"0 0 " << num(chartWidth) << " " << num(height)
      << "\" font-family=\"sans-serif\" font-size=\"12\">\n"
      << "<rect width=\"100%\" height=\"100%\" fill=\"white\"/>\n"
      << "<text x=\"" << num(chartWidth / 2) << "\" y=\"30\" text-anchor=\"middle\" "
      << "font-size=\"18\" font-weight=\"bold\">" << xmlText(title) << "</text>\n";
   for (std::size_t i = 0; i < noteLines.size(); ++i) {
      os << "<text x=\"" << num(chartWidth / 2) << "\" y=\""
         << num(titleHeight + noteLineHeight * static_cast<double>(i))
         << "\" text-anchor=\"middle\" fill=\"#555\">" << xmlText(noteLines[i]) << "</text>\n";
   }
   if (panels.empty()) {
      os << "<text x=\"" << num(chartWidth / 2) << "\" y=\"" << num(head + panelHeight / 2)
         << "\" text-anchor=\"middle\" fill=\"#555\">No traffic was sent in this "
            "scenario.</text>\n";
   }

   double const xEnd = timeEnd > 0 ? timeEnd : 1.0;
   std::vector<double> const xTicks = axisTicks(xEnd, 8);
   double const xTop = xTicks.back();
   double const plotW = chartWidth - marginLeft - marginRight;
   double const plotH = panelHeight - marginTop - marginBottom;

   for (std::size_t p = 0; p < panels.size(); ++p) {
      PlotPanel const& panel = panels[p];
      double const top = head + panelHeight * static_cast<double>(p);
      double const y0 = top + marginTop;  // top of the plot area
      double const x0 = marginLeft;
      double yMax = 0;
      for (auto const& s : panel.series) {
         for (double v : s.values) {
            yMax = std::max(yMax, v);
         }
      }
      std::vector<double> const yTicks = axisTicks(yMax > 0 ? yMax * 1.05 : 1.0, 5);
      double const yTop = yTicks.back();
      auto xPos = [&](double t) { return x0 + plotW * t / xTop; };
      auto yPos = [&](double v) { return y0 + plotH - plotH * v / yTop; };

      os << "<g>\n"
         << "<text x=\"" << num(x0) << "\" y=\"" << num(top + 20)
         << "\" font-size=\"14\" font-weight=\"bold\">" << xmlText(panel.title) << "</text>\n"
         << "<text x=\"" << num(x0) << "\" y=\"" << num(top + 38) << "\" fill=\"#555\">"
         << xmlText(panel.subtitle) << "</text>\n";
      // Grid and ticks.
      for (double t : yTicks) {
         os << "<line x1=\"" << num(x0) << "\" y1=\"" << num(yPos(t)) << "\" x2=\""
            << num(x0 + plotW) << "\" y2=\"" << num(yPos(t))
            << "\" stroke=\"#e0e0e0\"/>\n<line x1=\"" << num(x0 - 5) << "\" y1=\"" << num(yPos(t))
            << "\" x2=\"" << num(x0) << "\" y2=\"" << num(yPos(t)) << "\" stroke=\"black\"/>\n"
            << "<text x=\"" << num(x0 - 8) << "\" y=\"" << num(yPos(t) + 4)
            << "\" text-anchor=\"end\">" << tickLabel(t) << "</text>\n";
      }
      for (double t : xTicks) {
         os << "<line x1=\"" << num(xPos(t)) << "\" y1=\"" << num(y0 + plotH) << "\" x2=\""
            << num(xPos(t)) << "\" y2=\"" << num(y0 + plotH + 5) << "\" stroke=\"black\"/>\n"
            << "<text x=\"" << num(xPos(t)) << "\" y=\"" << num(y0 + plotH + 19)
            << "\" text-anchor=\"middle\">" << tickLabel(t) << "</text>\n";
      }
      // Axes and their titles.
      os << "<line x1=\"" << num(x0) << "\" y1=\"" << num(y0) << "\" x2=\"" << num(x0) << "\" y2=\""
         << num(y0 + plotH) << "\" stroke=\"black\"/>\n"
         << "<line x1=\"" << num(x0) << "\" y1=\"" << num(y0 + plotH) << "\" x2=\""
         << num(x0 + plotW) << "\" y2=\"" << num(y0 + plotH) << "\" stroke=\"black\"/>\n"
         << "<text x=\"" << num(x0 + plotW / 2) << "\" y=\"" << num(y0 + plotH + 40)
         << "\" text-anchor=\"middle\">virtual time (s)</text>\n"
         << "<text transform=\"translate(" << num(x0 - 55) << "," << num(y0 + plotH / 2)
         << ") rotate(-90)\" text-anchor=\"middle\">packets per second</text>\n";
      // The lines: a step per bin, so that a rate reads as the level it held.
      for (auto const& s : panel.series) {
         os << "<polyline fill=\"none\" stroke=\"" << s.color << "\" stroke-width=\""
            << num(s.width) << "\"" << dashAttribute(s.dash)
            << " stroke-linejoin=\"round\" points=\"";
         for (std::size_t i = 0; i < s.values.size(); ++i) {
            double const a = std::min(xTop, panel.binWidth * static_cast<double>(i));
            double const b = std::min(xTop, panel.binWidth * static_cast<double>(i + 1));
            os << (i ? " " : "") << num(xPos(a)) << "," << num(yPos(s.values[i])) << " "
               << num(xPos(b)) << "," << num(yPos(s.values[i]));
         }
         os << "\"/>\n";
      }
      // Legend.
      for (std::size_t i = 0; i < panel.series.size(); ++i) {
         double const ly = y0 + 10 + 20 * static_cast<double>(i);
         double const lx = x0 + plotW + 20;
         os << "<line x1=\"" << num(lx) << "\" y1=\"" << num(ly) << "\" x2=\"" << num(lx + 25)
            << "\" y2=\"" << num(ly) << "\" stroke=\"" << panel.series[i].color
            << "\" stroke-width=\"3\"" << dashAttribute(panel.series[i].dash) << "/>\n<text x=\""
            << num(lx + 32) << "\" y=\"" << num(ly + 4) << "\">" << xmlText(panel.series[i].name)
            << "</text>\n";
      }
      os << "</g>\n";
   }
   os << "</svg>\n";
   return os.str();
}

}  // namespace NimbalHost
