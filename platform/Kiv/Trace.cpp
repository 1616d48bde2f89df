#include "Kiv/Trace.h"

#include <cstdio>
#include <cstdlib>
#include <map>
#include <memory>

namespace Kiv {

namespace {

struct TraceRegistry {
   std::vector<std::unique_ptr<TraceHandle>> handles;
   std::map<std::string, int> levels;
   TraceSink sink;
   bool envRead = false;
};

TraceRegistry& registry() {
   static TraceRegistry* r = new TraceRegistry();  // lives past static destructors
   return *r;
}

void applyConfig(TraceRegistry& r, std::string const& config) {
   std::size_t pos = 0;
   while (pos <= config.size()) {
      std::size_t comma = config.find(',', pos);
      std::string item =
          config.substr(pos, comma == std::string::npos ? std::string::npos : comma - pos);
      std::size_t colon = item.rfind(':');
      if (!item.empty()) {
         std::string name = colon == std::string::npos ? item : item.substr(0, colon);
         int level = colon == std::string::npos ? 9 : std::atoi(item.c_str() + colon + 1);
         r.levels[name] = level;
         for (auto& h : r.handles) {
            if (h->name() == name) {
               h->levelIs(level);
            }
         }
      }
      if (comma == std::string::npos) {
         break;
      }
      pos = comma + 1;
   }
}

void readEnvironment(TraceRegistry& r) {
   if (r.envRead) {
      return;
   }
   r.envRead = true;
   if (char const* env = std::getenv("KIV_TRACE")) {
      applyConfig(r, env);
   }
}

}  // namespace

TraceHandle::TraceHandle(std::string name) : name_(std::move(name)) {}

void TraceHandle::emit(int level, std::string const& line) const {
   auto& r = registry();
   if (r.sink) {
      r.sink(name_, level, line);
      return;
   }
   std::fprintf(stderr, "%s[%d] %s\n", name_.c_str(), level, line.c_str());
}

TraceHandle& traceHandle(std::string const& name) {
   auto& r = registry();
   readEnvironment(r);
   for (auto& h : r.handles) {
      if (h->name() == name) {
         return *h;
      }
   }
   r.handles.push_back(std::make_unique<TraceHandle>(name));
   auto it = r.levels.find(name);
   if (it != r.levels.end()) {
      r.handles.back()->levelIs(it->second);
   }
   return *r.handles.back();
}

bool traceHandleDel(std::string const& name) {
   auto& handles = registry().handles;
   for (auto it = handles.begin(); it != handles.end(); ++it) {
      if ((*it)->name() == name) {
         handles.erase(it);
         return true;
      }
   }
   return false;
}

std::vector<std::string> traceHandleNames() {
   std::vector<std::string> out;
   for (auto& h : registry().handles) {
      out.push_back(h->name());
   }
   return out;
}

void traceConfigIs(std::string const& config) {
   auto& r = registry();
   readEnvironment(r);
   applyConfig(r, config);
}

void traceSinkIs(TraceSink sink) {
   registry().sink = std::move(sink);
}

}  // namespace Kiv
