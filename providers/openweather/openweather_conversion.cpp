#include "providers/openweather/openweather_conversion.hpp"

#include <boost/url/parse.hpp>

#include <algorithm>
#include <cmath>
#include <numbers>

#include "core/record/sun_event_rows.hpp"
#include "core/values/saturating_int.hpp"

namespace ombrine {

namespace {

struct IconRule {
  std::string_view icon;
  std::string_view symbolName;
  bool isDaylight;
};

constexpr IconRule kIconRules[] = {
    {"01d", "sun.max", true},     {"02d", "sun.max", true},          {"01n", "moon.stars", false},
    {"02n", "moon.stars", false}, {"03d", "cloud.sun", true},        {"03n", "cloud.moon", false},
    {"04d", "cloud", true},       {"04n", "cloud", false},           {"09d", "cloud.rain", true},
    {"09n", "cloud.rain", false}, {"10d", "cloud.sun.rain", true},   {"10n", "cloud.moon.rain", false},
    {"11d", "cloud.bolt", true},  {"11n", "cloud.moon.bolt", false}, {"13d", "cloud.snow", true},
    {"13n", "cloud.snow", false}, {"50d", "cloud.fog", true},        {"50n", "cloud.fog", false},
};

std::vector<OneCallWeather::Glyph> glyphs(std::span<const OpenWeatherCondition> conditions) {
  std::vector<OneCallWeather::Glyph> result;
  result.reserve(conditions.size());
  for (const auto& condition : conditions) result.push_back(openWeatherGlyph(condition));
  return result;
}

double lerp(double a, double b, double f) { return a + (b - a) * f; }

std::optional<double> lerpOptional(std::optional<double> a, std::optional<double> b, double f) {
  if (a && b) return lerp(*a, *b, f);
  return a ? a : b;
}

std::optional<OneCallWeather::Rain> rainOf(std::optional<double> amount) {
  if (!amount) return std::nullopt;
  return OneCallWeather::Rain{Precipitation::millimeters(*amount)};
}

std::optional<OneCallWeather::Snow> snowOf(std::optional<double> amount) {
  if (!amount) return std::nullopt;
  return OneCallWeather::Snow{Precipitation::millimeters(*amount)};
}

std::optional<double> latestAmount(const std::optional<OpenWeatherVolume>& volume) {
  if (!volume) return std::nullopt;
  return volume->oneHour ? volume->oneHour : volume->threeHour;
}

class AirQualityByHour {
 public:
  AirQualityByHour(std::span<const AirQuality> list, const TimeZone& zone) : zone_(zone) {
    for (const AirQuality& entry : list) entries_.emplace_back(startOfZoneHour(entry.time, zone), entry);
  }
  std::optional<AirQuality> at(Date instant) const {
    Date hour = startOfZoneHour(instant, zone_);
    for (const auto& [start, entry] : entries_) {
      if (start == hour) return entry;
    }
    return std::nullopt;
  }

 private:
  const TimeZone& zone_;
  std::vector<std::pair<Date, AirQuality>> entries_;
};

OneCallWeather::Hourly hourlyRow(const OpenWeatherHourlySample& sample, const AirQualityByHour& airQuality) {
  OneCallWeather::Hourly row;
  row.dt = sample.dt;
  row.temp = sample.temperature;
  row.feelsLike = sample.feelsLike;
  row.pressure = saturatingInt(sample.pressure);
  row.humidity = saturatingInt(sample.humidity);
  row.dewPoint = sample.dewPoint.value_or(Temperature{});
  row.clouds = saturatingInt(sample.clouds);
  if (sample.visibility) row.visibility = saturatingInt(*sample.visibility);
  row.windSpeed = Speed::metersPerSecond(sample.windSpeed);
  row.windDeg = Angle::degrees(sample.windDirection.value_or(0.0));
  if (sample.windGust) row.windGust = Speed::metersPerSecond(*sample.windGust);
  row.pop = sample.precipitationProbability;
  row.rain = rainOf(sample.rain);
  row.snow = snowOf(sample.snow);
  row.weather = sample.weather;
  row.airQuality = airQuality.at(sample.dt);
  return row;
}

}  // namespace

OneCallWeather::Glyph openWeatherGlyph(const OpenWeatherCondition& condition) {
  OneCallWeather::Glyph glyph{.id = condition.id,
                              .main = condition.main,
                              .description = condition.description,
                              .symbolName = "cloud",
                              .isDaylight = !condition.icon.ends_with('n')};
  for (const IconRule& rule : kIconRules) {
    if (rule.icon == condition.icon) {
      glyph.symbolName = rule.symbolName;
      glyph.isDaylight = rule.isDaylight;
    }
  }
  return glyph;
}

std::optional<Temperature> magnusDewPoint(Temperature temperature, double humidity) {
  if (!(humidity > 0.0)) return std::nullopt;
  const double t = temperature.inCelsius();
  const double x = 17.27 * t / (237.7 + t) + std::log(humidity / 100.0);
  const double dewPoint = 237.7 * x / (17.27 - x);
  if (!std::isfinite(dewPoint)) return std::nullopt;
  return Temperature::celsius(dewPoint);
}

std::optional<double> interpolateDirection(std::optional<double> a, std::optional<double> b, double f) {
  if (!a || !b) return a ? a : b;
  constexpr double kRadians = std::numbers::pi / 180.0;
  const double difference = (*b - *a) * kRadians;
  double result = *a + f * std::atan2(std::sin(difference), std::cos(difference)) / kRadians;
  result = std::fmod(result, 360.0);
  if (result < 0.0) result += 360.0;
  return result;
}

std::vector<OpenWeatherHourlySample> openWeatherSamples(std::span<const OpenWeatherForecastItem> list) {
  std::vector<OpenWeatherForecastItem> items(list.begin(), list.end());
  std::stable_sort(items.begin(), items.end(), [](const auto& a, const auto& b) { return a.dt < b.dt; });
  std::vector<OpenWeatherHourlySample> samples;
  samples.reserve(items.size());
  for (size_t i = 0; i < items.size(); ++i) {
    const OpenWeatherForecastItem& item = items[i];
    const double span = i == 0 ? 3.0 : (item.dt - items[i - 1].dt) / 3600.0;
    auto perHour = [span](const std::optional<OpenWeatherVolume>& volume) -> std::optional<double> {
      if (!volume || !volume->threeHour) return std::nullopt;
      if (!(span > 0.0)) return std::max(0.0, *volume->threeHour);
      return std::max(0.0, *volume->threeHour / span);
    };
    OpenWeatherHourlySample sample;
    sample.dt = item.dt;
    sample.temperature = item.main.temp;
    sample.feelsLike = item.main.feelsLike;
    sample.pressure = item.main.pressure;
    sample.humidity = item.main.humidity;
    sample.dewPoint = magnusDewPoint(item.main.temp, item.main.humidity);
    sample.clouds = item.clouds.value_or(0);
    if (item.visibility) sample.visibility = *item.visibility;
    sample.windSpeed = item.wind ? item.wind->speed.value_or(0.0) : 0.0;
    // No wind block is calm from north; a block without a direction leaves it to the neighbours.
    sample.windDirection = item.wind ? item.wind->deg : std::optional(0.0);
    if (item.wind) sample.windGust = item.wind->gust;
    sample.precipitationProbability = std::clamp(item.pop.value_or(0.0), 0.0, 1.0);
    sample.rain = perHour(item.rain);
    sample.snow = perHour(item.snow);
    sample.weather = glyphs(item.weather);
    samples.push_back(std::move(sample));
  }
  return samples;
}

constexpr double kLongestFilledGap = 12.0 * 3600.0;

std::vector<OpenWeatherHourlySample> interpolateHourly(std::span<const OpenWeatherHourlySample> samples) {
  std::vector<OpenWeatherHourlySample> hours;
  if (samples.empty()) return hours;
  hours.reserve(samples.size() * 3);
  for (size_t i = 0; i + 1 < samples.size(); ++i) {
    const OpenWeatherHourlySample& a = samples[i];
    const OpenWeatherHourlySample& b = samples[i + 1];
    const double gap = b.dt - a.dt;
    hours.push_back(a);
    // The list is three-hourly; a hole longer than a few samples is a gap in the data, not a
    // stretch to invent hours for (and a wild timestamp must not make millions of them).
    if (!(gap <= kLongestFilledGap)) continue;
    for (double offset = 3600.0; offset < gap; offset += 3600.0) {
      const double f = offset / gap;
      OpenWeatherHourlySample hour = b;
      hour.dt = a.dt + offset;
      hour.temperature = Temperature::celsius(lerp(a.temperature.inCelsius(), b.temperature.inCelsius(), f));
      hour.feelsLike = Temperature::celsius(lerp(a.feelsLike.inCelsius(), b.feelsLike.inCelsius(), f));
      hour.pressure = lerp(a.pressure, b.pressure, f);
      hour.humidity = lerp(a.humidity, b.humidity, f);
      hour.dewPoint = magnusDewPoint(hour.temperature, hour.humidity);
      hour.clouds = lerp(a.clouds, b.clouds, f);
      hour.visibility = lerpOptional(a.visibility, b.visibility, f);
      hour.windSpeed = lerp(a.windSpeed, b.windSpeed, f);
      hour.windDirection = interpolateDirection(a.windDirection, b.windDirection, f);
      hour.windGust = lerpOptional(a.windGust, b.windGust, f);
      hours.push_back(std::move(hour));
    }
  }
  hours.push_back(samples.back());
  return hours;
}

OneCallWeather convertOpenWeather(const OpenWeatherCurrentResponse& current,
                                  const OpenWeatherForecastResponse& forecast, const OpenWeatherDailyResponse& daily,
                                  std::span<const AirQuality> airQuality, const OpenWeatherConversionContext& context) {
  const AirQualityByHour airQualityByHour(airQuality, context.timeZone);
  OneCallWeather record;
  record.lat = context.location.latitude();
  record.lon = context.location.longitude();
  record.timeZone = context.timeZone;

  OneCallWeather::Current& now = record.current;
  now.dt = current.dt;
  now.sunrise = current.sys.sunrise;
  now.sunset = current.sys.sunset;
  now.temp = current.main.temp;
  now.feelsLike = current.main.feelsLike;
  now.pressure = saturatingInt(current.main.pressure);
  now.humidity = saturatingInt(current.main.humidity);
  now.dewPoint = magnusDewPoint(current.main.temp, current.main.humidity).value_or(Temperature{});
  now.clouds = current.clouds ? current.clouds->all.value_or(0) : 0;
  now.visibility = current.visibility;
  now.windSpeed = Speed::metersPerSecond(current.wind ? current.wind->speed.value_or(0.0) : 0.0);
  now.windDeg = Angle::degrees(current.wind ? current.wind->deg.value_or(0.0) : 0.0);
  if (current.wind && current.wind->gust) now.windGust = Speed::metersPerSecond(*current.wind->gust);
  now.rain = rainOf(latestAmount(current.rain));
  now.snow = snowOf(latestAmount(current.snow));
  now.weather = glyphs(current.weather);
  now.airQuality = airQualityByHour.at(current.dt);

  const std::vector<OpenWeatherHourlySample> samples = openWeatherSamples(forecast.list);
  const std::vector<OpenWeatherHourlySample> hours = interpolateHourly(samples);
  record.hourly.reserve(hours.size() + 2 * daily.list.size() + 2);
  for (const auto& hour : hours) record.hourly.push_back(hourlyRow(hour, airQualityByHour));

  std::vector<SunStateChange> events;
  if (current.sys.sunrise) events.push_back(SunStateChange::rise(*current.sys.sunrise));
  if (current.sys.sunset) events.push_back(SunStateChange::set(*current.sys.sunset));
  for (const OpenWeatherDailyItem& day : daily.list) {
    if (day.sunrise && day.sunrise != current.sys.sunrise) events.push_back(SunStateChange::rise(*day.sunrise));
    if (day.sunset && day.sunset != current.sys.sunset) events.push_back(SunStateChange::set(*day.sunset));
  }
  addSunEventRows(record.hourly, events, context.now, context.timeZone);
  const Date currentHour = startOfZoneHour(context.now, context.timeZone);
  std::erase_if(record.hourly, [currentHour](const auto& row) { return row.dt < currentHour; });

  record.daily.reserve(daily.list.size());
  for (const OpenWeatherDailyItem& day : daily.list) {
    OneCallWeather::Daily row;
    row.dt = day.dt;
    row.temp = {day.temp.min, day.temp.max};
    row.feelsLike = {day.feelsLike.day, day.feelsLike.night, day.feelsLike.eve, day.feelsLike.morn};
    row.pop = std::clamp(day.pop.value_or(0.0), 0.0, 1.0);
    if (day.rain) row.rain = Precipitation::millimeters(*day.rain);
    if (day.snow) row.snow = Precipitation::millimeters(*day.snow);
    if (day.windSpeed) row.windSpeed = Speed::metersPerSecond(*day.windSpeed);
    if (day.windDeg) row.windDeg = Angle::degrees(*day.windDeg);
    if (day.windGust) row.windGust = Speed::metersPerSecond(*day.windGust);
    row.humidity = day.humidity;
    row.dewPoint = day.dewPoint;
    if (!row.dewPoint && day.humidity) row.dewPoint = magnusDewPoint(day.temp.day, *day.humidity);
    if (day.clouds) row.clouds = *day.clouds;
    row.weather = glyphs(day.weather);
    row.sunrise = day.sunrise;
    row.sunset = day.sunset;
    record.daily.push_back(std::move(row));
  }

  record.minutely = std::nullopt;
  record.alerts = std::vector<OneCallWeather::Alert>{};
  record.attribution = WeatherServiceAttribution{WeatherServiceAttribution::NameAttribution{
      .serviceName = std::string(kOpenWeatherServiceName),
      .url = boost::urls::url(*boost::urls::parse_absolute_uri(kOpenWeatherSiteUrl)),
  }};
  return record;
}

}  // namespace ombrine
