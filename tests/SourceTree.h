#pragma once

// Where the tests find the source tree and the simulator program. Defined out of line, in a file
// of its own: gcc 12 at -O2 reports false bounds errors on strings joined to a literal whose
// length it knows, and the length of these paths depends on where the tree was cloned.

#include <string>

namespace SourceTree {

// The source tree's root directory.
std::string const& dir();

// `relative` (no leading slash) under the source tree.
std::string path(std::string const& relative);

// The simulator program of this build.
std::string const& simulator();

}  // namespace SourceTree
