// The simulator's rooms: what each may include of the others, and no circle of includes.

#include <gtest/gtest.h>

#include <filesystem>
#include <fstream>
#include <functional>
#include <map>
#include <regex>
#include <set>
#include <string>

#include "SourceTree.h"

namespace fs = std::filesystem;

namespace {

fs::path const hostDir = fs::path(SourceTree::path("host"));

// Each host file (relative to the repository) with the host files it includes.
std::map<std::string, std::set<std::string>> hostIncludes() {
   std::map<std::string, std::set<std::string>> out;
   std::regex const include(R"re(^\s*#\s*include\s+"(host/[^"]+)")re");
   for (auto const& entry : fs::recursive_directory_iterator(hostDir)) {
      std::string const ext = entry.path().extension().string();
      if (ext != ".h" && ext != ".cpp") {
         continue;
      }
      std::string const name = "host/" + fs::relative(entry.path(), hostDir).string();
      std::ifstream in(entry.path());
      std::set<std::string>& deps = out[name];
      for (std::string line; std::getline(in, line);) {
         std::smatch m;
         if (std::regex_search(line, m, include)) {
            deps.insert(m[1]);
         }
      }
   }
   return out;
}

std::string roomOf(std::string const& file) {
   std::size_t const slash = file.find('/', 5);
   return slash == std::string::npos ? "" : file.substr(5, slash - 5);
}

}  // namespace

TEST(HostRooms, EachRoomIncludesOnlyTheRoomsItMayUse) {
   std::map<std::string, std::set<std::string>> const allowed = {
       {"scenario", {"scenario"}},
       {"transcript", {"transcript"}},
       {"traffic", {"traffic", "scenario"}},
       {"agent", {"agent", "scenario", "transcript", "traffic"}},
       {"preflight", {"preflight", "agent", "scenario", "transcript", "traffic"}},
       {"advise", {"advise", "preflight", "agent", "scenario", "transcript", "traffic"}},
   };
   auto const includes = hostIncludes();
   ASSERT_FALSE(includes.empty());
   for (auto const& [file, deps] : includes) {
      std::string const room = roomOf(file);
      if (room.empty()) {
         continue;  // main and the command line use every room
      }
      ASSERT_TRUE(allowed.count(room)) << file << " is in a room that has no rule";
      for (std::string const& dep : deps) {
         std::string const depRoom = roomOf(dep);
         EXPECT_FALSE(depRoom.empty()) << file << " includes " << dep << " of the top";
         EXPECT_TRUE(allowed.at(room).count(depRoom)) << file << " includes " << dep;
      }
   }
}

TEST(HostRooms, NoCircleOfIncludes) {
   auto const includes = hostIncludes();
   // A file and its source count as one unit: a.h and a.cpp.
   auto unitOf = [](std::string const& f) { return fs::path(f).replace_extension().string(); };
   std::map<std::string, std::set<std::string>> graph;
   for (auto const& [file, deps] : includes) {
      for (std::string const& dep : deps) {
         if (unitOf(dep) != unitOf(file)) {
            graph[unitOf(file)].insert(unitOf(dep));
         }
      }
   }
   std::map<std::string, int> state;  // 1 on the path, 2 done
   std::function<bool(std::string const&)> circle = [&](std::string const& n) {
      state[n] = 1;
      for (std::string const& m : graph[n]) {
         if (state[m] == 1) {
            ADD_FAILURE() << n << " -> " << m << " closes a circle";
            return true;
         }
         if (state[m] == 0 && circle(m)) {
            return true;
         }
      }
      state[n] = 2;
      return false;
   };
   for (auto const& [n, deps] : graph) {
      if (state[n] == 0) {
         EXPECT_FALSE(circle(n));
      }
   }
}

TEST(HostRooms, NoFileOverFiveHundredLines) {
   for (auto const& entry : fs::recursive_directory_iterator(hostDir)) {
      std::string const ext = entry.path().extension().string();
      if (ext != ".h" && ext != ".cpp") {
         continue;
      }
      std::ifstream in(entry.path());
      std::size_t lines = 0;
      for (std::string line; std::getline(in, line);) {
         ++lines;
      }
      EXPECT_LE(lines, 500u) << entry.path();
   }
}
