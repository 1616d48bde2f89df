// Random histories of the simulated agent, checked against the chip after every step.
//
//   nimbal_random_histories [--seed=N] [--steps=M] [--histories=H] [--verbose]
//
// plays H histories (seeds N, N+1, ...) of M random steps each, then takes everything away.
// A failure names its seed and step and the command that plays it again.
#include <gtest/gtest.h>

#include <chrono>
#include <cstdlib>
#include <iostream>
#include <string>

#include "Kiv/Activity.h"
#include "random/HistoryRunner.h"

namespace {

struct Options {
   U64 seed = 1;
   int steps = 200;
   int histories = 1;
   bool verbose = false;
};

Options options;

// The value of --name=value, if the argument is that option.
bool option(char const* arg, std::string const& name, std::string& value) {
   std::string const prefix = "--" + name + "=";
   if (std::string(arg).rfind(prefix, 0) != 0) {
      return false;
   }
   value = std::string(arg).substr(prefix.size());
   return true;
}

TEST(RandomHistories, ChipAgreesWithTheModelAfterEveryStep) {
   Kiv::ActivityScope activity;
   auto const start = std::chrono::steady_clock::now();
   long steps = 0;
   for (int h = 0; h < options.histories; ++h) {
      U64 const seed = options.seed + static_cast<U64>(h);
      NimbalHistory::HistoryRunner runner(seed, options.steps, options.verbose);
      bool const ok = runner.run();
      steps += runner.stepsPlayed();
      ASSERT_TRUE(ok) << runner.failure();
   }
   double const seconds =
       std::chrono::duration<double>(std::chrono::steady_clock::now() - start).count();
   NimbalHistory::Coverage const& c = NimbalHistory::coverage();
   std::cout << options.histories << " histories from seed " << options.seed << ", " << steps
             << " steps checked against " << NimbalHistory::HistoryChecks::invariants().size()
             << " invariants, in " << seconds << " s\n"
             << "  traffic steps with every hit accounted for " << c.exactTraffic
             << ", tunnel traffic steps " << c.tunnelTraffic << ", packets dropped "
             << c.droppedPackets << "\n  show tables " << c.showTables << ", polls " << c.polls
             << ", verifies " << c.verifies << " (" << c.verifyDifferences
             << " differences, all expected)\n  steps with kernel keys waiting "
             << c.waitingKeySteps << ", with VXLAN entries waiting " << c.missingVxlanSteps
             << ", hits folded into software " << c.foldedHits << ", queue counter resets "
             << c.queueResets << "\n";
}

}  // namespace

int main(int argc, char** argv) {
   // The tests hold the activity lock, which a forked child could not take back.
   GTEST_FLAG_SET(death_test_style, "threadsafe");
   ::testing::InitGoogleTest(&argc, argv);
   bool const historyAsked = argc > 1;
   for (int i = 1; i < argc; ++i) {
      std::string v;
      if (option(argv[i], "seed", v)) {
         options.seed = std::stoull(v);
      } else if (option(argv[i], "steps", v)) {
         options.steps = std::stoi(v);
      } else if (option(argv[i], "histories", v)) {
         options.histories = std::stoi(v);
      } else if (std::string(argv[i]) == "--verbose") {
         options.verbose = true;
      } else {
         std::cerr << "nimbal_random_histories: unknown argument " << argv[i]
                   << "\nusage: nimbal_random_histories [--seed=N] [--steps=M] [--histories=H] "
                      "[--verbose]\n";
         return 2;
      }
   }
   // A history asked for by its seed runs alone, as the replay command prints it.
   if (historyAsked && GTEST_FLAG_GET(filter) == "*") {
      GTEST_FLAG_SET(filter, "RandomHistories.*");
   }
   // Verify differences must be reported, not fatal as in simulation runs.
   ::unsetenv("SIMULATION_VMID");
   NimbalHistory::historyAbortReportIs();
   return RUN_ALL_TESTS();
}
