#pragma once
// Deterministic synthetic weather for any coordinate and instant.
//
// Every value is a pure function of (seed, coordinate, instant): the same inputs give the same
// numbers on every call, in every process, so simulated services answer byte for byte alike
// and tests can pin their expectations. The weather is plausible, not physical:
//  - temperature follows an annual mean by latitude, a season (mirrored south of the equator)
//    and a day curve peaking mid-afternoon in local solar time, plus slow synoptic noise;
//  - fronts pass every few days, moving east: pressure dips, wind rises and veers, cloud builds
//    ahead of them, a rain spell passes with them and it turns cooler behind them;
//  - warm afternoons bring showers (thunder when warm and intense); precipitation is snow when
//    cold, mixed near freezing;
//  - humidity is drawn first and the dew point follows from it, so it never exceeds the
//    temperature; fog needs saturated, calm, dry air;
//  - UV follows the sun's elevation and cloud; sunrise and sunset come from the solar
//    declination, with polar day and night having neither;
//  - warnings are active in some coarse grid cells on some days (a hash of cell and day).
// Values vary smoothly in space (scales of a few degrees, continuous across the date line) and
// time (minutes for shower cells, days for fronts).
//
// Thread-safe: a model is immutable after construction.

#include <chrono>
#include <cstdint>
#include <optional>
#include <string>
#include <vector>

#include "sim/sim_time.hpp"

namespace ombrine::sim {

struct GeoPoint {
  double latitude = 0.0;   // degrees, -90..90
  double longitude = 0.0;  // degrees, -180..180

  bool operator==(const GeoPoint&) const = default;
};

// What would fall from the sky at this temperature (also when nothing falls).
enum class PrecipKind { rain, mixed, snow };

// The state of the weather at one instant.
struct WeatherSample {
  double temperature = 0.0;    // °C
  double feelsLike = 0.0;      // °C, wind chill when cold, heat index when hot
  double dewPoint = 0.0;       // °C, never above `temperature`
  int relHumidity = 0;         // %, 1..100
  double pressure = 0.0;       // hPa at sea level
  double windSpeed = 0.0;      // m/s
  double windGust = 0.0;       // m/s, at least `windSpeed`
  int windDirection = 0;       // degrees the wind blows from, 0..359
  int cloudiness = 0;          // %, 0..100
  bool thinHighCloud = false;  // the cloud is thin upper cloud only
  double precipRate = 0.0;     // mm/h water equivalent, 0 when dry
  PrecipKind precipKind = PrecipKind::rain;
  bool thunder = false;
  bool fog = false;
  double visibility = 0.0;    // m
  double uvIndex = 0.0;       // 0 when the sun is down
  double sunElevation = 0.0;  // degrees above the horizon

  bool operator==(const WeatherSample&) const = default;
};

// Sunrise and sunset of one local day; polar day and polar night have neither.
struct SunEvents {
  std::optional<Instant> sunrise;
  std::optional<Instant> sunset;

  bool operator==(const SunEvents&) const = default;
};

enum class WarningKind { wind, rain, snow, thunderstorm, heat, cold, fog, forestFire, icing };
// Ordered from least to most severe.
enum class WarningLevel { green, yellow, orange, red, purple };

// One warning in force for an area, independent of how a service words it.
struct WarningEvent {
  WarningKind kind = WarningKind::wind;
  WarningLevel level = WarningLevel::yellow;
  Instant validFrom;
  Instant validUntil;
  Instant issued;
  std::string area;       // a name for the grid cell, e.g. "60N 25E"
  std::uint64_t key = 0;  // stable per warning, for choosing wording variants

  bool operator==(const WarningEvent&) const = default;
};

class WeatherModel {
 public:
  explicit WeatherModel(std::uint64_t seed) : seed_(seed) {}

  std::uint64_t seed() const { return seed_; }

  // The weather at `point` at `instant`.
  WeatherSample sample(GeoPoint point, Instant instant) const;

  // Water-equivalent precipitation in mm that falls in [from, to), and the part of it that
  // falls as snow (mixed counts half). Integrates over 10-minute steps.
  struct Accumulation {
    double total = 0.0;
    double snow = 0.0;
  };
  Accumulation accumulation(GeoPoint point, Instant from, Instant to) const;

  // Sunrise and sunset on local calendar `day` at `offset`; an event that would fall outside
  // that day is left out.
  static SunEvents sunEvents(GeoPoint point, std::chrono::sys_days day, std::chrono::minutes offset);

  // The sun's elevation above the horizon in degrees.
  static double sunElevation(GeoPoint point, Instant instant);

  // US-scale air quality index (5..500) at `instant`.
  int airQualityIndex(GeoPoint point, Instant instant) const;

  // Warnings of the grid cell containing `point` that were issued for the UTC days around
  // `now` (the day before to the day after): some have already ended, some begin later.
  // Ordered by `validFrom`.
  std::vector<WarningEvent> warnings(GeoPoint point, Instant now) const;

 private:
  std::uint64_t seed_;
};

// One local calendar day at a place as every service's daily forecast sums it up: local
// midnight (UTC), the low and high of the samples every two hours, the sample at 13:00 local,
// the day's precipitation and its sunrise and sunset. `offset` is the local UTC offset.
struct ModelDay {
  Instant midnight;
  double low = 0.0;
  double high = 0.0;
  WeatherSample noon;
  WeatherModel::Accumulation amount;
  SunEvents sun;
};
ModelDay modelDay(const WeatherModel& model, GeoPoint point, std::chrono::sys_days day, std::chrono::minutes offset);

// Probability (0..100) of precipitation at a time whose mean rate over the surrounding two hours
// is `meanRate` mm/h under `cloudiness` % cloud.
int precipitationProbability(double meanRate, int cloudiness);

}  // namespace ombrine::sim
