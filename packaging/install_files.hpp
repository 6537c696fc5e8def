#pragma once
// Everything an install needs that the program itself writes, into one folder of the build:
// the man pages and completions (command_docs.hpp) and the systemd user unit templates under
// systemd/, the same units `ombrine daemon install` writes but running "@OMBRINE_PROGRAM@"
// (the install rules put the installed program's path there).
//
// Raises std::filesystem::filesystem_error and FileError.

#include <CLI/CLI.hpp>

#include <filesystem>

namespace ombrine::packaging {

void writeInstallFiles(const CLI::App& program, const std::filesystem::path& folder);

}  // namespace ombrine::packaging
