#include "sim/tide_routes.hpp"

#include <fmt/format.h>

#include <array>
#include <charconv>
#include <cmath>
#include <numbers>
#include <optional>

#include <boost/json/array.hpp>
#include <boost/json/object.hpp>

#include "sim/json_writer.hpp"
#include "sim/sim_time.hpp"

namespace ombrine::sim {

using namespace std::chrono;
namespace json = boost::json;

namespace {

struct NOAAStationRow {
  const char* id;
  const char* name;
  double latitude;
  double longitude;
  const char* state;
  const char* type;  // "R" reference, "S" subordinate
  const char* referenceID;
};

constexpr NOAAStationRow kNOAAStations[] = {
    {"8557380", "Lewes", 38.7828, -75.1192, "DE", "R", ""},
    {"8555889", "Brandywine Shoal Light", 38.9867, -75.1133, "NJ", "S", "8557380"},
    {"8551762", "Delaware City", 39.5817, -75.5883, "DE", "S", "8557380"},
    {"8557863", "Rehoboth Beach", 38.7167, -75.0767, "DE", "S", "8557380"},
    {"8518750", "The Battery", 40.7006, -74.0142, "NY", "R", ""},
    {"8443970", "Boston", 42.3539, -71.0503, "MA", "R", ""},
    {"8638610", "Sewells Point", 36.9467, -76.3300, "VA", "R", ""},
    {"8658120", "Wilmington", 34.2267, -77.9533, "NC", "R", ""},
    {"8665530", "Charleston, Cooper River Entrance", 32.7808, -79.9236, "SC", "R", ""},
    {"8724580", "Key West", 24.5508, -81.8081, "FL", "R", ""},
    {"8723214", "Virginia Key", 25.7317, -80.1617, "FL", "R", ""},
    {"8761724", "Grand Isle", 29.2633, -89.9567, "LA", "R", ""},
    {"8771450", "Galveston Pier 21", 29.3100, -94.7933, "TX", "R", ""},
    {"9410170", "San Diego", 32.7142, -117.1736, "CA", "R", ""},
    {"9410660", "Los Angeles", 33.7200, -118.2717, "CA", "R", ""},
    {"9414290", "San Francisco", 37.8063, -122.4659, "CA", "R", ""},
    {"9414750", "Alameda", 37.7717, -122.3000, "CA", "S", "9414290"},
    {"9439040", "Astoria", 46.2073, -123.7683, "OR", "R", ""},
    {"9447130", "Seattle", 47.6026, -122.3393, "WA", "R", ""},
    {"9449880", "Friday Harbor", 48.5453, -123.0125, "WA", "R", ""},
    {"9455920", "Anchorage", 61.2383, -149.8900, "AK", "R", ""},
    {"1612340", "Honolulu", 21.3033, -157.8645, "HI", "R", ""},
    {"9755371", "San Juan, La Puntilla", 18.4589, -66.1164, "PR", "R", ""},
    {"9751639", "Charlotte Amalie", 18.3353, -64.9200, "VI", "R", ""},
    {"1630000", "Apra Harbor", 13.4437, 144.6565, "GU", "R", ""},
    {"1633227", "Tanapag Harbor, Saipan", 15.2267, 145.7417, "MP", "R", ""},
    {"1770000", "Pago Pago", -14.2800, -170.6900, "AS", "R", ""},
    {"9710441", "Settlement Point", 26.7100, -78.9967, "BS", "R", ""},
};

struct CHSStationRow {
  const char* id;
  const char* code;
  const char* officialName;
  std::optional<bool> operating;
  double latitude;
  double longitude;
  const char* type;
  const char* provinceCode;
  std::vector<std::string_view> series;
};

const std::vector<CHSStationRow>& chsStations() {
  static const std::vector<CHSStationRow> stations = {
      // clang-format off
      {"5cebf1de3d0f4a073c4bb94c", "07795", "Point Atkinson", true, 49.337, -123.253, "PERMANENT", "BC", {"wlp", "wlp-hilo", "wlo"}},
      {"5cebf1de3d0f4a073c4bb943", "07735", "Vancouver", true, 49.2863, -123.0997, "PERMANENT", "BC", {"wlo", "wlf", "wlp", "wlp-hilo"}},
      {"5cebf1e43d0f4a073c4bc43b", "07786", "Sandy Cove", true, 49.3405, -123.2319, "PERMANENT", "BC", {"wlo", "wlf", "wlp", "wlp-hilo"}},
      {"5cebf1df3d0f4a073c4bbd1e", "07120", "Victoria Harbour", true, 48.424666, -123.3707, "PERMANENT", "BC", {"wlp", "wlo", "wlf", "wlp-hilo"}},
      {"5cebf1df3d0f4a073c4bbd2d", "07277", "Patricia Bay", true, 48.6536, -123.4515, "PERMANENT", "BC", {"wlo", "wlf", "wlp", "wlp-hilo", "ap1"}},
      {"5cebf1e23d0f4a073c4bc062", "08545", "Bamfield", true, 48.836, -125.136, "PERMANENT", "BC", {"wlp", "wlp-hilo", "wlo"}},
      {"5cebf1e23d0f4a073c4bc07c", "08615", "Tofino", true, 49.154, -125.913, "PERMANENT", "BC", {"wlf", "wlo", "wlp", "wlp-hilo"}},
      {"5cebf1de3d0f4a073c4bba3e", "09850", "Queen Charlotte City", true, 53.252, -132.072, "PERMANENT", "BC", {"wlo", "wlf", "wlp", "wlp-hilo"}},
      {"5cebf1e23d0f4a073c4bc0f6", "03248", "Vieux-Québec", true, 46.811111, -71.201944, "PERMANENT", "QC", {"wlo", "wlp", "wt1", "wlp-hilo", "wlf-spine"}},
      {"5cebf1de3d0f4a073c4bbb11", "03250", "Lauzon", false, 46.8325, -71.157833, "PERMANENT", "QC", {"wlp", "wlp-hilo"}},
      {"5cebf1e03d0f4a073c4bbd92", "02985", "Rimouski", true, 48.478333, -68.513667, "PERMANENT", "QC", {"wt2", "wlf", "wlp", "wlo", "wlp-hilo"}},
      {"5cebf1e33d0f4a073c4bc21f", "01700", "Charlottetown", true, 46.23012108, -63.1221766, "PERMANENT", "PE", {"wlo", "wlf", "wlp", "wlp-hilo"}},
      {"5cebf1df3d0f4a073c4bbc24", "00065", "Saint John", true, 45.254629, -66.059804, "PERMANENT", "NB", {"wlp", "wlf", "wlo", "wl1", "wlp-hilo", "wl2", "wl3"}},
      {"5cebf1df3d0f4a073c4bbcbb", "00490", "Halifax", false, 44.666667, -63.583333, "DISCONTINUED", "NS", {"wlp", "wlp-hilo", "wlo"}},
      // A water-level gauge without predictions: listed, but never a tide station.
      {"5cebf1e13d0f4a073c4bbe75", "07707", "Second Narrows", true, 49.2952, -123.0200, "PERMANENT", "BC", {"wlo", "wlf"}},
      // clang-format on
  };
  return stations;
}

// FNV-1a of the text mixed with the seed: stable across processes and platforms.
std::uint64_t stableHash(std::string_view text, std::uint64_t seed) {
  std::uint64_t hash = 0xcbf29ce484222325ULL ^ (seed * 0x9E3779B97F4A7C15ULL);
  for (const char c : text) {
    hash ^= static_cast<unsigned char>(c);
    hash *= 0x100000001b3ULL;
  }
  return hash;
}

// A number in [0, 1) from `hash` and a slot.
double unit(std::uint64_t hash, int slot) {
  std::uint64_t x = hash + static_cast<std::uint64_t>(slot) * 0xD1B54A32D192ED03ULL;
  x ^= x >> 33;
  x *= 0xff51afd7ed558ccdULL;
  x ^= x >> 33;
  return static_cast<double>(x >> 11) / 9007199254740992.0;
}

struct Constituent {
  double periodHours;
  double amplitudeShare;  // of the M2 amplitude
};

constexpr std::array<Constituent, 5> kConstituents = {{
    {12.4206012, 1.0},   // M2
    {12.0, 0.25},        // S2
    {12.65834751, 0.2},  // N2
    {23.93447213, 0.0},  // K1: amplitude drawn separately
    {25.81933871, 0.0},  // O1
}};

struct NOAARequestError {
  std::string message;
};

std::string noaaErrorBody(int, std::string_view message) {
  json::object error;
  error["message"] = message;
  json::object body;
  body["error"] = std::move(error);
  return writeJson(body);
}

std::string chsErrorBody(int status, std::string_view message) {
  json::object body;
  body["status"] = status;
  body["message"] = message;
  return writeJson(body);
}

SimResponse jsonResponse(int status, std::string body) {
  SimResponse response;
  response.status = status;
  response.body = std::move(body);
  return response;
}

// "yyyyMMdd HH:mm" (or "yyyyMMdd") in UTC.
std::optional<Instant> parseNOAADate(std::string_view text) {
  int year = 0, month = 0, day = 0, hour = 0, minute = 0;
  auto number = [&](size_t at, size_t count, int& out) {
    if (at + count > text.size()) return false;
    const auto [ptr, error] = std::from_chars(text.data() + at, text.data() + at + count, out);
    return error == std::errc() && ptr == text.data() + at + count;
  };
  if (!number(0, 4, year) || !number(4, 2, month) || !number(6, 2, day)) return std::nullopt;
  if (text.size() == 14) {
    if (text[8] != ' ' || text[11] != ':' || !number(9, 2, hour) || !number(12, 2, minute)) return std::nullopt;
  } else if (text.size() != 8) {
    return std::nullopt;
  }
  const year_month_day date{std::chrono::year(year), std::chrono::month(static_cast<unsigned>(month)),
                            std::chrono::day(static_cast<unsigned>(day))};
  if (!date.ok() || hour > 23 || minute > 59) return std::nullopt;
  return Instant(sys_days(date)) + hours(hour) + minutes(minute);
}

// ISO 8601 in UTC with optional fractional seconds.
std::optional<Instant> parseCHSDate(std::string_view text) {
  std::string plain(text);
  if (const auto dot = plain.find('.'); dot != std::string::npos && !plain.empty() && plain.back() == 'Z') {
    plain = plain.substr(0, dot) + "Z";
  }
  return parseUtc(plain);
}

std::string noaaTime(Instant instant, minutes offset) {
  const auto local = instant + offset;
  const auto day = floor<days>(local);
  const year_month_day ymd(day);
  const hh_mm_ss time(local - day);
  return fmt::format("{:04}-{:02}-{:02} {:02}:{:02}", static_cast<int>(ymd.year()), static_cast<unsigned>(ymd.month()),
                     static_cast<unsigned>(ymd.day()), time.hours().count(), time.minutes().count());
}

// The turning points of the tide curve in [from, to], to the minute.
struct TurningPoint {
  Instant at;
  double height;
  bool high;
};

std::vector<TurningPoint> turningPoints(std::string_view id, std::uint64_t seed, Instant from, Instant to) {
  std::vector<TurningPoint> points;
  double before = simulatedTideHeight(id, seed, from - minutes(1));
  double here = simulatedTideHeight(id, seed, from);
  for (Instant t = from; t <= to; t += minutes(1)) {
    const double after = simulatedTideHeight(id, seed, t + minutes(1));
    if (here > before && here >= after) points.push_back({t, here, true});
    if (here < before && here <= after) points.push_back({t, here, false});
    before = here;
    here = after;
  }
  return points;
}

const NOAAStationRow* findNOAA(std::string_view id) {
  for (const auto& station : kNOAAStations) {
    if (id == station.id) return &station;
  }
  return nullptr;
}

SimResponse noaaStations(const SimRequest& request) {
  json::array stations;
  for (const auto& row : kNOAAStations) {
    json::object station;
    station["state"] = row.state;
    station["tidal"] = true;
    station["greatlakes"] = false;
    station["shefcode"] = "";
    station["details"] = json::object{
        {"self",
         fmt::format("https://api.tidesandcurrents.noaa.gov/mdapi/prod/webapi/stations/{}/details.json", row.id)}};
    station["id"] = row.id;
    station["name"] = row.name;
    station["lat"] = row.latitude;
    station["lng"] = row.longitude;
    station["affiliations"] = "";
    station["portscode"] = "";
    station["type"] = row.type;
    station["reference_id"] = row.referenceID;
    station["timezonecorr"] = static_cast<int>(longitudeUtcOffset(row.longitude).count() / 60);
    stations.push_back(std::move(station));
  }
  json::object body;
  body["count"] = stations.size();
  body["units"] = nullptr;
  body["stations"] = std::move(stations);
  (void)request;
  return jsonResponse(200, writeJson(body));
}

SimResponse noaaDataGetter(std::uint64_t seed, const SimRequest& request) {
  try {
    auto required = [&](std::string_view name) {
      const auto value = request.param(name);
      if (!value || value->empty()) throw NOAARequestError{fmt::format("Missing required parameter: {}", name)};
      return std::string(*value);
    };
    if (required("product") != "predictions")
      throw NOAARequestError{"Wrong Product: this simulator offers predictions only"};
    const std::string id = required("station");
    const NOAAStationRow* station = findNOAA(id);
    if (station == nullptr)
      throw NOAARequestError{"No Predictions data was found. Please make sure the Datum input is valid."};
    const auto begin = parseNOAADate(required("begin_date"));
    const auto end = parseNOAADate(required("end_date"));
    if (!begin || !end || *end < *begin)
      throw NOAARequestError{"The begin and end dates must be yyyyMMdd HH:mm, begin first"};
    if (*end - *begin > days(31)) throw NOAARequestError{"The range of dates is limited to 31 days for this product"};
    const std::string units(request.param("units").value_or("metric"));
    if (units != "metric" && units != "english") throw NOAARequestError{"Wrong Units: use metric or english"};
    const std::string zone(request.param("time_zone").value_or("gmt"));
    if (zone != "gmt" && zone != "lst" && zone != "lst_ldt") throw NOAARequestError{"Wrong Time Zone"};
    const std::string format(request.param("format").value_or("json"));
    if (format != "json") throw NOAARequestError{"This simulator answers in json only"};
    const std::string interval(request.param("interval").value_or("6"));
    const minutes offset = zone == "gmt" ? minutes(0) : longitudeUtcOffset(station->longitude);
    const double scale = units == "english" ? 1.0 / 0.3048 : 1.0;
    // The station's own series; a subordinate station's is its reference's, shifted and scaled.
    const std::string source = *station->referenceID ? station->referenceID : station->id;
    const double shiftMinutes = *station->referenceID ? 20.0 + 40.0 * unit(stableHash(station->id, seed), 7) : 0.0;
    const double heightFactor = *station->referenceID ? 0.8 + 0.3 * unit(stableHash(station->id, seed), 8) : 1.0;
    const auto shift = minutes(static_cast<int>(shiftMinutes));
    // Dates are read as local time in the zone asked for.
    const Instant from = *begin - offset;
    const Instant to = *end - offset;

    json::array rows;
    auto value = [&](double meters) { return fmt::format("{:.3f}", meters * heightFactor * scale); };
    if (interval == "hilo") {
      for (const auto& point : turningPoints(source, seed, from - shift, to - shift)) {
        rows.push_back(json::object{
            {"t", noaaTime(point.at + shift, offset)}, {"v", value(point.height)}, {"type", point.high ? "H" : "L"}});
      }
    } else {
      int step = 0;
      if (interval == "h")
        step = 60;
      else if (interval == "6")
        step = 6;
      else if (interval == "1" || interval == "5" || interval == "10" || interval == "15" || interval == "30" ||
               interval == "60")
        step = std::stoi(interval);
      else
        throw NOAARequestError{fmt::format("Wrong Interval: {}", interval)};
      // Rows fall on whole multiples of the interval, whatever minute the range begins at.
      Instant first = ceil<minutes>(from);
      while (floor<minutes>(first).time_since_epoch().count() % step != 0) first += minutes(1);
      for (Instant t = first; t <= to; t += minutes(step)) {
        rows.push_back(
            json::object{{"t", noaaTime(t, offset)}, {"v", value(simulatedTideHeight(source, seed, t - shift))}});
      }
    }
    json::object body;
    body["predictions"] = std::move(rows);
    return jsonResponse(200, writeJson(body));
  } catch (const NOAARequestError& error) {
    return jsonResponse(200, noaaErrorBody(200, error.message));
  }
}

json::object chsStationJson(const CHSStationRow& row) {
  json::object station;
  station["id"] = row.id;
  station["code"] = row.code;
  station["officialName"] = row.officialName;
  if (row.operating) station["operating"] = *row.operating;
  station["latitude"] = row.latitude;
  station["longitude"] = row.longitude;
  station["type"] = row.type;
  station["provinceCode"] = row.provinceCode;
  station["timeZoneCode"] = row.longitude < -114.0 ? "Canada/Pacific" : "Canada/Eastern";
  json::array series;
  for (const auto code : row.series) {
    series.push_back(json::object{{"id", fmt::format("{:016x}", stableHash(code, 1))}, {"code", code}});
  }
  station["timeSeries"] = std::move(series);
  return station;
}

SimResponse chsStationList(const SimRequest&) {
  json::array stations;
  for (const auto& row : chsStations()) stations.push_back(chsStationJson(row));
  return jsonResponse(200, writeJson(stations));
}

SimResponse chsData(std::uint64_t seed, const SimRequest& request) {
  const std::string id = request.captures.empty() ? std::string() : request.captures[0];
  const CHSStationRow* station = nullptr;
  for (const auto& row : chsStations()) {
    if (id == row.id) station = &row;
  }
  if (station == nullptr) return jsonResponse(404, chsErrorBody(404, fmt::format("Station {} not found", id)));
  const std::string code(request.param("time-series-code").value_or(""));
  const auto from = parseCHSDate(request.param("from").value_or(""));
  const auto to = parseCHSDate(request.param("to").value_or(""));
  if (!from || !to || *to < *from)
    return jsonResponse(400, chsErrorBody(400, "from and to must be ISO 8601 dates, from first"));
  if (*to - *from > days(7)) return jsonResponse(400, chsErrorBody(400, "The period must not exceed 7 days"));
  if (code != "wlp" && code != "wlp-hilo")
    return jsonResponse(400, chsErrorBody(400, "Unknown time-series-code " + code));
  json::array points;
  const bool offered = (!station->operating || *station->operating) &&
                       std::find(station->series.begin(), station->series.end(), code) != station->series.end();
  if (offered) {
    auto point = [&](Instant at, double value) {
      return json::object{{"eventDate", formatUtc(at)},
                          {"qcFlagCode", "1"},
                          {"value", roundedNumber(value, 3)},
                          {"timeSeriesId", fmt::format("{:016x}", stableHash(code, 1))}};
    };
    if (code == "wlp-hilo") {
      for (const auto& turning : turningPoints(station->id, seed, *from, *to))
        points.push_back(point(turning.at, turning.height));
    } else {
      for (Instant t = ceil<minutes>(*from); t <= *to; t += minutes(1)) {
        if (t.time_since_epoch().count() % 900 != 0) continue;
        points.push_back(point(t, simulatedTideHeight(station->id, seed, t)));
      }
    }
  }
  return jsonResponse(200, writeJson(points));
}

SimRoute tideRoute(std::string name, const char* pattern, std::function<SimResponse(const SimRequest&)> answer,
                   std::string (*errorBody)(int, std::string_view)) {
  return SimRoute{std::move(name), std::regex(pattern), std::move(answer), errorBody};
}

}  // namespace

double simulatedTideHeight(std::string_view stationID, std::uint64_t seed, Instant instant) {
  const std::uint64_t hash = stableHash(stationID, seed);
  const double m2 = 0.4 + 1.6 * unit(hash, 0);
  const double k1 = 0.05 + 0.45 * unit(hash, 1);
  const double o1 = 0.6 * k1;
  const double amplitudes[] = {m2, m2 * kConstituents[1].amplitudeShare, m2 * kConstituents[2].amplitudeShare, k1, o1};
  const double hoursSinceEpoch = static_cast<double>(instant.time_since_epoch().count()) / 3600.0;
  double height = 0.0;
  double total = 0.0;
  for (size_t i = 0; i < kConstituents.size(); ++i) {
    const double phase = 2.0 * std::numbers::pi * unit(hash, static_cast<int>(i) + 2);
    height += amplitudes[i] * std::cos(2.0 * std::numbers::pi * hoursSinceEpoch / kConstituents[i].periodHours - phase);
    total += amplitudes[i];
  }
  // Chart datum near the lowest low water, so most levels are positive.
  return height + 0.9 * total;
}

std::vector<SimRoute> tideRoutes(const WeatherModel& model) {
  const std::uint64_t seed = model.seed();
  std::vector<SimRoute> routes;
  routes.push_back(tideRoute("noaa.stations", "/noaa/mdapi/prod/webapi/stations\\.json", noaaStations, noaaErrorBody));
  routes.push_back(tideRoute(
      "noaa.datagetter", "/noaa/api/prod/datagetter",
      [seed](const SimRequest& request) { return noaaDataGetter(seed, request); }, noaaErrorBody));
  routes.push_back(tideRoute("chs.stations", "/chs/api/v1/stations", chsStationList, chsErrorBody));
  routes.push_back(tideRoute(
      "chs.data", "/chs/api/v1/stations/([^/]+)/data",
      [seed](const SimRequest& request) { return chsData(seed, request); }, chsErrorBody));
  return routes;
}

}  // namespace ombrine::sim
