#include "providers/foreca/foreca_wire.hpp"

#include <boost/json/monotonic_resource.hpp>
#include <boost/json/value.hpp>
#include <boost/url/parse.hpp>

#include <array>
#include <chrono>
#include <cmath>
#include <limits>
#include <utility>

#include "core/values/errors.hpp"
#include "core/values/iso8601.hpp"
#include "core/values/value_json.hpp"
#include "providers/foreca/foreca_calendar.hpp"

namespace ombrine {

namespace json = boost::json;

namespace {

constexpr double kMillimetersPerHourPerMeterPerSecond = 3.6e6;

// --- Date text -------------------------------------------------------------------------------

bool readDigits(std::string_view text, size_t at, size_t count, int& out) {
  if (at + count > text.size()) return false;
  int value = 0;
  for (size_t i = at; i < at + count; ++i) {
    char c = text[i];
    if (c < '0' || c > '9') return false;
    value = value * 10 + (c - '0');
  }
  out = value;
  return true;
}

bool isValidDay(int year, int month, int day) {
  if (month < 1 || month > 12 || day < 1) return false;
  auto ymd = std::chrono::year{year} / std::chrono::month{static_cast<unsigned>(month)} /
             std::chrono::day{static_cast<unsigned>(day)};
  return ymd.ok();
}

// "yyyy-MM-dd" at the start of `text`.
std::optional<CivilDay> parseCivilDay(std::string_view text) {
  CivilDay day;
  if (text.size() < 10 || text[4] != '-' || text[7] != '-') return std::nullopt;
  if (!readDigits(text, 0, 4, day.year) || !readDigits(text, 5, 2, day.month) || !readDigits(text, 8, 2, day.day) ||
      !isValidDay(day.year, day.month, day.day)) {
    return std::nullopt;
  }
  return day;
}

// "Z", "+HH:MM", "+HHMM" or "+HH" (and the same with "-"): seconds east of GMT.
std::optional<int> parseZone(std::string_view text) {
  if (text == "Z") return 0;
  if (text.size() < 3 || (text[0] != '+' && text[0] != '-')) return std::nullopt;
  int hours = 0;
  int minutes = 0;
  if (!readDigits(text, 1, 2, hours)) return std::nullopt;
  std::string_view rest = text.substr(3);
  if (rest.size() == 3 && rest[0] == ':') rest.remove_prefix(1);
  if (!rest.empty() && (rest.size() != 2 || !readDigits(rest, 0, 2, minutes))) return std::nullopt;
  if (hours > 18 || minutes > 59) return std::nullopt;
  int seconds = hours * 3600 + minutes * 60;
  return text[0] == '-' ? -seconds : seconds;
}

// "HH:mm" or "HH:mm:ss".
std::optional<int> parseClockSeconds(std::string_view text) {
  int hour = 0;
  int minute = 0;
  int second = 0;
  if (text.size() != 5 && text.size() != 8) return std::nullopt;
  if (text[2] != ':' || !readDigits(text, 0, 2, hour) || !readDigits(text, 3, 2, minute)) return std::nullopt;
  if (text.size() == 8 && (text[5] != ':' || !readDigits(text, 6, 2, second))) return std::nullopt;
  if (hour > 23 || minute > 59 || second > 59) return std::nullopt;
  return hour * 3600 + minute * 60 + second;
}

Date utcDate(CivilDay day, int secondsIntoDay) {
  auto ymd = std::chrono::year{day.year} / std::chrono::month{static_cast<unsigned>(day.month)} /
             std::chrono::day{static_cast<unsigned>(day.day)};
  auto days = std::chrono::sys_days(ymd).time_since_epoch().count();
  return Date::fromUnix(static_cast<double>(days) * 86400.0 + secondsIntoDay);
}

// --- JSON reading ----------------------------------------------------------------------------

// Reads the members of one JSON object; failures name the path of the offending value.
class ObjectReader {
 public:
  // `path` must outlive the reader (paths refer to their parents).
  ObjectReader(const json::value& value, const JsonPath& path) : object_(jsonObject(value, path)), path_(path) {}

  const JsonPath& path() const { return path_; }

  [[noreturn]] void fail(std::string_view key, std::string_view problem) const { path_.key(key).fail(problem); }

  const json::value& required(std::string_view key) const {
    const json::value* value = object_.if_contains(key);
    if (!value) fail(key, "missing key");
    return *value;
  }

  // Missing and null alike read as absent.
  const json::value* optional(std::string_view key) const {
    const json::value* value = object_.if_contains(key);
    return value && !value->is_null() ? value : nullptr;
  }

  double number(std::string_view key) const { return jsonNumber(required(key), path_.key(key)); }

  // A measurement: the key must be present, but null reads as 0.0.
  double measurement(std::string_view key) const {
    const json::value& value = required(key);
    return value.is_null() ? 0.0 : jsonNumber(value, path_.key(key));
  }

  std::optional<double> optionalNumber(std::string_view key) const {
    const json::value* value = optional(key);
    if (!value) return std::nullopt;
    return jsonNumber(*value, path_.key(key));
  }

  int integer(std::string_view key) const {
    std::int64_t value = jsonInteger(required(key), path_.key(key));
    if (value < std::numeric_limits<int>::min() || value > std::numeric_limits<int>::max()) {
      fail(key, "integer out of range");
    }
    return static_cast<int>(value);
  }

  std::string string(std::string_view key) const { return std::string(jsonString(required(key), path_.key(key))); }

  std::optional<std::string> optionalString(std::string_view key) const {
    const json::value* value = optional(key);
    if (!value) return std::nullopt;
    return std::string(jsonString(*value, path_.key(key)));
  }

  const json::array& array(std::string_view key) const { return jsonArray(required(key), path_.key(key)); }

  Date dateTime(std::string_view key) const {
    std::string text = string(key);
    std::optional<Date> date = parseForecaDateTime(text);
    if (!date) fail(key, "expected a date of the form yyyy-MM-ddTHH:mm+hh:mm");
    return *date;
  }

 private:
  const json::object& object_;
  const JsonPath& path_;
};

// Runs `decode` on the parsed answer, naming the answer in any failure.
template <class Decode>
auto decodeAnswer(std::string_view text, std::string_view answer, Decode decode) {
  try {
    json::monotonic_resource storage;
    json::value document = parseJson(text, &storage);
    const JsonPath root;
    return decode(document, root);
  } catch (const DecodingError& error) {
    throw DecodingError("Foreca " + std::string(answer) + " answer: " + error.what());
  }
}

// Decodes {"<listKey>": [entry, ...]} with `decodeEntry(ObjectReader&)` per entry.
template <class T, class DecodeEntry>
std::vector<T> decodeList(std::string_view text, std::string_view answer, std::string_view listKey,
                          DecodeEntry decodeEntry) {
  auto decode = [&](const json::value& document, const JsonPath& root) {
    ObjectReader envelope(document, root);
    const json::array& entries = envelope.array(listKey);
    const JsonPath listPath = root.key(listKey);
    std::vector<T> result;
    result.reserve(entries.size());
    for (size_t i = 0; i < entries.size(); ++i) {
      const JsonPath entryPath = listPath.index(i);
      ObjectReader entry(entries[i], entryPath);
      result.push_back(decodeEntry(entry));
    }
    return result;
  };
  return decodeAnswer(text, answer, decode);
}

Speed windSpeed(const ObjectReader& reader, std::string_view key) {
  return Speed::kilometersPerHour(reader.measurement(key));
}

ForecaHourly::PrecipitationType precipitationType(const ObjectReader& reader, std::string_view key) {
  std::string text = reader.string(key);
  if (text == "rain") return ForecaHourly::PrecipitationType::rain;
  if (text == "mixed") return ForecaHourly::PrecipitationType::mixed;
  if (text == "snow") return ForecaHourly::PrecipitationType::snow;
  reader.fail(key, "unknown precipitation type \"" + text + "\"");
}

ForecaWarning::Significance significance(const ObjectReader& reader, std::string_view key) {
  static constexpr std::array<std::pair<std::string_view, ForecaWarning::Significance>, 5> kNames{{
      {"green", ForecaWarning::Significance::green},
      {"yellow", ForecaWarning::Significance::yellow},
      {"orange", ForecaWarning::Significance::orange},
      {"red", ForecaWarning::Significance::red},
      {"purple", ForecaWarning::Significance::purple},
  }};
  std::string text = reader.string(key);
  for (const auto& [name, value] : kNames) {
    if (name == text) return value;
  }
  reader.fail(key, "unknown significance \"" + text + "\"");
}

Date isoDate(const ObjectReader& reader, std::string_view key) {
  std::string text = reader.string(key);
  try {
    return decodeISO8601Date(text);
  } catch (const DecodingError& error) {
    reader.fail(key, error.what());
  }
}

std::optional<boost::urls::url> optionalUrl(const ObjectReader& reader, std::string_view key) {
  std::optional<std::string> text = reader.optionalString(key);
  if (!text || text->empty()) return std::nullopt;
  auto parsed = boost::urls::parse_uri_reference(*text);
  if (!parsed) reader.fail(key, "not a URL");
  return boost::urls::url(*parsed);
}

// A daily `sunrise` or `sunset`: the place's wall-clock time on the row's day, a full
// date-time, or a plain day.
std::optional<Date> dailySunEvent(const ObjectReader& reader, std::string_view key, CivilDay rowDay,
                                  PlaceCalendar& calendar) {
  std::optional<std::string> text = reader.optionalString(key);
  if (!text || text->empty()) return std::nullopt;
  if (std::optional<int> seconds = parseClockSeconds(*text)) {
    return calendar.date(rowDay, *seconds / 3600, *seconds % 3600 / 60) + static_cast<double>(*seconds % 60);
  }
  if (std::optional<Date> date = parseForecaDateTime(*text)) return date;
  if (text->size() == 10) {
    if (std::optional<CivilDay> day = parseCivilDay(*text)) return calendar.date(*day);
  }
  reader.fail(key, "expected a time of day, a date-time or a day");
}

// The keys the current and the hourly answer share.
template <class Row>
void readCommonFields(const ObjectReader& r, Row& row) {
  row.time = r.dateTime("time");
  row.symbol = r.string("symbol");
  row.symbolPhrase = r.string("symbolPhrase");
  row.temperature = Temperature::celsius(r.measurement("temperature"));
  row.feelsLikeTemp = Temperature::celsius(r.measurement("feelsLikeTemp"));
  row.relHumidity = r.integer("relHumidity");
  row.dewPoint = Temperature::celsius(r.measurement("dewPoint"));
  row.windSpeed = windSpeed(r, "windSpeed");
  row.windDir = Angle::degrees(r.measurement("windDir"));
  row.windGust = windSpeed(r, "windGust");
  row.precipProb = r.integer("precipProb");
  row.cloudiness = r.integer("cloudiness");
  row.uvIndex = r.number("uvIndex");
  row.pressure = r.optionalNumber("pressure");
  row.visibility = r.optionalNumber("visibility");
}

ForecaCurrent decodeCurrentEntry(const ObjectReader& r) {
  ForecaCurrent current;
  readCommonFields(r, current);
  return current;
}

ForecaHourly decodeHourlyEntry(const ObjectReader& r) {
  ForecaHourly hour;
  readCommonFields(r, hour);
  hour.windDirString = r.string("windDirString");
  hour.precipAccum = Precipitation::millimeters(r.measurement("precipAccum"));
  hour.snowAccum = Precipitation::millimeters(r.measurement("snowAccum"));
  hour.precipType = precipitationType(r, "precipType");
  return hour;
}

ForecaDaily decodeDailyEntry(const ObjectReader& r, PlaceCalendar& calendar) {
  ForecaDaily day;
  std::string dateText = r.string("date");
  std::optional<CivilDay> civil = dateText.size() == 10 ? parseCivilDay(dateText) : std::nullopt;
  if (!civil) r.fail("date", "expected a day of the form yyyy-MM-dd");
  day.date = calendar.date(*civil);
  day.symbol = r.string("symbol");
  day.symbolPhrase = r.string("symbolPhrase");
  day.maxTemp = Temperature::celsius(r.measurement("maxTemp"));
  day.minTemp = Temperature::celsius(r.measurement("minTemp"));
  day.maxFeelsLikeTemp = Temperature::celsius(r.measurement("maxFeelsLikeTemp"));
  day.minFeelsLikeTemp = Temperature::celsius(r.measurement("minFeelsLikeTemp"));
  day.maxRelHumidity = r.integer("maxRelHumidity");
  day.minRelHumidity = r.integer("minRelHumidity");
  day.maxDewPoint = Temperature::celsius(r.measurement("maxDewPoint"));
  day.minDewPoint = Temperature::celsius(r.measurement("minDewPoint"));
  day.precipAccum = Precipitation::millimeters(r.measurement("precipAccum"));
  day.snowAccum = Precipitation::millimeters(r.measurement("snowAccum"));
  day.maxWindSpeed = windSpeed(r, "maxWindSpeed");
  day.windDir = Angle::degrees(r.measurement("windDir"));
  day.maxWindGust = windSpeed(r, "maxWindGust");
  day.precipProb = r.integer("precipProb");
  day.cloudiness = r.integer("cloudiness");
  day.sunrise = dailySunEvent(r, "sunrise", *civil, calendar);
  day.sunset = dailySunEvent(r, "sunset", *civil, calendar);
  day.uvIndex = r.optionalNumber("uvIndex");
  return day;
}

ForecaMinute decodeMinuteEntry(const ObjectReader& r) {
  ForecaMinute minute;
  minute.time = r.dateTime("time");
  minute.precipRate = Speed::metersPerSecond(r.measurement("precipRate") / kMillimetersPerHourPerMeterPerSecond);
  return minute;
}

AirQuality decodeAirQualityEntry(const ObjectReader& r) {
  AirQuality quality;
  quality.time = r.dateTime("time");
  quality.aqi = r.integer("AQI");
  return quality;
}

ForecaWarning::Description decodeDescription(const ObjectReader& r) {
  ForecaWarning::Description description;
  description.lang = r.string("lang");
  description.title = r.optionalString("title");
  description.text = r.optionalString("text");
  return description;
}

ForecaWarning decodeWarningEntry(const ObjectReader& r) {
  ForecaWarning warning;
  warning.name = r.string("name");
  warning.type = r.string("type");
  warning.significance = significance(r, "significance");
  warning.attribution = r.string("attribution");
  warning.attributionUrl = optionalUrl(r, "attributionUrl");
  warning.validFrom = isoDate(r, "validFrom");
  warning.validUntil = isoDate(r, "validUntil");
  const json::array& descriptions = r.array("description");
  warning.description.reserve(descriptions.size());
  const JsonPath descriptionPath = r.path().key("description");
  for (size_t i = 0; i < descriptions.size(); ++i) {
    const JsonPath entryPath = descriptionPath.index(i);
    ObjectReader entry(descriptions[i], entryPath);
    warning.description.push_back(decodeDescription(entry));
  }
  warning.significanceDescription = r.string("significanceDescription");
  warning.sent = isoDate(r, "sent");
  warning.title = r.optionalString("title");
  warning.langArea = r.optionalString("langArea");
  return warning;
}

}  // namespace

std::optional<Date> parseForecaDateTime(std::string_view text) {
  // yyyy-MM-ddTHH:mm, then the zone.
  if (text.size() < 17 || text[10] != 'T' || text[13] != ':') return std::nullopt;
  std::optional<CivilDay> day = parseCivilDay(text);
  int hour = 0;
  int minute = 0;
  if (!day || !readDigits(text, 11, 2, hour) || !readDigits(text, 14, 2, minute) || hour > 23 || minute > 59) {
    return std::nullopt;
  }
  std::optional<int> offset = parseZone(text.substr(16));
  if (!offset) return std::nullopt;
  return utcDate(*day, hour * 3600 + minute * 60 - *offset);
}

double precipRateMillimetersPerHour(const ForecaMinute& minute) {
  double rate = minute.precipRate.inMetersPerSecond() * kMillimetersPerHourPerMeterPerSecond;
  return std::round(rate * 1e9) / 1e9;
}

ForecaCurrentResponse decodeForecaCurrent(std::string_view text) {
  auto decode = [](const json::value& document, const JsonPath& root) {
    ObjectReader envelope(document, root);
    const JsonPath currentPath = root.key("current");
    ObjectReader current(envelope.required("current"), currentPath);
    return ForecaCurrentResponse{decodeCurrentEntry(current)};
  };
  return decodeAnswer(text, "current", decode);
}

ForecaForecast<ForecaHourly> decodeForecaHourly(std::string_view text) {
  return {decodeList<ForecaHourly>(text, "hourly", "forecast", decodeHourlyEntry)};
}

ForecaForecast<ForecaDaily> decodeForecaDaily(std::string_view text, const TimeZone& placeZone) {
  PlaceCalendar calendar(placeZone);
  auto decodeEntry = [&calendar](const ObjectReader& r) { return decodeDailyEntry(r, calendar); };
  return {decodeList<ForecaDaily>(text, "daily", "forecast", decodeEntry)};
}

ForecaForecast<ForecaMinute> decodeForecaMinutely(std::string_view text) {
  return {decodeList<ForecaMinute>(text, "minutely", "forecast", decodeMinuteEntry)};
}

ForecaForecast<AirQuality> decodeForecaAirQuality(std::string_view text) {
  return {decodeList<AirQuality>(text, "air quality", "forecast", decodeAirQualityEntry)};
}

ForecaWarnings decodeForecaWarnings(std::string_view text) {
  return {decodeList<ForecaWarning>(text, "warnings", "warnings", decodeWarningEntry)};
}

}  // namespace ombrine
