#pragma once
// Registration of the `ombrine` subcommands. Each command runs from its CLI11 callback and
// records the process exit code; failures print one clear line on stderr.

#include <CLI/CLI.hpp>

#include <string>
#include <string_view>

namespace ombrine::app {

// Adds the global options and the commands. With `only` naming a command, that one alone: a run
// defines only what it parses (defining all of them costs about 2 M instructions, a tenth of a
// short run). Empty or unknown, all of them (help, the nearest command to a typo, the manuals).
void addCommands(CLI::App& app, std::string_view only = {});

// Accepts a number greater than 0 and says so plainly otherwise (CLI::PositiveNumber's message
// spells out the largest double).
CLI::Validator positiveNumber();

// Accepts a number from `low` to `high` and says so plainly otherwise ("must be a number from 1
// to 2000"; CLI::Range prints its bounds with six decimals).
CLI::Validator numberBetween(double low, double high);

// The exit codes every command follows (the README's table).
inline constexpr int kExitOk = 0;
inline constexpr int kExitFailure = 1;
inline constexpr int kExitUsage = 2;
inline constexpr int kExitShownFromLastGood = 3;  // the fetch failed; older stored data is shown

// "1 minute", "5 minutes".
std::string countOf(long count, const char* one, const char* many);

// Colour and other escape codes on `fd`: only on a terminal, not with TERM=dumb, and not with
// NO_COLOR set to a non-empty value.
bool colourWanted(int fd) noexcept;

// 0 ok, 1 failure, 2 usage, 3 shown from the last good data.
int exitCode();
void setExitCode(int code);

}  // namespace ombrine::app
