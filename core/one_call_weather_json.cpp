#include "core/one_call_weather_json.hpp"

#include <boost/json/monotonic_resource.hpp>

#include <array>
#include <cmath>
#include <limits>
#include <tuple>
#include <type_traits>

namespace ombrine {

namespace {

constexpr std::string_view kInvalidKeyCount = "Invalid number of keys found, expected one.";

using Glyph = OneCallWeather::Glyph;
using Rain = OneCallWeather::Rain;
using Snow = OneCallWeather::Snow;
using Current = OneCallWeather::Current;
using Minutely = OneCallWeather::Minutely;
using Hourly = OneCallWeather::Hourly;
using Daily = OneCallWeather::Daily;
using Alert = OneCallWeather::Alert;
using ImageAttribution = WeatherServiceAttribution::ImageAttribution;
using NameAttribution = WeatherServiceAttribution::NameAttribution;

// A single-key union: exactly one of `names` must be present (other keys are ignored). Returns
// the index of that name and its payload, the value of "_0" inside it.
template <size_t N>
std::pair<size_t, const boost::json::value*> singleCase(const boost::json::value& value, const JsonPath& path,
                                                        const std::array<std::string_view, N>& names) {
  const auto& object = jsonObject(value, path);
  size_t found = N;
  const boost::json::value* payload = nullptr;
  for (size_t i = 0; i < N; ++i) {
    if (const auto* candidate = object.if_contains(names[i])) {
      if (found != N) path.fail(kInvalidKeyCount);
      found = i;
      payload = candidate;
    }
  }
  if (found == N) path.fail(kInvalidKeyCount);
  const JsonPath casePath = path.key(names[found]);
  const auto& wrapper = jsonObject(*payload, casePath);
  const auto* inner = wrapper.if_contains("_0");
  if (inner == nullptr) casePath.key("_0").fail("missing key");
  return {found, inner};
}

// Writes {"<name>": {"_0": ...}} with the payload written by `body`.
template <class Body>
void writeSingleCase(JsonWriter& writer, std::string_view name, Body&& body) {
  writer.beginObject();
  writer.key(name);
  writer.beginObject();
  writer.key("_0");
  body();
  writer.endObject();
  writer.endObject();
}

// One member of a record's JSON form: its key and the field it holds. Each record has one
// tuple of these, in declaration order, used for both decoding and encoding, so the two can
// never disagree on keys or order. An std::optional field is an optional key (left out when
// absent); any other field is required.
template <class Record, class Field>
struct Member {
  std::string_view key;
  Field Record::*field;
};

template <class Record, class Field>
constexpr Member<Record, Field> member(std::string_view key, Field Record::*field) {
  return {key, field};
}

template <class T>
constexpr bool kIsOptional = false;
template <class T>
constexpr bool kIsOptional<std::optional<T>> = true;

template <class Record, class... Fields>
void decodeMembers(const boost::json::value& value, const JsonPath& path, Record& out,
                   const std::tuple<Member<Record, Fields>...>& members) {
  JsonObjectReader reader(value, path);
  std::apply(
      [&](const auto&... m) {
        auto readOne = [&](const auto& one) {
          auto& field = out.*(one.field);
          if constexpr (kIsOptional<std::remove_reference_t<decltype(field)>>) {
            reader.readOptional(one.key, field);
          } else {
            reader.read(one.key, field);
          }
        };
        (readOne(m), ...);
      },
      members);
}

template <class Record, class... Fields>
void writeMembers(JsonWriter& writer, const Record& record, const std::tuple<Member<Record, Fields>...>& members) {
  writer.beginObject();
  std::apply(
      [&](const auto&... m) {
        auto writeOne = [&](const auto& one) {
          const auto& field = record.*(one.field);
          if constexpr (kIsOptional<std::remove_cvref_t<decltype(field)>>) {
            writeOptionalKey(writer, one.key, field);
          } else {
            writeKey(writer, one.key, field);
          }
        };
        (writeOne(m), ...);
      },
      members);
  writer.endObject();
}

const auto kRainMembers = std::tuple{member("1h", &Rain::rainVolume)};
const auto kSnowMembers = std::tuple{member("1h", &Snow::snowVolume)};

const auto kGlyphMembers = std::tuple{
    member("id", &Glyph::id),     member("main", &Glyph::main),             member("description", &Glyph::description),
    member("icon", &Glyph::symbolName), member("isDaylight", &Glyph::isDaylight),
};

const auto kCurrentMembers = std::tuple{
    member("dt", &Current::dt),
    member("sunrise", &Current::sunrise),
    member("sunset", &Current::sunset),
    member("temp", &Current::temp),
    member("feelsLike", &Current::feelsLike),
    member("pressure", &Current::pressure),
    member("dewPoint", &Current::dewPoint),
    member("uvi", &Current::uvi),
    member("humidity", &Current::humidity),
    member("clouds", &Current::clouds),
    member("visibility", &Current::visibility),
    member("windSpeed", &Current::windSpeed),
    member("windGust", &Current::windGust),
    member("windDeg", &Current::windDeg),
    member("rain", &Current::rain),
    member("snow", &Current::snow),
    member("weather", &Current::weather),
    member("airQuality", &Current::airQuality),
};

const auto kMinutelyMembers = std::tuple{
    member("dt", &Minutely::dt),
    member("precipitation", &Minutely::precipitation),
    member("type", &Minutely::type),
};

const auto kHourlyMembers = std::tuple{
    member("dt", &Hourly::dt),
    member("temp", &Hourly::temp),
    member("feelsLike", &Hourly::feelsLike),
    member("pressure", &Hourly::pressure),
    member("humidity", &Hourly::humidity),
    member("dewPoint", &Hourly::dewPoint),
    member("uvi", &Hourly::uvi),
    member("clouds", &Hourly::clouds),
    member("visibility", &Hourly::visibility),
    member("windSpeed", &Hourly::windSpeed),
    member("windDeg", &Hourly::windDeg),
    member("windGust", &Hourly::windGust),
    member("pop", &Hourly::pop),
    member("rain", &Hourly::rain),
    member("snow", &Hourly::snow),
    member("weather", &Hourly::weather),
    member("sunStateChange", &Hourly::sunStateChange),
    member("airQuality", &Hourly::airQuality),
};

const auto kDailyTempMembers = std::tuple{member("min", &Daily::Temp::min), member("max", &Daily::Temp::max)};

const auto kDailyFeelsLikeMembers = std::tuple{
    member("day", &Daily::FeelsLikeTemp::day),
    member("night", &Daily::FeelsLikeTemp::night),
    member("eve", &Daily::FeelsLikeTemp::eve),
    member("morn", &Daily::FeelsLikeTemp::morn),
};

const auto kDailyMembers = std::tuple{
    member("dt", &Daily::dt),
    member("temp", &Daily::temp),
    member("feelsLike", &Daily::feelsLike),
    member("pop", &Daily::pop),
    member("rain", &Daily::rain),
    member("snow", &Daily::snow),
    member("uvi", &Daily::uvi),
    member("windSpeed", &Daily::windSpeed),
    member("windDeg", &Daily::windDeg),
    member("windGust", &Daily::windGust),
    member("humidity", &Daily::humidity),
    member("dewPoint", &Daily::dewPoint),
    member("clouds", &Daily::clouds),
    member("weather", &Daily::weather),
    member("sunrise", &Daily::sunrise),
    member("sunset", &Daily::sunset),
};

const auto kAlertMembers = std::tuple{
    member("senderName", &Alert::senderName),
    member("event", &Alert::event),
    member("start", &Alert::start),
    member("end", &Alert::end),
    member("description", &Alert::description),
    member("url", &Alert::url),
    member("severity", &Alert::severity),
    member("tags", &Alert::tags),
};

const auto kImageAttributionMembers = std::tuple{
    member("combinedMarkDarkURL", &ImageAttribution::combinedMarkDarkURL),
    member("combinedMarkLightURL", &ImageAttribution::combinedMarkLightURL),
    member("legalPageURL", &ImageAttribution::legalPageURL),
    member("serviceName", &ImageAttribution::serviceName),
    member("squareMarkURL", &ImageAttribution::squareMarkURL),
};

const auto kNameAttributionMembers = std::tuple{
    member("serviceName", &NameAttribution::serviceName),
    member("url", &NameAttribution::url),
};

constexpr std::array<std::string_view, 2> kSunStateCases = {"rise", "set"};
constexpr std::array<std::string_view, 3> kAttributionCases = {"apple", "image", "name"};

}  // namespace

// The codecs of the nested records, found by the generic readers and writers through
// argument-dependent lookup.
#define OMBRINE_RECORD_JSON(Type, members)                                                          \
  void decodeJson(const boost::json::value& value, const JsonPath& path, Type& out) {             \
    decodeMembers(value, path, out, members);                                                     \
  }                                                                                               \
  void writeJson(JsonWriter& writer, const Type& value) { writeMembers(writer, value, members); }

OMBRINE_RECORD_JSON(Rain, kRainMembers)
OMBRINE_RECORD_JSON(Snow, kSnowMembers)
OMBRINE_RECORD_JSON(Glyph, kGlyphMembers)
OMBRINE_RECORD_JSON(Current, kCurrentMembers)
OMBRINE_RECORD_JSON(Minutely, kMinutelyMembers)
OMBRINE_RECORD_JSON(Hourly, kHourlyMembers)
OMBRINE_RECORD_JSON(Daily::Temp, kDailyTempMembers)
OMBRINE_RECORD_JSON(Daily::FeelsLikeTemp, kDailyFeelsLikeMembers)
OMBRINE_RECORD_JSON(Daily, kDailyMembers)
OMBRINE_RECORD_JSON(ImageAttribution, kImageAttributionMembers)
OMBRINE_RECORD_JSON(NameAttribution, kNameAttributionMembers)
#undef OMBRINE_RECORD_JSON

void decodeJson(const boost::json::value& value, const JsonPath& path, WeatherSeverity& out) {
  std::string_view name = jsonString(value, path);
  auto severity = weatherSeverityNamed(name);
  if (!severity) path.fail("unknown severity \"" + std::string(name) + "\"");
  out = *severity;
}

void writeJson(JsonWriter& writer, WeatherSeverity severity) { writer.string(weatherSeverityName(severity)); }

void decodeJson(const boost::json::value& value, const JsonPath& path, Alert& out) {
  decodeMembers(value, path, out, kAlertMembers);
  // The provider's generic word is never shown as an event name.
  if (out.event == "weather") out.event = "special weather statement";
}

void writeJson(JsonWriter& writer, const Alert& alert) { writeMembers(writer, alert, kAlertMembers); }

void decodeJson(const boost::json::value& value, const JsonPath& path, SunStateChange& out) {
  auto [which, payload] = singleCase(value, path, kSunStateCases);
  const JsonPath casePath = path.key(kSunStateCases[which]);
  const JsonPath payloadPath = casePath.key("_0");
  Date date;
  decodeJson(*payload, payloadPath, date);
  out = which == 0 ? SunStateChange::rise(date) : SunStateChange::set(date);
}

void writeJson(JsonWriter& writer, const SunStateChange& value) {
  writeSingleCase(writer, kSunStateCases[value.isRise() ? 0 : 1], [&] { writeJson(writer, value.date()); });
}

void decodeJson(const boost::json::value& value, const JsonPath& path, WeatherServiceAttribution& out) {
  auto [which, payload] = singleCase(value, path, kAttributionCases);
  const JsonPath casePath = path.key(kAttributionCases[which]);
  const JsonPath payloadPath = casePath.key("_0");
  switch (which) {
    case 0:
      // Copied out of the (possibly throwaway) document's storage.
      out.source = WeatherServiceAttribution::Apple{boost::json::value(*payload, boost::json::storage_ptr())};
      return;
    case 1: decodeJson(*payload, payloadPath, out.source.emplace<ImageAttribution>()); return;
    default: decodeJson(*payload, payloadPath, out.source.emplace<NameAttribution>()); return;
  }
}

void writeJson(JsonWriter& writer, const WeatherServiceAttribution& value) {
  writeSingleCase(writer, kAttributionCases[value.source.index()], [&] {
    if (const auto* apple = std::get_if<WeatherServiceAttribution::Apple>(&value.source)) {
      writer.value(apple->attribution);
    } else if (const auto* image = std::get_if<ImageAttribution>(&value.source)) {
      writeJson(writer, *image);
    } else {
      writeJson(writer, std::get<NameAttribution>(value.source));
    }
  });
}

void decodeJson(const boost::json::value& value, const JsonPath& path, OneCallWeather& out) {
  JsonObjectReader o(value, path);
  o.read("lat", out.lat);
  o.read("lon", out.lon);

  std::string identifier;
  std::int64_t offset = 0;
  o.read("timezone", identifier);
  o.read("timezoneOffset", offset);
  std::optional<TimeZone> zone = TimeZone::named(identifier);
  if (!zone && offset >= std::numeric_limits<int>::min() / 2 && offset <= std::numeric_limits<int>::max() / 2) {
    // A fixed zone is named by hours and minutes ("GMT+0530"); seconds are rounded away so that
    // the zone written back is the zone read again.
    const int minutes = static_cast<int>(std::lround(static_cast<double>(offset) / 60.0));
    zone = TimeZone::fixedOffset(minutes * 60);
  }
  out.timeZone = zone ? std::move(*zone) : TimeZone::current();

  o.read("current", out.current);
  o.readOptional("minutely", out.minutely);
  o.read("hourly", out.hourly);
  o.read("daily", out.daily);
  o.readOptional("alerts", out.alerts);
  o.readOptional("attribution", out.attribution);
  const auto* tides = o.find("tideData");
  if (tides != nullptr && !tides->is_null()) {
    out.tideData.emplace(*tides, boost::json::storage_ptr());
  } else {
    out.tideData.reset();
  }
  out.isPlaceholder = false;
}

OneCallWeather decodeOneCallWeather(const boost::json::value& value, const JsonPath& path) {
  OneCallWeather weather;
  decodeJson(value, path, weather);
  return weather;
}

OneCallWeather decodeOneCallWeather(std::string_view json) {
  // The DOM is thrown away after decoding: one arena, freed at once.
  boost::json::monotonic_resource arena(json.size() * 2 + 1024);
  const boost::json::value document = parseJson(json, &arena);
  return decodeOneCallWeather(document, JsonPath());
}

void writeOneCallWeather(JsonWriter& writer, const OneCallWeather& weather, Date encodingMoment) {
  writer.beginObject();
  writeKey(writer, "lat", weather.lat);
  writeKey(writer, "lon", weather.lon);
  writeKey(writer, "timezone", weather.timeZone.identifier());
  writeKey(writer, "timezoneOffset", weather.timeZone.secondsFromGMT(encodingMoment));
  writeKey(writer, "current", weather.current);
  writeOptionalKey(writer, "minutely", weather.minutely);
  writeKey(writer, "hourly", weather.hourly);
  writeKey(writer, "daily", weather.daily);
  writer.key("alerts");
  if (weather.alerts) {
    writeJson(writer, *weather.alerts);
  } else {
    writer.null();
  }
  writer.key("attribution");
  if (weather.attribution) {
    writeJson(writer, *weather.attribution);
  } else {
    writer.null();
  }
  if (weather.tideData) {
    writer.key("tideData");
    writer.value(*weather.tideData);
  }
  writer.endObject();
}

std::string encodeOneCallWeather(const OneCallWeather& weather, Date encodingMoment) {
  std::string out;
  // Roughly 560 bytes per hourly entry; one allocation for typical records.
  out.reserve(4096 + 600 * weather.hourly.size() + 200 * (weather.minutely ? weather.minutely->size() : 0) +
              700 * weather.daily.size());
  JsonWriter writer(out);
  writeOneCallWeather(writer, weather, encodingMoment);
  return out;
}

boost::json::value oneCallWeatherToJson(const OneCallWeather& weather, Date encodingMoment,
                                        boost::json::storage_ptr storage) {
  return parseJson(encodeOneCallWeather(weather, encodingMoment), std::move(storage));
}

}  // namespace ombrine
