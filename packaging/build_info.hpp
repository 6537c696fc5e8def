#pragma once
// What `ombrine --version` says about this build and this run: the version, the forecast
// services built in, the desktop notification path, whether the browser page is installed, and
// the resource folder in use with the rule that chose it (platform/paths.hpp).
//
// Reads the environment and the file system at the moment of the call; raises nothing.

#include <string>

namespace ombrine::packaging {

// "0.1.0": the project version the build was configured with.
std::string_view version() noexcept;

// Several lines, the first "ombrine VERSION", without a final newline.
std::string versionText();

}  // namespace ombrine::packaging
