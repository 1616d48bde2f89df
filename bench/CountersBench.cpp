// B3 and B5: the two counter tables with a row for every programmed key, and the agent's counter
// poll of many classes.

#include <benchmark/benchmark.h>
#include <fcntl.h>
#include <unistd.h>

#include <cstdio>
#include <sstream>
#include <string>
#include <vector>

#include "Kiv/Activity.h"
#include "bench/BenchSwitch.h"
#include "host/agent/QosClassConfig.h"

// The C library's checked dprintf, which the show commands write every line with.
extern "C" int __dprintf_chk(int fd, int flag, char const* format, ...)
    __attribute__((format(printf, 3, 4)));

namespace {

using namespace NimbalBench;

// Every key sees a packet, so that both tables have a row for it.
void onePacketPerKey(Agent& a) {
   double t = 1.0;
   for (KeyRate const& k : startUpKeys(*a.sw)) {
      U32 const unit = a.sw->unitOfModule(static_cast<U16>(k.key.modId()));
      a.sw->pktDrv()->sendToCpu(unit, k.key.port(), k.key.queue(), 0, t);
      t += 1e-6;
   }
}

// The line writes of a table, as the show commands make them: for each line its format and the
// values it prints, read back from the table the library wrote.
struct TableLine {
   char const* format = nullptr;
   std::string intf;
   std::string queue;
   long long first = 0;
   long long second = 0;
   bool literal = false;  // a header or trailer: the format is the line
};

std::string trimmed(std::string const& s) {
   std::size_t const end = s.find_last_not_of(' ');
   return end == std::string::npos ? std::string() : s.substr(0, end + 1);
}

std::string tableText(Kiv::Ptr<Nimbal::QosAclHelperV1> const& helper, bool hardware) {
   std::FILE* file = std::tmpfile();
   int const fd = ::fileno(file);
   if (hardware) {
      helper->showCoppIntfCountersHw(static_cast<U32>(fd));
   } else {
      helper->showCoppIntfCountersSw(static_cast<U32>(fd));
   }
   std::string text;
   char buf[65536];
   ::off_t offset = 0;
   for (::ssize_t n; (n = ::pread(fd, buf, sizeof buf, offset)) > 0; offset += n) {
      text.append(buf, static_cast<std::size_t>(n));
   }
   std::fclose(file);
   return text;
}

std::vector<TableLine> tableLines(std::string const& text, bool hardware) {
   std::vector<TableLine> lines;
   std::size_t start = 0;
   std::size_t row = 0;
   while (start < text.size()) {
      std::size_t const end = text.find('\n', start);
      std::string const line = text.substr(start, end - start);
      start = end + 1;
      TableLine l;
      if (hardware && (row < 2 || line.empty())) {
         // The two header lines; the trailer is one write of two newlines.
         l.literal = true;
         l.format = row == 0   ? "Interface              Queue           Hits\n"
                    : row == 1 ? "----------------------------------------------------\n"
                               : "\n\n";
         lines.push_back(l);
         ++row;
         if (line.empty()) {
            break;
         }
         continue;
      }
      if (!hardware && row == 0) {
         l.format = "%-15s %-26s %15s %15s\n";
         l.intf = "Interface";
         l.queue = "Queue";
         l.literal = false;
         lines.push_back(l);
         ++row;
         continue;
      }
      // The interface column, then blank-separated words: a long queue name widens its column.
      l.intf = trimmed(line.substr(0, 15));
      std::istringstream words(line.substr(16));
      words >> l.queue >> l.first;
      if (hardware) {
         l.format = line.back() == ' ' ? "%-15s %-20s %15lld \n" : "%-15s %-20s %15lld\n";
      } else {
         words >> l.second;
         l.format = "%-15s %-26s %15lld %15lld\n";
      }
      lines.push_back(l);
      ++row;
   }
   return lines;
}

// The same line writes with nothing around them: the checked dprintf, flag 1, to the descriptor.
void bareTable(int fd, std::vector<TableLine> const& lines, bool hardware) {
   for (TableLine const& l : lines) {
      if (l.literal) {
         __dprintf_chk(fd, 1, l.format, "");
      } else if (hardware) {
         __dprintf_chk(fd, 1, l.format, l.intf.c_str(), l.queue.c_str(), l.first);
      } else if (&l == &lines.front()) {
         __dprintf_chk(fd, 1, l.format, "Interface", "Queue", "Dropped", "Allowed");
      } else {
         __dprintf_chk(fd, 1, l.format, l.intf.c_str(), l.queue.c_str(), l.first, l.second);
      }
   }
}

template <bool hardware, bool bare>
void showTable(benchmark::State& state) {
   Kiv::ActivityScope activity;
   warmHeap();
   Agent a(scaleSwitch(static_cast<int>(state.range(0))));
   a.boot();
   onePacketPerKey(a);
   int const devNull = ::open("/dev/null", O_WRONLY);
   auto const helper = a.sw->helper();
   std::vector<TableLine> const lines = tableLines(tableText(helper, hardware), hardware);
   for (auto _ : state) {
      if (bare) {
         bareTable(devNull, lines, hardware);
      } else if (hardware) {
         helper->showCoppIntfCountersHw(static_cast<U32>(devNull));
      } else {
         helper->showCoppIntfCountersSw(static_cast<U32>(devNull));
      }
   }
   ::close(devNull);
   state.counters["rows"] = static_cast<double>(a.reactor->programmed().size());
   state.counters["lines"] = static_cast<double>(lines.size());
}

void B3_ShowHw(benchmark::State& state) {
   showTable<true, false>(state);
}
void B3_ShowHwBare(benchmark::State& state) {
   showTable<true, true>(state);
}
void B3_ShowSw(benchmark::State& state) {
   showTable<false, false>(state);
}
void B3_ShowSwBare(benchmark::State& state) {
   showTable<false, true>(state);
}
BENCHMARK(B3_ShowHw)->Arg(1)->Arg(4)->Iterations(5)->Unit(benchmark::kMillisecond);
BENCHMARK(B3_ShowHwBare)->Arg(1)->Arg(4)->Iterations(5)->Unit(benchmark::kMillisecond);
BENCHMARK(B3_ShowSw)->Arg(1)->Arg(4)->Iterations(5)->Unit(benchmark::kMillisecond);
BENCHMARK(B3_ShowSwBare)->Arg(1)->Arg(4)->Iterations(5)->Unit(benchmark::kMillisecond);

// 125 interfaces with eight policed classes each.
void B5_Poll(benchmark::State& state) {
   Kiv::ActivityScope activity;
   warmHeap();
   Agent a(scaleSwitch(1, 125));
   a.boot();
   NimbalHost::QosClassConfig classes(*a.sw);
   for (int p = 1; p <= 125; ++p) {
      for (int c = 1; c <= 8; ++c) {
         classes.police("Ethernet" + std::to_string(p), "copp-bench-" + std::to_string(c), 100, 10);
      }
   }
   onePacketPerKey(a);
   auto const helper = a.sw->helper();
   for (auto _ : state) {
      for (auto const& [intfClass, policed] : classes.all()) {
         benchmark::DoNotOptimize(helper->counterUpdateRequest(policed.classData, Oskel::AclKey()));
      }
   }
   state.counters["classes"] = static_cast<double>(classes.all().size());
}
BENCHMARK(B5_Poll)->Unit(benchmark::kMillisecond);

}  // namespace
