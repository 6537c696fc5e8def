#include "app/global_options.hpp"

namespace ombrine::app {

GlobalOptions& globalOptions() {
  static GlobalOptions options;
  return options;
}

void addGlobalOptions(CLI::App& app) {
  app.add_option("--services", globalOptions().services,
                 "Where requests go: 'real' services (or OMBRINE_SERVICES), or 'sim' for the built-in "
                 "simulator (offline, no keys)")
      ->check(CLI::IsMember({"real", "sim"}));
  app.add_option("--sim-seed", globalOptions().simulatorSeed, "Seed of the simulator's synthetic weather");
}

ServicesOptions servicesOptions() {
  ServicesOptions options;
  options.embeddedSimulator = globalOptions().services == "sim";
  options.simulatorSeed = globalOptions().simulatorSeed;
  return options;
}

}  // namespace ombrine::app
