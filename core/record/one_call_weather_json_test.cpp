#include "core/record/one_call_weather_json.hpp"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <bit>
#include <charconv>
#include <cmath>
#include <cstdint>
#include <cstring>
#include <filesystem>
#include <fstream>
#include <functional>
#include <sstream>

#include "core/record/testing_records.hpp"
#include "core/record/weather_derived.hpp"
#include "platform/atomic_file.hpp"
#include "platform/icu_setup.hpp"

namespace ombrine {
namespace {

// 2024-01-15T12:00:00Z (winter) and 2024-07-15T12:00:00Z (summer).
const Date kWinter = Date::fromUnix(1705320000.0);
const Date kSummer = Date::fromUnix(1721044800.0);

class OneCallWeatherJsonTest : public ::testing::Test {
 protected:
  static void SetUpTestSuite() { useShippedTimeZoneData(); }
};

std::string readFile(const std::string& path) { return readFileIfExists(path).value_or(""); }

std::string failureOf(const std::function<void()>& body) {
  try {
    body();
  } catch (const DecodingError& error) {
    return error.what();
  }
  return "(decoded)";
}

// The streaming decoder's failure for `json`, checked against the DOM decoder's: for a document
// with one fault the two must say the same.
std::string decodeError(std::string_view json) {
  const std::string streamed = failureOf([&] { decodeOneCallWeather(json); });
  const std::string dom = failureOf([&] { decodeOneCallWeather(parseJson(json), JsonPath()); });
  EXPECT_EQ(dom, streamed) << "the DOM and streaming decoders disagree";
  return streamed;
}

// A record with every optional field present and small enough to read: the golden file.
OneCallWeather goldenRecord() {
  using W = OneCallWeather;
  W w;
  w.lat = 48.8566;
  w.lon = 2.3522;
  w.timeZone = *TimeZone::named("Europe/Paris");
  w.current = W::Current{
      .dt = Date{727012800},
      .sunrise = Date{726990000},
      .sunset = Date{727035000},
      .temp = Temperature::celsius(7.25),
      .feelsLike = Temperature::celsius(4.5),
      .pressure = 1021,
      .dewPoint = Temperature::celsius(-0.0),
      .uvi = 0.8,
      .humidity = 81,
      .clouds = 90,
      .visibility = 9000,
      .windSpeed = Speed::metersPerSecond(3.1),
      .windGust = Speed::metersPerSecond(7.2),
      .windDeg = Angle::degrees(250),
      .rain = W::Rain{Precipitation::millimeters(0.4)},
      .snow = W::Snow{Precipitation::millimeters(1.5)},
      .weather = {W::Glyph{803, "Clouds", "broken clouds", "cloud", true}},
      .airQuality = AirQuality{Date{727012800}, 42},
  };
  w.minutely = std::vector<W::Minutely>{{Date{727012800}, Precipitation::millimeters(0.0), PrecipitationKind::none},
                                        {Date{727012860}, Precipitation::millimeters(0.35), PrecipitationKind::sleet},
                                        {Date{727012920}, Precipitation::millimeters(0.1), std::nullopt}};
  w.hourly = {W::Hourly{
      .dt = Date{727012800},
      .temp = Temperature::celsius(7.25),
      .feelsLike = Temperature::celsius(4.5),
      .pressure = 1021,
      .humidity = 81,
      .dewPoint = Temperature::celsius(1.2),
      .uvi = 0.8,
      .clouds = 90,
      .visibility = 9000,
      .windSpeed = Speed::metersPerSecond(3.1),
      .windDeg = Angle::degrees(250),
      .windGust = Speed::metersPerSecond(7.2),
      .pop = 0.45,
      .rain = W::Rain{Precipitation::millimeters(0.4)},
      .snow = W::Snow{Precipitation::millimeters(1.5)},
      .weather = {W::Glyph{500, "Rain", "light rain", "cloud.rain", true}},
      .sunStateChange = SunStateChange::set(Date{727035000}),
      .airQuality = AirQuality{Date{727012800}, 42},
  }};
  w.daily = {W::Daily{
      .dt = Date{727012800},
      .temp = {Temperature::celsius(2), Temperature::celsius(9.5)},
      .feelsLike = {Temperature::celsius(8), Temperature::celsius(1), Temperature::celsius(5),
                    Temperature::celsius(0.5)},
      .pop = 1,
      .rain = Precipitation::millimeters(3.2),
      .snow = Precipitation::millimeters(0.9),
      .uvi = 1.1,
      .windSpeed = Speed::metersPerSecond(4),
      .windDeg = Angle::degrees(240),
      .windGust = Speed::metersPerSecond(11),
      .humidity = 77,
      .dewPoint = Temperature::celsius(1.5),
      .clouds = 100,
      .weather = {W::Glyph{601, "Snow", "snow", "cloud.snow", true}},
      .sunrise = Date{726990000},
      .sunset = Date{727035000},
  }};
  w.alerts = std::vector<W::Alert>{W::Alert{
      .senderName = "Météo-France",
      .event = "Vent violent",
      .start = Date{727012800},
      .end = Date{727099200},
      .description = "Rafales \"fortes\"\n\tjusqu'à 100 km/h",
      .url = boost::urls::url("https://vigilance.meteofrance.fr/fr/paris"),
      .severity = WeatherSeverity::severe,
      .tags = {"Wind"},
  }};
  w.attribution = WeatherServiceAttribution{WeatherServiceAttribution::ImageAttribution{
      boost::urls::url("https://example.org/dark.png"), boost::urls::url("https://example.org/light.png"),
      boost::urls::url("https://example.org/legal"), "Weather", boost::urls::url("https://example.org/square.png")}};
  w.tideData = TideData{
      .station = TideStation{.id = "02100",
                             .name = "Pointe-au-Père",
                             .latitude = 48.5,
                             .longitude = -68.466667,
                             .state = "QC",
                             .type = "PERMANENT",
                             .referenceStationID = std::nullopt},
      .distance = 0.0,
      .extremes = {{Date{727012800}, Length::meters(3.5), TideExtreme::Kind::high},
                   {Date{727035000}, Length::meters(-0.0), TideExtreme::Kind::low}},
      .chartPoints = {{Date{727012800}, Length::meters(3.5)}, {Date{727013700}, Length::meters(3.45)}},
      .fetchedAt = Date{727012000.25},
  };
  return w;
}

TEST_F(OneCallWeatherJsonTest, GoldenFileFixesKeyOrderAndEveryByte) {
  const std::string golden = readFile(OMBRINE_TESTDATA_DIR "/one_call_weather_golden.json");
  ASSERT_FALSE(golden.empty());
  const std::string expected = golden.substr(0, golden.find_last_not_of('\n') + 1);
  EXPECT_EQ(encodeOneCallWeather(goldenRecord(), kWinter), expected);
  EXPECT_EQ(decodeOneCallWeather(expected), goldenRecord());
}

TEST_F(OneCallWeatherJsonTest, FuzzSeedsAreValidRecords) {
  // The seed corpus must start the fuzzer inside the record, not at the first syntax error.
  size_t seeds = 0;
  for (const auto& entry : std::filesystem::directory_iterator(OMBRINE_TESTDATA_DIR "/one_call_weather_fuzz")) {
    SCOPED_TRACE(entry.path().string());
    const std::string text = readFile(entry.path().string());
    EXPECT_NO_THROW(decodeOneCallWeather(text));
    ++seeds;
  }
  EXPECT_GE(seeds, 2u);
}

TEST_F(OneCallWeatherJsonTest, RoundTripsRealisticRecordsBitForBit) {
  const testing_records::RecordShape shapes[] = {
      {},                                                 // ten days, 240 hours, 60 minutes, everything
      {.days = 8, .hours = 48, .minutes = 0, .seed = 7},  // no minute forecast at all
      {.days = 0, .hours = 0, .minutes = 1, .alerts = false, .tides = false, .seed = 3},
  };
  for (const auto& shape : shapes) {
    SCOPED_TRACE(testing::Message() << "seed=" << shape.seed);
    const OneCallWeather record = testing_records::makeForecastRecord(shape);
    const std::string text = encodeOneCallWeather(record, kSummer);
    const OneCallWeather decoded = decodeOneCallWeather(text);
    EXPECT_EQ(decoded, record);
    EXPECT_EQ(encodeOneCallWeather(decoded, kSummer), text);
    // Equality treats -0.0 and 0.0 alike, so look at the bits of every hourly measurement.
    ASSERT_EQ(decoded.hourly.size(), record.hourly.size());
    for (size_t i = 0; i < record.hourly.size(); ++i) {
      for (auto field :
           {&OneCallWeather::Hourly::temp, &OneCallWeather::Hourly::feelsLike, &OneCallWeather::Hourly::dewPoint}) {
        EXPECT_EQ(std::bit_cast<std::uint64_t>((decoded.hourly[i].*field).measurement),
                  std::bit_cast<std::uint64_t>((record.hourly[i].*field).measurement));
      }
    }
    // The DOM form is the same document, for caches that embed the record.
    const boost::json::value dom = oneCallWeatherToJson(record, kSummer);
    EXPECT_EQ(serializeJson(dom), text);
    EXPECT_EQ(decodeOneCallWeather(dom, JsonPath()), record);
  }
}

TEST_F(OneCallWeatherJsonTest, NumbersReadBackExactlyWhereBoostWouldRound) {
  // The first six are shortest forms that Boost.JSON 1.81's own conversion reads one unit in the
  // last place off (about one double in seven is); then the extremes of the range and integers
  // beyond 2^53.
  const char* const texts[] = {"91.60007029212613",
                               "3888.0724999999998",
                               "1679078688817.7441",
                               "3.666470232365164e-09",
                               "37.821341533202684",
                               "58247.269728009356",
                               "0.30000000000000004",
                               "5e-324",
                               "1.7976931348623157e+308",
                               "2.2250738585072014e-308",
                               "9007199254740993",
                               "1e+23",
                               "7.2057594037927933e+16",
                               "123456789012345680",
                               "-0.0",
                               "0.1",
                               "4.35679e-42",
                               "1e-400"};
  for (const char* text : texts) {
    SCOPED_TRACE(text);
    double expected = 0.0;
    std::from_chars(text, text + std::strlen(text), expected);
    OneCallWeather record = testing_records::makeForecastRecord({.days = 1, .hours = 1, .minutes = 1});
    const std::string json = encodeOneCallWeather(record, kSummer);
    // Put the number text itself into the document, then into a record and back out.
    const std::string withNumber = [&] {
      std::string key = "\"lat\":";
      size_t at = json.find(key) + key.size();
      size_t end = json.find(',', at);
      return json.substr(0, at) + text + json.substr(end);
    }();
    const OneCallWeather decoded = decodeOneCallWeather(withNumber);
    EXPECT_EQ(std::bit_cast<std::uint64_t>(decoded.lat), std::bit_cast<std::uint64_t>(expected));
    record.lat = expected;
    const OneCallWeather again = decodeOneCallWeather(encodeOneCallWeather(record, kSummer));
    EXPECT_EQ(std::bit_cast<std::uint64_t>(again.lat), std::bit_cast<std::uint64_t>(expected));
  }
  OneCallWeather record = testing_records::makeForecastRecord({.days = 1, .hours = 1, .minutes = 1});
  record.lat = std::nan("");
  EXPECT_THROW(encodeOneCallWeather(record, kSummer), EncodingError);
}

TEST_F(OneCallWeatherJsonTest, AbsentOptionalsFollowTheShape) {
  OneCallWeather record =
      testing_records::makeForecastRecord({.days = 1, .hours = 2, .minutes = 0, .alerts = false, .tides = false});
  record.attribution.reset();
  const std::string text = encodeOneCallWeather(record, kWinter);
  EXPECT_THAT(text, testing::HasSubstr(R"("alerts":null,"attribution":null})"));
  EXPECT_THAT(text, testing::Not(testing::HasSubstr("minutely")));
  EXPECT_THAT(text, testing::Not(testing::HasSubstr("tideData")));
  EXPECT_THAT(text, testing::StartsWith(R"({"lat":52.520008,"lon":13.404954,"timezone":"Europe/Berlin",)"
                                        R"("timezoneOffset":3600,"current":{"dt":)"));

  // An empty list is not an absent one.
  record.minutely = std::vector<OneCallWeather::Minutely>{};
  record.alerts = std::vector<OneCallWeather::Alert>{};
  const std::string withEmpty = encodeOneCallWeather(record, kWinter);
  EXPECT_THAT(withEmpty, testing::HasSubstr(R"("minutely":[],"hourly":)"));
  EXPECT_THAT(withEmpty, testing::HasSubstr(R"("alerts":[],"attribution":null})"));
  EXPECT_EQ(decodeOneCallWeather(withEmpty), record);
  EXPECT_EQ(decodeOneCallWeather(text).minutely, std::nullopt);
}

TEST_F(OneCallWeatherJsonTest, TimeZoneFallsBackToOffsetThenDevice) {
  struct Row {
    const char* identifier;
    const char* offset;
    std::string expected;
  };
  const std::string device = TimeZone::current().identifier();
  const Row rows[] = {
      {"Europe/Berlin", "3600", "Europe/Berlin"},
      {"Europe/Berlin", "-999999999999", "Europe/Berlin"},  // a known zone ignores the offset
      {"Mars/Olympus_Mons", "3600", "GMT+0100"},
      {"Mars/Olympus_Mons", "-34200", "GMT-0930"},
      {"Mars/Olympus_Mons", "36029", "GMT+1000"},  // seconds round to the nearest minute
      {"Mars/Olympus_Mons", "-34230", "GMT-0931"},
      {"", "0", "GMT"},
      {"Mars/Olympus_Mons", "64831", device},           // beyond 18 hours once rounded
      {"Mars/Olympus_Mons", "99999999999999", device},  // beyond any int
  };
  const std::string base = encodeOneCallWeather(testing_records::makeForecastRecord({.days = 1, .hours = 1}), kWinter);
  const std::string from = R"("timezone":"Europe/Berlin","timezoneOffset":3600)";
  ASSERT_NE(base.find(from), std::string::npos);
  for (const auto& row : rows) {
    SCOPED_TRACE(row.identifier + std::string(" ") + row.offset);
    std::string text = base;
    text.replace(text.find(from), from.size(),
                 std::string(R"("timezone":")") + row.identifier + R"(","timezoneOffset":)" + row.offset);
    EXPECT_EQ(decodeOneCallWeather(text).timeZone.identifier(), row.expected);
  }

  // The offset written is the one in force at the moment of encoding.
  const auto record = testing_records::makeForecastRecord({.days = 1, .hours = 1});
  EXPECT_THAT(encodeOneCallWeather(record, kWinter), testing::HasSubstr(R"("timezoneOffset":3600,)"));
  EXPECT_THAT(encodeOneCallWeather(record, kSummer), testing::HasSubstr(R"("timezoneOffset":7200,)"));
}

TEST_F(OneCallWeatherJsonTest, DecodedRecordIsNeverAPlaceholder) {
  const OneCallWeather placeholder = placeholderWeather(*TimeZone::named("Asia/Tokyo"), kSummer);
  ASSERT_TRUE(placeholder.isPlaceholder);
  OneCallWeather decoded = decodeOneCallWeather(encodeOneCallWeather(placeholder, kSummer));
  EXPECT_FALSE(decoded.isPlaceholder);
  EXPECT_NE(decoded, placeholder);
  decoded.isPlaceholder = true;
  EXPECT_EQ(decoded, placeholder);
}

// Edits one decoded-from-text document and returns it as text.
std::string edited(const std::string& text, const std::function<void(boost::json::object&)>& edit) {
  boost::json::value document = parseJson(text);
  edit(document.as_object());
  return serializeJson(document);
}

boost::json::object& at(boost::json::object& root, std::string_view key, size_t index) {
  return root[key].as_array()[index].as_object();
}

TEST_F(OneCallWeatherJsonTest, StreamingAndDomDecodersReadTheSameRecord) {
  const std::string base = encodeOneCallWeather(testing_records::makeForecastRecord({.days = 2, .hours = 3}), kWinter);
  const std::string longText = [] {
    std::string text;
    for (int i = 0; i < 300; ++i) text += "line \"" + std::to_string(i) + "\"\n";
    return text;
  }();
  struct Row {
    const char* why;
    std::function<void(boost::json::object&)> edit;
  };
  const Row rows[] = {
      {"unknown keys with nested values at every level",
       [](auto& r) {
         r["extra"] = parseJson(R"({"a":[1,{"b":null}],"c":"d"})");
         r["current"].as_object()["unknownList"] = parseJson("[[],[{}]]");
         at(r, "hourly", 1)["note"] = "x";
         r["current"].as_object()["weather"].as_array()[0].as_object()["extra"] = parseJson("{}");
       }},
      {"tides with unknown keys and members reordered",
       [](auto& r) {
         auto& tides = r["tideData"].as_object();
         tides["extra"] = parseJson(R"([{"x":[]}])");
         const boost::json::value station = tides["station"];
         tides.erase("station");
         tides["station"] = station;
       }},
      {"tides with a null height", [](auto& r) { at(r["tideData"].as_object(), "extremes", 0)["height"] = nullptr; }},
      {"tides null", [](auto& r) { r["tideData"] = nullptr; }},
      {"apple attribution of a scalar", [](auto& r) { r["attribution"] = parseJson(R"({"apple":{"_0":"opaque"}})"); }},
      {"apple attribution null", [](auto& r) { r["attribution"] = parseJson(R"({"apple":{"_0":null},"x":1})"); }},
      {"a long escaped string", [&](auto& r) { at(r, "alerts", 0)["description"] = longText; }},
      {"members in reverse order",
       [](auto& r) {
         boost::json::object reversed;
         for (auto it = r.end(); it != r.begin();) {
           --it;
           reversed[it->key()] = it->value();
         }
         r = reversed;
       }},
  };
  for (const auto& row : rows) {
    SCOPED_TRACE(row.why);
    const std::string text = edited(base, row.edit);
    const OneCallWeather streamed = decodeOneCallWeather(text);
    EXPECT_EQ(streamed, decodeOneCallWeather(parseJson(text), JsonPath()));
  }

  // Text the DOM cannot express: escaped keys, and a key given twice (the last one counts).
  std::string escaped = base;
  escaped.replace(escaped.find(R"("lat")"), 5, R"("lat")");
  EXPECT_EQ(decodeOneCallWeather(escaped).lat, 52.520008);
  std::string twice = base;
  twice.insert(1, R"("lat":1.5,"daily":[],)");
  EXPECT_EQ(decodeOneCallWeather(twice), decodeOneCallWeather(parseJson(twice), JsonPath()));
  EXPECT_EQ(decodeOneCallWeather(twice).lat, 52.520008);
  EXPECT_EQ(decodeOneCallWeather(twice).daily.size(), 2u);
}

TEST_F(OneCallWeatherJsonTest, AlertEventWeatherIsRenamedOnlyWhenExactlyLowercase) {
  const std::string base = encodeOneCallWeather(testing_records::makeForecastRecord({.days = 1, .hours = 1}), kWinter);
  const std::pair<const char*, const char*> rows[] = {
      {"weather", "special weather statement"},
      {"Weather", "Weather"},
      {"weather ", "weather "},
      {"Sturmböen", "Sturmböen"},
  };
  for (const auto& [event, expected] : rows) {
    const std::string text = edited(base, [&](auto& root) { at(root, "alerts", 0)["event"] = event; });
    EXPECT_EQ(decodeOneCallWeather(text).alerts->at(0).event, expected);
  }
}

TEST_F(OneCallWeatherJsonTest, SingleKeyUnionsRefuseOtherKeyCounts) {
  const std::string base = encodeOneCallWeather(testing_records::makeForecastRecord({.days = 1, .hours = 24}), kWinter);
  struct Row {
    const char* name;
    std::function<void(boost::json::object&)> edit;
    std::string expected;  // empty: decodes
  };
  auto sun = [](const char* json) {
    return [json](boost::json::object& root) { at(root, "hourly", 0)["sunStateChange"] = parseJson(json); };
  };
  auto attribution = [](const char* json) {
    return [json](boost::json::object& root) { root["attribution"] = parseJson(json); };
  };
  const Row rows[] = {
      {"two cases", sun(R"({"rise":{"_0":1},"set":{"_0":2}})"),
       "hourly[0].sunStateChange: Invalid number of keys found, expected one."},
      {"no case", sun("{}"), "hourly[0].sunStateChange: Invalid number of keys found, expected one."},
      {"unknown case only", sun(R"({"noon":{"_0":1}})"),
       "hourly[0].sunStateChange: Invalid number of keys found, expected one."},
      {"one case and an unknown key", sun(R"({"set":{"_0":1},"note":"x"})"), ""},
      {"payload without _0", sun(R"({"rise":{"date":1}})"), "hourly[0].sunStateChange.rise._0: missing key"},
      {"payload not a date", sun(R"({"rise":{"_0":"dawn"}})"),
       "hourly[0].sunStateChange.rise._0: expected a number, found a string"},
      {"attribution with two cases", attribution(R"({"name":{"_0":{"serviceName":"A"}},"apple":{"_0":{}}})"),
       "attribution: Invalid number of keys found, expected one."},
      {"attribution of no case", attribution("{}"), "attribution: Invalid number of keys found, expected one."},
      {"two cases, the first incomplete: the key count decides",
       attribution(R"({"image":{"_0":{}},"name":{"_0":{"serviceName":"A"}}})"),
       "attribution: Invalid number of keys found, expected one."},
      {"name without service", attribution(R"({"name":{"_0":{"url":"https://a.example"}}})"),
       "attribution.name._0.serviceName: missing key"},
      {"image with a bad URL",
       attribution(R"({"image":{"_0":{"combinedMarkDarkURL":"http://[x","combinedMarkLightURL":"a",)"
                   R"("legalPageURL":"b","serviceName":"c","squareMarkURL":"d"}}})"),
       "attribution.image._0.combinedMarkDarkURL: invalid URL"},
  };
  for (const auto& row : rows) {
    SCOPED_TRACE(row.name);
    const std::string text = edited(base, row.edit);
    if (row.expected.empty()) {
      EXPECT_NO_THROW(decodeOneCallWeather(text));
    } else {
      EXPECT_EQ(decodeError(text), row.expected);
    }
  }

  // On its own, the union's error is the bare text.
  SunStateChange change;
  try {
    decodeJson(parseJson(R"({"rise":{"_0":1},"set":{"_0":2}})"), JsonPath(), change);
    ADD_FAILURE() << "decoded";
  } catch (const DecodingError& error) {
    EXPECT_STREQ(error.what(), "Invalid number of keys found, expected one.");
  }
}

TEST_F(OneCallWeatherJsonTest, AppleAttributionIsKeptAsItWasWritten) {
  OneCallWeather record = testing_records::makeForecastRecord({.days = 1, .hours = 1});
  record.attribution = WeatherServiceAttribution{WeatherServiceAttribution::Apple{
      parseJson(R"({"serviceName":"Weather","legalPageURL":"https://example.org/legal","scale":2.0,"n":[1,-2]})")}};
  const std::string text = encodeOneCallWeather(record, kWinter);
  EXPECT_THAT(text,
              testing::HasSubstr(
                  R"("attribution":{"apple":{"_0":{"serviceName":"Weather","legalPageURL":"https://example.org/legal",)"
                  R"("scale":2.0,"n":[1,-2]}}})"));
  const OneCallWeather decoded = decodeOneCallWeather(text);
  EXPECT_EQ(decoded, record);
  EXPECT_EQ(weatherDataSource(decoded), WeatherDataSource::apple);
}

TEST_F(OneCallWeatherJsonTest, MissingOrMistypedKeysNameTheirPlace) {
  const std::string base =
      encodeOneCallWeather(testing_records::makeForecastRecord({.days = 2, .hours = 5, .minutes = 5}), kWinter);
  struct Row {
    std::function<void(boost::json::object&)> edit;
    std::string expected;
  };
  const Row rows[] = {
      // clang-format off
      {[](auto& r) { r.erase("lat"); }, "lat: missing key"},
      {[](auto& r) { r.erase("timezoneOffset"); }, "timezoneOffset: missing key"},
      {[](auto& r) { r.erase("timezone"); }, "timezone: missing key"},
      {[](auto& r) { r.erase("hourly"); }, "hourly: missing key"},
      {[](auto& r) { r["current"].as_object().erase("dt"); }, "current.dt: missing key"},
      {[](auto& r) { r["current"].as_object().erase("weather"); }, "current.weather: missing key"},
      {[](auto& r) { at(r, "hourly", 3).erase("dt"); }, "hourly[3].dt: missing key"},
      {[](auto& r) { at(r, "hourly", 4).erase("pop"); }, "hourly[4].pop: missing key"},
      {[](auto& r) { at(r, "hourly", 0)["weather"].as_array()[0].as_object().erase("icon"); },
       "hourly[0].weather[0].icon: missing key"},
      {[](auto& r) { at(r, "daily", 1)["temp"].as_object().erase("min"); }, "daily[1].temp.min: missing key"},
      {[](auto& r) { at(r, "daily", 0)["feelsLike"].as_object().erase("morn"); }, "daily[0].feelsLike.morn: missing key"},
      {[](auto& r) { at(r, "minutely", 2).erase("precipitation"); }, "minutely[2].precipitation: missing key"},
      {[](auto& r) { at(r, "alerts", 1).erase("tags"); }, "alerts[1].tags: missing key"},
      {[](auto& r) { r["current"].as_object()["airQuality"].as_object().erase("AQI"); }, "current.airQuality.AQI: missing key"},
      {[](auto& r) { r["current"].as_object()["rain"].as_object().erase("1h"); }, "current.rain.1h: missing key"},
      // Wrong types.
      {[](auto& r) { r["lat"] = "52.5"; }, "lat: expected a number, found a string"},
      {[](auto& r) { r["timezone"] = 1; }, "timezone: expected a string, found a number"},
      {[](auto& r) { r["timezoneOffset"] = "+01:00"; }, "timezoneOffset: expected an integer, found a string"},
      {[](auto& r) { r["hourly"] = nullptr; }, "hourly: expected an array, found null"},
      {[](auto& r) { r["current"] = boost::json::array(); }, "current: expected an object, found an array"},
      {[](auto& r) { r["current"].as_object()["humidity"] = 65.5; },
       "current.humidity: expected an integer, found a number with a fraction"},
      {[](auto& r) { r["current"].as_object()["clouds"] = 3e9; }, "current.clouds: integer out of range"},
      {[](auto& r) { r["current"].as_object()["uvi"] = nullptr; }, "current.uvi: expected a number, found null"},
      {[](auto& r) { r["current"].as_object()["temp"] = "warm"; }, "current.temp: expected a number, found a string"},
      {[](auto& r) { at(r, "hourly", 2)["weather"] = boost::json::object(); },
       "hourly[2].weather: expected an array, found an object"},
      {[](auto& r) { at(r, "hourly", 1)["weather"].as_array()[0].as_object()["isDaylight"] = 1; },
       "hourly[1].weather[0].isDaylight: expected a boolean, found a number"},
      {[](auto& r) { at(r, "minutely", 0)["type"] = "drizzle"; }, "minutely[0].type: unknown precipitation kind \"drizzle\""},
      {[](auto& r) { at(r, "alerts", 0)["severity"] = "catastrophic"; }, "alerts[0].severity: unknown severity \"catastrophic\""},
      {[](auto& r) { at(r, "alerts", 0)["url"] = "http://[::1"; }, "alerts[0].url: invalid URL"},
      {[](auto& r) { at(r, "alerts", 0)["tags"].as_array().emplace_back(7); }, "alerts[0].tags[2]: expected a string, found a number"},
      {[](auto& r) { r["alerts"] = "none"; }, "alerts: expected an array, found a string"},
      // clang-format on
  };
  for (const auto& row : rows) {
    SCOPED_TRACE(row.expected);
    EXPECT_EQ(decodeError(edited(base, row.edit)), row.expected);
  }
  EXPECT_EQ(decodeError("[1,2]"), "expected an object, found an array");
}

TEST_F(OneCallWeatherJsonTest, NullMeasurementsReadAsZeroAndNullOptionalsAsAbsent) {
  const std::string base =
      encodeOneCallWeather(testing_records::makeForecastRecord({.days = 1, .hours = 2, .minutes = 2}), kWinter);
  const std::string text = edited(base, [](auto& r) {
    auto& current = r["current"].as_object();
    current["temp"] = nullptr;
    current["windSpeed"] = nullptr;
    current["rain"].as_object()["1h"] = nullptr;
    current["windGust"] = nullptr;  // optional: null is absent, not zero
    at(r, "hourly", 0)["windDeg"] = nullptr;
    at(r, "hourly", 0)["sunStateChange"] = nullptr;
    at(r, "daily", 0)["temp"].as_object()["min"] = nullptr;
    at(r, "daily", 0)["dewPoint"] = nullptr;
    at(r, "minutely", 1)["precipitation"] = nullptr;
    r["minutely"].as_array()[0].as_object()["type"] = nullptr;
    r["tideData"] = nullptr;
  });
  const OneCallWeather decoded = decodeOneCallWeather(text);
  EXPECT_EQ(decoded.current.temp, Temperature::celsius(0.0));
  EXPECT_EQ(decoded.current.windSpeed, Speed::metersPerSecond(0.0));
  EXPECT_EQ(decoded.current.rain->rainVolume, Precipitation::millimeters(0.0));
  EXPECT_EQ(decoded.current.windGust, std::nullopt);
  EXPECT_EQ(decoded.hourly[0].windDeg, Angle::degrees(0.0));
  EXPECT_EQ(decoded.hourly[0].sunStateChange, std::nullopt);
  EXPECT_EQ(decoded.daily[0].temp.min, Temperature::celsius(0.0));
  EXPECT_EQ(decoded.daily[0].dewPoint, std::nullopt);
  EXPECT_EQ(decoded.minutely->at(1).precipitation, Precipitation::millimeters(0.0));
  EXPECT_EQ(decoded.minutely->at(0).type, std::nullopt);
  EXPECT_EQ(decoded.tideData, std::nullopt);
}

TEST_F(OneCallWeatherJsonTest, IntegersAcceptIntegralNumbersInAnyForm) {
  const std::string base = encodeOneCallWeather(testing_records::makeForecastRecord({.days = 1, .hours = 1}), kWinter);
  const std::pair<const char*, int> rows[] = {
      {"65", 65}, {"65.0", 65}, {"6.5e1", 65}, {"-0", 0}, {"2147483647", 2147483647}};
  for (const auto& [text, expected] : rows) {
    SCOPED_TRACE(text);
    std::string json = base;
    const std::string key = R"("humidity":)";
    size_t at = json.find(key) + key.size();
    json.replace(at, json.find(',', at) - at, text);
    EXPECT_EQ(decodeOneCallWeather(json).current.humidity, expected);
  }
}

TEST_F(OneCallWeatherJsonTest, EveryTruncationAndBadByteFailsCleanly) {
  const std::string text = encodeOneCallWeather(goldenRecord(), kWinter);
  for (size_t length = 0; length < text.size(); ++length) {
    const std::string error = decodeError(std::string_view(text).substr(0, length));
    EXPECT_THAT(error, testing::StartsWith("invalid JSON at byte ")) << "length " << length;
  }
  const char* const broken[] = {
      "",    "   ", "{\"lat\":1e400}", "{\"lat\":1}}", "{\"lat\":1} x", "{\"lat\":\"\xff\"}", "\"\x01\"", "{\"a\":tru}",
      "nul", "{,}",
  };
  for (const char* json : broken) {
    SCOPED_TRACE(json);
    EXPECT_THROW(decodeOneCallWeather(json), DecodingError);
  }
  EXPECT_THAT(decodeError("{\"lat\":"), testing::StartsWith("invalid JSON at byte 7: "));
}

TEST_F(OneCallWeatherJsonTest, StringsAreEscapedAndRepairedToUtf8) {
  OneCallWeather record = testing_records::makeForecastRecord({.days = 1, .hours = 1, .minutes = 1});
  const std::string nasty = std::string("quote\" backslash\\ nl\n cr\r tab\t bell\x07 nul") + '\0' + " é 𝄞 /";
  record.alerts->at(0).description = nasty;
  const std::string text = encodeOneCallWeather(record, kWinter);
  EXPECT_THAT(text, testing::HasSubstr(R"(quote\" backslash\\ nl\n cr\r tab\t bell\u0007 nul\u0000 é 𝄞 /)"));
  EXPECT_EQ(decodeOneCallWeather(text).alerts->at(0).description, nasty);

  // Bytes that are not UTF-8 (a stray continuation, a cut sequence, a surrogate, an overlong
  // form) become U+FFFD so the file stays readable.
  record.alerts->at(0).description =
      "a\x80"
      "b\xE2\x82"
      "c\xED\xA0\x80"
      "d\xC0\xAF";
  const std::string repaired = *decodeOneCallWeather(encodeOneCallWeather(record, kWinter)).alerts->at(0).description;
  EXPECT_EQ(repaired, "a\uFFFDb\uFFFD\uFFFDc\uFFFD\uFFFD\uFFFDd\uFFFD\uFFFD");
}

TEST_F(OneCallWeatherJsonTest, HashIgnoresTidesAndSignOfZero) {
  const OneCallWeather record = testing_records::makeForecastRecord({.days = 2, .hours = 24, .minutes = 10});
  const std::hash<OneCallWeather> hash;

  OneCallWeather otherTides = record;
  otherTides.tideData->distance += 1.0;
  EXPECT_NE(otherTides, record);
  EXPECT_EQ(hash(otherTides), hash(record));

  OneCallWeather negativeZero = record;
  negativeZero.lon = 0.0;
  OneCallWeather positiveZero = negativeZero;
  negativeZero.lon = -0.0;
  negativeZero.hourly[3].uvi = -0.0;
  positiveZero.hourly[3].uvi = 0.0;
  EXPECT_EQ(negativeZero, positiveZero);
  EXPECT_EQ(hash(negativeZero), hash(positiveZero));

  // Every other change is noticed.
  std::vector<std::function<void(OneCallWeather&)>> changes = {
      [](auto& w) { w.timeZone = *TimeZone::named("Europe/Paris"); },
      [](auto& w) { w.current.weather[0].symbolName = "cloud.fog"; },
      [](auto& w) { w.minutely->back().type.reset(); },
      [](auto& w) { w.hourly[5].sunStateChange = SunStateChange::rise(w.hourly[5].dt); },
      [](auto& w) { w.daily[1].windGust.reset(); },
      [](auto& w) { w.alerts->at(0).tags.push_back("Gewitter"); },
      [](auto& w) { w.attribution.reset(); },
      [](auto& w) { w.isPlaceholder = true; },
  };
  for (size_t i = 0; i < changes.size(); ++i) {
    SCOPED_TRACE(i);
    OneCallWeather changed = record;
    changes[i](changed);
    EXPECT_NE(changed, record);
    EXPECT_NE(hash(changed), hash(record));
  }
}

}  // namespace
}  // namespace ombrine
