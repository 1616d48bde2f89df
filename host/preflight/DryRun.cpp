// The parent's side of a dry run: the child, its pipe and what it wrote.

#include "host/preflight/DryRun.h"

#include <fcntl.h>
#include <sys/wait.h>
#include <unistd.h>

#include <cstdio>
#include <cstdlib>
#include <sstream>

namespace NimbalHost {

std::string shortageText(Shortage s) {
   switch (s) {
      case Shortage::coppEntry:
         return "no egress CoPP entry left";
      case Shortage::coppMeter:
         return "no egress CoPP meter left";
      case Shortage::debugAlwaysFalse:
         return "createCoppPolicerAlwaysFalse is set";
      case Shortage::vxlanPool:
         return "the pool of 512 VXLAN source-port entries is full";
      case Shortage::defaultEntry:
         return "no default-and-VXLAN entry left";
      case Shortage::defaultMeter:
         return "no default-and-VXLAN meter left";
      case Shortage::vxlanDefaultFirst:
         return "a VXLAN default entry is missing, and source-port entries wait for it";
      case Shortage::dynamicCpuQueue:
         return "no dynamic CPU queue is free";
   }
   return "";
}

namespace {

std::vector<std::string> fieldsOf(std::string const& line) {
   std::vector<std::string> out;
   std::size_t from = 0;
   for (;;) {
      std::size_t const tab = line.find('\t', from);
      out.push_back(line.substr(from, tab - from));
      if (tab == std::string::npos) {
         return out;
      }
      from = tab + 1;
   }
}

U32 u32(std::string const& s) {
   return static_cast<U32>(std::strtoul(s.c_str(), nullptr, 10));
}

int int_(std::string const& s) {
   return static_cast<int>(std::strtol(s.c_str(), nullptr, 10));
}

std::string readAll(int fd) {
   std::string out;
   char buf[1 << 16];
   for (;;) {
      ssize_t const n = ::read(fd, buf, sizeof buf);
      if (n > 0) {
         out.append(buf, static_cast<std::size_t>(n));
      } else if (n == 0 || errno != EINTR) {
         return out;
      }
   }
}

// The last line that is not empty; of a failed assertion, without the C library's file, line
// and function before it.
std::string lastLine(std::string const& text) {
   std::istringstream in(text);
   std::string last;
   for (std::string line; std::getline(in, line);) {
      if (!line.empty()) {
         last = line;
      }
   }
   std::size_t const assertion = last.find(": Assertion `");
   if (assertion != std::string::npos) {
      last = last.substr(assertion + 2);
   }
   return last;
}

}  // namespace

DryRun dryRun(Scenario const& scenario, bool roomForAll) {
   int pipeFds[2];
   if (::pipe(pipeFds) != 0) {
      throw std::runtime_error("cannot make a pipe for the dry run");
   }
   // What the child writes to standard error: its last line is why it stopped.
   std::FILE* errFile = std::tmpfile();
   if (!errFile) {
      throw std::runtime_error("cannot make a file for the dry run's messages");
   }
   std::fflush(stdout);
   std::fflush(stderr);
   ::pid_t const pid = ::fork();
   if (pid < 0) {
      throw std::runtime_error("cannot start the dry run");
   }
   if (pid == 0) {
      ::close(pipeFds[0]);
      ::dup2(::fileno(errFile), STDERR_FILENO);
      int const devNull = ::open("/dev/null", O_WRONLY);
      if (devNull >= 0) {
         ::dup2(devNull, STDOUT_FILENO);
      }
      playDry(scenario, roomForAll, pipeFds[1]);
      ::_exit(0);
   }
   ::close(pipeFds[1]);
   std::string const text = readAll(pipeFds[0]);
   ::close(pipeFds[0]);
   int status = 0;
   while (::waitpid(pid, &status, 0) < 0 && errno == EINTR) {
   }

   DryRun run;
   bool ended = false;
   int step = 0;
   std::map<std::string, std::size_t> open;
   std::istringstream in(text);
   for (std::string line; std::getline(in, line);) {
      std::vector<std::string> const f = fieldsOf(line);
      std::string const& kind = f[0];
      if (kind == "step") {
         step = int_(f[1]);
      } else if (kind == "log") {
         (f[1] == "full" ? run.resourceFullLogs : run.resourceNormalLogs) += 1;
      } else if (kind == "snapshot") {
         Snapshot s;
         s.step = int_(f[1]);
         s.vxlanPool = {u32(f[3]), u32(f[2])};
         s.dynamicCpuQueues = {u32(f[5]), u32(f[4])};
         s.dynamicClasses = u32(f[6]);
         run.snapshots.push_back(s);
      } else if (kind == "unit" && !run.snapshots.empty()) {
         UnitUse& u = run.snapshots.back().units[static_cast<U16>(u32(f[1]))];
         u.coppEntries = {u32(f[2]), u32(f[3])};
         u.coppMeters = {u32(f[4]), u32(f[5])};
         u.defaultEntries = {u32(f[6]), u32(f[7])};
         u.defaultMeters = {u32(f[8]), u32(f[9])};
         u.portDefaults = u32(f[10]);
         u.vxlanDefaults = u32(f[11]);
         u.vxlanSourcePort = u32(f[12]);
         u.waitingKeys = u32(f[13]);
      } else if (kind == "open") {
         // open ID WHAT INTERFACE HASKEY MODID PORT QUEUE QUEUENAME CMAP REASON STEP TIME
         Shortfall s;
         s.what = static_cast<Shortfall::What>(int_(f[2]));
         s.interface = f[3];
         if (f[4] == "1") {
            s.key = CoppKey(u32(f[5]), u32(f[6]), u32(f[7]));
         }
         s.queueName = f[8];
         s.cmapName = f[9] == "-" ? "" : f[9];
         s.reason = static_cast<Shortage>(int_(f[10]));
         s.fromStep = int_(f[11]);
         s.fromTime = std::strtod(f[12].c_str(), nullptr);
         open[f[1]] = run.shortfalls.size();
         run.shortfalls.push_back(s);
      } else if (kind == "close") {
         auto it = open.find(f[1]);
         if (it != open.end()) {
            Shortfall& s = run.shortfalls[it->second];
            s.toStep = int_(f[2]);
            s.toTime = std::strtod(f[3].c_str(), nullptr);
            s.programmed = f[4] == "1";
            open.erase(it);
         }
      } else if (kind == "injected") {
         int const failStep = int_(f[1]);
         int const hit = int_(f[2]);
         if (hit == 0) {
            run.injected.push_back({failStep, std::nullopt});
         } else {
            for (InjectedFailure& i : run.injected) {
               if (i.step == failStep) {
                  i.hitStep = hit;
               }
            }
         }
      } else if (kind == "error") {
         std::fclose(errFile);
         throw ScenarioError(f[1]);
      } else if (kind == "end") {
         ended = true;
      }
   }
   if (!ended) {
      std::rewind(errFile);
      std::string err;
      char buf[4096];
      while (std::size_t n = std::fread(buf, 1, sizeof buf, errFile)) {
         err.append(buf, n);
      }
      run.stopStep = step;
      run.stopReason = lastLine(err);
      if (run.stopReason.empty()) {
         run.stopReason = WIFSIGNALED(status)
                              ? "ended by signal " + std::to_string(WTERMSIG(status))
                              : "ended with status " + std::to_string(WEXITSTATUS(status));
      }
   }
   std::fclose(errFile);
   return run;
}

}  // namespace NimbalHost
