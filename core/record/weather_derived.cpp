#include "core/record/weather_derived.hpp"

#include <algorithm>
#include <array>
#include <cmath>
#include <utility>

namespace ombrine {

namespace {

using Glyph = OneCallWeather::Glyph;
using Minutely = OneCallWeather::Minutely;

// Minute entries beyond the first hour do not count as "rain within the hour".
constexpr size_t kMinutesInHour = 60;

constexpr std::array<std::pair<std::string_view, std::string_view>, 5> kDayNightSymbols = {{
    {"sun.max", "moon.stars"},
    {"cloud.sun", "cloud.moon"},
    {"cloud.sun.rain", "cloud.moon.rain"},
    {"cloud.sun.bolt", "cloud.moon.bolt"},
    {"sun.haze", "moon.haze"},
}};

constexpr std::array<std::string_view, 6> kRainSymbols = {"cloud.rain",    "cloud.sun.rain",  "cloud.moon.rain",
                                                          "cloud.drizzle", "cloud.heavyrain", "cloud.bolt.rain"};

constexpr int kMistConditionCode = 701;

// The rate at which a minute bar is full: snow and sleet are drawn against a lower scale.
double intensityScale(std::optional<PrecipitationKind> kind) noexcept {
  if (kind == PrecipitationKind::snow || kind == PrecipitationKind::sleet) return 3.0;
  return 7.5;
}

// Instant of the local midnight that starts the day containing `at`, using the offset in force
// at that midnight (so days that change clocks are still right).
Date startOfLocalDay(const TimeZone& zone, Date at) {
  double local = at.unixSeconds() + zone.secondsFromGMT(at);
  double midnight = std::floor(local / 86400.0) * 86400.0;
  Date guess = Date::fromUnix(midnight - zone.secondsFromGMT(at));
  return Date::fromUnix(midnight - zone.secondsFromGMT(guess));
}

// The values of one ready-made record, shared by the placeholder and the demonstration record.
struct ReadyMadeValues {
  double temp;
  double feelsLike;
  double dewPoint;
  double dailyMin;
  double dailyMax;
  Glyph glyph;
};

OneCallWeather readyMadeWeather(const TimeZone& timeZone, Date now, const ReadyMadeValues& v) {
  OneCallWeather weather;
  weather.timeZone = timeZone;
  auto& c = weather.current;
  c.dt = now;
  c.temp = Temperature::celsius(v.temp);
  c.feelsLike = Temperature::celsius(v.feelsLike);
  c.pressure = 1000;
  c.dewPoint = Temperature::celsius(v.dewPoint);
  c.uvi = 1.0;
  c.humidity = 65;
  c.clouds = 0;
  c.visibility = 10000;
  c.windSpeed = Speed::metersPerSecond(0.0);
  c.windDeg = Angle::degrees(180.0);
  c.weather = {v.glyph};
  c.airQuality = AirQuality{now, 40};

  const Date dayStart = startOfLocalDay(timeZone, now);
  for (int hour = 0; hour < 48; ++hour) {
    const Date dt = dayStart + hour * 3600.0;
    if (dt < now) continue;
    OneCallWeather::Hourly h;
    h.dt = dt;
    h.temp = c.temp;
    h.feelsLike = c.feelsLike;
    h.pressure = c.pressure;
    h.humidity = c.humidity;
    h.dewPoint = c.dewPoint;
    h.uvi = c.uvi;
    h.clouds = c.clouds;
    h.visibility = c.visibility;
    h.windSpeed = c.windSpeed;
    h.windDeg = c.windDeg;
    h.pop = 0.0;
    h.weather = c.weather;
    h.airQuality = AirQuality{dt, 40};
    weather.hourly.push_back(std::move(h));
  }
  for (int day = 0; day < 10; ++day) {
    OneCallWeather::Daily d;
    // Noon of the wanted day lies inside it whatever the clock changes.
    d.dt = startOfLocalDay(timeZone, dayStart + (day * 24 + 12) * 3600.0);
    d.temp = {Temperature::celsius(v.dailyMin), Temperature::celsius(v.dailyMax)};
    d.feelsLike = {c.feelsLike, c.feelsLike, c.feelsLike, c.feelsLike};
    d.pop = 0.0;
    d.uvi = c.uvi;
    d.windSpeed = c.windSpeed;
    d.windDeg = c.windDeg;
    d.humidity = c.humidity;
    d.dewPoint = c.dewPoint;
    d.clouds = c.clouds;
    d.weather = c.weather;
    weather.daily.push_back(std::move(d));
  }
  return weather;
}

}  // namespace

const std::string_view kDemonstrationAlertText =
    "The planet is currently experiencing severe and hostile weather conditions that may pose a "
    "significant threat to any spacecraft or inhabitants in the area. In addition to the extreme "
    "temperatures, Ombrine is also subject to intense solar radiation and solar flares that can "
    "disrupt communication systems and cause power outages. It is strongly advised that all personnel"
    " on the planet take the necessary precautions to protect themselves and their equipment."
    "\n\n"
    "If you are planning to travel to or from Ombrine, please be aware that these conditions can "
    "affect spacecraft and may cause delays or cancellations.";

WeatherDataSource weatherDataSource(const OneCallWeather& weather) noexcept {
  if (!weather.attribution) return WeatherDataSource::dynamic;
  const auto* name = std::get_if<WeatherServiceAttribution::NameAttribution>(&weather.attribution->source);
  if (name == nullptr) return WeatherDataSource::apple;  // apple and image attributions
  if (name->serviceName == "OpenWeather") return WeatherDataSource::ow;
  if (name->serviceName == "Foreca") return WeatherDataSource::foreca;
  return WeatherDataSource::dynamic;
}

std::string_view conditionWord(const OneCallWeather::Current& current, std::string_view languageCode) noexcept {
  if (current.weather.empty()) return {};
  const Glyph& first = current.weather.front();
  return languageCode == "en" ? first.main : first.description;
}

bool isCloudy(const OneCallWeather::Current& current) noexcept {
  if (!current.weather.empty() && current.weather.front().symbolName == "cloud") return true;
  return current.clouds > 84;
}

bool expectsRainWithinHour(const OneCallWeather& weather) noexcept {
  if (!weather.minutely) return false;
  const auto& minutes = *weather.minutely;
  const size_t count = std::min(minutes.size(), kMinutesInHour);
  return std::any_of(minutes.begin(), minutes.begin() + static_cast<std::ptrdiff_t>(count),
                     [](const Minutely& m) { return m.precipitation.measurement > 0.0; });
}

PrecipitationKind minutePrecipitationKind(const OneCallWeather& weather) noexcept {
  if (weather.minutely) {
    for (const auto& minute : *weather.minutely) {
      if (minute.type && *minute.type != PrecipitationKind::none) return *minute.type;
    }
  }
  const auto& c = weather.current;
  const double rain = c.rain ? c.rain->rainVolume.measurement : 0.0;
  const double snow = c.snow ? c.snow->snowVolume.measurement : 0.0;
  return rain < snow ? PrecipitationKind::snow : PrecipitationKind::rain;
}

double minuteIntensity(const OneCallWeather::Minutely& minute, DeviceIdiom idiom) noexcept {
  const double scale = intensityScale(minute.type);
  const double floor = idiom == DeviceIdiom::pad ? 0.03 : 0.05;
  const double v = std::min(minute.precipitation.measurement, scale);
  if (!(v > 0.0)) return 0.0;
  return std::max(v / scale, floor);
}

std::optional<std::string_view> precipitationSymbol(std::optional<PrecipitationKind> kind,
                                                    const std::optional<std::vector<Minutely>>& minutely,
                                                    DeviceIdiom idiom) noexcept {
  switch (kind.value_or(PrecipitationKind::rain)) {
    case PrecipitationKind::none: return std::nullopt;
    case PrecipitationKind::hail: return "cloud.hail";
    case PrecipitationKind::mixed:
    case PrecipitationKind::sleet: return "cloud.sleet";
    case PrecipitationKind::snow: return "cloud.snow";
    case PrecipitationKind::rain: break;
  }
  if (!minutely || minutely->empty()) return "cloud.drizzle";
  double highest = minuteIntensity(minutely->front(), idiom);
  for (const auto& minute : *minutely) highest = std::max(highest, minuteIntensity(minute, idiom));
  if (highest > 0.75) return "cloud.heavyrain";
  if (highest >= 0.5) return "cloud.rain";
  return "cloud.drizzle";
}

std::optional<std::string_view> precipitationSymbol(const OneCallWeather& weather, DeviceIdiom idiom) noexcept {
  return precipitationSymbol(minutePrecipitationKind(weather), weather.minutely, idiom);
}

bool airQualityWarning(const OneCallWeather& weather, int threshold, Date start, double interval) noexcept {
  if (!(interval > 0.0)) return false;
  const Date from = std::max(weather.current.dt, start);
  const Date to = from + interval;
  return std::any_of(weather.hourly.begin(), weather.hourly.end(), [&](const OneCallWeather::Hourly& h) {
    return h.airQuality && h.dt >= from && h.dt <= to && h.airQuality->aqi > threshold;
  });
}

std::string_view symbolName(const Glyph& glyph, SymbolVariant variant) noexcept {
  const std::string_view symbol = glyph.symbolName;
  for (const auto& [day, night] : kDayNightSymbols) {
    if (variant == SymbolVariant::forceNight && symbol == day) return night;
    if (variant == SymbolVariant::forceDay && symbol == night) return day;
  }
  return symbol;
}

WeatherState weatherState(const OneCallWeather& weather, Date now) noexcept {
  if (weather.isPlaceholder) return WeatherState::placeholder;
  const auto& c = weather.current;
  const Glyph* first = c.weather.empty() ? nullptr : &c.weather.front();
  const bool rainy =
      expectsRainWithinHour(weather) ||
      (first != nullptr && (first->id == kMistConditionCode || std::find(kRainSymbols.begin(), kRainSymbols.end(),
                                                                         first->symbolName) != kRainSymbols.end()));
  const double feelsLike = c.feelsLike.measurement;
  const WeatherState nightState = rainy ? WeatherState::rainyNight : WeatherState::night;

  // By day; `sunny` tells whether it is warm enough for a sunny rather than a chilly day.
  auto dayState = [&](bool sunny, bool onlyTemperature) {
    if (!onlyTemperature && rainy) return WeatherState::rainyDay;
    if (!onlyTemperature && isCloudy(c)) return WeatherState::overcast;
    if (feelsLike > 30.0) return WeatherState::hotDay;
    return sunny ? WeatherState::sunnyDay : WeatherState::chillyDay;
  };

  if (c.sunrise && c.sunset) {
    const bool isDay = *c.sunrise<now&& * c.sunset> now;
    if (!isDay) return nightState;
    // The sun times tell day from night; the 4 degree line is theirs.
    return dayState(feelsLike > 4.0, first == nullptr);
  }
  if (first == nullptr || !first->isDaylight) return nightState;
  // Only the glyph's daylight flag is known: a warmer line (10 degrees) for a sunny day.
  return dayState(feelsLike >= 10.0, false);
}

OneCallWeather placeholderWeather(const TimeZone& timeZone, Date now) {
  ReadyMadeValues values{19.0, 20.0, 18.0, 19.0, 19.0, Glyph{803, "Clouds", "broken clouds", "cloud.sun", true}};
  OneCallWeather weather = readyMadeWeather(timeZone, now, values);
  weather.isPlaceholder = true;
  return weather;
}

OneCallWeather demonstrationWeather(const TimeZone& timeZone, Date now) {
  ReadyMadeValues values{431.0, 432.0, 430.0,
                         430.0, 432.0, Glyph{800, "Plasma Waves", "solar flares", "sun.max", true}};
  OneCallWeather weather = readyMadeWeather(timeZone, now, values);
  OneCallWeather::Alert alert;
  alert.senderName = "Planetary Weather Service";
  alert.event = "Extreme weather warning";
  alert.start = Date::distantPast();
  alert.end = Date::distantFuture();
  alert.description = std::string(kDemonstrationAlertText);
  alert.severity = WeatherSeverity::extreme;
  weather.alerts = std::vector<OneCallWeather::Alert>{alert};
  return weather;
}

}  // namespace ombrine
