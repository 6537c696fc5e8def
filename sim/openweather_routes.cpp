#include "sim/openweather_routes.hpp"

#include <fmt/format.h>

#include <boost/json/array.hpp>
#include <boost/json/object.hpp>

#include <charconv>
#include <cmath>

#include "sim/json_writer.hpp"

namespace ombrine::sim {

namespace json = boost::json;
using namespace std::chrono;

namespace {

struct Units {
  double (*temperature)(double celsius);
  double speedFactor;
};

Units unitsOf(const SimRequest& request) {
  const std::string_view units = request.param("units").value_or("standard");
  if (units == "metric") return {[](double c) { return c; }, 1.0};
  if (units == "imperial") return {[](double c) { return c * 9.0 / 5.0 + 32.0; }, 1.0 / 0.44704};
  if (units == "standard") return {[](double c) { return c + 273.15; }, 1.0};
  throw Refusal{400, fmt::format("{} is not a valid units value", units)};
}

double coordinate(const SimRequest& request, std::string_view name, double limit) {
  const auto text = request.param(name);
  if (!text) throw Refusal{400, "Nothing to geocode"};
  double value = 0.0;
  const auto result = std::from_chars(text->data(), text->data() + text->size(), value);
  if (result.ec != std::errc() || result.ptr != text->data() + text->size() || std::abs(value) > limit) {
    throw Refusal{400, fmt::format("wrong {}itude", name == "lat" ? "lat" : "long")};
  }
  return value;
}

// The condition of a sample: id, main, description, icon.
json::object condition(const WeatherSample& s) {
  const char* daylight = s.sunElevation > 0.0 ? "d" : "n";
  int id = 800;
  std::string_view main = "Clear";
  std::string_view description = "clear sky";
  std::string icon = "01";
  if (s.thunder) {
    id = 211, main = "Thunderstorm", description = "thunderstorm", icon = "11";
  } else if (s.precipRate > 0.05 && s.precipKind != PrecipKind::rain) {
    id = s.precipKind == PrecipKind::snow ? 600 : 616, main = "Snow";
    description = s.precipKind == PrecipKind::snow ? "light snow" : "rain and snow", icon = "13";
  } else if (s.precipRate > 2.5) {
    id = 501, main = "Rain", description = "moderate rain", icon = "10";
  } else if (s.precipRate > 0.05) {
    id = 500, main = "Rain", description = "light rain", icon = "10";
  } else if (s.fog) {
    id = 741, main = "Fog", description = "fog", icon = "50";
  } else if (s.cloudiness > 84) {
    id = 804, main = "Clouds", description = "overcast clouds", icon = "04";
  } else if (s.cloudiness > 50) {
    id = 803, main = "Clouds", description = "broken clouds", icon = "04";
  } else if (s.cloudiness > 24) {
    id = 802, main = "Clouds", description = "scattered clouds", icon = "03";
  } else if (s.cloudiness > 10) {
    id = 801, main = "Clouds", description = "few clouds", icon = "02";
  }
  return {{"id", id}, {"main", main}, {"description", description}, {"icon", icon + daylight}};
}

json::object mainBlock(const WeatherSample& s, const Units& units) {
  return {{"temp", roundedNumber(units.temperature(s.temperature), 2)},
          {"feels_like", roundedNumber(units.temperature(s.feelsLike), 2)},
          {"temp_min", roundedNumber(units.temperature(s.temperature - 0.4), 2)},
          {"temp_max", roundedNumber(units.temperature(s.temperature + 0.4), 2)},
          {"pressure", roundedNumber(s.pressure, 0)},
          {"sea_level", roundedNumber(s.pressure, 0)},
          {"grnd_level", roundedNumber(s.pressure - 12.0, 0)},
          {"humidity", s.relHumidity}};
}

json::object windBlock(const WeatherSample& s, const Units& units) {
  json::object wind{{"speed", roundedNumber(s.windSpeed * units.speedFactor, 2)}, {"deg", s.windDirection}};
  if (s.windGust > s.windSpeed + 0.5) wind["gust"] = roundedNumber(s.windGust * units.speedFactor, 2);
  return wind;
}

std::int64_t unix(Instant instant) { return instant.time_since_epoch().count(); }

template <class Build>
SimResponse answer(const SimRequest& request, Build build) {
  try {
    const auto key = request.param("appid");
    if (!key || key->empty()) {
      throw Refusal{401, "Invalid API key. Please see https://openweathermap.org/faq#error401 for more info."};
    }
    const GeoPoint point{coordinate(request, "lat", 90.0), coordinate(request, "lon", 180.0)};
    return SimResponse{.status = 200, .body = writeJson(build(point, unitsOf(request)))};
  } catch (const Refusal& refusal) {
    return SimResponse{.status = refusal.status, .body = openWeatherErrorBody(refusal.status, refusal.message)};
  }
}

SimRoute route(std::string name, std::string_view path, std::function<SimResponse(const SimRequest&)> handler) {
  return SimRoute{.name = std::move(name),
                  .pattern = std::regex(fmt::format("/openweather/data/2\\.5/{}", path)),
                  .answer = std::move(handler),
                  .errorBody = openWeatherErrorBody};
}

json::object city(GeoPoint point, Instant now) {
  const minutes offset = longitudeUtcOffset(point.longitude);
  const SunEvents sun = WeatherModel::sunEvents(point, localDay(now, offset), offset);
  json::object block{{"id", 0},
                     {"name", "Simulated"},
                     {"coord", {{"lat", roundedNumber(point.latitude, 4)}, {"lon", roundedNumber(point.longitude, 4)}}},
                     {"country", ""},
                     {"population", 0},
                     {"timezone", duration_cast<seconds>(offset).count()}};
  if (sun.sunrise) block["sunrise"] = unix(*sun.sunrise);
  if (sun.sunset) block["sunset"] = unix(*sun.sunset);
  return block;
}

}  // namespace

std::string openWeatherErrorBody(int status, std::string_view message) {
  json::object error;
  error["cod"] = status;
  error["message"] = message;
  return writeJson(error);
}

std::vector<SimRoute> openWeatherRoutes(const WeatherModel& model) {
  std::vector<SimRoute> routes;
  routes.push_back(route("openweather.current", "weather", [model](const SimRequest& request) {
    return answer(request, [&](GeoPoint point, const Units& units) {
      const Instant now = request.now;
      const WeatherSample s = model.sample(point, now);
      const minutes offset = longitudeUtcOffset(point.longitude);
      const SunEvents sun = WeatherModel::sunEvents(point, localDay(now, offset), offset);
      json::object body;
      body["coord"] = {{"lon", roundedNumber(point.longitude, 4)}, {"lat", roundedNumber(point.latitude, 4)}};
      body["weather"] = json::array{condition(s)};
      body["base"] = "stations";
      body["main"] = mainBlock(s, units);
      body["visibility"] = static_cast<int>(std::min(10000.0, s.visibility));
      body["wind"] = windBlock(s, units);
      const auto lastHour = model.accumulation(point, now - hours(1), now);
      if (lastHour.total - lastHour.snow > 0.01)
        body["rain"] = {{"1h", roundedNumber(lastHour.total - lastHour.snow, 2)}};
      if (lastHour.snow > 0.01) body["snow"] = {{"1h", roundedNumber(lastHour.snow, 2)}};
      body["clouds"] = {{"all", s.cloudiness}};
      body["dt"] = unix(now);
      json::object sys{{"type", 2}, {"id", 2000000}, {"country", ""}};
      if (sun.sunrise) sys["sunrise"] = unix(*sun.sunrise);
      if (sun.sunset) sys["sunset"] = unix(*sun.sunset);
      body["sys"] = std::move(sys);
      body["timezone"] = duration_cast<seconds>(offset).count();
      body["id"] = 0;
      body["name"] = "Simulated";
      body["cod"] = 200;
      return body;
    });
  }));
  routes.push_back(route("openweather.forecast", "forecast", [model](const SimRequest& request) {
    return answer(request, [&](GeoPoint point, const Units& units) {
      const Instant first =
          floor<hours>(request.now) + hours(3 - (floor<hours>(request.now).time_since_epoch().count() / 3600) % 3);
      json::array list;
      for (int i = 0; i < 40; ++i) {
        const Instant at = first + hours(3 * i);
        const WeatherSample s = model.sample(point, at);
        const auto amount = model.accumulation(point, at - hours(3), at);
        json::object item;
        item["dt"] = unix(at);
        item["main"] = mainBlock(s, units);
        item["weather"] = json::array{condition(s)};
        item["clouds"] = {{"all", s.cloudiness}};
        item["wind"] = windBlock(s, units);
        item["visibility"] = static_cast<int>(std::min(10000.0, s.visibility));
        const double meanRate = amount.total / 3.0;
        item["pop"] = roundedNumber(precipitationProbability(meanRate, s.cloudiness) / 100.0, 2);
        if (amount.total - amount.snow > 0.01) item["rain"] = {{"3h", roundedNumber(amount.total - amount.snow, 2)}};
        if (amount.snow > 0.01) item["snow"] = {{"3h", roundedNumber(amount.snow, 2)}};
        item["sys"] = {{"pod", s.sunElevation > 0.0 ? "d" : "n"}};
        const auto day = floor<days>(at);
        const hh_mm_ss clock{at - day};
        item["dt_txt"] = fmt::format("{} {:02}:00:00", formatDay(day), clock.hours().count());
        list.push_back(std::move(item));
      }
      return json::object{
          {"cod", "200"}, {"message", 0}, {"cnt", 40}, {"list", std::move(list)}, {"city", city(point, request.now)}};
    });
  }));
  routes.push_back(route("openweather.daily", "forecast/daily", [model](const SimRequest& request) {
    return answer(request, [&](GeoPoint point, const Units& units) {
      int count = 7;
      if (auto text = request.param("cnt")) {
        auto result = std::from_chars(text->data(), text->data() + text->size(), count);
        if (result.ec != std::errc() || count < 1 || count > 16) throw Refusal{400, "cnt must be 1..16"};
      }
      const minutes offset = longitudeUtcOffset(point.longitude);
      const sys_days today = localDay(request.now, offset);
      json::array list;
      for (int i = 0; i < count; ++i) {
        const ModelDay summary = modelDay(model, point, today + days(i), offset);
        const Instant midnight = summary.midnight;
        const double low = summary.low, high = summary.high;
        const auto& amount = summary.amount;
        const SunEvents& sun = summary.sun;
        auto at = [&](int hour) { return model.sample(point, midnight + hours(hour)); };
        const WeatherSample morn = at(6), noon = at(12), eve = at(18), night = at(23);
        json::object item;
        item["dt"] = unix(midnight + hours(12));
        if (sun.sunrise) item["sunrise"] = unix(*sun.sunrise);
        if (sun.sunset) item["sunset"] = unix(*sun.sunset);
        auto t = [&](double c) { return roundedNumber(units.temperature(c), 2); };
        item["temp"] = {{"day", t(noon.temperature)},
                        {"min", t(low)},
                        {"max", t(high)},
                        {"night", t(night.temperature)},
                        {"eve", t(eve.temperature)},
                        {"morn", t(morn.temperature)}};
        item["feels_like"] = {{"day", t(noon.feelsLike)},
                              {"night", t(night.feelsLike)},
                              {"eve", t(eve.feelsLike)},
                              {"morn", t(morn.feelsLike)}};
        item["pressure"] = roundedNumber(noon.pressure, 0);
        item["humidity"] = noon.relHumidity;
        item["weather"] = json::array{condition(noon)};
        item["speed"] = roundedNumber(noon.windSpeed * units.speedFactor, 2);
        item["deg"] = noon.windDirection;
        item["gust"] = roundedNumber(noon.windGust * units.speedFactor, 2);
        item["clouds"] = noon.cloudiness;
        item["pop"] = roundedNumber(precipitationProbability(amount.total / 24.0, noon.cloudiness) / 100.0, 2);
        if (amount.total - amount.snow > 0.01) item["rain"] = roundedNumber(amount.total - amount.snow, 2);
        if (amount.snow > 0.01) item["snow"] = roundedNumber(amount.snow, 2);
        list.push_back(std::move(item));
      }
      return json::object{{"city", city(point, request.now)},
                          {"cod", "200"},
                          {"message", 0.05},
                          {"cnt", count},
                          {"list", std::move(list)}};
    });
  }));
  return routes;
}

}  // namespace ombrine::sim
