#pragma once
// The installed documentation of the `ombrine` command, written from the same CLI11 definitions
// that answer --help, so the two never drift: one man page per command (section 1) and the
// completion scripts of bash, zsh and fish.
//
// A command or option in the empty group is hidden and appears nowhere. Options of a command
// reach its subcommands when the command falls through (as the program's global options do).
// Plain functions of a fully built `CLI::App`; they only read it.

#include <CLI/CLI.hpp>

#include <filesystem>
#include <string>
#include <vector>

namespace ombrine::packaging {

struct ManPage {
  std::string fileName;  // "ombrine.1", "ombrine-trips-forecast.1"
  std::string text;      // roff (man macros)
};

// One page for `program` and one for every visible command below it. `version` goes in the
// page footer.
std::vector<ManPage> manPages(const CLI::App& program, const std::string& version);

std::string bashCompletion(const CLI::App& program);
std::string zshCompletion(const CLI::App& program);
std::string fishCompletion(const CLI::App& program);

// Writes the pages to folder/man/man1/ and the completions to folder/bash-completion/ombrine,
// folder/zsh/_ombrine and folder/fish/ombrine.fish. Raises std::filesystem::filesystem_error.
void writeCommandDocs(const CLI::App& program, const std::string& version, const std::filesystem::path& folder);

}  // namespace ombrine::packaging
