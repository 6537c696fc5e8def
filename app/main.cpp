// The `ombrine` command: a thin layer over the library. Machine output goes to stdout,
// progress and errors to stderr, one line per failure. Exit codes: 0 ok, 1 failure, 2 usage,
// 3 shown from the last good data (the README's table).

#include <CLI/CLI.hpp>

#include <algorithm>
#include <cctype>
#include <cstdio>
#include <exception>
#include <iostream>
#include <optional>
#include <string>
#include <string_view>
#include <vector>

#include "app/commands.hpp"
#include "app/global_options.hpp"
#include "packaging/build_info.hpp"
#include "packaging/install_files.hpp"
#include "platform/icu_setup.hpp"
#include "platform/log.hpp"

namespace {

std::size_t editDistance(std::string_view a, std::string_view b) {
  std::vector<std::size_t> row(b.size() + 1);
  for (std::size_t j = 0; j <= b.size(); ++j) row[j] = j;
  for (std::size_t i = 1; i <= a.size(); ++i) {
    std::size_t diagonal = row[0];
    row[0] = i;
    for (std::size_t j = 1; j <= b.size(); ++j) {
      const std::size_t above = row[j];
      row[j] = std::min({row[j] + 1, row[j - 1] + 1, diagonal + (a[i - 1] == b[j - 1] ? 0 : 1)});
      diagonal = above;
    }
  }
  return row[b.size()];
}

// The global options that take a value as the next word.
bool takesValue(std::string_view word) { return word == "--services" || word == "--sim-seed" || word == "--timeout"; }

// The first word of the command line that is neither an option nor an option's value: the
// command's name, when the line names one.
std::string_view firstCommandWord(int argc, char** argv) {
  for (int i = 1; i < argc; ++i) {
    const std::string_view word = argv[i];
    if (takesValue(word)) {
      ++i;
    } else if (!word.starts_with("-")) {
      return word;
    }
  }
  return {};
}

// "--name", "--name=value" or "-x": not a negative number or coordinate given as a place.
bool looksLikeOption(std::string_view word) {
  return word.starts_with("--") ? word.size() > 2
                                : word.size() > 1 && std::isalpha(static_cast<unsigned char>(word[1]));
}

// The option `word` ("--zoom" or "--zoom=13") names on `command` or on a command above it (the
// global options are defined on the top one); nothing when none does.
const CLI::Option* optionNamed(const CLI::App& command, std::string_view word) {
  const std::string name(word.substr(0, word.find('=')));
  for (const CLI::App* at = &command; at != nullptr; at = at->get_parent()) {
    if (const CLI::Option* option = at->get_option_no_throw(name)) return option;
  }
  return nullptr;
}

// The subcommands of `command`.
std::vector<const CLI::App*> commandsOf(const CLI::App& command) {
  return command.get_subcommands([](const CLI::App*) { return true; });
}

// One line for a command line that names no command where one is due ("ombrine forecst",
// "ombrine trips forcast", "ombrine trips"), with the nearest command when one is close; nothing
// when every command word was known.
std::optional<std::string> commandWordProblem(const CLI::App& app, int argc, char** argv) {
  const CLI::App* current = &app;
  std::string path = "ombrine";
  bool inPositionals = false;  // past the command words
  for (int i = 1; i < argc; ++i) {
    const std::string_view word = argv[i];
    if (word.starts_with("-")) {
      const CLI::Option* option = optionNamed(*current, word);
      if (option == nullptr && looksLikeOption(word)) {
        const std::string name(word.substr(0, word.find('=')));
        return path + ": unknown option \"" + name + "\"; " + path + " --help lists the options";
      }
      // "--zoom 13" takes the next word; "--zoom=13" and flags do not.
      if (option != nullptr && option->get_expected_min() > 0 && word.find('=') == std::string_view::npos) ++i;
      continue;
    }
    if (inPositionals) continue;
    const auto commands = commandsOf(*current);
    if (commands.empty()) {  // a positional argument of a command
      inPositionals = true;
      continue;
    }
    const bool takesPositional =
        !current->get_options([](const CLI::Option* option) { return option->get_positional(); }).empty();
    const auto named = std::find_if(commands.begin(), commands.end(),
                                    [&](const CLI::App* command) { return command->check_name(std::string(word)); });
    if (named != commands.end()) {
      current = *named;
      path += " " + current->get_name();
      continue;
    }
    std::string nearest;
    std::size_t best = 3;  // farther than two edits is no longer a typo
    for (const CLI::App* command : commands) {
      const std::size_t distance = editDistance(word, command->get_name());
      if (distance < best) best = distance, nearest = command->get_name();
    }
    // A command that also takes a place ("ombrine radar Munich") reads any other word as it.
    if (takesPositional && nearest.empty()) {
      inPositionals = true;
      continue;
    }
    std::string line = path + ": unknown command \"" + std::string(word) + "\"";
    if (!nearest.empty()) line += " (did you mean " + nearest + "?)";
    return line + "; " + path + " --help lists the commands";
  }
  if (inPositionals || commandsOf(*current).empty() || current->get_require_subcommand_min() == 0) return std::nullopt;
  return path + ": name a command; " + path + " --help lists them";
}

}  // namespace

int main(int argc, char** argv) {
  ombrine::useShippedTimeZoneData();
  CLI::App app{"ombrine: forecasts, warnings and more for any place on earth", "ombrine"};
  app.require_subcommand(1);
  // Global options may follow the command as well: `ombrine forecast Munich --services sim`.
  // Subcommands inherit this when they are added.
  app.fallthrough();
  app.set_version_flag("--version", [] { return ombrine::packaging::versionText(); });
  // The build writes the man pages, shell completions and unit templates from these definitions:
  // `ombrine --write-install-files FOLDER` (not a user command, so not in --help).
  const bool writingInstallFiles = argc == 3 && std::string_view(argv[1]) == "--write-install-files";
  if (argc == 2 && std::string_view(argv[1]) == "--version") {
    ombrine::app::addGlobalOptions(app);  // prints the version before any command is asked for
  } else {
    ombrine::app::addCommands(app, writingInstallFiles ? std::string_view() : firstCommandWord(argc, argv));
  }
  if (writingInstallFiles) {
    try {
      ombrine::packaging::writeInstallFiles(app, argv[2]);
      return 0;
    } catch (const std::exception& e) {
      ombrine::logf("ombrine: {}", e.what());
      return 1;
    }
  }
  try {
    app.parse(argc, argv);
  } catch (const CLI::ParseError& e) {
    if (e.get_exit_code() == 0) return app.exit(e);  // --help, --version
    if (const auto problem = commandWordProblem(app, argc, argv)) {
      ombrine::logLine(*problem);
    } else {
      ombrine::logf("ombrine: {}; see --help", e.what());
    }
    return 2;
  } catch (const std::exception& e) {
    ombrine::logf("ombrine: {}", e.what());
    return 1;
  }
  return ombrine::app::exitCode();
}
