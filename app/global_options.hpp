#pragma once
// Options that stand before the subcommand (`ombrine --services sim forecast ...`).

#include <CLI/CLI.hpp>

#include <string>

#include "wiring/services.hpp"

namespace ombrine::app {

struct GlobalOptions {
  // "sim" starts the embedded simulator; "real" (default) uses the public services, or the
  // simulator named by OMBRINE_SERVICES.
  std::string services = "real";
  std::uint64_t simulatorSeed = 0;
};

GlobalOptions& globalOptions();
void addGlobalOptions(CLI::App& app);

// The services for a command, as the global options ask.
ServicesOptions servicesOptions();

}  // namespace ombrine::app
