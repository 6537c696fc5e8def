#include "threats/place_threats.hpp"

#include <gtest/gtest.h>

namespace ombrine {
namespace {

StormTrack stormAt(double latitude, double longitude, std::vector<std::vector<KMLCoordinate>> cone = {},
                   std::vector<KMLCoordinate> forecast = {}) {
  StormTrack track;
  track.storm.id = "al052026";
  track.storm.coordinate = {latitude, longitude};
  track.title = "Lee";
  track.overlay.cone = std::move(cone);
  for (const auto& point : forecast) {
    KMLCircleFeature feature;
    feature.coordinate = point;
    track.overlay.forecastPoints.push_back(feature);
  }
  return track;
}

TEST(PlaceThreats, StormDistanceThroughConeTrackAndDateLine) {
  const Location miami(25.76, -80.19);
  struct Case {
    const char* name;
    Location place;
    StormTrack storm;
    double kilometres;
    double bearing;
  };
  const Case cases[] = {
      // Centre only: 1° of latitude due south.
      {"centre", miami, stormAt(24.76, -80.19), 110.6, 180},
      // The place sits inside the cone: 0 km, whatever the centre's distance.
      {"inside cone", miami, stormAt(20, -70, {{{20, -85}, {30, -85}, {30, -75}, {20, -75}}}), 0, 0},
      // The forecast track passes 1° east of the place between two far points.
      {"track between points", miami, stormAt(15, -79.19, {}, {{15, -79.19}, {35, -79.19}}), 100.4, 90},
      // Across the date line: a storm at 179.5°W lies 1° east of a place at 179.5°E.
      {"date line", Location(0, 179.5), stormAt(0, -179.5), 111.3, 90},
  };
  for (const auto& c : cases) {
    const NearestPoint nearest = nearestStormPoint(c.place, c.storm);
    EXPECT_NEAR(nearest.distanceKilometres, c.kilometres, 1.0) << c.name;
    EXPECT_NEAR(nearest.bearingDegrees, c.bearing, 1.0) << c.name;
  }
}

TEST(PlaceThreats, WindowsOfStormsWarningsAndRain) {
  const Date now = Date::fromUnix(1'800'000'000);
  OneCallWeather weather;
  weather.current.dt = now - 600;
  auto alert = [](std::string event, Date start, std::optional<Date> end) {
    OneCallWeather::Alert made;
    made.senderName = "NWS";
    made.event = std::move(event);
    made.start = start;
    made.end = end;
    return made;
  };
  weather.alerts =
      std::vector{alert("Heat Advisory", now - 7200, now - 1), alert("Flood Warning", now - 60, now + 3600),
                  alert("Wind Advisory", now + 7200, std::nullopt)};
  // Dry minutes, then rain in the hourly rows: the first wet likely hour, not an earlier unlikely one.
  auto minute = [](Date at, double rate) {
    OneCallWeather::Minutely made;
    made.dt = at;
    made.precipitation = Precipitation::millimeters(rate);
    return made;
  };
  weather.minutely = std::vector{minute(now + 60, 0), minute(now + 120, 0.05)};
  OneCallWeather::Hourly unlikely, likely, beyond;
  unlikely.dt = now + 3600;
  unlikely.pop = 0.3;
  unlikely.rain = OneCallWeather::Rain{Precipitation::millimeters(1)};
  likely.dt = now + 3 * 3600;
  likely.pop = 0.8;
  likely.rain = OneCallWeather::Rain{Precipitation::millimeters(2)};
  beyond = likely;
  beyond.dt = now + 13 * 3600;
  weather.hourly = {unlikely, likely};

  ThreatInputs inputs;
  inputs.place = Location(25.76, -80.19);
  inputs.now = now;
  inputs.radiusKilometres = 300;
  inputs.weather = &weather;
  inputs.storms = {stormAt(24.76, -80.19), stormAt(10, -40)};  // 110 km and far beyond 300 km
  const auto threats = assessThreats(inputs);
  std::vector<std::string> kinds;
  for (const auto& threat : threats) kinds.push_back(threat.kind + ":" + threat.title);
  EXPECT_EQ(kinds,
            (std::vector<std::string>{"storm:Lee", "warning:Flood Warning", "warning:Wind Advisory", "rain:Rain"}));
  EXPECT_NE(threats[2].detail.find("starts in 2 h"), std::string::npos) << threats[2].detail;
  EXPECT_NE(threats[3].detail.find("in 3 h"), std::string::npos) << threats[3].detail;
  EXPECT_NEAR(*threats[3].dataAgeSeconds, 600, 1e-6);

  weather.hourly = {beyond};  // more than 12 hours away: no rain threat
  weather.minutely.reset();
  EXPECT_EQ(assessThreats(inputs).back().kind, "warning");
}

}  // namespace
}  // namespace ombrine
