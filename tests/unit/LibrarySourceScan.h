#pragma once

// Reads the library's own sources, so that tests can list its SDK call sites and assertion
// sites and find their lines, as the messages that name them print them.

#include <functional>
#include <string>
#include <vector>

namespace SourceScan {

// One use of a macro or function: where it is and what it was given.
struct Use {
   std::string file;  // repo-relative, "NimbalQos/NimbalQosCoppVxlan.cpp"
   std::string name;
   int line = 0;                   // of the name: what __LINE__ gives for the use
   int lastLine = 0;               // of the closing parenthesis
   std::vector<std::string> args;  // as written, comments removed
};

// A macro defined in the library's sources, with its body.
struct Define {
   std::string file;
   std::string name;
   std::string body;
};

// The library's source files, repo-relative, in name order.
std::vector<std::string> libraryFiles();

// Uses of the given names in the library's sources, in file order then line order. Uses inside
// preprocessor directives (the macros' own definitions) are not uses.
std::vector<Use> uses(std::vector<std::string> const& names);
std::vector<Use> usesIf(std::function<bool(std::string const&)> const& wanted);
std::vector<Define> defines();

// An argument as the preprocessor's # makes it: runs of blanks outside literals become one
// blank.
std::string stringized(std::string const& arg);
// The text of an argument made only of string literals, "" and false when it is not one.
bool literalText(std::string const& arg, std::string& text);

// The lines of a use as a regular expression: "(12|13)".
std::string linesPattern(Use const& use);
// `text` with the characters that regular expressions treat specially escaped.
std::string regexQuoted(std::string const& text);

}  // namespace SourceScan
