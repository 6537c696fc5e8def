// `ombrine-sim`: the service simulator as a program. Prints its base URL on stdout once it
// listens, logs one line per request on stderr, and runs until SIGINT or SIGTERM.
// Exit codes: 0 after a signal, 1 when it cannot listen, 2 for bad usage.

#include <CLI/CLI.hpp>

#include <csignal>
#include <cstdio>
#include <fstream>
#include <iostream>
#include <optional>
#include <sstream>
#include <string>
#include <vector>

#include "platform/log.hpp"
#include "sim/pinned_clock.hpp"
#include "sim/sim_server.hpp"

int main(int argc, char** argv) {
  CLI::App app{"ombrine-sim: the outside weather services, simulated on 127.0.0.1", "ombrine-sim"};
  int port = 0;
  std::uint64_t seed = 0;
  std::vector<std::string> faults;
  std::string now;
  bool quiet = false;
  app.add_option("--port", port, "TCP port on 127.0.0.1 (0 picks a free one)")->check(CLI::Range(0, 65535));
  app.add_option("--seed", seed, "selects the synthetic weather (same seed, same answers)");
  app.add_option("--fault", faults,
                 "ROUTE=SPEC, e.g. foreca.hourly=status=503,times=2 or *=latency=50; SPEC items: latency=MS, "
                 "status=CODE, retry-after=S, hang=MS, truncate, error200, malformed, behind=S, times=K");
  app.add_option("--now", now, "pin the simulated present, e.g. 2026-01-15T12:00:00Z");
  app.add_flag("--quiet", quiet, "do not log requests");
  std::vector<std::string> weatherKitKeys;
  app.add_option("--weatherkit-public-key", weatherKitKeys,
                 "a PEM public key whose system weather developer tokens are accepted (repeatable)")
      ->check(CLI::ExistingFile);
  try {
    app.parse(argc, argv);
  } catch (const CLI::ParseError& e) {
    return app.exit(e) == 0 ? 0 : 2;
  }

  std::optional<ombrine::sim::PinnedClock> pinned;
  if (!now.empty()) {
    const auto instant = ombrine::sim::parseUtc(now);
    if (!instant) {
      ombrine::logf("ombrine-sim: --now needs yyyy-MM-ddTHH:mm:ssZ, got \"{}\"", now);
      return 2;
    }
    pinned.emplace(*instant);
  }

  // Block the stop signals before any thread starts, so every thread inherits the mask and
  // sigwait below is the only receiver.
  sigset_t stopSignals;
  sigemptyset(&stopSignals);
  sigaddset(&stopSignals, SIGINT);
  sigaddset(&stopSignals, SIGTERM);
  pthread_sigmask(SIG_BLOCK, &stopSignals, nullptr);

  try {
    ombrine::sim::SimServer server(ombrine::sim::SimServer::Options{
        .port = static_cast<std::uint16_t>(port),
        .seed = seed,
        .clock = pinned ? &*pinned : nullptr,
        .logRequests = !quiet,
    });
    try {
      for (const auto& fault : faults) server.setFault(fault);
    } catch (const std::invalid_argument& e) {
      ombrine::logf("ombrine-sim: {}", e.what());
      return 2;
    }
    for (const auto& file : weatherKitKeys) {
      std::ifstream in(file);
      std::stringstream pem;
      pem << in.rdbuf();
      server.trustWeatherKitKey(pem.str());
    }
    std::cout << server.baseUrl() << std::endl;
    int received = 0;
    sigwait(&stopSignals, &received);
    server.stop();
  } catch (const std::exception& e) {
    ombrine::logf("ombrine-sim: {}", e.what());
    return 1;
  }
  return 0;
}
