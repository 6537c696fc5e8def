#include "core/record/one_call_weather_json.hpp"

#include <boost/json/monotonic_resource.hpp>

#include <array>
#include <bit>
#include <cmath>
#include <limits>
#include <tuple>

#include "core/record/tide_records_json.hpp"
#include "core/values/json_stream.hpp"

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
using Apple = WeatherServiceAttribution::Apple;
using ImageAttribution = WeatherServiceAttribution::ImageAttribution;
using NameAttribution = WeatherServiceAttribution::NameAttribution;

// The members of each nested record, in declaration order. One table per record serves the DOM
// decoder, the streaming decoder and the writer, so keys and order cannot drift apart.

constexpr auto kRainMembers = std::tuple{jsonMember("1h", &Rain::rainVolume)};
constexpr auto kSnowMembers = std::tuple{jsonMember("1h", &Snow::snowVolume)};

constexpr auto kGlyphMembers = std::tuple{
    jsonMember("id", &Glyph::id),
    jsonMember("main", &Glyph::main),
    jsonMember("description", &Glyph::description),
    jsonMember("icon", &Glyph::symbolName),
    jsonMember("isDaylight", &Glyph::isDaylight),
};

constexpr auto kCurrentMembers = std::tuple{
    jsonMember("dt", &Current::dt),
    jsonMember("sunrise", &Current::sunrise),
    jsonMember("sunset", &Current::sunset),
    jsonMember("temp", &Current::temp),
    jsonMember("feelsLike", &Current::feelsLike),
    jsonMember("pressure", &Current::pressure),
    jsonMember("dewPoint", &Current::dewPoint),
    jsonMember("uvi", &Current::uvi),
    jsonMember("humidity", &Current::humidity),
    jsonMember("clouds", &Current::clouds),
    jsonMember("visibility", &Current::visibility),
    jsonMember("windSpeed", &Current::windSpeed),
    jsonMember("windGust", &Current::windGust),
    jsonMember("windDeg", &Current::windDeg),
    jsonMember("rain", &Current::rain),
    jsonMember("snow", &Current::snow),
    jsonMember("weather", &Current::weather),
    jsonMember("airQuality", &Current::airQuality),
};

constexpr auto kMinutelyMembers = std::tuple{
    jsonMember("dt", &Minutely::dt),
    jsonMember("precipitation", &Minutely::precipitation),
    jsonMember("type", &Minutely::type),
};

constexpr auto kHourlyMembers = std::tuple{
    jsonMember("dt", &Hourly::dt),
    jsonMember("temp", &Hourly::temp),
    jsonMember("feelsLike", &Hourly::feelsLike),
    jsonMember("pressure", &Hourly::pressure),
    jsonMember("humidity", &Hourly::humidity),
    jsonMember("dewPoint", &Hourly::dewPoint),
    jsonMember("uvi", &Hourly::uvi),
    jsonMember("clouds", &Hourly::clouds),
    jsonMember("visibility", &Hourly::visibility),
    jsonMember("windSpeed", &Hourly::windSpeed),
    jsonMember("windDeg", &Hourly::windDeg),
    jsonMember("windGust", &Hourly::windGust),
    jsonMember("pop", &Hourly::pop),
    jsonMember("rain", &Hourly::rain),
    jsonMember("snow", &Hourly::snow),
    jsonMember("weather", &Hourly::weather),
    jsonMember("sunStateChange", &Hourly::sunStateChange),
    jsonMember("airQuality", &Hourly::airQuality),
};

constexpr auto kDailyTempMembers =
    std::tuple{jsonMember("min", &Daily::Temp::min), jsonMember("max", &Daily::Temp::max)};

constexpr auto kDailyFeelsLikeMembers = std::tuple{
    jsonMember("day", &Daily::FeelsLikeTemp::day),
    jsonMember("night", &Daily::FeelsLikeTemp::night),
    jsonMember("eve", &Daily::FeelsLikeTemp::eve),
    jsonMember("morn", &Daily::FeelsLikeTemp::morn),
};

constexpr auto kDailyMembers = std::tuple{
    jsonMember("dt", &Daily::dt),
    jsonMember("temp", &Daily::temp),
    jsonMember("feelsLike", &Daily::feelsLike),
    jsonMember("pop", &Daily::pop),
    jsonMember("rain", &Daily::rain),
    jsonMember("snow", &Daily::snow),
    jsonMember("uvi", &Daily::uvi),
    jsonMember("windSpeed", &Daily::windSpeed),
    jsonMember("windDeg", &Daily::windDeg),
    jsonMember("windGust", &Daily::windGust),
    jsonMember("humidity", &Daily::humidity),
    jsonMember("dewPoint", &Daily::dewPoint),
    jsonMember("clouds", &Daily::clouds),
    jsonMember("weather", &Daily::weather),
    jsonMember("sunrise", &Daily::sunrise),
    jsonMember("sunset", &Daily::sunset),
};

constexpr auto kAlertMembers = std::tuple{
    jsonMember("senderName", &Alert::senderName),
    jsonMember("event", &Alert::event),
    jsonMember("start", &Alert::start),
    jsonMember("end", &Alert::end),
    jsonMember("description", &Alert::description),
    jsonMember("url", &Alert::url),
    jsonMember("severity", &Alert::severity),
    jsonMember("tags", &Alert::tags),
};

constexpr auto kImageAttributionMembers = std::tuple{
    jsonMember("combinedMarkDarkURL", &ImageAttribution::combinedMarkDarkURL),
    jsonMember("combinedMarkLightURL", &ImageAttribution::combinedMarkLightURL),
    jsonMember("legalPageURL", &ImageAttribution::legalPageURL),
    jsonMember("serviceName", &ImageAttribution::serviceName),
    jsonMember("squareMarkURL", &ImageAttribution::squareMarkURL),
};

constexpr auto kNameAttributionMembers = std::tuple{
    jsonMember("serviceName", &NameAttribution::serviceName),
    jsonMember("url", &NameAttribution::url),
};

constexpr std::array<std::string_view, 2> kSunStateCases = {"rise", "set"};
constexpr std::array<std::string_view, 3> kAttributionCases = {"apple", "image", "name"};

}  // namespace

// Found by argument-dependent lookup (so in this namespace, not the unnamed one); declared
// before any codec use so that every record is recognised as one.
static constexpr const auto& jsonMembers(const Rain*) { return kRainMembers; }
static constexpr const auto& jsonMembers(const Snow*) { return kSnowMembers; }
static constexpr const auto& jsonMembers(const Glyph*) { return kGlyphMembers; }
static constexpr const auto& jsonMembers(const Current*) { return kCurrentMembers; }
static constexpr const auto& jsonMembers(const Minutely*) { return kMinutelyMembers; }
static constexpr const auto& jsonMembers(const Hourly*) { return kHourlyMembers; }
static constexpr const auto& jsonMembers(const Daily::Temp*) { return kDailyTempMembers; }
static constexpr const auto& jsonMembers(const Daily::FeelsLikeTemp*) { return kDailyFeelsLikeMembers; }
static constexpr const auto& jsonMembers(const Daily*) { return kDailyMembers; }
static constexpr const auto& jsonMembers(const Alert*) { return kAlertMembers; }
static constexpr const auto& jsonMembers(const ImageAttribution*) { return kImageAttributionMembers; }
static constexpr const auto& jsonMembers(const NameAttribution*) { return kNameAttributionMembers; }

// The provider's generic word is never shown as an event name.
static void finishDecoding(Alert& alert) {
  if (alert.event == "weather") alert.event = "special weather statement";
}

static void decodeScalar(const JsonScalar& value, const JsonPath& path, WeatherSeverity& out) {
  const std::string_view name = jsonString(value, path);
  auto severity = weatherSeverityNamed(name);
  if (!severity) path.fail("unknown severity \"" + std::string(name) + "\"");
  out = *severity;
}

static void writeJson(JsonWriter& writer, WeatherSeverity severity) { writer.string(weatherSeverityName(severity)); }

namespace {

// The zone of a record: the identifier when known, else the fixed offset, else the device's.
TimeZone resolveTimeZone(const std::string& identifier, std::int64_t offset) {
  std::optional<TimeZone> zone = TimeZone::named(identifier);
  if (!zone && offset >= std::numeric_limits<int>::min() / 2 && offset <= std::numeric_limits<int>::max() / 2) {
    // A fixed zone is named by hours and minutes ("GMT+0530"); seconds are rounded away so that
    // the zone written back is the zone read again.
    const int minutes = static_cast<int>(std::lround(static_cast<double>(offset) / 60.0));
    zone = TimeZone::fixedOffset(minutes * 60);
  }
  return zone ? std::move(*zone) : TimeZone::current();
}

// -- DOM decoding of the single-key unions -----------------------------------------------------

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

// -- Streaming frames of the unions and the record -----------------------------------------

// {"_0": payload}, other keys ignored. A payload of raw JSON is captured as it is.
template <class Payload>
class PayloadFrame final : public JsonStreamFrame {
 public:
  PayloadFrame(const JsonPath& path, Payload& target) : path_(path), target_(target) {}

  bool key(JsonStream& stream, std::string_view key) override {
    if (key != "_0") return false;
    seen_ = true;
    if constexpr (std::is_same_v<Payload, boost::json::value>) stream.captureNextValue(target_);
    return true;
  }
  // A raw JSON payload never reaches these: the stream captures it.
  void scalar(JsonStream& stream, const JsonScalar& value) override {
    if constexpr (!std::is_same_v<Payload, boost::json::value>) streamScalar(stream, value, payloadPath(), target_);
  }
  void beginObject(JsonStream& stream) override {
    if constexpr (!std::is_same_v<Payload, boost::json::value>) streamObject(stream, payloadPath(), target_);
  }
  void beginArray(JsonStream& stream) override {
    if constexpr (!std::is_same_v<Payload, boost::json::value>) streamArray(stream, payloadPath(), target_);
  }
  void end(JsonStream&) override {
    if (!seen_) path_.key("_0").fail("missing key");
  }

 private:
  const JsonPath& payloadPath() {
    payloadPath_ = path_.key("_0");
    return payloadPath_;
  }

  const JsonPath& path_;
  Payload& target_;
  JsonPath payloadPath_;
  bool seen_ = false;
};

// A single-key union while it is read: each known case key opens its payload; at the end
// exactly one case must have been given.
template <size_t N>
class UnionFrame : public JsonStreamFrame {
 public:
  UnionFrame(const JsonPath& path, const std::array<std::string_view, N>& cases) : path_(path), cases_(cases) {}

  bool key(JsonStream&, std::string_view key) override {
    for (size_t i = 0; i < N; ++i) {
      if (cases_[i] == key) {
        pending_ = i;
        seen_ |= 1u << i;
        casePath_ = path_.key(cases_[i]);
        return true;
      }
    }
    return false;
  }
  void scalar(JsonStream&, const JsonScalar& value) override { failExpected(value.kind, casePath_, "an object"); }
  void beginArray(JsonStream&) override { failExpected(boost::json::kind::array, casePath_, "an object"); }
  void end(JsonStream&) override {
    if (std::popcount(seen_) != 1) path_.fail(kInvalidKeyCount);
    finish(static_cast<size_t>(std::countr_zero(seen_)));
  }

 protected:
  // Called once the one case is known, with its index.
  virtual void finish(size_t which) = 0;

  const JsonPath& path_;
  const std::array<std::string_view, N>& cases_;
  JsonPath casePath_;
  size_t pending_ = 0;
  unsigned seen_ = 0;
};

class SunStateChangeFrame final : public UnionFrame<2> {
 public:
  SunStateChangeFrame(const JsonPath& path, SunStateChange& target)
      : UnionFrame(path, kSunStateCases), target_(target) {}
  void beginObject(JsonStream& stream) override { stream.push<PayloadFrame<Date>>(casePath_, dates_[pending_]); }

 private:
  void finish(size_t which) override {
    target_ = which == 0 ? SunStateChange::rise(dates_[0]) : SunStateChange::set(dates_[1]);
  }

  SunStateChange& target_;
  std::array<Date, 2> dates_{};
};

// The record itself: its fields, the zone from two keys, and tides and the attribution read from
// their captured JSON (the attribution through the document decoder, so that a union with two
// cases fails on its key count before any payload is looked at, exactly as there).
class OneCallWeatherFrame final : public JsonStreamFrame {
  enum Member { lat, lon, timezone, timezoneOffset, current, minutely, hourly, daily, alerts, attribution, tideData };
  static constexpr std::array<std::string_view, 11> kKeys = {"lat",     "lon",         "timezone", "timezoneOffset",
                                                             "current", "minutely",    "hourly",   "daily",
                                                             "alerts",  "attribution", "tideData"};
  static constexpr unsigned kRequired =
      1u << lat | 1u << lon | 1u << timezone | 1u << timezoneOffset | 1u << current | 1u << hourly | 1u << daily;

 public:
  OneCallWeatherFrame(const JsonPath& path, OneCallWeather& target) : path_(path), target_(target) {}

  bool key(JsonStream& stream, std::string_view key) override {
    const size_t index = findJsonKey(kKeys, key, next_);
    if (index == kKeys.size()) return false;
    pending_ = static_cast<Member>(index);
    next_ = index + 1;
    seen_ |= 1u << index;
    memberPath_ = path_.key(kKeys[index]);
    if (pending_ == tideData) stream.captureNextValue(tideJson_);
    if (pending_ == attribution) stream.captureNextValue(attributionJson_);
    return true;
  }
  void scalar(JsonStream& stream, const JsonScalar& value) override {
    withField([&](auto& field) { streamScalar(stream, value, memberPath_, field); });
  }
  void beginObject(JsonStream& stream) override {
    withField([&](auto& field) { streamObject(stream, memberPath_, field); });
  }
  void beginArray(JsonStream& stream) override {
    withField([&](auto& field) { streamArray(stream, memberPath_, field); });
  }
  void end(JsonStream&) override {
    if (const unsigned missing = kRequired & ~seen_; missing != 0) {
      path_.key(kKeys[static_cast<size_t>(std::countr_zero(missing))]).fail("missing key");
    }
    target_.timeZone = resolveTimeZone(identifier_, offset_);
    if ((seen_ & (1u << tideData)) != 0 && !tideJson_.is_null()) {
      const JsonPath tidePath = path_.key("tideData");
      target_.tideData = decodeTideData(tideJson_, tidePath.text());
    } else {
      target_.tideData.reset();
    }
    if ((seen_ & (1u << attribution)) != 0 && !attributionJson_.is_null()) {
      WeatherServiceAttribution decoded;
      decodeJson(attributionJson_, path_.key("attribution"), decoded);
      target_.attribution = std::move(decoded);
    } else {
      target_.attribution.reset();
    }
    target_.isPlaceholder = false;
  }

 private:
  template <class Visit>
  void withField(Visit&& visit) {
    switch (pending_) {
      case lat: visit(target_.lat); return;
      case lon: visit(target_.lon); return;
      case timezone: visit(identifier_); return;
      case timezoneOffset: visit(offset_); return;
      case current: visit(target_.current); return;
      case minutely: visit(target_.minutely); return;
      case hourly: visit(target_.hourly); return;
      case daily: visit(target_.daily); return;
      case alerts: visit(target_.alerts); return;
      case attribution:
      case tideData: return;  // captured
    }
  }

  const JsonPath& path_;
  OneCallWeather& target_;
  JsonPath memberPath_;
  std::string identifier_;
  std::int64_t offset_ = 0;
  boost::json::value tideJson_;
  boost::json::value attributionJson_;
  Member pending_ = lat;
  size_t next_ = 0;
  unsigned seen_ = 0;
};

}  // namespace

// -- Entry points of the unions and the record for both decoders -----------------------------

void decodeJson(const boost::json::value& value, const JsonPath& path, SunStateChange& out) {
  auto [which, payload] = singleCase(value, path, kSunStateCases);
  const JsonPath casePath = path.key(kSunStateCases[which]);
  const JsonPath payloadPath = casePath.key("_0");
  Date date;
  decodeJson(*payload, payloadPath, date);
  out = which == 0 ? SunStateChange::rise(date) : SunStateChange::set(date);
}

void streamObject(JsonStream& stream, const JsonPath& path, SunStateChange& out) {
  stream.push<SunStateChangeFrame>(path, out);
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
      out.source = Apple{boost::json::value(*payload, boost::json::storage_ptr())};
      return;
    case 1: decodeJson(*payload, payloadPath, out.source.emplace<ImageAttribution>()); return;
    default: decodeJson(*payload, payloadPath, out.source.emplace<NameAttribution>()); return;
  }
}

void writeJson(JsonWriter& writer, const WeatherServiceAttribution& value) {
  writeSingleCase(writer, kAttributionCases[value.source.index()], [&] {
    if (const auto* apple = std::get_if<Apple>(&value.source)) {
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
  out.timeZone = resolveTimeZone(identifier, offset);
  o.read("current", out.current);
  o.readOptional("minutely", out.minutely);
  o.read("hourly", out.hourly);
  o.read("daily", out.daily);
  o.readOptional("alerts", out.alerts);
  o.readOptional("attribution", out.attribution);
  const auto* tides = o.find("tideData");
  if (tides != nullptr && !tides->is_null()) {
    const JsonPath tidePath = path.key("tideData");
    out.tideData = decodeTideData(*tides, tidePath.text());
  } else {
    out.tideData.reset();
  }
  out.isPlaceholder = false;
}

void streamObject(JsonStream& stream, const JsonPath& path, OneCallWeather& out) {
  stream.push<OneCallWeatherFrame>(path, out);
}

OneCallWeather decodeOneCallWeather(const boost::json::value& value, const JsonPath& path) {
  OneCallWeather weather;
  decodeJson(value, path, weather);
  return weather;
}

OneCallWeather decodeOneCallWeather(std::string_view json) {
  OneCallWeather weather;
  decodeJsonText(json, weather);
  return weather;
}

// -- Encoding --------------------------------------------------------------------------------

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
    writer.value(tideDataToJson(*weather.tideData));
  }
  writer.endObject();
}

std::string encodeOneCallWeather(const OneCallWeather& weather, Date encodingMoment) {
  std::string out;
  // Roughly 400 bytes per hourly entry; one allocation for typical records.
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
