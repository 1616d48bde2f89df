#pragma once

// One run of the simulator program from the source tree, as an operator runs it: exit status,
// standard output and standard error.

#include <gtest/gtest.h>
#include <sys/wait.h>

#include <cstdio>
#include <cstdlib>
#include <fstream>
#include <sstream>
#include <string>

#include "SourceTree.h"

namespace SimProgram {

struct ProgramRun {
   bool exited = false;
   int code = -1;
   std::string out;
   std::string err;
};

inline std::string slurp(std::string const& path) {
   std::ifstream in(path);
   std::ostringstream text;
   text << in.rdbuf();
   return text.str();
}

// `environment` goes before the program on the command line (NAME=value ...).
inline ProgramRun run(std::string const& args, std::string const& environment = "") {
   // Tests may run side by side: each writes files of its own name.
   std::string const base = ::testing::TempDir() + "sim-program-" +
                            ::testing::UnitTest::GetInstance()->current_test_suite()->name() + "-" +
                            ::testing::UnitTest::GetInstance()->current_test_info()->name();
   std::string const out = base + ".out";
   std::string const err = base + ".err";
   std::string const command = "cd '" + SourceTree::dir() + "' && " + environment + " '" +
                               SourceTree::simulator() + "' " + args + " >'" + out + "' 2>'" + err +
                               "'";
   int const status = std::system(command.c_str());
   ProgramRun r;
   r.exited = WIFEXITED(status);
   r.code = r.exited ? WEXITSTATUS(status) : -1;
   r.out = slurp(out);
   r.err = slurp(err);
   std::remove(out.c_str());
   std::remove(err.c_str());
   return r;
}

}  // namespace SimProgram
