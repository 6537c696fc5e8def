#pragma once
// Options that stand before the subcommand (`ombrine --services sim forecast ...`), and the
// services of a command run as they ask.

#include <CLI/CLI.hpp>

#include <memory>
#include <string>

#include "wiring/services.hpp"

namespace ombrine {
namespace sim {
class SimServer;
}
}  // namespace ombrine

namespace ombrine::app {

struct GlobalOptions {
  // "sim" starts the embedded simulator; "real" (default) uses the public services, or the
  // simulator named by OMBRINE_SERVICES (a URL, or "sim" for the embedded one).
  std::string services = "real";
  bool servicesGiven = false;  // --services was on the command line
  std::uint64_t simulatorSeed = 0;
  // --timeout: how long a command waits for the services at most; 0 = the requests' own limits.
  double timeoutSeconds = 0;
};

GlobalOptions& globalOptions();
void addGlobalOptions(CLI::App& app);

// The composition root of one command run, with the embedded simulator in front of it when the
// global options ask for one (OMBRINE_SIM_FAULTS="ROUTE=SPEC;..." sets its faults). The
// simulator outlives the services that talk to it.
class ProgramServices {
 public:
  // Starts the embedded simulator for `--services sim`, and for OMBRINE_SERVICES=sim unless
  // `--services real` was given. Raises what Services raises, and std::invalid_argument for
  // malformed simulator faults.
  explicit ProgramServices(ServicesOptions options = {});
  ~ProgramServices();
  ProgramServices(const ProgramServices&) = delete;
  ProgramServices& operator=(const ProgramServices&) = delete;

  Services& operator*() noexcept { return *services_; }
  Services* operator->() noexcept { return services_.get(); }

 private:
  std::unique_ptr<sim::SimServer> simulator_;
  std::unique_ptr<Services> services_;
};

}  // namespace ombrine::app
