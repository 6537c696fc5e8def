#include "providers/openweather/openweather_wire.hpp"

#include <boost/json/monotonic_resource.hpp>

#include "core/values/json_fields.hpp"
#include "core/values/saturating_int.hpp"

namespace ombrine {

namespace json = boost::json;

namespace {

Temperature temperature(double value, OpenWeatherUnits units) {
  return units == OpenWeatherUnits::metric ? Temperature::celsius(value) : Temperature::kelvin(value);
}

Date unixDate(const JsonFields& fields, std::string_view key) {
  return Date::fromUnix(static_cast<double>(fields.integer(key)));
}

std::optional<Date> optionalUnixDate(const JsonFields& fields, std::string_view key) {
  auto seconds = fields.optionalInteger(key);
  return seconds ? std::optional(Date::fromUnix(static_cast<double>(*seconds))) : std::nullopt;
}

std::optional<int> optionalInt(const JsonFields& fields, std::string_view key) {
  auto value = fields.optionalNumber(key);
  return value ? std::optional(saturatingInt(*value)) : std::nullopt;
}

std::vector<OpenWeatherCondition> conditions(const JsonFields& fields) {
  std::vector<OpenWeatherCondition> result;
  const json::array& list = fields.optionalArray("weather");
  result.reserve(list.size());
  for (size_t i = 0; i < list.size(); ++i) {
    JsonFields item = fields.element("weather", list[i], i);
    result.push_back(
        {static_cast<int>(item.integer("id")), item.string("main"), item.string("description"), item.string("icon")});
  }
  return result;
}

OpenWeatherMain mainBlock(const JsonFields& fields, OpenWeatherUnits units) {
  JsonFields main = fields.object("main");
  return {temperature(main.number("temp"), units), temperature(main.number("feels_like"), units),
          main.number("pressure"), main.number("humidity")};
}

std::optional<OpenWeatherWind> wind(const JsonFields& fields) {
  auto block = fields.optionalObject("wind");
  if (!block) return std::nullopt;
  return OpenWeatherWind{block->optionalNumber("speed"), block->optionalNumber("deg"), block->optionalNumber("gust")};
}

std::optional<int> cloudsAll(const JsonFields& fields) {
  auto block = fields.optionalObject("clouds");
  return block ? optionalInt(*block, "all") : std::nullopt;
}

std::optional<OpenWeatherVolume> volume(const JsonFields& fields, std::string_view key) {
  auto block = fields.optionalObject(key);
  if (!block) return std::nullopt;
  return OpenWeatherVolume{block->optionalNumber("1h"), block->optionalNumber("3h")};
}

// The daily answer's wind keys, either spelling.
std::optional<double> eitherNumber(const JsonFields& fields, std::string_view key, std::string_view alternative) {
  auto value = fields.optionalNumber(key);
  return value ? value : fields.optionalNumber(alternative);
}

// Daily rain and snow are plain numbers; an object with "1h"/"3h" is read too.
std::optional<double> dailyAmount(const JsonFields& fields, std::string_view key) {
  const json::value* value = fields.optional(key);
  if (!value || !value->is_object()) return fields.optionalNumber(key);
  auto amounts = volume(fields, key);
  return amounts->oneHour ? amounts->oneHour : amounts->threeHour;
}

}  // namespace

OpenWeatherCurrentResponse decodeOpenWeatherCurrent(std::string_view text, OpenWeatherUnits units) {
  json::monotonic_resource arena;
  json::value document = parseJson(text, &arena);
  JsonFields root(document, "");
  OpenWeatherCurrentResponse response;
  response.weather = conditions(root);
  response.main = mainBlock(root, units);
  response.visibility = optionalInt(root, "visibility");
  response.wind = wind(root);
  if (auto block = root.optionalObject("clouds")) response.clouds = OpenWeatherClouds{optionalInt(*block, "all")};
  response.rain = volume(root, "rain");
  response.snow = volume(root, "snow");
  response.dt = unixDate(root, "dt");
  if (auto sys = root.optionalObject("sys")) {
    response.sys.sunrise = optionalUnixDate(*sys, "sunrise");
    response.sys.sunset = optionalUnixDate(*sys, "sunset");
  }
  return response;
}

OpenWeatherForecastResponse decodeOpenWeatherForecast(std::string_view text, OpenWeatherUnits units) {
  json::monotonic_resource arena;
  json::value document = parseJson(text, &arena);
  JsonFields root(document, "");
  OpenWeatherForecastResponse response;
  const json::array& list = root.array("list");
  response.list.reserve(list.size());
  for (size_t i = 0; i < list.size(); ++i) {
    JsonFields item = root.element("list", list[i], i);
    response.list.push_back({
        .dt = unixDate(item, "dt"),
        .main = mainBlock(item, units),
        .weather = conditions(item),
        .clouds = cloudsAll(item),
        .wind = wind(item),
        .visibility = optionalInt(item, "visibility"),
        .pop = item.optionalNumber("pop"),
        .rain = volume(item, "rain"),
        .snow = volume(item, "snow"),
    });
  }
  return response;
}

OpenWeatherDailyResponse decodeOpenWeatherDaily(std::string_view text, OpenWeatherUnits units) {
  json::monotonic_resource arena;
  json::value document = parseJson(text, &arena);
  JsonFields root(document, "");
  OpenWeatherDailyResponse response;
  const json::array& list = root.array("list");
  response.list.reserve(list.size());
  for (size_t i = 0; i < list.size(); ++i) {
    JsonFields item = root.element("list", list[i], i);
    JsonFields temp = item.object("temp");
    auto t = [&](const JsonFields& block, std::string_view key) { return temperature(block.number(key), units); };
    OpenWeatherDailyItem day;
    day.dt = unixDate(item, "dt");
    day.sunrise = optionalUnixDate(item, "sunrise");
    day.sunset = optionalUnixDate(item, "sunset");
    day.temp = {t(temp, "day"), t(temp, "min"), t(temp, "max"), t(temp, "night"), t(temp, "eve"), t(temp, "morn")};
    if (auto feels = item.optionalObject("feels_like")) {
      day.feelsLike = {t(*feels, "day"), t(*feels, "night"), t(*feels, "eve"), t(*feels, "morn")};
    } else {
      day.feelsLike = {day.temp.day, day.temp.night, day.temp.eve, day.temp.morn};
    }
    day.pressure = item.optionalNumber("pressure");
    day.humidity = item.optionalNumber("humidity");
    day.windSpeed = eitherNumber(item, "speed", "wind_speed");
    day.windDeg = eitherNumber(item, "deg", "wind_deg");
    day.windGust = eitherNumber(item, "gust", "wind_gust");
    const json::value* cloudValue = item.optional("clouds");
    day.clouds = cloudValue && cloudValue->is_object() ? cloudsAll(item) : optionalInt(item, "clouds");
    day.weather = conditions(item);
    day.pop = item.optionalNumber("pop");
    day.rain = dailyAmount(item, "rain");
    day.snow = dailyAmount(item, "snow");
    if (auto dew = item.optionalNumber("dew_point")) day.dewPoint = temperature(*dew, units);
    response.list.push_back(std::move(day));
  }
  return response;
}

}  // namespace ombrine
