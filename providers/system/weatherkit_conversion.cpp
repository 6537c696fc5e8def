#include "providers/system/weatherkit_conversion.hpp"

#include <boost/url/parse.hpp>

#include <cctype>
#include <cmath>
#include <map>

#include "core/record/sun_event_rows.hpp"
#include "core/values/saturating_int.hpp"
#include "providers/common/glyph_table.hpp"
#include "providers/system/aw_alert_details.hpp"

namespace ombrine {

namespace {

constexpr GlyphRule kConditions[] = {
    {"Clear", "sun.max", "moon.stars", 800},
    {"MostlyClear", "sun.max", "moon.stars", 801},
    {"PartlyCloudy", "cloud.sun", "cloud.moon", 802},
    {"MostlyCloudy", "cloud", "cloud", 803},
    {"Cloudy", "cloud", "cloud", 804},
    {"Foggy", "cloud.fog", "cloud.fog", 741},
    {"Haze", "sun.haze", "moon.haze", 721},
    {"Smoky", "smoke", "smoke", 711},
    {"BlowingDust", "sun.dust", "sun.dust", 761},
    {"Breezy", "wind", "wind", 771},
    {"Windy", "wind", "wind", 771},
    {"Drizzle", "cloud.drizzle", "cloud.drizzle", 300},
    {"Rain", "cloud.rain", "cloud.rain", 501},
    {"HeavyRain", "cloud.heavyrain", "cloud.heavyrain", 502},
    {"Showers", "cloud.sun.rain", "cloud.moon.rain", 521},
    {"ScatteredShowers", "cloud.sun.rain", "cloud.moon.rain", 520},
    {"SunShowers", "cloud.sun.rain", "cloud.moon.rain", 520},
    {"FreezingDrizzle", "cloud.drizzle", "cloud.drizzle", 511},
    {"FreezingRain", "cloud.sleet", "cloud.sleet", 511},
    {"MixedRainfall", "cloud.sleet", "cloud.sleet", 615},
    {"MixedRainAndSleet", "cloud.sleet", "cloud.sleet", 615},
    {"MixedRainAndSnow", "cloud.sleet", "cloud.sleet", 616},
    {"MixedSnowAndSleet", "cloud.sleet", "cloud.sleet", 611},
    {"WintryMix", "cloud.sleet", "cloud.sleet", 611},
    {"Sleet", "cloud.sleet", "cloud.sleet", 611},
    {"Hail", "cloud.hail", "cloud.hail", 906},
    {"Flurries", "cloud.snow", "cloud.snow", 600},
    {"SunFlurries", "cloud.snow", "cloud.snow", 600},
    {"Snow", "cloud.snow", "cloud.snow", 601},
    {"SnowShowers", "cloud.snow", "cloud.snow", 621},
    {"ScatteredSnowShowers", "cloud.snow", "cloud.snow", 620},
    {"HeavySnow", "cloud.snow", "cloud.snow", 602},
    {"BlowingSnow", "wind.snow", "wind.snow", 602},
    {"Blizzard", "wind.snow", "wind.snow", 602},
    {"IsolatedThunderstorms", "cloud.sun.bolt", "cloud.moon.bolt", 210},
    {"ScatteredThunderstorms", "cloud.sun.bolt", "cloud.moon.bolt", 210},
    {"Thunderstorms", "cloud.bolt", "cloud.moon.bolt", 211},
    {"StrongStorms", "cloud.bolt.rain", "cloud.bolt.rain", 212},
    {"TropicalStorm", "tropicalstorm", "tropicalstorm", 771},
    {"Hurricane", "hurricane", "hurricane", 781},
    {"Hot", "sun.max", "moon.stars", 800},
    {"Frigid", "thermometer.snowflake", "thermometer.snowflake", 800},
};

// "MostlyCloudy" -> "Mostly Cloudy".
std::string words(std::string_view code) {
  std::string out;
  for (size_t i = 0; i < code.size(); ++i) {
    if (i > 0 && code[i - 1] != ' ' && std::isupper(static_cast<unsigned char>(code[i]))) out.push_back(' ');
    out.push_back(code[i]);
  }
  return out;
}

template <class Entry>
void fillCommon(Entry& row, double pressure, double humidity, double cloudCover, double visibility,
                std::optional<Temperature> dewPoint, double uvIndex, Speed windSpeed, std::optional<Speed> windGust,
                double windDirection) {
  row.pressure = saturatingInt(pressure);
  row.humidity = saturatingInt(humidity * 100.0);
  row.clouds = saturatingInt(cloudCover * 100.0);
  row.visibility = saturatingInt(visibility);
  row.dewPoint = dewPoint.value_or(Temperature::celsius(0.0));
  row.uvi = uvIndex;
  row.windSpeed = windSpeed;
  row.windGust = windGust;
  row.windDeg = Angle::degrees(windDirection);
}

OneCallWeather::Hourly hourRow(const WeatherKitHour& hour) {
  OneCallWeather::Hourly row;
  row.dt = hour.forecastStart;
  row.temp = hour.temperature;
  row.feelsLike = hour.temperatureApparent;
  fillCommon(row, hour.pressure, hour.humidity, hour.cloudCover, hour.visibility, hour.temperatureDewPoint,
             hour.uvIndex, hour.windSpeed, hour.windGust, hour.windDirection);
  row.pop = hour.precipitationChance;
  switch (systemWeatherPrecipitationKind(hour.precipitationType)) {
    case PrecipitationKind::none: break;
    case PrecipitationKind::snow:
      row.snow = OneCallWeather::Snow{Precipitation::millimeters(hour.precipitationAmount)};
      break;
    default: row.rain = OneCallWeather::Rain{Precipitation::millimeters(hour.precipitationAmount)}; break;
  }
  row.weather = {systemWeatherGlyph(hour.conditionCode, hour.daylight)};
  return row;
}

std::optional<WeatherSeverity> severityOf(std::string_view name) {
  if (auto severity = weatherSeverityNamed(name)) return severity;
  return WeatherSeverity::unknown;
}

}  // namespace

OneCallWeather::Glyph systemWeatherGlyph(std::string_view conditionCode, bool isDaylight) {
  return glyphByTable(kConditions, conditionCode, words(conditionCode), isDaylight);
}

PrecipitationKind systemWeatherPrecipitationKind(std::string_view type) {
  if (type == "rain" || type == "precipitation") return PrecipitationKind::rain;
  if (type == "snow") return PrecipitationKind::snow;
  if (type == "sleet") return PrecipitationKind::sleet;
  if (type == "hail") return PrecipitationKind::hail;
  if (type == "mixed") return PrecipitationKind::mixed;
  return PrecipitationKind::none;
}

OneCallWeather convertSystemWeather(const AppleWeather& weather, const SystemWeatherConversionContext& context) {
  const TimeZone& zone = context.timeZone;
  OneCallWeather record;
  record.lat = context.location.latitude();
  record.lon = context.location.longitude();
  record.timeZone = zone;

  const Date today = startOfZoneDay(context.now, zone);
  const WeatherKitDay* todayEntry = nullptr;
  for (const WeatherKitDay& day : weather.dailyForecast) {
    if (startOfZoneDay(day.forecastStart + 1.0, zone) == today) {
      todayEntry = &day;
      break;
    }
  }

  OneCallWeather::Current& now = record.current;
  if (weather.currentWeather) {
    const WeatherKitCurrent& c = *weather.currentWeather;
    now.dt = c.asOf;
    now.temp = c.temperature;
    now.feelsLike = c.temperatureApparent;
    fillCommon(now, c.pressure, c.humidity, c.cloudCover, c.visibility, c.temperatureDewPoint, c.uvIndex, c.windSpeed,
               c.windGust, c.windDirection);
    now.weather = {systemWeatherGlyph(c.conditionCode, c.daylight)};
    if (c.precipitationIntensity > 0.0) {
      now.rain = OneCallWeather::Rain{Precipitation::millimeters(c.precipitationIntensity)};
    }
  } else if (!weather.hourlyForecast.empty()) {
    OneCallWeather::Hourly first = hourRow(weather.hourlyForecast.front());
    now.dt = first.dt;
    now.temp = first.temp;
    now.feelsLike = first.feelsLike;
    now.pressure = first.pressure;
    now.dewPoint = first.dewPoint;
    now.uvi = first.uvi;
    now.humidity = first.humidity;
    now.clouds = first.clouds;
    now.visibility = first.visibility;
    now.windSpeed = first.windSpeed;
    now.windGust = first.windGust;
    now.windDeg = first.windDeg;
    now.weather = first.weather;
  }
  if (todayEntry) {
    now.sunrise = todayEntry->sunrise;
    now.sunset = todayEntry->sunset;
  }

  if (weather.minuteForecast) {
    std::vector<OneCallWeather::Minutely> minutes;
    minutes.reserve(weather.minuteForecast->minutes.size());
    for (const WeatherKitMinute& minute : weather.minuteForecast->minutes) {
      std::optional<PrecipitationKind> kind;
      for (const WeatherKitSummary& stretch : weather.minuteForecast->summary) {
        if (minute.startTime >= stretch.startTime && (!stretch.endTime || minute.startTime < *stretch.endTime)) {
          kind = systemWeatherPrecipitationKind(stretch.condition);
        }
      }
      minutes.push_back({.dt = minute.startTime,
                         .precipitation = Precipitation::millimeters(minute.precipitationIntensity),
                         .type = kind});
    }
    record.minutely = std::move(minutes);
  }

  record.hourly.reserve(weather.hourlyForecast.size() + 2 * weather.dailyForecast.size());
  for (const WeatherKitHour& hour : weather.hourlyForecast) record.hourly.push_back(hourRow(hour));

  // The day's hours by local hour of day, for the feels-like values.
  std::map<double, std::map<int, Temperature>> apparentByDay;
  for (const WeatherKitHour& hour : weather.hourlyForecast) {
    Date day = startOfZoneDay(hour.forecastStart, zone);
    int hourOfDay = saturatingInt(std::floor((hour.forecastStart - day) / 3600.0));
    apparentByDay[day.timeIntervalSinceReferenceDate][hourOfDay] = hour.temperatureApparent;
  }

  std::vector<SunStateChange> events;
  record.daily.reserve(weather.dailyForecast.size());
  for (const WeatherKitDay& day : weather.dailyForecast) {
    OneCallWeather::Daily row;
    const Date start = startOfZoneDay(day.forecastStart + 1.0, zone);
    row.dt = start;
    row.temp = {day.temperatureMin, day.temperatureMax};
    const Temperature mean =
        Temperature::celsius((day.temperatureMin.inCelsius() + day.temperatureMax.inCelsius()) / 2.0);
    auto apparentAt = [&](int hourOfDay) {
      auto dayHours = apparentByDay.find(start.timeIntervalSinceReferenceDate);
      if (dayHours == apparentByDay.end()) return mean;
      auto found = dayHours->second.find(hourOfDay);
      return found == dayHours->second.end() ? mean : found->second;
    };
    row.feelsLike = {.day = apparentAt(12), .night = apparentAt(23), .eve = apparentAt(18), .morn = apparentAt(6)};
    row.pop = day.precipitationChance;
    const bool snowDay = systemWeatherPrecipitationKind(day.precipitationType) == PrecipitationKind::snow;
    if (day.rainfallAmount) {
      row.rain = Precipitation::millimeters(*day.rainfallAmount);
    } else if (!snowDay) {
      row.rain = Precipitation::millimeters(day.precipitationAmount);
    }
    row.snow = Precipitation::millimeters(day.snowfallAmount);
    row.uvi = day.maxUvIndex;
    if (day.daytimeForecast) {
      row.windSpeed = day.daytimeForecast->windSpeed;
      row.windDeg = Angle::degrees(day.daytimeForecast->windDirection);
      row.windGust = day.daytimeForecast->windGust;
      row.humidity = day.daytimeForecast->humidity * 100.0;
      row.clouds = day.daytimeForecast->cloudCover * 100.0;
    }
    row.weather = {systemWeatherGlyph(day.conditionCode, true)};
    row.sunrise = day.sunrise;
    row.sunset = day.sunset;
    if (day.sunrise) events.push_back(SunStateChange::rise(*day.sunrise));
    if (day.sunset) events.push_back(SunStateChange::set(*day.sunset));
    record.daily.push_back(std::move(row));
  }
  addSunEventRows(record.hourly, events, context.now, zone);

  std::optional<std::string> provider;
  if (const auto* object = weather.attribution.if_object()) {
    if (const auto* name = object->if_contains("providerName"); name && name->is_string()) {
      provider = std::string(name->get_string());
    }
  }
  std::vector<OneCallWeather::Alert> alerts;
  for (const WeatherKitAlert& alert : weather.weatherAlerts.value_or(std::vector<WeatherKitAlert>{})) {
    const AWAlertDetails details = alertDetails(alert, provider);
    OneCallWeather::Alert row;
    row.senderName = details.source.value_or("");
    row.event = details.summary.value_or("");
    row.start = details.onsetTime.value_or(details.date.value_or(alert.effectiveTime));
    row.end = details.endDate ? details.endDate : details.expirationDate;
    row.description = details.description;
    row.url = details.detailsURL;
    row.severity = severityOf(details.severity.value_or("unknown"));
    row.tags = alert.responses;
    alerts.push_back(std::move(row));
  }
  record.alerts = std::move(alerts);
  record.attribution = WeatherServiceAttribution{WeatherServiceAttribution::Apple{weather.attribution}};
  return record;
}

}  // namespace ombrine
