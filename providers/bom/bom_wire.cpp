#include "providers/bom/bom_wire.hpp"

#include <boost/json/monotonic_resource.hpp>

#include "core/values/compass.hpp"
#include "core/values/iso8601.hpp"
#include "core/values/json_fields.hpp"
#include "core/values/saturating_int.hpp"

namespace ombrine {

namespace json = boost::json;

namespace {

Date date(const JsonFields& f, std::string_view key) {
  std::string text = f.string(key);
  auto parsed = parseInternetDateTime(text, false);
  if (!parsed) parsed = parseInternetDateTime(text, true);
  if (!parsed) f.fail(key, "expected an ISO 8601 date");
  return *parsed;
}

std::optional<Date> optionalDate(const JsonFields& f, std::string_view key) {
  return f.has(key) ? std::optional(date(f, key)) : std::nullopt;
}

std::optional<Temperature> optionalCelsius(const JsonFields& f, std::string_view key) {
  auto value = f.optionalNumber(key);
  return value ? std::optional(Temperature::celsius(*value)) : std::nullopt;
}

// A temperature the answer may leave out (then `fallback`); a null one reads as 0 °C like every
// measurement.
Temperature celsiusOr(const JsonFields& f, std::string_view key, Temperature fallback) {
  return f.contains(key) ? Temperature::celsius(f.measurement(key)) : fallback;
}

std::optional<int> optionalInt(const JsonFields& f, std::string_view key) {
  auto value = f.optionalNumber(key);
  return value ? std::optional(saturatingInt(*value)) : std::nullopt;
}

BOM::Wind wind(const JsonFields& f) {
  BOM::Wind result;
  result.speedKilometre = Speed::kilometersPerHour(f.optionalNumber("speed_kilometre").value_or(0.0));
  if (auto gust = f.optionalNumber("gust_speed_kilometre")) result.gustSpeedKilometre = Speed::kilometersPerHour(*gust);
  if (auto point = f.optionalString("direction")) {
    if (auto direction = compassDirection(*point)) {
      result.direction = Angle::degrees(static_cast<int>(*direction) * 22.5);
    }
  }
  return result;
}

BOM::Rain rain(const JsonFields& f) {
  BOM::Rain result;
  result.chance = optionalInt(f, "chance").value_or(0);
  if (auto amount = f.optionalObject("amount")) {
    result.amount.min = optionalInt(*amount, "min").value_or(0);
    result.amount.max = optionalInt(*amount, "max");
  }
  return result;
}

struct Document {
  json::monotonic_resource arena;
  json::value value;
  explicit Document(std::string_view text) : value(parseJson(text, &arena)) {}
};

template <class Decode>
auto listOf(const JsonFields& root, Decode decode) {
  std::vector<decltype(decode(root))> out;
  const json::array& items = root.array("data");
  out.reserve(items.size());
  for (size_t i = 0; i < items.size(); ++i) out.push_back(decode(root.element("data", items[i], i)));
  return out;
}

}  // namespace

BOMPublishedDailyForecasts::BOMPublishedDailyForecasts(const BOM::Daily& daily) {
  for (const auto& day : daily.data) {
    if (day.tempMax || day.iconDescriptor) forecasts.push_back(day);
  }
}

BOM::LocationInfo decodeBomLocationInfo(std::string_view text) {
  Document document(text);
  JsonFields data = JsonFields(document.value, "").object("data");
  return {{data.string("timezone"), data.optionalString("name").value_or("")}};
}

std::vector<BomSearchResult> decodeBomLocationSearch(std::string_view text) {
  Document document(text);
  return listOf(JsonFields(document.value, ""), [](const JsonFields& f) {
    return BomSearchResult{f.string("geohash"), f.optionalString("name").value_or("")};
  });
}

BOM::Current decodeBomObservations(std::string_view text) {
  Document document(text);
  JsonFields data = JsonFields(document.value, "").object("data");
  BOM::Current::WeatherData current;
  current.temp = Temperature::celsius(data.measurement("temp"));
  current.tempFeelsLike = celsiusOr(data, "temp_feels_like", current.temp);
  current.humidity = optionalInt(data, "humidity").value_or(0);
  current.wind = data.has("wind") ? wind(data.object("wind")) : BOM::Wind{};
  if (auto gust = data.optionalObject("gust")) {
    if (auto speed = gust->optionalNumber("speed_kilometre"))
      current.gust = BOM::Gust{Speed::kilometersPerHour(*speed)};
  }
  return {current};
}

BOM::Hourly decodeBomHourly(std::string_view text) {
  Document document(text);
  return {listOf(JsonFields(document.value, ""), [](const JsonFields& f) {
    BOM::Hourly::WeatherData hour;
    hour.time = date(f, "time");
    hour.temp = Temperature::celsius(f.measurement("temp"));
    hour.tempFeelsLike = celsiusOr(f, "temp_feels_like", hour.temp);
    hour.wind = f.has("wind") ? wind(f.object("wind")) : BOM::Wind{};
    hour.relativeHumidity = optionalInt(f, "relative_humidity").value_or(0);
    // The hourly answer sends no dew point (the conversion computes one); a null one is 0 °C.
    if (f.contains("dew_point")) hour.dewPoint = Temperature::celsius(f.measurement("dew_point"));
    hour.uv = optionalInt(f, "uv").value_or(0);
    hour.isNight = f.has("is_night") && f.boolean("is_night");
    hour.iconDescriptor = f.optionalString("icon_descriptor");
    if (auto r = f.optionalObject("rain")) hour.rain = rain(*r);
    return hour;
  })};
}

BOM::Daily decodeBomDaily(std::string_view text) {
  Document document(text);
  return {listOf(JsonFields(document.value, ""), [](const JsonFields& f) {
    BOM::Daily::WeatherData day;
    day.date = date(f, "date");
    day.tempMin = optionalCelsius(f, "temp_min");
    day.tempMax = optionalCelsius(f, "temp_max");
    if (auto uv = f.optionalObject("uv")) day.uv.maxIndex = optionalInt(*uv, "max_index");
    if (auto astronomical = f.optionalObject("astronomical")) {
      day.astronomical.sunriseTime = optionalDate(*astronomical, "sunrise_time");
      day.astronomical.sunsetTime = optionalDate(*astronomical, "sunset_time");
    }
    day.iconDescriptor = f.optionalString("icon_descriptor");
    day.shortText = f.optionalString("short_text");
    day.extendedText = f.optionalString("extended_text");
    if (auto r = f.optionalObject("rain")) day.rain = rain(*r);
    if (auto now = f.optionalObject("now")) {
      day.now = BOM::Daily::WeatherData::Now{.isNight = now->has("is_night") && now->boolean("is_night"),
                                             .tempNow = optionalCelsius(*now, "temp_now"),
                                             .tempLater = optionalCelsius(*now, "temp_later")};
    }
    return day;
  })};
}

std::vector<BomWarning> decodeBomWarnings(std::string_view text) {
  Document document(text);
  return listOf(JsonFields(document.value, ""), [](const JsonFields& f) {
    return BomWarning{f.string("id"), f.optionalString("type").value_or(""), f.string("title"), date(f, "issue_time"),
                      optionalDate(f, "expiry_time")};
  });
}

std::string geohash(double latitude, double longitude, int length) {
  static constexpr std::string_view kAlphabet = "0123456789bcdefghjkmnpqrstuvwxyz";
  double latitudeRange[2] = {-90.0, 90.0};
  double longitudeRange[2] = {-180.0, 180.0};
  std::string hash;
  bool even = true;
  int bit = 0;
  int value = 0;
  while (static_cast<int>(hash.size()) < length) {
    double* range = even ? longitudeRange : latitudeRange;
    double coordinate = even ? longitude : latitude;
    double middle = (range[0] + range[1]) / 2.0;
    value <<= 1;
    if (coordinate >= middle) {
      value |= 1;
      range[0] = middle;
    } else {
      range[1] = middle;
    }
    even = !even;
    if (++bit == 5) {
      hash.push_back(kAlphabet[static_cast<size_t>(value)]);
      bit = 0;
      value = 0;
    }
  }
  return hash;
}

}  // namespace ombrine
