#include "providers/bom/bom_conversion.hpp"

#include <boost/url/parse.hpp>

#include <cctype>
#include <cmath>

#include "core/record/sun_event_rows.hpp"
#include "core/values/errors.hpp"
#include "providers/common/glyph_table.hpp"

namespace ombrine {

namespace {

constexpr GlyphRule kDescriptors[] = {
    {"sunny", "sun.max", "moon.stars", 800},
    {"clear", "sun.max", "moon.stars", 800},
    {"mostly_sunny", "cloud.sun", "cloud.moon", 801},
    {"partly_cloudy", "cloud.sun", "cloud.moon", 802},
    {"cloudy", "cloud", "cloud", 804},
    {"hazy", "sun.haze", "moon.haze", 721},
    {"haze", "sun.haze", "moon.haze", 721},
    {"fog", "cloud.fog", "cloud.fog", 741},
    {"dusty", "sun.dust", "sun.dust", 761},
    {"windy", "wind", "wind", 771},
    {"frost", "snowflake", "snowflake", 600},
    {"light_rain", "cloud.drizzle", "cloud.drizzle", 500},
    {"rain", "cloud.rain", "cloud.rain", 501},
    {"light_shower", "cloud.sun.rain", "cloud.moon.rain", 520},
    {"shower", "cloud.sun.rain", "cloud.moon.rain", 521},
    {"showers", "cloud.sun.rain", "cloud.moon.rain", 521},
    {"heavy_shower", "cloud.heavyrain", "cloud.heavyrain", 522},
    {"storm", "cloud.bolt.rain", "cloud.bolt.rain", 211},
    {"snow", "cloud.snow", "cloud.snow", 601},
    {"cyclone", "hurricane", "hurricane", 781},
    {"tropicalcyclone", "tropicalstorm", "tropicalstorm", 781},
};

std::string words(std::string_view descriptor) {
  std::string out(descriptor);
  for (char& c : out) {
    if (c == '_') c = ' ';
  }
  if (!out.empty()) out[0] = static_cast<char>(std::toupper(static_cast<unsigned char>(out[0])));
  return out;
}

Temperature magnus(Temperature temperature, int humidity) {
  if (humidity <= 0) return Temperature{};
  const double t = temperature.inCelsius();
  const double x = 17.27 * t / (237.7 + t) + std::log(humidity / 100.0);
  const double dewPoint = 237.7 * x / (17.27 - x);
  return std::isfinite(dewPoint) ? Temperature::celsius(dewPoint) : Temperature{};
}

Precipitation amountOf(const BOM::Rain& rain) {
  if (!rain.amount.max) return Precipitation::millimeters(rain.amount.min);
  return Precipitation::millimeters((rain.amount.min + *rain.amount.max) / 2.0);
}

}  // namespace

OneCallWeather::Glyph bureauGlyph(std::string_view descriptor, bool isDaylight) {
  return glyphByTable(kDescriptors, descriptor, words(descriptor), isDaylight);
}

OneCallWeather convertBureau(const BureauAnswers& answers, const BureauConversionContext& context) {
  if (answers.daily.empty()) throw DomainError("Empty data", 6000, "the Bureau of Meteorology sent no daily forecast");
  const TimeZone& zone = context.timeZone;
  OneCallWeather record;
  record.lat = context.location.latitude();
  record.lon = context.location.longitude();
  record.timeZone = zone;

  OneCallWeather::Current& now = record.current;
  const BOM::Current::WeatherData& observed = answers.observations;
  now.dt = context.now;
  now.temp = observed.temp;
  now.feelsLike = observed.tempFeelsLike;
  now.humidity = observed.humidity;
  now.windSpeed = observed.wind.speedKilometre;
  now.windDeg = observed.wind.direction.value_or(Angle{});
  now.windGust = observed.gust ? observed.gust->speedKilometre : observed.wind.gustSpeedKilometre;
  const bool daylight = answers.hourly.empty() || !answers.hourly.front().isNight;
  if (!answers.hourly.empty() && answers.hourly.front().iconDescriptor) {
    now.weather = {bureauGlyph(*answers.hourly.front().iconDescriptor, daylight)};
  } else {
    now.weather = {OneCallWeather::Glyph{800, "Clear", "Clear", daylight ? "sun.max" : "moon.stars", daylight}};
  }
  const Date today = startOfZoneDay(context.now, zone);
  for (const BOM::Daily::WeatherData& day : answers.daily) {
    if (startOfZoneDay(day.date + 1.0, zone) == today) {
      now.sunrise = day.astronomical.sunriseTime;
      now.sunset = day.astronomical.sunsetTime;
      break;
    }
  }

  record.hourly.reserve(answers.hourly.size() + 2 * answers.daily.size());
  for (const BOM::Hourly::WeatherData& hour : answers.hourly) {
    OneCallWeather::Hourly row;
    row.dt = hour.time;
    row.temp = hour.temp;
    row.feelsLike = hour.tempFeelsLike;
    row.humidity = hour.relativeHumidity;
    row.dewPoint = hour.dewPoint.value_or(magnus(hour.temp, hour.relativeHumidity));
    row.uvi = hour.uv;
    row.windSpeed = hour.wind.speedKilometre;
    row.windDeg = hour.wind.direction.value_or(Angle{});
    row.windGust = hour.wind.gustSpeedKilometre;
    row.pop = hour.rain.chance / 100.0;
    row.rain = OneCallWeather::Rain{amountOf(hour.rain)};
    if (hour.iconDescriptor) row.weather = {bureauGlyph(*hour.iconDescriptor, !hour.isNight)};
    record.hourly.push_back(std::move(row));
  }

  std::vector<SunStateChange> events;
  record.daily.reserve(answers.daily.size());
  for (const BOM::Daily::WeatherData& day : answers.daily) {
    OneCallWeather::Daily row;
    row.dt = day.date;
    const Temperature max = day.tempMax.value_or(day.tempMin.value_or(Temperature{}));
    const std::optional<Temperature> tonight = day.now ? day.now->tempLater : std::nullopt;
    row.temp = {day.tempMin.value_or(tonight.value_or(max)), max};
    row.uvi = day.uv.maxIndex ? std::optional<double>(*day.uv.maxIndex) : std::nullopt;
    row.pop = day.rain.chance / 100.0;
    row.rain = amountOf(day.rain);
    if (day.iconDescriptor) row.weather = {bureauGlyph(*day.iconDescriptor, true)};
    row.sunrise = day.astronomical.sunriseTime;
    row.sunset = day.astronomical.sunsetTime;
    if (row.sunrise) events.push_back(SunStateChange::rise(*row.sunrise));
    if (row.sunset) events.push_back(SunStateChange::set(*row.sunset));
    record.daily.push_back(std::move(row));
  }
  addSunEventRows(record.hourly, events, context.now, zone);

  std::vector<OneCallWeather::Alert> alerts;
  for (const BomWarning& warning : answers.warnings) {
    if (warning.expiryTime && *warning.expiryTime <= context.now) continue;
    OneCallWeather::Alert alert;
    alert.senderName = std::string(kBureauServiceName);
    alert.event = warning.title;
    alert.start = warning.issueTime;
    alert.end = warning.expiryTime;
    if (!warning.type.empty()) alert.tags = {warning.type};
    alerts.push_back(std::move(alert));
  }
  record.alerts = std::move(alerts);
  record.attribution = WeatherServiceAttribution{WeatherServiceAttribution::NameAttribution{
      .serviceName = std::string(kBureauServiceName),
      .url = boost::urls::url(*boost::urls::parse_absolute_uri("http://www.bom.gov.au")),
  }};
  return record;
}

OneCallWeather mergeBureauWithSystemWeather(OneCallWeather a, const OneCallWeather& b) {
  OneCallWeather::Current& now = a.current;
  if (b.current.pressure) now.pressure = b.current.pressure;
  if (b.current.visibility) now.visibility = b.current.visibility;
  now.dewPoint = b.current.dewPoint;
  now.airQuality = b.current.airQuality;
  if (!now.windGust) now.windGust = b.current.windGust;
  a.minutely = b.minutely;
  a.alerts = b.alerts;
  for (size_t i = 0; i < a.hourly.size() && i < b.hourly.size(); ++i) {
    OneCallWeather::Hourly& row = a.hourly[i];
    const OneCallWeather::Hourly& other = b.hourly[i];
    if (other.pressure) row.pressure = other.pressure;
    if (other.visibility) row.visibility = other.visibility;
    row.clouds = other.clouds;
  }
  for (size_t i = 0; i < a.daily.size() && i < b.daily.size(); ++i) {
    OneCallWeather::Daily& row = a.daily[i];
    const OneCallWeather::Daily& other = b.daily[i];
    row.feelsLike = other.feelsLike;
    row.windSpeed = other.windSpeed;
    row.windDeg = other.windDeg;
    row.windGust = other.windGust;
    row.humidity = other.humidity;
    row.dewPoint = other.dewPoint;
    row.clouds = other.clouds;
  }
  a.attribution = WeatherServiceAttribution{WeatherServiceAttribution::NameAttribution{
      .serviceName = std::string(kBureauMergedServiceName), .url = std::nullopt}};
  a.isPlaceholder = false;
  a.tideData = std::nullopt;
  return a;
}

}  // namespace ombrine
