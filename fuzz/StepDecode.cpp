// nimbal-fuzz-steps-decode: writes the scenario that a step fuzzer input decodes to, so that a
// crash can be replayed and read with nimbal-copp-sim.

#include <cstdio>
#include <fstream>
#include <iterator>
#include <nlohmann/json.hpp>
#include <string>
#include <vector>

#include "fuzz/StepScenario.h"

int main(int argc, char** argv) {
   if (argc != 2) {
      std::fprintf(stderr, "usage: nimbal-fuzz-steps-decode INPUT > SCENARIO.json\n");
      return 2;
   }
   std::ifstream in(argv[1], std::ios::binary);
   if (!in) {
      std::fprintf(stderr, "nimbal-fuzz-steps-decode: cannot read %s\n", argv[1]);
      return 1;
   }
   std::vector<unsigned char> const bytes((std::istreambuf_iterator<char>(in)),
                                          std::istreambuf_iterator<char>());
   std::string const text = NimbalFuzz::stepScenarioText(bytes.data(), bytes.size());
   std::printf("%s\n", nlohmann::ordered_json::parse(text).dump(2).c_str());
   return 0;
}
