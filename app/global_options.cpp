#include "app/global_options.hpp"

#include <cstdlib>
#include <string_view>

#include "app/commands.hpp"
#include "sim/sim_server.hpp"

namespace ombrine::app {

namespace {

void applySimulatorFaults(sim::SimServer& simulator) {
  const char* faults = std::getenv("OMBRINE_SIM_FAULTS");
  if (!faults) return;
  std::string_view rest(faults);
  while (!rest.empty()) {
    const auto end = rest.find(';');
    const auto fault = rest.substr(0, end);
    if (!fault.empty()) simulator.setFault(fault);
    rest = end == std::string_view::npos ? std::string_view() : rest.substr(end + 1);
  }
}

}  // namespace

GlobalOptions& globalOptions() {
  static GlobalOptions options;
  return options;
}

void addGlobalOptions(CLI::App& app) {
  app.add_option_function<std::string>(
         "--services",
         [](const std::string& value) {
           globalOptions().services = value;
           globalOptions().servicesGiven = true;
         },
         "Where requests go: 'real' services (or OMBRINE_SERVICES: 'sim' or a simulator's URL), or "
         "'sim' for the built-in simulator (offline, no keys)")
      ->check(CLI::IsMember({"real", "sim"}));
  app.add_option("--sim-seed", globalOptions().simulatorSeed, "Seed of the simulator's synthetic weather");
  app.add_option("--timeout", globalOptions().timeoutSeconds,
                 "Give up waiting for the services after SECONDS (forecast; default: each request's own limit)")
      ->type_name("SECONDS")
      ->check(positiveNumber());
}

// `--services sim`, or OMBRINE_SERVICES=sim when the command line does not say otherwise.
bool embeddedSimulatorWanted() {
  if (globalOptions().services == "sim") return true;
  const char* environment = std::getenv("OMBRINE_SERVICES");
  return !globalOptions().servicesGiven && environment && std::string_view(environment) == "sim";
}

ProgramServices::ProgramServices(ServicesOptions options) {
  if (embeddedSimulatorWanted()) {
    sim::SimServer::Options simOptions;
    simOptions.seed = globalOptions().simulatorSeed;
    simulator_ = std::make_unique<sim::SimServer>(simOptions);
    applySimulatorFaults(*simulator_);
    options.endpoints = ServiceEndpoints::simulator(simulator_->baseUrl());
  }
  services_ = std::make_unique<Services>(std::move(options));
  if (simulator_ && services_->simulatorWeatherKitPublicKey()) {
    simulator_->trustWeatherKitKey(*services_->simulatorWeatherKitPublicKey());
  }
}

ProgramServices::~ProgramServices() {
  services_.reset();
  simulator_.reset();
}

}  // namespace ombrine::app
