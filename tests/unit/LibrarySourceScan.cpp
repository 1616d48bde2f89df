#include "unit/LibrarySourceScan.h"

#include <algorithm>
#include <cctype>
#include <filesystem>
#include <fstream>
#include <sstream>
#include <stdexcept>

#include "SourceTree.h"

namespace SourceScan {

namespace {

std::string const libraryDir = "NimbalQos";

std::string fileText(std::string const& file) {
   std::ifstream in(SourceTree::path(file));
   if (!in) {
      throw std::runtime_error("cannot read " + file);
   }
   std::ostringstream os;
   os << in.rdbuf();
   return os.str();
}

bool identChar(char c) {
   return std::isalnum(static_cast<unsigned char>(c)) || c == '_';
}

// Skips a string or character literal that starts at `i`; returns the index after it.
std::size_t literalEnd(std::string const& s, std::size_t i) {
   char const quote = s[i];
   for (++i; i < s.size() && s[i] != quote; ++i) {
      if (s[i] == '\\') {
         ++i;
      }
   }
   return std::min(i + 1, s.size());
}

// The source with comments blanked out (newlines kept, so lines still count), and for every
// character whether it belongs to a preprocessor directive.
struct Cleaned {
   std::string text;
   std::vector<bool> directive;
};

Cleaned cleaned(std::string const& s) {
   Cleaned c{s, std::vector<bool>(s.size(), false)};
   std::string& t = c.text;
   for (std::size_t i = 0; i < t.size();) {
      if (t[i] == '"' || t[i] == '\'') {
         i = literalEnd(t, i);
      } else if (t.compare(i, 2, "//") == 0) {
         for (; i < t.size() && t[i] != '\n'; ++i) {
            t[i] = ' ';
         }
      } else if (t.compare(i, 2, "/*") == 0) {
         std::size_t const end = t.find("*/", i + 2);
         std::size_t const stop = end == std::string::npos ? t.size() : end + 2;
         for (; i < stop; ++i) {
            if (t[i] != '\n') {
               t[i] = ' ';
            }
         }
      } else {
         ++i;
      }
   }
   bool lineStart = true;
   for (std::size_t i = 0; i < t.size(); ++i) {
      if (lineStart) {
         std::size_t j = i;
         while (j < t.size() && (t[j] == ' ' || t[j] == '\t')) {
            ++j;
         }
         if (j < t.size() && t[j] == '#') {
            // The directive runs to the first line end that is not escaped.
            std::size_t k = j;
            while (k < t.size() && !(t[k] == '\n' && t[k - 1] != '\\')) {
               ++k;
            }
            std::fill(c.directive.begin() + static_cast<long>(i),
                      c.directive.begin() + static_cast<long>(std::min(k, t.size())), true);
         }
      }
      lineStart = t[i] == '\n';
   }
   return c;
}

int lineAt(std::string const& s, std::size_t pos) {
   return 1 + static_cast<int>(std::count(s.begin(), s.begin() + static_cast<long>(pos), '\n'));
}

// The arguments of the parenthesised list that opens at `open`, split at top-level commas;
// `close` is set to the closing parenthesis.
std::vector<std::string> argumentsAt(std::string const& s, std::size_t open, std::size_t& close) {
   std::vector<std::string> args;
   std::string current;
   int depth = 0;
   for (std::size_t i = open; i < s.size(); ++i) {
      char const ch = s[i];
      if (ch == '"' || ch == '\'') {
         std::size_t const end = literalEnd(s, i);
         current += s.substr(i, end - i);
         i = end - 1;
         continue;
      }
      if (ch == '(' || ch == '[' || ch == '{') {
         if (depth++ == 0) {
            continue;
         }
      } else if (ch == ')' || ch == ']' || ch == '}') {
         if (--depth == 0) {
            close = i;
            args.push_back(current);
            return args;
         }
      } else if (ch == ',' && depth == 1) {
         args.push_back(current);
         current.clear();
         continue;
      }
      current += ch;
   }
   throw std::runtime_error("unbalanced parentheses");
}

std::string trimmed(std::string const& s) {
   std::size_t const b = s.find_first_not_of(" \t\n\\");
   if (b == std::string::npos) {
      return "";
   }
   std::size_t const e = s.find_last_not_of(" \t\n\\");
   return s.substr(b, e - b + 1);
}

}  // namespace

std::vector<std::string> libraryFiles() {
   std::vector<std::string> files;
   for (auto const& entry : std::filesystem::directory_iterator(SourceTree::path(libraryDir))) {
      std::string const ext = entry.path().extension().string();
      if (ext == ".cpp" || ext == ".h") {
         files.push_back(libraryDir + "/" + entry.path().filename().string());
      }
   }
   std::sort(files.begin(), files.end());
   return files;
}

std::vector<Use> uses(std::vector<std::string> const& names) {
   return usesIf([&names](std::string const& name) {
      return std::find(names.begin(), names.end(), name) != names.end();
   });
}

std::vector<Use> usesIf(std::function<bool(std::string const&)> const& wanted) {
   std::vector<Use> out;
   for (std::string const& file : libraryFiles()) {
      Cleaned const c = cleaned(fileText(file));
      std::string const& t = c.text;
      for (std::size_t i = 0; i < t.size(); ++i) {
         if (t[i] == '"' || t[i] == '\'') {
            i = literalEnd(t, i) - 1;
            continue;
         }
         if (!identChar(t[i]) || (i > 0 && identChar(t[i - 1]))) {
            continue;
         }
         std::size_t end = i;
         while (end < t.size() && identChar(t[end])) {
            ++end;
         }
         std::string const word = t.substr(i, end - i);
         std::size_t open = end;
         while (open < t.size() && std::isspace(static_cast<unsigned char>(t[open]))) {
            ++open;
         }
         if (!wanted(word) || c.directive[i] || open >= t.size() || t[open] != '(') {
            i = end - 1;
            continue;
         }
         Use use;
         use.file = file;
         use.name = word;
         use.line = lineAt(t, i);
         std::size_t close = open;
         for (std::string const& a : argumentsAt(t, open, close)) {
            use.args.push_back(trimmed(a));
         }
         use.lastLine = lineAt(t, close);
         out.push_back(use);
         i = end - 1;
      }
   }
   return out;
}

std::vector<Define> defines() {
   std::vector<Define> out;
   for (std::string const& file : libraryFiles()) {
      Cleaned const c = cleaned(fileText(file));
      std::istringstream lines(c.text);
      std::string line;
      std::string pending;
      while (std::getline(lines, line)) {
         if (!pending.empty() || trimmed(line).rfind("#define", 0) == 0) {
            pending += line + "\n";
            if (!line.empty() && line.back() == '\\') {
               continue;
            }
            std::string const rest = trimmed(pending).substr(std::string("#define").size());
            std::size_t const b = rest.find_first_not_of(' ');
            std::size_t e = b;
            while (e < rest.size() && identChar(rest[e])) {
               ++e;
            }
            out.push_back({file, rest.substr(b, e - b), rest.substr(e)});
            pending.clear();
         }
      }
   }
   return out;
}

std::string stringized(std::string const& arg) {
   std::string out;
   bool blank = false;
   for (std::size_t i = 0; i < arg.size(); ++i) {
      char const ch = arg[i];
      if (ch == '"' || ch == '\'') {
         if (blank && !out.empty()) {
            out += ' ';
         }
         blank = false;
         std::size_t const end = literalEnd(arg, i);
         out += arg.substr(i, end - i);
         i = end - 1;
      } else if (std::isspace(static_cast<unsigned char>(ch))) {
         blank = true;
      } else {
         if (blank && !out.empty()) {
            out += ' ';
         }
         blank = false;
         out += ch;
      }
   }
   return out;
}

bool literalText(std::string const& arg, std::string& text) {
   text.clear();
   std::string const a = trimmed(arg);
   if (a.empty() || a[0] != '"') {
      return false;
   }
   for (std::size_t i = 0; i < a.size();) {
      if (std::isspace(static_cast<unsigned char>(a[i]))) {
         ++i;
         continue;
      }
      if (a[i] != '"') {
         text.clear();
         return false;
      }
      std::size_t const end = literalEnd(a, i);
      for (std::size_t k = i + 1; k + 1 < end; ++k) {
         if (a[k] == '\\' && k + 2 < end) {
            ++k;
         }
         text += a[k];
      }
      i = end;
   }
   return true;
}

std::string linesPattern(Use const& use) {
   std::string out = "(";
   for (int l = use.line; l <= use.lastLine; ++l) {
      out += (l == use.line ? "" : "|") + std::to_string(l);
   }
   return out + ")";
}

std::string regexQuoted(std::string const& text) {
   std::string out;
   for (char const ch : text) {
      if (std::string(".[]{}()\\*+?^$|").find(ch) != std::string::npos) {
         out += '\\';
      }
      out += ch;
   }
   return out;
}

}  // namespace SourceScan
