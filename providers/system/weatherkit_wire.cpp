#include "providers/system/weatherkit_wire.hpp"

#include <boost/json/monotonic_resource.hpp>

#include "core/values/iso8601.hpp"
#include "core/values/json_fields.hpp"

namespace ombrine {

namespace json = boost::json;

namespace {

Date date(const JsonFields& fields, std::string_view key) {
  std::string text = fields.string(key);
  auto parsed = parseInternetDateTime(text, false);
  if (!parsed) parsed = parseInternetDateTime(text, true);
  if (!parsed) fields.fail(key, "expected an ISO 8601 date");
  return *parsed;
}

std::optional<Date> optionalDate(const JsonFields& fields, std::string_view key) {
  if (!fields.has(key)) return std::nullopt;
  return date(fields, key);
}

std::optional<Temperature> optionalCelsius(const JsonFields& fields, std::string_view key) {
  auto value = fields.optionalNumber(key);
  return value ? std::optional(Temperature::celsius(*value)) : std::nullopt;
}

std::optional<Speed> optionalKmh(const JsonFields& fields, std::string_view key) {
  auto value = fields.optionalNumber(key);
  return value ? std::optional(Speed::kilometersPerHour(*value)) : std::nullopt;
}

double numberOr(const JsonFields& fields, std::string_view key, double fallback) {
  return fields.optionalNumber(key).value_or(fallback);
}

WeatherKitCurrent current(const JsonFields& f) {
  return {.asOf = date(f, "asOf"),
          .cloudCover = numberOr(f, "cloudCover", 0.0),
          .conditionCode = f.string("conditionCode"),
          .daylight = f.has("daylight") ? f.boolean("daylight") : true,
          .humidity = f.number("humidity"),
          .precipitationIntensity = numberOr(f, "precipitationIntensity", 0.0),
          .pressure = f.number("pressure"),
          .temperature = Temperature::celsius(f.number("temperature")),
          .temperatureApparent = Temperature::celsius(f.number("temperatureApparent")),
          .temperatureDewPoint = optionalCelsius(f, "temperatureDewPoint"),
          .uvIndex = numberOr(f, "uvIndex", 0.0),
          .visibility = f.number("visibility"),
          .windSpeed = Speed::kilometersPerHour(f.number("windSpeed")),
          .windGust = optionalKmh(f, "windGust"),
          .windDirection = numberOr(f, "windDirection", 0.0)};
}

WeatherKitHour hour(const JsonFields& f) {
  return {.forecastStart = date(f, "forecastStart"),
          .cloudCover = numberOr(f, "cloudCover", 0.0),
          .conditionCode = f.string("conditionCode"),
          .daylight = f.has("daylight") ? f.boolean("daylight") : true,
          .humidity = f.number("humidity"),
          .precipitationAmount = numberOr(f, "precipitationAmount", 0.0),
          .precipitationChance = numberOr(f, "precipitationChance", 0.0),
          .precipitationType = f.optionalString("precipitationType").value_or("clear"),
          .pressure = f.number("pressure"),
          .temperature = Temperature::celsius(f.number("temperature")),
          .temperatureApparent = Temperature::celsius(f.number("temperatureApparent")),
          .temperatureDewPoint = optionalCelsius(f, "temperatureDewPoint"),
          .uvIndex = numberOr(f, "uvIndex", 0.0),
          .visibility = f.number("visibility"),
          .windSpeed = Speed::kilometersPerHour(numberOr(f, "windSpeed", 0.0)),
          .windGust = optionalKmh(f, "windGust"),
          .windDirection = numberOr(f, "windDirection", 0.0)};
}

WeatherKitDay day(const JsonFields& f) {
  WeatherKitDay result{.forecastStart = date(f, "forecastStart"),
                       .forecastEnd = date(f, "forecastEnd"),
                       .conditionCode = f.string("conditionCode"),
                       .maxUvIndex = f.optionalNumber("maxUvIndex"),
                       .precipitationAmount = numberOr(f, "precipitationAmount", 0.0),
                       .precipitationChance = numberOr(f, "precipitationChance", 0.0),
                       .precipitationType = f.optionalString("precipitationType").value_or("clear"),
                       .rainfallAmount = f.optionalNumber("rainfallAmount"),
                       .snowfallAmount = numberOr(f, "snowfallAmount", 0.0),
                       .sunrise = optionalDate(f, "sunrise"),
                       .sunset = optionalDate(f, "sunset"),
                       .temperatureMax = Temperature::celsius(f.number("temperatureMax")),
                       .temperatureMin = Temperature::celsius(f.number("temperatureMin")),
                       .daytimeForecast = std::nullopt};
  if (auto part = f.optionalObject("daytimeForecast")) {
    result.daytimeForecast = WeatherKitDayPart{.cloudCover = numberOr(*part, "cloudCover", 0.0),
                                               .humidity = numberOr(*part, "humidity", 0.0),
                                               .windSpeed = Speed::kilometersPerHour(numberOr(*part, "windSpeed", 0.0)),
                                               .windGust = optionalKmh(*part, "windGust"),
                                               .windDirection = numberOr(*part, "windDirection", 0.0)};
  }
  return result;
}

WeatherKitAlert alert(const JsonFields& f) {
  WeatherKitAlert result{.id = f.string("id"),
                         .areaName = f.optionalString("areaName").value_or(""),
                         .description = f.string("description"),
                         .effectiveTime = date(f, "effectiveTime"),
                         .expireTime = date(f, "expireTime"),
                         .issuedTime = date(f, "issuedTime"),
                         .eventOnsetTime = optionalDate(f, "eventOnsetTime"),
                         .eventEndTime = optionalDate(f, "eventEndTime"),
                         .detailsUrl = f.optionalString("detailsUrl"),
                         .severity = f.optionalString("severity").value_or("unknown"),
                         .source = f.string("source"),
                         .importance = f.optionalString("importance"),
                         .responses = {}};
  const json::array& responses = f.optionalArray("responses");
  for (size_t i = 0; i < responses.size(); ++i) {
    if (!responses[i].is_string())
      JsonFields::failAt(f.pathOf("responses") + "[" + std::to_string(i) + "]", "expected a string");
    result.responses.emplace_back(responses[i].get_string());
  }
  return result;
}

template <class Decode>
auto list(const JsonFields& set, std::string_view key, Decode decode) {
  std::vector<decltype(decode(set))> out;
  const json::array& items = set.array(key);
  out.reserve(items.size());
  for (size_t i = 0; i < items.size(); ++i) out.push_back(decode(set.element(key, items[i], i)));
  return out;
}

void noteAttribution(const JsonFields& set, AppleWeather& weather) {
  if (!weather.attribution.is_null()) return;
  auto metadata = set.optionalObject("metadata");
  if (!metadata) return;
  json::object attribution;
  if (auto url = metadata->optionalString("attributionURL")) attribution["legalPageURL"] = *url;
  if (auto provider = metadata->optionalString("providerName")) attribution["providerName"] = *provider;
  if (attribution.empty()) return;
  attribution["serviceName"] = std::string(kSystemWeatherServiceName);
  weather.attribution = std::move(attribution);
}

}  // namespace

AppleWeather decodeWeatherKitAnswer(std::string_view text) {
  json::monotonic_resource arena;
  json::value document = parseJson(text, &arena);
  JsonFields root(document, "");
  AppleWeather weather;
  if (auto set = root.optionalObject("currentWeather")) {
    weather.currentWeather = current(*set);
    noteAttribution(*set, weather);
  }
  if (auto set = root.optionalObject("forecastHourly")) {
    weather.hourlyForecast = list(*set, "hours", hour);
    noteAttribution(*set, weather);
  }
  if (auto set = root.optionalObject("forecastDaily")) {
    weather.dailyForecast = list(*set, "days", day);
    noteAttribution(*set, weather);
  }
  if (auto set = root.optionalObject("forecastNextHour")) {
    WeatherKitNextHour nextHour;
    nextHour.minutes = list(*set, "minutes", [](const JsonFields& f) {
      return WeatherKitMinute{date(f, "startTime"), numberOr(f, "precipitationChance", 0.0),
                              numberOr(f, "precipitationIntensity", 0.0)};
    });
    if (set->has("summary")) {
      nextHour.summary = list(*set, "summary", [](const JsonFields& f) {
        return WeatherKitSummary{date(f, "startTime"), optionalDate(f, "endTime"),
                                 f.optionalString("condition").value_or("clear")};
      });
    }
    weather.minuteForecast = std::move(nextHour);
  }
  if (auto set = root.optionalObject("weatherAlerts")) {
    weather.weatherAlerts = set->has("alerts") ? list(*set, "alerts", alert) : std::vector<WeatherKitAlert>{};
  }
  return weather;
}

}  // namespace ombrine
