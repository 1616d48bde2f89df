#pragma once

#include <string>

namespace Nimbal {

// Environment variable naming the directory of the agent's toggle files.
inline constexpr char toggleDirEnv[] = "NIMBAL_TOGGLE_DIR";

// Whether the feature toggle `name` of the JSON toggle file `file` is on. The file lives in the
// directory named by NIMBAL_TOGGLE_DIR; a missing directory, file or toggle reads as off.
bool getToggleState(std::string const& name, std::string const& file, bool defaultFromFile);

}  // namespace Nimbal
