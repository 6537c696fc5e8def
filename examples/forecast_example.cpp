// A program of its own built on the Ombrine library: finds a place by name and prints its
// current weather and the next days, as the library fetched them.
//
//   clang++-16 forecast_example.cpp $(pkg-config --cflags --libs ombrine) -o forecast_example
//   OMBRINE_SERVICES=http://127.0.0.1:PORT ./forecast_example Munich
//
// Requests go to the public services (with the keys of ~/.config/ombrine), or to a simulator
// named by OMBRINE_SERVICES (`ombrine-sim` prints its address). The place index and time-zone
// data are read from the installed share/ombrine, or from OMBRINE_RESOURCE_DIR. Build it with
// the compiler the library was built with (clang++-16): g++ mangles some of the Asio templates
// the library compiles once differently, and the link fails.
// Exit codes: 0 ok, 1 failure, 2 usage.

#include <cstdio>
#include <exception>
#include <optional>
#include <utility>

#include "core/fetch/geocoder.hpp"
#include "platform/icu_setup.hpp"
#include "wiring/geocode_namer.hpp"
#include "wiring/services.hpp"

int main(int argc, char** argv) {
  if (argc != 2) {
    std::fprintf(stderr, "usage: forecast_example PLACE\n");
    return 2;
  }
  ombrine::useShippedTimeZoneData();  // before the first time-zone calculation
  try {
    ombrine::Services services(ombrine::ServicesOptions{});
    const auto matches = services.geocoder().search(argv[1], 1);
    if (matches.empty()) {
      std::fprintf(stderr, "forecast_example: no place named \"%s\"\n", argv[1]);
      return 1;
    }
    const ombrine::PlaceMatch& place = matches.front();
    const ombrine::GeoDetails details = services.namer().detailsOf(place.coordinate);
    // The provider is the user's preferred one for the place's region; no tides.
    auto fetching =
        services.network().fetchOneCall(place.coordinate, details.region, details.timeZone, std::nullopt, false);
    const ombrine::OneCallWeather weather = services.runtime().runBlocking(std::move(fetching));

    const auto& now = weather.current;
    std::printf("%s (%s): %.1f °C, %s, wind %.0f km/h\n", place.name.c_str(), details.timeZone.identifier().c_str(),
                now.temp.inCelsius(), now.weather.empty() ? "-" : now.weather.front().description.c_str(),
                now.windSpeed.inKilometersPerHour());
    for (const auto& day : weather.daily) {
      std::printf("  %.0f to %.0f °C, %.0f%% chance of precipitation\n", day.temp.min.inCelsius(),
                  day.temp.max.inCelsius(), day.pop * 100);
    }
    return 0;
  } catch (const std::exception& e) {
    std::fprintf(stderr, "forecast_example: %s\n", e.what());
    return 1;
  }
}
