#include "tides/tide_feeds.hpp"

#include <boost/json/array.hpp>

#include <charconv>
#include <chrono>
#include <cmath>

#include <fmt/format.h>

#include "core/record/tide_records_json.hpp"
#include "core/values/iso8601.hpp"
#include "core/values/value_json.hpp"

namespace ombrine {

namespace json = boost::json;

namespace {

template <class T, class Decode>
std::vector<T> decodeList(const json::value& value, std::string_view path, Decode decode) {
  const auto& array = requireJsonArray(value, path);
  std::vector<T> out;
  out.reserve(array.size());
  for (size_t i = 0; i < array.size(); ++i) out.push_back(decode(array[i], indexPath(path, i)));
  return out;
}

CHSStation decodeCHSStation(const json::value& value, std::string_view path) {
  const TideJsonObject o(value, path);
  CHSStation station{
      .id = o.string("id"),
      .code = o.string("code"),
      .officialName = o.string("officialName"),
      .latitude = o.number("latitude"),
      .longitude = o.number("longitude"),
      .operating = o.optionalBoolean("operating"),
      .timeZoneCode = o.optionalString("timeZoneCode"),
      .provinceCode = o.optionalString("provinceCode"),
      .classCode = o.optionalString("classCode"),
      .type = o.optionalString("type"),
      .timeSeries = std::nullopt,
  };
  if (const auto series = o.optionalArray("timeSeries")) {
    const std::string seriesPath = o.pathOf("timeSeries");
    station.timeSeries = decodeList<CHSStation::TimeSeries>(
        json::value(series->get()), seriesPath, [](const json::value& item, const std::string& itemPath) {
          return CHSStation::TimeSeries{TideJsonObject(item, itemPath).string("code")};
        });
  }
  return station;
}

// Two digits or four, exactly, at `at`.
bool digits(std::string_view text, size_t at, size_t count, int& out) noexcept {
  if (at + count > text.size()) return false;
  const auto [ptr, error] = std::from_chars(text.data() + at, text.data() + at + count, out);
  return error == std::errc() && ptr == text.data() + at + count && text[at] != '-' && text[at] != '+';
}

}  // namespace

TideStation CHSStation::tideStation() const {
  return TideStation{.id = id,
                     .name = officialName,
                     .latitude = latitude,
                     .longitude = longitude,
                     .state = provinceCode,
                     .type = type,
                     .referenceStationID = std::nullopt};
}

std::vector<TideStation> decodeTideStationList(const json::value& value, std::string_view path) {
  return decodeList<TideStation>(value, path, [](const json::value& item, const std::string& itemPath) {
    return decodeTideStation(item, itemPath);
  });
}

std::vector<CHSStation> decodeCHSStationList(const json::value& value, std::string_view path) {
  return decodeList<CHSStation>(value, path, [](const json::value& item, const std::string& itemPath) {
    return decodeCHSStation(item, itemPath);
  });
}

std::vector<TideStation> decodeNOAAStations(std::string_view body) {
  const json::value document = parseJson(body);
  const TideJsonObject o(document, "");
  return decodeTideStationList(o.require("stations"), o.pathOf("stations"));
}

std::vector<NOAAPrediction> decodeNOAAPredictions(std::string_view body) {
  const json::value document = parseJson(body);
  const TideJsonObject o(document, "");
  return decodeList<NOAAPrediction>(
      o.require("predictions"), o.pathOf("predictions"), [](const json::value& item, const std::string& itemPath) {
        const TideJsonObject row(item, itemPath);
        return NOAAPrediction{row.string("t"), row.string("v"), row.optionalString("type")};
      });
}

std::vector<CHSStation> decodeCHSStations(std::string_view body) { return decodeCHSStationList(parseJson(body), ""); }

std::vector<CHSDataPoint> decodeCHSDataPoints(std::string_view body) {
  return decodeList<CHSDataPoint>(parseJson(body), "", [](const json::value& item, const std::string& itemPath) {
    const TideJsonObject o(item, itemPath);
    const std::string text = o.string("eventDate");
    const auto date =
        parseInternetDateTime(text, true) ? parseInternetDateTime(text, true) : parseInternetDateTime(text, false);
    if (!date) o.fail("eventDate", "Invalid ISO8601 date: " + text);
    return CHSDataPoint{*date, o.number("value")};
  });
}

json::object chsStationToJson(const CHSStation& station) {
  json::object o;
  o["id"] = station.id;
  o["code"] = station.code;
  o["officialName"] = station.officialName;
  o["latitude"] = station.latitude;
  o["longitude"] = station.longitude;
  if (station.operating) o["operating"] = *station.operating;
  if (station.timeZoneCode) o["timeZoneCode"] = *station.timeZoneCode;
  if (station.provinceCode) o["provinceCode"] = *station.provinceCode;
  if (station.classCode) o["classCode"] = *station.classCode;
  if (station.type) o["type"] = *station.type;
  if (station.timeSeries) {
    json::array series;
    for (const auto& item : *station.timeSeries) series.push_back(json::object{{"code", item.code}});
    o["timeSeries"] = std::move(series);
  }
  return o;
}

std::optional<Date> parseNOAAPredictionTime(std::string_view text) noexcept {
  int year = 0, month = 0, day = 0, hour = 0, minute = 0;
  if (text.size() != 16 || text[4] != '-' || text[7] != '-' || text[10] != ' ' || text[13] != ':') return std::nullopt;
  if (!digits(text, 0, 4, year) || !digits(text, 5, 2, month) || !digits(text, 8, 2, day) ||
      !digits(text, 11, 2, hour) || !digits(text, 14, 2, minute)) {
    return std::nullopt;
  }
  using namespace std::chrono;
  const year_month_day date{std::chrono::year(year), std::chrono::month(static_cast<unsigned>(month)),
                            std::chrono::day(static_cast<unsigned>(day))};
  if (!date.ok() || hour > 23 || minute > 59) return std::nullopt;
  const auto seconds = sys_days(date).time_since_epoch() + hours(hour) + minutes(minute);
  return Date::fromUnix(static_cast<double>(duration_cast<std::chrono::seconds>(seconds).count()));
}

std::string formatNOAARequestTime(Date date) {
  using namespace std::chrono;
  const auto unix = sys_seconds(seconds(static_cast<long long>(std::floor(date.unixSeconds()))));
  const auto day = floor<days>(unix);
  const year_month_day ymd(day);
  const hh_mm_ss time(unix - day);
  return fmt::format("{:04}{:02}{:02} {:02}:{:02}", static_cast<int>(ymd.year()), static_cast<unsigned>(ymd.month()),
                     static_cast<unsigned>(ymd.day()), time.hours().count(), time.minutes().count());
}

std::optional<double> parseDecimal(std::string_view text) noexcept {
  double value = 0.0;
  const char* end = text.data() + text.size();
  const auto [ptr, error] = std::from_chars(text.data(), end, value, std::chars_format::fixed);
  if (text.empty() || error != std::errc() || ptr != end || !std::isfinite(value)) return std::nullopt;
  return value;
}

}  // namespace ombrine
