#include "sim/weather_model.hpp"

#include <gtest/gtest.h>

#include <algorithm>
#include <cmath>
#include <set>

namespace ombrine::sim {
namespace {

using namespace std::chrono;

Instant at(const char* text) { return *parseUtc(text); }

const GeoPoint kHelsinki{60.17, 24.94};

TEST(WeatherModelTest, SameInputsSameWeatherAndTheSeedMatters) {
  const WeatherModel model(42), again(42), other(43);
  int differences = 0;
  for (int h = 0; h < 48; ++h) {
    const Instant t = at("2026-01-15T00:00:00Z") + hours(h);
    EXPECT_EQ(model.sample(kHelsinki, t), again.sample(kHelsinki, t));
    if (!(model.sample(kHelsinki, t) == other.sample(kHelsinki, t))) ++differences;
  }
  EXPECT_GT(differences, 40);
  EXPECT_EQ(model.warnings(kHelsinki, at("2026-01-15T00:00:00Z")),
            again.warnings(kHelsinki, at("2026-01-15T00:00:00Z")));
}

// Invariants that hold for every place and time, checked over a grid including the poles, the
// date line and (0, 0), through a year.
TEST(WeatherModelTest, SamplesAreConsistentEverywhere) {
  const WeatherModel model(7);
  const GeoPoint points[] = {{0, 0},   {90, 0},        {-90, 0},    {60.17, 24.94}, {-33.9, 151.2}, {78.2, 15.6},
                             {25, 45}, {64.8, -147.7}, {0, 179.99}, {0, -179.99},   {-54.8, -68.3}};
  for (const GeoPoint& p : points) {
    for (int step = 0; step < 365 * 4; step += 7) {
      const Instant t = at("2026-01-01T00:00:00Z") + hours(step * 6 + 1);
      const WeatherSample s = model.sample(p, t);
      SCOPED_TRACE(testing::Message() << p.latitude << "," << p.longitude << " step " << step);
      ASSERT_GE(s.temperature, -75.0);
      ASSERT_LE(s.temperature, 55.0);
      ASSERT_LE(s.dewPoint, s.temperature);
      ASSERT_GE(s.relHumidity, 1);
      ASSERT_LE(s.relHumidity, 100);
      ASSERT_GE(s.cloudiness, 0);
      ASSERT_LE(s.cloudiness, 100);
      ASSERT_GE(s.windSpeed, 0.0);
      ASSERT_GE(s.windGust, s.windSpeed);
      ASSERT_GE(s.windDirection, 0);
      ASSERT_LT(s.windDirection, 360);
      ASSERT_GT(s.pressure, 940.0);
      ASSERT_LT(s.pressure, 1065.0);
      ASSERT_GE(s.precipRate, 0.0);
      ASSERT_GT(s.visibility, 0.0);
      ASSERT_GE(s.uvIndex, 0.0);
      ASSERT_LE(s.uvIndex, 13.0);
      if (s.sunElevation <= 0.0) ASSERT_EQ(s.uvIndex, 0.0);
      if (s.precipKind == PrecipKind::snow) ASSERT_LE(s.temperature, 0.5);
      if (s.precipKind == PrecipKind::rain) ASSERT_GE(s.temperature, 2.0);
      if (s.fog) ASSERT_EQ(s.precipRate, 0.0);
    }
  }
}

TEST(WeatherModelTest, FrontsBringPressureDipsAndRainSpells) {
  const WeatherModel model(3);
  const GeoPoint p{52, 5};
  double lowest = 2000.0, highest = 0.0;
  int wetHours = 0, snowyHours = 0;
  const int hoursInSpan = 24 * 90;
  for (int h = 0; h < hoursInSpan; ++h) {
    const WeatherSample s = model.sample(p, at("2026-01-01T00:00:00Z") + hours(h));
    lowest = std::min(lowest, s.pressure);
    highest = std::max(highest, s.pressure);
    if (s.precipRate > 0.0) ++wetHours;
    if (s.precipRate > 0.0 && s.precipKind == PrecipKind::snow) ++snowyHours;
  }
  EXPECT_GT(highest - lowest, 15.0);
  EXPECT_GT(wetHours, hoursInSpan / 30);
  EXPECT_LT(wetHours, hoursInSpan / 2);
  EXPECT_GT(snowyHours, 0);  // a northern winter brings some snow
}

TEST(WeatherModelTest, ContinuousAcrossTheDateLine) {
  const WeatherModel model(11);
  for (int h = 0; h < 200; h += 7) {
    const Instant t = at("2026-03-01T00:00:00Z") + hours(h);
    const WeatherSample east = model.sample({-40, 179.99}, t), west = model.sample({-40, -179.99}, t);
    EXPECT_NEAR(east.temperature, west.temperature, 0.3);
    EXPECT_NEAR(east.pressure, west.pressure, 0.5);
  }
}

TEST(WeatherModelTest, SunEventsByLatitudeAndSeason) {
  struct Row {
    const char* name;
    GeoPoint point;
    const char* day;
    std::optional<const char*> rise;  // local time window centre "HH:MM", nothing when absent
    std::optional<const char*> set;
  };
  // Local times at the simulator's longitude offset (Helsinki +02:00), within 20 minutes.
  const Row rows[] = {
      {"Helsinki midsummer", kHelsinki, "2026-06-21", "02:55", "21:50"},
      {"Helsinki midwinter", kHelsinki, "2026-12-21", "09:24", "15:13"},
      {"equator equinox", {0, 0}, "2026-03-20", "06:05", "18:10"},
      {"Longyearbyen polar night", {78.2, 15.6}, "2026-12-21", std::nullopt, std::nullopt},
      {"Longyearbyen midnight sun", {78.2, 15.6}, "2026-06-21", std::nullopt, std::nullopt},
      {"South Pole summer", {-90, 0}, "2026-12-21", std::nullopt, std::nullopt},
      {"McMurdo winter", {-77.8, 166.7}, "2026-06-21", std::nullopt, std::nullopt},
  };
  auto minutesOf = [](const char* hhmm) {
    return std::stoi(std::string(hhmm, 2)) * 60 + std::stoi(std::string(hhmm + 3, 2));
  };
  for (const auto& row : rows) {
    SCOPED_TRACE(row.name);
    const auto day = floor<days>(*parseUtc((std::string(row.day) + "T00:00:00Z").c_str()));
    const auto offset = longitudeUtcOffset(row.point.longitude);
    const SunEvents events = WeatherModel::sunEvents(row.point, day, offset);
    const Instant midnight = startOfLocalDay(day, offset);
    ASSERT_EQ(events.sunrise.has_value(), row.rise.has_value());
    ASSERT_EQ(events.sunset.has_value(), row.set.has_value());
    if (row.rise) EXPECT_NEAR(duration_cast<minutes>(*events.sunrise - midnight).count(), minutesOf(*row.rise), 20);
    if (row.set) EXPECT_NEAR(duration_cast<minutes>(*events.sunset - midnight).count(), minutesOf(*row.set), 20);
    if (row.rise) {
      EXPECT_NEAR(WeatherModel::sunElevation(row.point, *events.sunrise), -0.833, 0.5);
    }
  }
}

TEST(WeatherModelTest, WarningsComeAndGoByCellAndDay) {
  const WeatherModel model(5);
  const Instant now = at("2026-01-15T12:00:00Z");
  int warnedCells = 0, quietCells = 0, ended = 0, upcoming = 0;
  std::set<WarningLevel> levels;
  std::set<WarningKind> kinds;
  for (double lat = -62.5; lat <= 67.5; lat += 5) {
    for (double lon = -177.5; lon <= 177.5; lon += 10) {
      const auto warnings = model.warnings({lat, lon}, now);
      (warnings.empty() ? quietCells : warnedCells)++;
      // The same cell answers alike anywhere inside it.
      EXPECT_EQ(warnings, model.warnings({lat + 2.4, lon - 2.4}, now));
      for (std::size_t i = 0; i < warnings.size(); ++i) {
        const WarningEvent& w = warnings[i];
        EXPECT_LT(w.validFrom, w.validUntil);
        EXPECT_LT(w.issued, w.validFrom);
        if (i > 0) EXPECT_LE(warnings[i - 1].validFrom, w.validFrom);
        if (w.validUntil <= now) ++ended;
        if (w.validFrom > now) ++upcoming;
        levels.insert(w.level);
        kinds.insert(w.kind);
      }
    }
  }
  EXPECT_GT(warnedCells, 100);
  EXPECT_GT(quietCells, 100);
  EXPECT_GT(ended, 20);
  EXPECT_GT(upcoming, 20);
  EXPECT_EQ(levels.size(), 5u);
  EXPECT_GE(kinds.size(), 7u);
}

TEST(WeatherModelTest, AccumulationAndAirQualityStayInRange) {
  const WeatherModel model(9);
  int distinctAqi = 0, previous = -1;
  for (int h = 0; h < 24 * 20; ++h) {
    const Instant t = at("2026-05-01T00:00:00Z") + hours(h);
    const auto hour = model.accumulation(kHelsinki, t, t + std::chrono::hours(1));
    EXPECT_GE(hour.total, 0.0);
    EXPECT_LE(hour.snow, hour.total + 1e-12);
    const int aqi = model.airQualityIndex({48.85, 2.35}, t);
    EXPECT_GE(aqi, 5);
    EXPECT_LE(aqi, 500);
    if (aqi != previous) ++distinctAqi;
    previous = aqi;
  }
  EXPECT_GT(distinctAqi, 100);
  EXPECT_EQ(precipitationProbability(0.0, 20), 0);
  EXPECT_EQ(precipitationProbability(5.0, 100), 100);
}

}  // namespace
}  // namespace ombrine::sim
