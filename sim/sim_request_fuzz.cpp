// Feeds arbitrary request targets and fault specs to the simulator's request handling: path
// and query decoding, route matching, coordinate and query-item parsing, and every Foreca and
// storm answer. Nothing may crash; refusals are ordinary answers.

#include <chrono>
#include <cstddef>
#include <cstdint>
#include <stdexcept>
#include <string>

#include "sim/fault_plan.hpp"
#include "sim/foreca_routes.hpp"
#include "sim/sim_route.hpp"
#include "sim/storm_routes.hpp"

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
  using namespace ombrine::sim;
  static const std::vector<SimRoute> routes = [] {
    auto all = forecaRoutes(WeatherModel(7));
    for (auto& route : stormRoutes()) all.push_back(std::move(route));
    return all;
  }();
  const std::string input(reinterpret_cast<const char*>(data), size);

  try {
    (void)parseFault(input);
  } catch (const std::invalid_argument&) {
  }

  SimRequest request = requestFor(input, Instant(std::chrono::seconds(1768478400)));
  if (const SimRoute* route = matchRoute(routes, request.path, request.captures)) {
    const SimResponse response = route->answer(request);
    if (response.status == 200 && response.body.empty()) __builtin_trap();
  }
  return 0;
}
