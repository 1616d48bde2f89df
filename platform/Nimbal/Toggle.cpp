#include "Nimbal/Toggle.h"

#include <cctype>
#include <cstdlib>
#include <fstream>
#include <sstream>

namespace Nimbal {

namespace {

// Reads `"name": true|false` at the top level of a flat JSON object.
bool flagInJson(std::string const& text, std::string const& name) {
   std::string quoted = "\"" + name + "\"";
   std::size_t pos = 0;
   while ((pos = text.find(quoted, pos)) != std::string::npos) {
      std::size_t p = pos + quoted.size();
      while (p < text.size() && std::isspace(static_cast<unsigned char>(text[p]))) {
         ++p;
      }
      if (p < text.size() && text[p] == ':') {
         ++p;
         while (p < text.size() && std::isspace(static_cast<unsigned char>(text[p]))) {
            ++p;
         }
         return text.compare(p, 4, "true") == 0;
      }
      pos = p;
   }
   return false;
}

}  // namespace

bool getToggleState(std::string const& name, std::string const& file, bool defaultFromFile) {
   (void)defaultFromFile;  // toggles are read from the file only here
   char const* dir = std::getenv(toggleDirEnv);
   if (!dir || !*dir) {
      return false;
   }
   std::ifstream in(std::string(dir) + "/" + file);
   if (!in) {
      return false;
   }
   std::ostringstream text;
   text << in.rdbuf();
   return flagInJson(text.str(), name);
}

}  // namespace Nimbal
