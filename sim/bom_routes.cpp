#include "sim/bom_routes.hpp"

#include <fmt/format.h>

#include <boost/json/array.hpp>
#include <boost/json/object.hpp>

#include <charconv>
#include <cmath>

#include "platform/compass_points.hpp"
#include "sim/json_writer.hpp"

namespace ombrine::sim {

namespace json = boost::json;
using namespace std::chrono;

namespace {

constexpr std::string_view kGeohashAlphabet = "0123456789bcdefghjkmnpqrstuvwxyz";

GeoPoint decodeGeohash(std::string_view hash) {
  if (hash.size() < 6 || hash.size() > 7) throw Refusal{400, "Invalid geohash length"};
  double latitude[2] = {-90.0, 90.0};
  double longitude[2] = {-180.0, 180.0};
  bool even = true;
  for (char c : hash) {
    const size_t value = kGeohashAlphabet.find(c);
    if (value == std::string_view::npos) throw Refusal{400, "Invalid geohash"};
    for (int bit = 4; bit >= 0; --bit) {
      double* range = even ? longitude : latitude;
      const double middle = (range[0] + range[1]) / 2.0;
      if ((value >> bit) & 1) {
        range[0] = middle;
      } else {
        range[1] = middle;
      }
      even = !even;
    }
  }
  return {(latitude[0] + latitude[1]) / 2.0, (longitude[0] + longitude[1]) / 2.0};
}

std::string encodeGeohash(GeoPoint point, int length) {
  double latitude[2] = {-90.0, 90.0};
  double longitude[2] = {-180.0, 180.0};
  std::string hash;
  bool even = true;
  int bits = 0, value = 0;
  while (static_cast<int>(hash.size()) < length) {
    double* range = even ? longitude : latitude;
    const double coordinate = even ? point.longitude : point.latitude;
    const double middle = (range[0] + range[1]) / 2.0;
    value <<= 1;
    if (coordinate >= middle) {
      value |= 1;
      range[0] = middle;
    } else {
      range[1] = middle;
    }
    even = !even;
    if (++bits == 5) {
      hash.push_back(kGeohashAlphabet[static_cast<size_t>(value)]);
      bits = value = 0;
    }
  }
  return hash;
}

std::string_view zoneOf(GeoPoint p) {
  if (p.latitude > -9.0 || p.latitude < -45.0 || p.longitude < 112.0 || p.longitude > 155.0) return "UTC";
  if (p.longitude < 129.0) return "Australia/Perth";
  if (p.longitude < 138.0) return p.latitude > -26.0 ? "Australia/Darwin" : "Australia/Adelaide";
  if (p.latitude > -29.0) return "Australia/Brisbane";
  return p.latitude < -39.5 ? "Australia/Hobart" : "Australia/Sydney";
}

json::object wind(const WeatherSample& s, bool withGust) {
  const double kmh = s.windSpeed * 3.6;
  json::object out{
      {"speed_knot", std::lround(kmh / 1.852)},
      {"speed_kilometre", std::lround(kmh)},
      {"direction", s.windSpeed < 0.5 ? "CALM" : kCompassAbbreviations[nearestCompassIndex(s.windDirection)]}};
  if (withGust) {
    out["gust_speed_knot"] = std::lround(s.windGust * 3.6 / 1.852);
    out["gust_speed_kilometre"] = std::lround(s.windGust * 3.6);
  }
  return out;
}

std::string_view descriptor(const WeatherSample& s) {
  if (s.thunder) return "storm";
  if (s.precipRate > 0.05) {
    if (s.precipKind == PrecipKind::snow) return "snow";
    if (s.precipRate > 4.0) return "heavy_shower";
    return s.precipRate > 1.0 ? "rain" : "light_rain";
  }
  if (s.fog) return "fog";
  if (s.windSpeed > 11.0) return "windy";
  if (s.cloudiness > 84) return "cloudy";
  if (s.cloudiness > 50) return "partly_cloudy";
  if (s.cloudiness > 20) return "mostly_sunny";
  return s.sunElevation > 0.0 ? "sunny" : "clear";
}

json::object rain(double total, int chance) {
  const int low = static_cast<int>(std::floor(total * 0.5));
  json::object amount{{"min", low},
                      {"max", total < 0.5 ? json::value(nullptr) : json::value(std::lround(total * 1.5 + 0.5))},
                      {"units", "mm"}};
  return {{"amount", std::move(amount)}, {"chance", chance}};
}

json::object envelope(json::value data, Instant now) {
  return {{"metadata",
           {{"response_timestamp", formatUtc(now)},
            {"issue_time", formatUtc(floor<hours>(now))},
            {"copyright", "Simulated Bureau of Meteorology answer."}}},
          {"data", std::move(data)}};
}

template <class Build>
SimResponse answer(const SimRequest& request, Build build) {
  try {
    const GeoPoint point = decodeGeohash(request.captures.empty() ? std::string_view{} : request.captures.front());
    return SimResponse{.status = 200, .body = writeJson(envelope(build(point), request.now))};
  } catch (const Refusal& refusal) {
    return SimResponse{.status = refusal.status, .body = bomErrorBody(refusal.status, refusal.message)};
  }
}

SimRoute route(std::string name, std::string_view suffix, std::function<SimResponse(const SimRequest&)> handler) {
  return SimRoute{.name = std::move(name),
                  .pattern = std::regex(fmt::format("/bom/v1/locations/([^/]+){}", suffix)),
                  .answer = std::move(handler),
                  .errorBody = bomErrorBody};
}

}  // namespace

std::string bomErrorBody(int status, std::string_view message) {
  json::object error{{"code", std::to_string(status)},
                     {"title", status == 404   ? "Not Found"
                               : status >= 500 ? "Server Error"
                                               : "Invalid Parameter"},
                     {"status", std::to_string(status)},
                     {"detail", message}};
  return writeJson(json::object{{"errors", json::array{std::move(error)}}});
}

std::vector<SimRoute> bomRoutes(const WeatherModel& model) {
  std::vector<SimRoute> routes;
  routes.push_back(
      SimRoute{.name = "bom.search",
               .pattern = std::regex("/bom/v1/locations"),
               .answer =
                   [](const SimRequest& request) {
                     const auto search = request.param("search");
                     double latitude = 0.0, longitude = 0.0;
                     const size_t comma = search ? search->find(',') : std::string_view::npos;
                     if (comma == std::string_view::npos ||
                         std::from_chars(search->data(), search->data() + comma, latitude).ec != std::errc() ||
                         std::from_chars(search->data() + comma + 1, search->data() + search->size(), longitude).ec !=
                             std::errc()) {
                       return SimResponse{.status = 400, .body = bomErrorBody(400, "Invalid search")};
                     }
                     const std::string hash = encodeGeohash({latitude, longitude}, 7);
                     json::array data{json::object{{"geohash", hash},
                                                   {"id", "Simulated-" + hash},
                                                   {"name", "Simulated"},
                                                   {"postcode", nullptr},
                                                   {"state", "NSW"}}};
                     return SimResponse{.status = 200, .body = writeJson(envelope(std::move(data), request.now))};
                   },
               .errorBody = bomErrorBody});
  routes.push_back(route("bom.location", "", [](const SimRequest& request) {
    return answer(request, [&](GeoPoint point) {
      return json::object{{"geohash", request.captures.front()},
                          {"timezone", zoneOf(point)},
                          {"latitude", point.latitude},
                          {"longitude", point.longitude},
                          {"id", "Simulated-" + request.captures.front()},
                          {"name", "Simulated"},
                          {"state", "NSW"}};
    });
  }));
  routes.push_back(route("bom.hourly", "/forecasts/hourly", [model](const SimRequest& request) {
    return answer(request, [&](GeoPoint point) {
      json::array rows;
      const Instant first = floor<hours>(request.now);
      for (int i = 0; i < 72; ++i) {
        const Instant at = first + hours(i);
        const WeatherSample s = model.sample(point, at);
        const auto amount = model.accumulation(point, at, at + hours(1));
        rows.push_back(json::object{{"rain", rain(amount.total, precipitationProbability(amount.total, s.cloudiness))},
                                    {"temp", std::lround(s.temperature)},
                                    {"temp_feels_like", std::lround(s.feelsLike)},
                                    {"dew_point", std::lround(s.dewPoint)},
                                    {"wind", wind(s, true)},
                                    {"relative_humidity", s.relHumidity},
                                    {"uv", std::lround(s.uvIndex)},
                                    {"icon_descriptor", descriptor(s)},
                                    {"next_three_hourly_forecast_period", formatUtc(at + hours(3))},
                                    {"time", formatUtc(at)},
                                    {"is_night", s.sunElevation <= 0.0},
                                    {"next_forecast_period", formatUtc(at + hours(1))}});
      }
      return rows;
    });
  }));
  routes.push_back(route("bom.daily", "/forecasts/daily", [model](const SimRequest& request) {
    return answer(request, [&](GeoPoint point) {
      const minutes offset = longitudeUtcOffset(point.longitude);
      const sys_days today = localDay(request.now, offset);
      json::array rows;
      for (int i = 0; i < 7; ++i) {
        const auto [midnight, low, high, noon, amount, sun] = modelDay(model, point, today + days(i), offset);
        json::object astronomical{
            {"sunrise_time", sun.sunrise ? json::value(formatUtc(*sun.sunrise)) : json::value(nullptr)},
            {"sunset_time", sun.sunset ? json::value(formatUtc(*sun.sunset)) : json::value(nullptr)}};
        json::object uv{{"category", nullptr}, {"end_time", nullptr}, {"max_index", nullptr}, {"start_time", nullptr}};
        if (i < 3) {
          uv["category"] = noon.uvIndex > 10 ? "extreme" : noon.uvIndex > 7 ? "veryhigh" : "moderate";
          uv["max_index"] = std::lround(noon.uvIndex);
        }
        // Once the morning has passed, the Bureau no longer publishes today's minimum.
        const bool pastMorning = i == 0 && request.now > midnight + hours(7);
        json::object row{{"rain", rain(amount.total, precipitationProbability(amount.total / 24.0, noon.cloudiness))},
                         {"uv", std::move(uv)},
                         {"astronomical", std::move(astronomical)},
                         {"date", formatUtc(midnight)},
                         {"temp_max", std::lround(high)},
                         {"temp_min", pastMorning ? json::value(nullptr) : json::value(std::lround(low))},
                         {"extended_text", "Simulated forecast."},
                         {"icon_descriptor", descriptor(noon)},
                         {"short_text", "Simulated."},
                         {"surf_danger", nullptr},
                         {"fire_danger", nullptr}};
        if (i == 0) {
          row["now"] = json::object{{"is_night", model.sample(point, request.now).sunElevation <= 0.0},
                                    {"now_label", "Max"},
                                    {"later_label", "Overnight Min"},
                                    {"temp_now", std::lround(high)},
                                    {"temp_later", std::lround(low)}};
        }
        rows.push_back(std::move(row));
      }
      return rows;
    });
  }));
  routes.push_back(route("bom.observations", "/observations", [model](const SimRequest& request) {
    return answer(request, [&](GeoPoint point) {
      const WeatherSample s = model.sample(point, floor<minutes>(request.now) - minutes(10));
      return json::object{
          {"temp", roundedNumber(s.temperature, 1)},
          {"temp_feels_like", roundedNumber(s.feelsLike, 1)},
          {"wind", wind(s, false)},
          {"gust",
           {{"speed_kilometre", std::lround(s.windGust * 3.6)}, {"speed_knot", std::lround(s.windGust * 3.6 / 1.852)}}},
          {"rain_since_9am", 0},
          {"humidity", s.relHumidity},
          {"station", {{"bom_id", "000000"}, {"name", "Simulated Airport"}, {"distance", 5000}}}};
    });
  }));
  routes.push_back(route("bom.warnings", "/warnings", [model](const SimRequest& request) {
    return answer(request, [&](GeoPoint point) {
      static constexpr std::string_view kTypes[] = {
          "wind", "flood", "snow", "severe_thunderstorm", "heatwave", "cold", "fog", "fire_weather", "frost"};
      json::array rows;
      for (const WarningEvent& warning : model.warnings(point, request.now)) {
        if (warning.validUntil <= request.now) continue;
        const std::string_view type = kTypes[static_cast<int>(warning.kind)];
        rows.push_back(json::object{{"id", fmt::format("SIM_{:016x}", warning.key)},
                                    {"type", fmt::format("{}_warning", type)},
                                    {"title", fmt::format("Simulated {} warning for {}", type, warning.area)},
                                    {"short_title", "Simulated warning"},
                                    {"state", "NSW"},
                                    {"warning_group_type", "minor"},
                                    {"issue_time", formatUtc(warning.issued)},
                                    {"expiry_time", formatUtc(warning.validUntil)},
                                    {"phase", "new"}});
      }
      return rows;
    });
  }));
  return routes;
}

}  // namespace ombrine::sim
