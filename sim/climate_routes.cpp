#include "sim/climate_routes.hpp"

#include <fmt/format.h>

#include <algorithm>
#include <array>
#include <charconv>
#include <cmath>
#include <numbers>
#include <optional>

#include <boost/json/array.hpp>
#include <boost/json/object.hpp>

#include "sim/json_writer.hpp"

namespace ombrine::sim {

namespace json = boost::json;

namespace {

constexpr double kFillValue = -999.0;
constexpr std::array<const char*, 12> kMonthNames = {"JAN", "FEB", "MAR", "APR", "MAY", "JUN",
                                                     "JUL", "AUG", "SEP", "OCT", "NOV", "DEC"};
constexpr std::array<int, 12> kMonthDays = {31, 28, 31, 30, 31, 30, 31, 31, 30, 31, 30, 31};

struct StationRow {
  const char* id;
  const char* name;
  double latitude;
  double longitude;
};

constexpr StationRow kStations[] = {
    {"10637", "Frankfurt/Main", 50.05, 8.6},
    {"10865", "München-Stadt", 48.1632, 11.5429},
    {"03779", "London Weather Centre", 51.5, -0.1167},
    {"EGLC0", "London / Abbey Wood", 51.4833, 0.1167},
    {"03772", "London Heathrow Airport", 51.4787, -0.4497},
    {"06240", "Amsterdam Schiphol", 52.3, 4.7667},
    {"01384", "Oslo / Gardermoen", 60.2, 11.0833},
    {"01025", "Tromsø", 69.6833, 18.9167},
    {"01008", "Svalbard Lufthavn", 78.25, 15.4667},
    {"72503", "New York / LaGuardia", 40.7792, -73.88},
    {"94767", "Sydney Airport", -33.9465, 151.1731},
    {"47662", "Tokyo", 35.6833, 139.7667},
    {"83743", "Rio de Janeiro", -22.9, -43.1667},
    {"64500", "Libreville", 0.45, 9.4167},
};

std::uint64_t mix(std::uint64_t x) {
  x += 0x9e3779b97f4a7c15ULL;
  x = (x ^ (x >> 30)) * 0xbf58476d1ce4e5b9ULL;
  x = (x ^ (x >> 27)) * 0x94d049bb133111ebULL;
  return x ^ (x >> 31);
}

// The same for every coordinate within the same 0.1° cell.
std::uint64_t placeHash(std::uint64_t seed, double latitude, double longitude) {
  const auto lat = static_cast<std::int64_t>(std::llround(latitude * 10));
  const auto lon = static_cast<std::int64_t>(std::llround(longitude * 10));
  return mix(seed ^ mix(static_cast<std::uint64_t>(lat) * 3600 + static_cast<std::uint64_t>(lon)));
}

struct MonthNormals {
  double tavg, tmin, tmax, prcp, tsun;
};

// Plausible normals for month `month` (1-12) at a latitude; `jitter` in [-1, 1] shifts a place.
MonthNormals normals(double latitude, int month, double jitter) {
  const double absLat = std::abs(latitude);
  const double north = latitude >= 0 ? 1.0 : -1.0;
  const double season = north * std::cos(2 * std::numbers::pi * (month - 7) / 12.0);  // 1 at local midsummer
  const double mean = 27.0 - 0.45 * std::max(0.0, absLat - 10.0) + jitter;
  const double amplitude = 1.0 + 0.15 * absLat;
  const double tavg = mean + amplitude * season;
  const double range = 9.0 - 0.04 * absLat;
  const double prcp = std::max(3.0, 110.0 - 1.1 * absLat + 25.0 * jitter + 15.0 * season * (absLat < 30 ? 1 : -0.5));
  const double dayHours = std::clamp(12.0 + season * std::min(12.0, absLat / 66.5 * 9.0), 0.0, 24.0);
  const double tsun = dayHours * kMonthDays[month - 1] * 60.0 * (0.42 + 0.05 * jitter);
  return {tavg, tavg - range / 2, tavg + range / 2, prcp, tsun};
}

double jitterOf(std::uint64_t hash) { return static_cast<double>(hash % 2001) / 1000.0 - 1.0; }

std::optional<double> numberParam(const SimRequest& request, std::string_view name) {
  const auto text = request.param(name);
  if (!text || text->empty()) return std::nullopt;
  double value = 0;
  const auto [end, error] = std::from_chars(text->data(), text->data() + text->size(), value);
  if (error != std::errc() || end != text->data() + text->size() || !std::isfinite(value)) return std::nullopt;
  return value;
}

std::optional<int> yearParam(const SimRequest& request, std::string_view name) {
  const auto value = numberParam(request, name);
  if (!value || *value != std::floor(*value) || *value < 1800 || *value > 2100) return std::nullopt;
  return static_cast<int>(*value);
}

std::string meteostatErrorBody(int, std::string_view message) {
  json::object body;
  body["message"] = message;
  return writeJson(body);
}

SimResponse meteostatError(std::string_view message) {
  return SimResponse{.status = 400, .body = meteostatErrorBody(400, message)};
}

json::object meta() {
  json::object out;
  out["exec_time"] = 0.012;
  out["generated"] = "2026-01-01 00:00:00";
  return out;
}

json::value optionalNumber(std::optional<double> value, int decimals) {
  return value ? roundedNumber(*value, decimals) : json::value(nullptr);
}

// Meteostat's normals for a place (or a station's place) and a period.
json::array meteostatMonths(std::uint64_t seed, double latitude, double longitude, int start, bool gaps) {
  json::array months;
  if (std::abs(latitude) > 75.0) return months;
  const std::uint64_t hash = placeHash(seed, latitude, longitude);
  const double jitter = jitterOf(hash);
  const int gapMonth = static_cast<int>(hash % 12) + 1;
  // 0: one month without tmax and prcp, 1: one month left out, 2: no sunshine, 3 to 5: none.
  const int gapKind = gaps ? static_cast<int>((hash >> 20) % 6) : -1;
  for (int month = 1; month <= 12; ++month) {
    if (gapKind == 1 && month == gapMonth) continue;
    // Older periods were a little cooler.
    MonthNormals n = normals(latitude, month, jitter);
    const double shift = start <= 1961 ? -0.6 : start <= 1981 ? -0.3 : 0.0;
    json::object row;
    row["month"] = month;
    row["tavg"] = roundedNumber(n.tavg + shift, 1);
    row["tmin"] = roundedNumber(n.tmin + shift, 1);
    const bool valueGap = gapKind == 0 && month == gapMonth;
    row["tmax"] = optionalNumber(valueGap ? std::nullopt : std::optional(n.tmax + shift), 1);
    row["prcp"] = optionalNumber(valueGap ? std::nullopt : std::optional(n.prcp), 1);
    row["wspd"] = roundedNumber(12.0 + 3 * jitter, 1);
    row["pres"] = roundedNumber(1015.0 + 2 * jitter, 1);
    const bool sunshine = start >= 1991 && gapKind != 2;
    row["tsun"] = sunshine ? roundedNumber(n.tsun, 0) : json::value(nullptr);
    months.push_back(std::move(row));
  }
  return months;
}

SimResponse normalsAnswer(json::array months) {
  json::object body;
  body["meta"] = meta();
  body["data"] = std::move(months);
  return SimResponse{.body = writeJson(body)};
}

SimResponse pointNormals(std::uint64_t seed, const SimRequest& request) {
  const auto lat = numberParam(request, "lat");
  const auto lon = numberParam(request, "lon");
  const auto start = yearParam(request, "start");
  const auto end = yearParam(request, "end");
  if (!lat || !lon || std::abs(*lat) > 90 || std::abs(*lon) > 180) return meteostatError("Invalid coordinates");
  if (!start || !end || *end < *start) return meteostatError("Invalid period");
  return normalsAnswer(meteostatMonths(seed, *lat, *lon, *start, *start >= 1991));
}

double distanceMeters(double lat1, double lon1, double lat2, double lon2) {
  const double toRad = std::numbers::pi / 180.0;
  const double dLat = (lat2 - lat1) * toRad;
  const double dLon = (lon2 - lon1) * toRad;
  const double a = std::sin(dLat / 2) * std::sin(dLat / 2) +
                   std::cos(lat1 * toRad) * std::cos(lat2 * toRad) * std::sin(dLon / 2) * std::sin(dLon / 2);
  return 2 * 6371000.0 * std::asin(std::min(1.0, std::sqrt(a)));
}

SimResponse stationsNearby(const SimRequest& request) {
  const auto lat = numberParam(request, "lat");
  const auto lon = numberParam(request, "lon");
  if (!lat || !lon || std::abs(*lat) > 90 || std::abs(*lon) > 180) return meteostatError("Invalid coordinates");
  const auto limit = numberParam(request, "limit").value_or(10);
  std::vector<std::pair<double, const StationRow*>> byDistance;
  for (const auto& station : kStations) {
    byDistance.emplace_back(distanceMeters(*lat, *lon, station.latitude, station.longitude), &station);
  }
  std::stable_sort(byDistance.begin(), byDistance.end(),
                   [](const auto& a, const auto& b) { return a.first < b.first; });
  json::array data;
  for (const auto& [distance, station] : byDistance) {
    if (static_cast<double>(data.size()) >= limit) break;
    json::object row;
    row["id"] = station->id;
    json::object name;
    name["en"] = station->name;
    row["name"] = std::move(name);
    row["distance"] = roundedNumber(distance, 1);
    data.push_back(std::move(row));
  }
  json::object body;
  body["meta"] = meta();
  body["data"] = std::move(data);
  return SimResponse{.body = writeJson(body)};
}

SimResponse stationNormals(std::uint64_t seed, const SimRequest& request) {
  const auto id = request.param("station");
  const auto start = yearParam(request, "start");
  const auto end = yearParam(request, "end");
  if (!id || id->empty()) return meteostatError("Missing station");
  if (!start || !end || *end < *start) return meteostatError("Invalid period");
  for (const auto& station : kStations) {
    // Stations report full records: their gaps are the point grid's.
    if (*id == station.id)
      return normalsAnswer(meteostatMonths(seed, station.latitude, station.longitude, *start, false));
  }
  return normalsAnswer(json::array());
}

std::string nasaErrorBody(int, std::string_view message) {
  json::object header;
  header["title"] = "NASA/POWER Climatology";
  json::object body;
  body["header"] = std::move(header);
  json::array messages;
  messages.push_back(json::string(message));
  body["messages"] = std::move(messages);
  return writeJson(body);
}

SimResponse nasaError(std::string_view message) {
  return SimResponse{.status = 422, .body = nasaErrorBody(422, message)};
}

SimResponse nasaClimatology(std::uint64_t seed, const SimRequest& request) {
  const auto lat = numberParam(request, "latitude");
  const auto lon = numberParam(request, "longitude");
  const auto start = yearParam(request, "start");
  const auto end = yearParam(request, "end");
  const std::string parameters(request.param("parameters").value_or(""));
  if (!lat || !lon || std::abs(*lat) > 90 || std::abs(*lon) > 180) return nasaError("Invalid latitude or longitude");
  if (!start || !end || *end < *start) return nasaError("Invalid start or end year");
  if (*start < 1981) return nasaError("The start year is before the beginning of the climatology (1981)");
  if (request.param("format").value_or("JSON") != "JSON") return nasaError("Only JSON is simulated");

  const std::uint64_t hash = placeHash(seed ^ 0x5a5a, *lat, *lon);
  const double jitter = jitterOf(hash) * 0.7 - 0.5;  // a grid cell is not a station
  const int fillMonth = (hash >> 12) % 4 == 0 ? static_cast<int>(hash % 12) + 1 : 0;
  const bool noPrecipitation = std::abs(*lat) > 85.0;

  json::object parameterValues;
  json::object parameterInfo;
  std::size_t from = 0;
  while (from <= parameters.size()) {
    const std::size_t comma = std::min(parameters.find(',', from), parameters.size());
    const std::string name = parameters.substr(from, comma - from);
    from = comma + 1;
    if (name.empty()) continue;
    std::optional<double> (*pick)(const MonthNormals&, int) = nullptr;
    const char* units = "C";
    if (name == "T2M")
      pick = [](const MonthNormals& n, int) -> std::optional<double> { return n.tavg; };
    else if (name == "T2M_MAX_AVG")
      pick = [](const MonthNormals& n, int) -> std::optional<double> { return n.tmax; };
    else if (name == "T2M_MIN_AVG")
      pick = [](const MonthNormals& n, int) -> std::optional<double> { return n.tmin; };
    else if (name == "PRECTOTCORR_SUM") {
      pick = [](const MonthNormals& n, int) -> std::optional<double> { return n.prcp; };
      units = "mm";
    } else {
      return nasaError(fmt::format("Unknown parameter: {}", name));
    }
    json::object months;
    double annual = 0;
    for (int month = 1; month <= 12; ++month) {
      double value = *pick(normals(*lat, month, jitter), month);
      const bool fill = (name == "T2M_MAX_AVG" && month == fillMonth) || (name == "PRECTOTCORR_SUM" && noPrecipitation);
      annual += value;
      months[kMonthNames[month - 1]] = fill ? json::value(kFillValue) : roundedNumber(value, 2);
    }
    months["ANN"] = roundedNumber(name == "PRECTOTCORR_SUM" ? annual : annual / 12, 2);
    parameterValues[name] = std::move(months);
    json::object info;
    info["units"] = units;
    info["longname"] = name;
    parameterInfo[name] = std::move(info);
  }
  if (parameterValues.empty()) return nasaError("No parameters asked");

  json::object body;
  body["type"] = "Feature";
  json::object geometry;
  geometry["type"] = "Point";
  json::array coordinates;
  coordinates.push_back(roundedNumber(*lon, 6));
  coordinates.push_back(roundedNumber(*lat, 6));
  coordinates.push_back(roundedNumber(100.0 + 50 * jitter, 2));
  geometry["coordinates"] = std::move(coordinates);
  body["geometry"] = std::move(geometry);
  json::object properties;
  properties["parameter"] = std::move(parameterValues);
  body["properties"] = std::move(properties);
  json::object header;
  header["title"] = "NASA/POWER CERES/MERRA2 Native Resolution Climatology Climatologies";
  json::object api;
  api["version"] = "v2.5.9";
  api["name"] = "POWER Climatology API";
  header["api"] = std::move(api);
  header["fill_value"] = kFillValue;
  header["range"] =
      fmt::format("{}-year Meteorological and Solar Monthly & Annual Climatologies (January {} - December {})",
                  *end - *start + 1, *start, *end);
  body["header"] = std::move(header);
  body["messages"] = json::array();
  body["parameters"] = std::move(parameterInfo);
  json::object times;
  times["data"] = 0.5;
  times["process"] = 0.05;
  body["times"] = std::move(times);
  return SimResponse{.body = writeJson(body)};
}

SimRoute route(std::string name, const char* pattern, std::function<SimResponse(const SimRequest&)> answer,
               std::string (*errorBody)(int, std::string_view)) {
  return SimRoute{std::move(name), std::regex(pattern), std::move(answer), errorBody};
}

}  // namespace

std::vector<SimRoute> climateRoutes(std::uint64_t seed) {
  std::vector<SimRoute> routes;
  routes.push_back(route(
      "meteostat.point_normals", "/meteostat/point/normals",
      [seed](const SimRequest& request) { return pointNormals(seed, request); }, meteostatErrorBody));
  routes.push_back(
      route("meteostat.stations_nearby", "/meteostat/stations/nearby", stationsNearby, meteostatErrorBody));
  routes.push_back(route(
      "meteostat.station_normals", "/meteostat/stations/normals",
      [seed](const SimRequest& request) { return stationNormals(seed, request); }, meteostatErrorBody));
  routes.push_back(route(
      "nasapower.climatology", "/nasapower/api/temporal/climatology/point",
      [seed](const SimRequest& request) { return nasaClimatology(seed, request); }, nasaErrorBody));
  return routes;
}

}  // namespace ombrine::sim
