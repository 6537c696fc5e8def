// The `ombrine` command: a thin layer over the library. Machine output goes to stdout,
// progress and errors to stderr. Exit codes: 0 ok, 1 failure, 2 usage.

#include <CLI/CLI.hpp>

#include <cstdio>
#include <exception>

#include "app/commands.hpp"
#include "platform/icu_setup.hpp"
#include "platform/log.hpp"

int main(int argc, char** argv) {
  ombrine::useShippedTimeZoneData();
  CLI::App app{"ombrine: forecasts, warnings and more for any place on earth", "ombrine"};
  app.require_subcommand(1);
  app.set_version_flag("--version", "ombrine 0.1.0");
  ombrine::app::addCommands(app);
  try {
    app.parse(argc, argv);
  } catch (const CLI::ParseError& e) {
    return app.exit(e) == 0 ? 0 : 2;
  } catch (const std::exception& e) {
    ombrine::logf("ombrine: {}", e.what());
    return 1;
  }
  return ombrine::app::exitCode();
}
