#include "sim/weather_model.hpp"

#include <fmt/format.h>

#include <algorithm>
#include <cmath>
#include <numbers>

namespace ombrine::sim {

using namespace std::chrono;

namespace {

constexpr double kDegree = std::numbers::pi / 180.0;

// One stream of noise per quantity, so quantities vary independently.
enum Channel : std::uint64_t {
  temperatureChannel = 1,
  humidityChannel,
  cloudChannel,
  highCloudChannel,
  pressureChannel,
  windChannel,
  gustChannel,
  directionChannel,
  showerChannel,
  rainCellChannel,
  frontStrengthChannel,
  frontRainChannel,
  frontJitterChannel,
  visibilityChannel,
  urbanChannel,
  smogChannel,
  warningChannel,
  continentalityChannel,
};

std::uint64_t mix(std::uint64_t x) {
  x += 0x9e3779b97f4a7c15ULL;
  x = (x ^ (x >> 30)) * 0xbf58476d1ce4e5b9ULL;
  x = (x ^ (x >> 27)) * 0x94d049bb133111ebULL;
  return x ^ (x >> 31);
}

std::uint64_t hashOf(std::uint64_t seed, std::uint64_t channel, std::int64_t a, std::int64_t b = 0, std::int64_t c = 0,
                     std::int64_t d = 0) {
  std::uint64_t h = mix(seed ^ mix(channel));
  for (std::int64_t part : {a, b, c, d}) h = mix(h ^ static_cast<std::uint64_t>(part));
  return h;
}

// [0, 1) from the top 53 bits.
double unitOf(std::uint64_t h) { return static_cast<double>(h >> 11) * 0x1.0p-53; }

double smoothstep(double f) { return f * f * (3.0 - 2.0 * f); }
double clamp01(double x) { return std::clamp(x, 0.0, 1.0); }
double bump(double x) { return std::exp(-x * x); }

// Smooth value noise in [0, 1) over space (lattice `spaceDeg`, which must divide 360 so the
// field closes across the date line) and time (lattice `timeHours`; 0 means constant in time).
double noise(std::uint64_t seed, Channel channel, GeoPoint p, double hours, double spaceDeg, double timeHours) {
  const auto columns = static_cast<std::int64_t>(std::lround(360.0 / spaceDeg));
  const double x = (p.longitude + 180.0) / spaceDeg;
  const double y = (p.latitude + 90.0) / spaceDeg;
  const double z = timeHours > 0 ? hours / timeHours : 0.0;
  const double fx = std::floor(x), fy = std::floor(y), fz = std::floor(z);
  const auto ix = static_cast<std::int64_t>(fx), iy = static_cast<std::int64_t>(fy), iz = static_cast<std::int64_t>(fz);
  const double wx = smoothstep(x - fx), wy = smoothstep(y - fy), wz = smoothstep(z - fz);
  auto at = [&](std::int64_t dx, std::int64_t dy, std::int64_t dz) {
    const std::int64_t column = ((ix + dx) % columns + columns) % columns;
    return unitOf(hashOf(seed, channel, column, iy + dy, iz + dz));
  };
  auto lerp = [](double a, double b, double w) { return a + (b - a) * w; };
  const double near = lerp(lerp(at(0, 0, 0), at(1, 0, 0), wx), lerp(at(0, 1, 0), at(1, 1, 0), wx), wy);
  const double far = lerp(lerp(at(0, 0, 1), at(1, 0, 1), wx), lerp(at(0, 1, 1), at(1, 1, 1), wx), wy);
  return lerp(near, far, wz);
}

double hoursOf(Instant instant) { return static_cast<double>(instant.time_since_epoch().count()) / 3600.0; }

// Days since 1 January of the instant's UTC year, fractional.
double dayOfYear(Instant instant) {
  const auto day = floor<days>(instant);
  const year_month_day date{day};
  const sys_days newYear{date.year() / January / 1};
  return static_cast<double>((instant - Instant(newYear)).count()) / 86400.0;
}

double declination(double dayOfYear) { return -23.44 * std::cos(2.0 * std::numbers::pi / 365.0 * (dayOfYear + 10.0)); }

double equationOfTimeMinutes(double dayOfYear) {
  const double b = 2.0 * std::numbers::pi * (dayOfYear - 81.0) / 364.0;
  return 9.87 * std::sin(2.0 * b) - 7.53 * std::cos(b) - 1.5 * std::sin(b);
}

// Local apparent solar time in hours, 0..24.
double solarHour(GeoPoint p, Instant instant) {
  const double utcHours = static_cast<double>((instant - floor<days>(instant)).count()) / 3600.0;
  const double hour = utcHours + p.longitude / 15.0 + equationOfTimeMinutes(dayOfYear(instant)) / 60.0;
  return std::fmod(hour + 48.0, 24.0);
}

// Fronts travel east at 10° of longitude a day. The period is chosen so that a whole number of
// periods fits into one trip around the globe, which keeps the fronts continuous across the
// date line; strength and timing depend on where and when a front passes, never on its index.
constexpr double kHoursPerDegree = 2.4;
constexpr double kFrontPeriodHours = 360.0 * kHoursPerDegree / 11.0;

struct FrontEffects {
  double pressure = 0.0;     // hPa
  double wind = 0.0;         // m/s
  double cloud = 0.0;        // fraction
  double rain = 0.0;         // mm/h before cellular variation
  double temperature = 0.0;  // °C
  double veer = 0.0;         // degrees added to the wind direction
};

FrontEffects frontsAt(std::uint64_t seed, GeoPoint p, double hours, double wetness) {
  FrontEffects effects;
  const double jitter = (noise(seed, frontJitterChannel, p, 0.0, 20.0, 0.0) - 0.5) * 24.0;
  const double shift = p.longitude * kHoursPerDegree + jitter;
  const double u = (hours - shift) / kFrontPeriodHours;
  const double latitudeFactor = std::clamp((std::abs(p.latitude) - 8.0) / 22.0, 0.15, 1.0);
  for (double k = std::floor(u) - 1.0; k <= std::floor(u) + 2.0; k += 1.0) {
    const double passage = k * kFrontPeriodHours + shift;
    const double dt = hours - passage;  // hours since the front passed; negative before
    const double rawStrength = noise(seed, frontStrengthChannel, p, passage, 20.0, 100.0);
    const double strength = clamp01((rawStrength - 0.15) / 0.85) * latitudeFactor;
    if (strength <= 0.0) continue;
    const double rainPeak = 0.8 + 5.0 * noise(seed, frontRainChannel, p, passage, 10.0, 50.0);
    effects.pressure -= 24.0 * strength * bump(dt / 16.0);
    effects.wind += 10.0 * strength * bump(dt / 10.0);
    effects.cloud += 0.85 * strength * bump((dt + 6.0) / 14.0);
    effects.rain += rainPeak * strength * wetness * bump((dt + 1.0) / 4.5);
    effects.temperature += 2.5 * strength * bump((dt + 10.0) / 12.0);
    if (dt > 0.0) effects.temperature -= 4.0 * strength * (1.0 - std::exp(-dt / 6.0)) * std::exp(-dt / 50.0);
    effects.veer += 45.0 * strength * std::tanh(dt / 6.0) * bump(dt / 40.0);
  }
  return effects;
}

// Wind chill below 10 °C in a breeze, heat index above 27 °C when humid, else the temperature.
double feelsLikeTemperature(double temperature, double windSpeed, int relHumidity) {
  const double kmh = windSpeed * 3.6;
  if (temperature <= 10.0 && kmh > 4.8) {
    const double v = std::pow(kmh, 0.16);
    return 13.12 + 0.6215 * temperature - 11.37 * v + 0.3965 * temperature * v;
  }
  if (temperature >= 27.0 && relHumidity >= 40) {
    const double t = temperature * 9.0 / 5.0 + 32.0;
    const double r = relHumidity;
    const double f = -42.379 + 2.04901523 * t + 10.14333127 * r - 0.22475541 * t * r - 0.00683783 * t * t -
                     0.05481717 * r * r + 0.00122874 * t * t * r + 0.00085282 * t * r * r - 0.00000199 * t * t * r * r;
    return std::max(temperature, (f - 32.0) * 5.0 / 9.0);
  }
  return temperature;
}

// Magnus formula: the dew point of air at `temperature` with `relHumidity` %.
double dewPointOf(double temperature, int relHumidity) {
  constexpr double b = 17.62, c = 243.12;
  const double gamma = std::log(relHumidity / 100.0) + b * temperature / (c + temperature);
  return std::min(temperature, c * gamma / (b - gamma));
}

// A sequence of numbers in [0, 1) drawn from one hash.
class Draw {
 public:
  explicit Draw(std::uint64_t state) : state_(state) {}
  double next() { return unitOf(mix(state_ += 0x9e3779b97f4a7c15ULL)); }
  int below(int bound) { return std::min(bound - 1, static_cast<int>(next() * bound)); }

 private:
  std::uint64_t state_;
};

}  // namespace

WeatherSample WeatherModel::sample(GeoPoint p, Instant instant) const {
  const double hours = hoursOf(instant);
  const double absLatitude = std::abs(p.latitude);
  const double cosLatitude = std::max(0.0, std::cos(p.latitude * kDegree));
  const double solar = solarHour(p, instant);
  const double dayCurve = std::cos(2.0 * std::numbers::pi * (solar - 15.0) / 24.0);  // +1 mid-afternoon
  // Subtropical deserts near 25° are dry.
  const double wetness = 1.0 - 0.7 * bump((absLatitude - 25.0) / 8.0);
  const FrontEffects front = frontsAt(seed_, p, hours, wetness);

  double cloud = 0.7 * noise(seed_, cloudChannel, p, hours, 10.0, 24.0) * (0.6 + 0.4 * wetness) + front.cloud;
  cloud = clamp01(cloud);

  const double annual = -20.0 + 48.0 * std::pow(cosLatitude, 1.1);
  // Inland areas swing further between summer and winter than coasts.
  const double continentality = 0.6 + 0.8 * noise(seed_, continentalityChannel, p, 0.0, 20.0, 0.0);
  const double seasonAmplitude = std::min(20.0, 0.22 * absLatitude * continentality);
  const double season = -seasonAmplitude * std::cos(2.0 * std::numbers::pi * (dayOfYear(instant) - 20.0) / 365.2422) *
                        (p.latitude >= 0.0 ? 1.0 : -1.0);
  const double dayAmplitude = (3.0 + 6.0 * (1.0 - cloud)) * (0.25 + 0.75 * cosLatitude);
  const double synoptic = (noise(seed_, temperatureChannel, p, hours, 10.0, 40.0) - 0.5) * 8.0;
  const double temperature = annual + season + dayAmplitude / 2.0 * dayCurve + synoptic + front.temperature;

  // Warm, wet afternoons grow shower cells a few kilometres and tens of minutes across.
  const double convection = clamp01((temperature - 12.0) / 16.0) * wetness * (0.3 + 0.7 * bump((solar - 15.0) / 3.5));
  const double cells = noise(seed_, showerChannel, p, hours, 2.5, 1.5);
  const double shower = std::max(0.0, (cells - 0.72) / 0.28) * convection * 14.0;
  // Frontal rain falls in bands with gaps, so it starts and stops within the hour.
  const double frontalCells =
      1.6 * smoothstep(clamp01((noise(seed_, rainCellChannel, p, hours, 2.5, 0.75) - 0.2) / 0.6));
  double rate = front.rain * frontalCells + shower;
  if (rate < 0.05) rate = 0.0;
  if (shower > 0.0) cloud = std::max(cloud, 0.6 + 0.4 * clamp01(shower / 4.0));
  if (rate > 0.0) cloud = std::max(cloud, 0.75);

  WeatherSample s;
  s.temperature = temperature;
  s.precipRate = rate;
  s.precipKind = temperature <= 0.5 ? PrecipKind::snow : (temperature < 2.0 ? PrecipKind::mixed : PrecipKind::rain);
  s.thunder = shower > 5.0 && temperature > 16.0;

  const double windBase = 1.0 + 6.0 * std::pow(noise(seed_, windChannel, p, hours, 10.0, 12.0), 1.5);
  s.windSpeed = windBase * (1.0 + 0.25 * std::cos(2.0 * std::numbers::pi * (solar - 14.0) / 24.0)) + front.wind +
                (shower > 0.0 ? 2.0 : 0.0);
  s.windGust = s.windSpeed * (1.3 + 0.5 * noise(seed_, gustChannel, p, hours, 5.0, 2.0)) + (rate > 4.0 ? 3.0 : 0.0);
  const double prevailing =
      absLatitude < 30.0 ? (p.latitude >= 0.0 ? 60.0 : 120.0) : (absLatitude < 60.0 ? 255.0 : 90.0);
  const double direction =
      prevailing + (noise(seed_, directionChannel, p, hours, 10.0, 18.0) - 0.5) * 160.0 + front.veer;
  s.windDirection = static_cast<int>((std::lround(direction) % 360 + 360) % 360);

  const double humidity = 40.0 + 35.0 * noise(seed_, humidityChannel, p, hours, 10.0, 30.0) + 15.0 * cloud +
                          (rate > 0.0 ? 12.0 : 0.0) - 8.0 * dayCurve - 25.0 * (1.0 - wetness) +
                          (temperature < 5.0 ? 5.0 : 0.0);
  s.relHumidity = static_cast<int>(std::clamp(std::lround(humidity), 5L, 100L));
  s.dewPoint = dewPointOf(temperature, s.relHumidity);
  s.fog = s.relHumidity >= 97 && s.windSpeed < 3.0 && rate == 0.0;
  if (s.fog) cloud = 1.0;

  s.cloudiness = static_cast<int>(std::lround(cloud * 100.0));
  s.thinHighCloud = s.cloudiness >= 10 && s.cloudiness < 60 && rate == 0.0 &&
                    noise(seed_, highCloudChannel, p, hours, 10.0, 12.0) > 0.8;
  s.pressure = 1013.0 + (noise(seed_, pressureChannel, p, hours, 20.0, 48.0) - 0.5) * 26.0 + front.pressure;
  s.feelsLike = feelsLikeTemperature(temperature, s.windSpeed, s.relHumidity);

  const double visibilityNoise = noise(seed_, visibilityChannel, p, hours, 5.0, 6.0);
  double visibility;
  if (s.fog) {
    visibility = 150.0 + 700.0 * visibilityNoise;
  } else if (rate > 0.0) {
    const double clear =
        s.precipKind == PrecipKind::snow ? 3000.0 : (s.precipKind == PrecipKind::mixed ? 6000.0 : 20000.0);
    visibility = 300.0 + clear / (1.0 + rate);
  } else {
    visibility = 10000.0 + 40000.0 * (1.0 - s.relHumidity / 100.0) * (0.5 + visibilityNoise);
  }
  s.visibility = std::round(visibility / 100.0) * 100.0;

  s.sunElevation = sunElevation(p, instant);
  if (s.sunElevation > 0.0) {
    s.uvIndex = 12.5 * std::pow(std::sin(s.sunElevation * kDegree), 2.2) * (1.0 - 0.75 * std::pow(cloud, 2.5));
  }
  return s;
}

WeatherModel::Accumulation WeatherModel::accumulation(GeoPoint point, Instant from, Instant to) const {
  constexpr auto step = minutes(10);
  Accumulation sum;
  for (Instant t = from; t < to; t += step) {
    const Instant end = std::min<Instant>(t + step, to);
    const WeatherSample s = sample(point, t + (end - t) / 2);
    const double amount = s.precipRate * static_cast<double>((end - t).count()) / 3600.0;
    sum.total += amount;
    if (s.precipKind == PrecipKind::snow) sum.snow += amount;
    if (s.precipKind == PrecipKind::mixed) sum.snow += amount / 2.0;
  }
  return sum;
}

double WeatherModel::sunElevation(GeoPoint p, Instant instant) {
  const double delta = declination(dayOfYear(instant)) * kDegree;
  const double phi = p.latitude * kDegree;
  const double hourAngle = 15.0 * (solarHour(p, instant) - 12.0) * kDegree;
  const double sine = std::sin(phi) * std::sin(delta) + std::cos(phi) * std::cos(delta) * std::cos(hourAngle);
  return std::asin(std::clamp(sine, -1.0, 1.0)) / kDegree;
}

SunEvents WeatherModel::sunEvents(GeoPoint p, sys_days day, minutes offset) {
  const Instant start = startOfLocalDay(day, offset);
  const Instant end = start + days(1);
  // Solar noon of that calendar day at this longitude, in UTC.
  const double dayOfYearAtNoon = dayOfYear(Instant(day) + hours(12));
  const double noonHours = 12.0 - p.longitude / 15.0 - equationOfTimeMinutes(dayOfYearAtNoon) / 60.0;
  const Instant noon = Instant(day) + seconds(std::lround(noonHours * 3600.0));
  const double delta = declination(dayOfYearAtNoon) * kDegree;
  const double phi = p.latitude * kDegree;
  const double denominator = std::cos(phi) * std::cos(delta);
  // The sun's centre 0.833° below the horizon: refraction plus its radius.
  const double numerator = std::sin(-0.833 * kDegree) - std::sin(phi) * std::sin(delta);
  if (std::abs(denominator) < 1e-9) return {};  // at a pole the sun neither rises nor sets in a day
  const double cosine = numerator / denominator;
  if (cosine <= -1.0 || cosine >= 1.0) return {};             // polar day or polar night
  const double halfDay = std::acos(cosine) / kDegree / 15.0;  // hours
  const auto halfDaySeconds = seconds(std::lround(halfDay * 3600.0));
  SunEvents events;
  if (const Instant rise = noon - halfDaySeconds; rise >= start && rise < end) events.sunrise = rise;
  if (const Instant set = noon + halfDaySeconds; set >= start && set < end) events.sunset = set;
  return events;
}

int WeatherModel::airQualityIndex(GeoPoint p, Instant instant) const {
  const WeatherSample s = sample(p, instant);
  const double hours = hoursOf(instant);
  const double solar = solarHour(p, instant);
  const double urban = noise(seed_, urbanChannel, p, 0.0, 5.0, 0.0);
  const double base = 12.0 + 70.0 * urban * urban;
  // Traffic peaks in the morning and evening, cleaner air before dawn.
  const double daily =
      1.0 + 0.35 * bump((solar - 8.0) / 2.0) + 0.45 * bump((solar - 19.0) / 2.5) - 0.2 * bump((solar - 4.0) / 3.0);
  const double stagnation = std::clamp(1.6 - 0.12 * s.windSpeed, 0.6, 1.6);
  const double washout = s.precipRate > 0.0 ? 0.6 : 1.0;
  const double smog = noise(seed_, smogChannel, p, hours, 10.0, 48.0);
  const double episode = smog > 0.85 ? 160.0 * (smog - 0.85) / 0.15 : 0.0;
  return static_cast<int>(std::clamp(std::lround(base * daily * stagnation * washout + episode), 5L, 500L));
}

std::vector<WarningEvent> WeatherModel::warnings(GeoPoint p, Instant now) const {
  constexpr double kCellDegrees = 5.0;
  constexpr std::int64_t kColumns = 72, kRows = 36;
  const auto column = std::clamp(static_cast<std::int64_t>(std::floor((p.longitude + 180.0) / kCellDegrees)),
                                 std::int64_t{0}, kColumns - 1);
  const auto row =
      std::clamp(static_cast<std::int64_t>(std::floor((p.latitude + 90.0) / kCellDegrees)), std::int64_t{0}, kRows - 1);
  const GeoPoint centre{-90.0 + kCellDegrees * (static_cast<double>(row) + 0.5),
                        -180.0 + kCellDegrees * (static_cast<double>(column) + 0.5)};
  const std::string area = fmt::format("{}{} {}{}", std::abs(centre.latitude), centre.latitude < 0 ? 'S' : 'N',
                                       std::abs(centre.longitude), centre.longitude < 0 ? 'W' : 'E');

  std::vector<WarningEvent> events;
  const auto today = floor<days>(now);
  for (auto day = today - days(1); day <= today + days(1); day += days(1)) {
    const std::int64_t dayNumber = day.time_since_epoch().count();
    const double activity = unitOf(hashOf(seed_, warningChannel, column, row, dayNumber));
    const int count = activity < 0.55 ? 0 : (activity < 0.85 ? 1 : (activity < 0.96 ? 2 : 3));
    for (int j = 0; j < count; ++j) {
      const std::uint64_t key = hashOf(seed_, warningChannel, column, row, dayNumber, j + 1);
      Draw draw(key);
      WarningEvent event;
      event.key = key;
      event.area = area;
      event.validFrom = Instant(day) + hours(draw.below(24));
      event.validUntil = event.validFrom + hours(3 + draw.below(28));
      event.issued = event.validFrom - hours(1 + draw.below(12)) - minutes(draw.below(60));
      const double level = draw.next();
      event.level = level < 0.05    ? WarningLevel::green
                    : level < 0.65  ? WarningLevel::yellow
                    : level < 0.90  ? WarningLevel::orange
                    : level < 0.985 ? WarningLevel::red
                                    : WarningLevel::purple;
      // The kind suits the weather of the area when the warning begins.
      const double t = sample(centre, event.validFrom).temperature;
      static constexpr WarningKind cold[] = {WarningKind::cold, WarningKind::snow, WarningKind::wind};
      static constexpr WarningKind freezing[] = {WarningKind::snow, WarningKind::icing, WarningKind::wind};
      static constexpr WarningKind hot[] = {WarningKind::heat, WarningKind::forestFire, WarningKind::thunderstorm};
      static constexpr WarningKind mild[] = {WarningKind::wind, WarningKind::rain, WarningKind::thunderstorm,
                                             WarningKind::fog};
      const int pick = draw.below(12);
      if (t < -5.0)
        event.kind = cold[pick % 3];
      else if (t < 2.0)
        event.kind = freezing[pick % 3];
      else if (t > 28.0)
        event.kind = hot[pick % 3];
      else
        event.kind = mild[pick % 4];
      events.push_back(std::move(event));
    }
  }
  std::stable_sort(events.begin(), events.end(),
                   [](const WarningEvent& a, const WarningEvent& b) { return a.validFrom < b.validFrom; });
  return events;
}

int precipitationProbability(double meanRate, int cloudiness) {
  const double fromRain = 100.0 * (1.0 - std::exp(-1.8 * meanRate));
  const double fromCloud = std::max(0.0, (cloudiness - 50) * 0.3);
  const double probability = std::clamp(std::max(fromRain, fromCloud), 0.0, 100.0);
  return static_cast<int>(std::lround(probability / 5.0) * 5);
}

ModelDay modelDay(const WeatherModel& model, GeoPoint point, std::chrono::sys_days day, std::chrono::minutes offset) {
  using std::chrono::hours;
  ModelDay result;
  result.midnight = startOfLocalDay(day, offset);
  result.low = 1e9;
  result.high = -1e9;
  for (int h = 0; h < 24; h += 2) {
    const double t = model.sample(point, result.midnight + hours(h)).temperature;
    result.low = std::min(result.low, t);
    result.high = std::max(result.high, t);
  }
  result.noon = model.sample(point, result.midnight + hours(13));
  result.amount = model.accumulation(point, result.midnight, result.midnight + hours(24));
  result.sun = WeatherModel::sunEvents(point, day, offset);
  return result;
}

}  // namespace ombrine::sim
