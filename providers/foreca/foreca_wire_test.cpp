#include "providers/foreca/foreca_wire.hpp"

#include <gtest/gtest.h>

#include <string>

#include "core/values/errors.hpp"

namespace ombrine {
namespace {

TEST(ForecaWireTest, ParsesTheAnswerDateTimeFormOnly) {
  struct Row {
    const char* text;
    std::optional<double> unix;
  };
  const Row rows[] = {
      {"2024-03-05T14:00+02:00", 1709640000},  {"2024-03-05T12:00Z", 1709640000},
      {"2024-03-05T14:00+0200", 1709640000},   {"2024-03-05T14:00+02", 1709640000},
      {"2024-03-05T02:30-09:30", 1709640000},  {"2024-03-06T02:00+14:00", 1709640000},  // across the date line
      {"2024-02-29T00:00Z", 1709164800},                                                // leap day
      {"2023-02-29T00:00Z", std::nullopt},     {"2024-03-05T14:00", std::nullopt},      // no zone
      {"2024-03-05T24:00Z", std::nullopt},     {"2024-03-05T14:60Z", std::nullopt},
      {"2024-13-05T14:00Z", std::nullopt},     {"2024-03-05 14:00Z", std::nullopt},
      {"2024-03-05T14:00:00Z", std::nullopt},  // seconds are not part of the form
      {"2024-03-05T14:00+2:00", std::nullopt}, {"2024-03-05T14:00+19:00", std::nullopt},
      {"2024-03-05T14:00Z ", std::nullopt},    {"", std::nullopt},
  };
  for (const Row& row : rows) {
    SCOPED_TRACE(row.text);
    std::optional<Date> date = parseForecaDateTime(row.text);
    ASSERT_EQ(date.has_value(), row.unix.has_value());
    if (date) EXPECT_EQ(date->unixSeconds(), *row.unix);
  }
}

constexpr const char* kHourly = R"({"forecast":[
  {"time":"2024-06-10T14:00+03:00","symbol":"d320","symbolPhrase":"rain","temperature":17,
   "feelsLikeTemp":null,"windSpeed":36,"windGust":54,"windDir":225,"windDirString":"SW",
   "precipProb":80,"precipAccum":1.4,"snowAccum":0,"cloudiness":100,"uvIndex":1,
   "pressure":null,"visibility":12000,"relHumidity":88,"dewPoint":15,"precipType":"rain"},
  {"time":"2024-06-10T15:00+03:00","symbol":"d412","symbolPhrase":"snow","temperature":0,
   "feelsLikeTemp":-4,"windSpeed":0,"windGust":7.2,"windDir":0,"windDirString":"N",
   "precipProb":12.0,"precipAccum":0.2,"snowAccum":0.2,"cloudiness":90,"uvIndex":0,
   "pressure":1001,"relHumidity":95,"dewPoint":-1,"precipType":"mixed","extra":"ignored"}
]})";

TEST(ForecaWireTest, DecodesHourlyWithWindInKilometresPerHourAndNullsAsZero) {
  auto answer = decodeForecaHourly(kHourly);
  ASSERT_EQ(answer.forecast.size(), 2u);
  const ForecaHourly& first = answer.forecast[0];
  EXPECT_EQ(first.time.unixSeconds(), 1718017200);
  EXPECT_EQ(first.symbol, "d320");
  EXPECT_EQ(first.windSpeed.inMetersPerSecond(), 10.0);
  EXPECT_EQ(first.windGust.inMetersPerSecond(), 15.0);
  EXPECT_EQ(first.windDir, Angle::degrees(225));
  EXPECT_EQ(first.feelsLikeTemp, Temperature::celsius(0));  // null reads 0.0
  EXPECT_FALSE(first.pressure.has_value());                 // null optional reads absent
  EXPECT_EQ(first.visibility, 12000.0);
  EXPECT_EQ(first.precipAccum, Precipitation::millimeters(1.4));
  EXPECT_EQ(first.precipType, ForecaHourly::PrecipitationType::rain);
  const ForecaHourly& second = answer.forecast[1];
  EXPECT_EQ(second.precipProb, 12);  // a whole number written with a fraction
  EXPECT_EQ(second.pressure, 1001.0);
  EXPECT_FALSE(second.visibility.has_value());  // missing optional
  EXPECT_EQ(second.precipType, ForecaHourly::PrecipitationType::mixed);
}

TEST(ForecaWireTest, RefusesBadAnswersWithTheirPath) {
  struct Row {
    const char* json;
    const char* fragment;  // expected in the message
  };
  const Row rows[] = {
      {R"({"forecast":[{"time":"2024-06-10T14:00+03:00"}]})", "Foreca hourly answer: forecast[0].symbol: missing key"},
      {R"({"forecast":[)", "Foreca hourly answer: invalid JSON"},
      {R"([])", "Foreca hourly answer"},
      {R"({"forecast":{}})", "forecast"},
      {R"({"forecast":[{"time":"yesterday"}]})", "forecast[0].time"},
      {"", "Foreca hourly answer"},
  };
  for (const Row& row : rows) {
    SCOPED_TRACE(row.json);
    try {
      decodeForecaHourly(row.json);
      ADD_FAILURE() << "decoded";
    } catch (const DecodingError& error) {
      EXPECT_NE(std::string(error.what()).find(row.fragment), std::string::npos) << error.what();
    }
  }
}

TEST(ForecaWireTest, RefusesWrongValueKinds) {
  std::string hourly = kHourly;
  const std::pair<std::string, std::string> edits[] = {
      {R"("precipType":"rain")", R"("precipType":"hail")"}, {R"("relHumidity":88)", R"("relHumidity":88.5)"},
      {R"("windSpeed":36)", R"("windSpeed":"36")"},         {R"("symbol":"d320")", R"("symbol":320)"},
      {R"("pressure":null)", R"("pressure":"high")"},
  };
  for (const auto& [from, to] : edits) {
    SCOPED_TRACE(to);
    std::string edited = hourly;
    edited.replace(edited.find(from), from.size(), to);
    EXPECT_THROW(decodeForecaHourly(edited), DecodingError);
  }
}

TEST(ForecaWireTest, DecodesCurrent) {
  auto answer = decodeForecaCurrent(R"({"current":{"time":"2024-06-10T14:20+03:00","symbol":"n100",
    "symbolPhrase":"mostly clear","temperature":15,"feelsLikeTemp":14,"relHumidity":55,"dewPoint":6,
    "windSpeed":18,"windDir":90,"windGust":27,"precipProb":3,"cloudiness":20,"uvIndex":3,
    "pressure":1013.4,"visibility":35000}})");
  const ForecaCurrent& current = answer.current;
  EXPECT_EQ(current.time.unixSeconds(), 1718018400);
  EXPECT_EQ(current.windSpeed.inMetersPerSecond(), 5.0);
  EXPECT_EQ(current.windGust.inMetersPerSecond(), 7.5);
  EXPECT_EQ(current.pressure, 1013.4);
  EXPECT_EQ(current.visibility, 35000.0);
  EXPECT_EQ(current.precipProb, 3);
  EXPECT_THROW(decodeForecaCurrent(R"({"now":{}})"), DecodingError);
}

TEST(ForecaWireTest, ReadsDailyDaysInThePlaceZoneAndSunTimesInAnyForm) {
  const char* json = R"({"forecast":[
    {"date":"2024-06-10","symbol":"d200","symbolPhrase":"partly cloudy","maxTemp":29,"minTemp":26,
     "maxFeelsLikeTemp":33,"minFeelsLikeTemp":27,"maxRelHumidity":90,"minRelHumidity":70,
     "maxDewPoint":24,"minDewPoint":22,"precipAccum":0.5,"snowAccum":0,"maxWindSpeed":20,
     "windDir":90,"maxWindGust":30,"precipProb":30,"cloudiness":50,
     "sunrise":"2024-06-10T06:12+14:00","sunset":"18:25","uvIndex":11},
    {"date":"2024-06-11","symbol":"d200","symbolPhrase":"partly cloudy","maxTemp":29,"minTemp":26,
     "maxFeelsLikeTemp":33,"minFeelsLikeTemp":27,"maxRelHumidity":90,"minRelHumidity":70,
     "maxDewPoint":24,"minDewPoint":22,"precipAccum":0,"snowAccum":0,"maxWindSpeed":20,
     "windDir":90,"maxWindGust":30,"precipProb":30,"cloudiness":50,
     "sunrise":"06:12:30","sunset":null}
  ]})";
  TimeZone kiritimati = *TimeZone::named("Pacific/Kiritimati");  // UTC+14
  auto answer = decodeForecaDaily(json, kiritimati);
  ASSERT_EQ(answer.forecast.size(), 2u);
  const double june10 = 1717927200;  // 2024-06-10T00:00+14:00
  EXPECT_EQ(answer.forecast[0].date.unixSeconds(), june10);
  EXPECT_EQ(answer.forecast[0].sunrise->unixSeconds(), june10 + 6 * 3600 + 12 * 60);
  EXPECT_EQ(answer.forecast[0].sunset->unixSeconds(), june10 + 18 * 3600 + 25 * 60);
  EXPECT_EQ(answer.forecast[0].uvIndex, 11.0);
  EXPECT_EQ(answer.forecast[0].maxWindSpeed.inKilometersPerHour(), 20.0);
  EXPECT_EQ(answer.forecast[1].date.unixSeconds(), june10 + 86400);
  EXPECT_EQ(answer.forecast[1].sunrise->unixSeconds(), june10 + 86400 + 6 * 3600 + 12 * 60 + 30);
  EXPECT_FALSE(answer.forecast[1].sunset.has_value());
  EXPECT_FALSE(answer.forecast[1].uvIndex.has_value());

  // The same text on the other side of the date line is another instant.
  auto pagoPago = decodeForecaDaily(json, *TimeZone::named("Pacific/Pago_Pago"));  // UTC-11
  EXPECT_EQ(pagoPago.forecast[0].date.unixSeconds(), june10 + 25 * 3600);

  std::string badDate = json;
  badDate.replace(badDate.find("2024-06-11"), 10, "2024-6-11");
  EXPECT_THROW(decodeForecaDaily(badDate, kiritimati), DecodingError);
  std::string badSun = json;
  badSun.replace(badSun.find("06:12:30"), 8, "6 o'clock");
  EXPECT_THROW(decodeForecaDaily(badSun, kiritimati), DecodingError);
}

TEST(ForecaWireTest, DecodesMinutesAndAirQuality) {
  auto minutes = decodeForecaMinutely(
      R"({"forecast":[{"time":"2024-06-10T14:01+03:00","precipRate":1.2},{"time":"2024-06-10T14:02+03:00","precipRate":null}]})");
  ASSERT_EQ(minutes.forecast.size(), 2u);
  EXPECT_EQ(precipRateMillimetersPerHour(minutes.forecast[0]), 1.2);
  EXPECT_EQ(precipRateMillimetersPerHour(minutes.forecast[1]), 0.0);

  auto air = decodeForecaAirQuality(R"({"forecast":[{"time":"2024-06-10T14:00+03:00","AQI":42,"PM25":3}]})");
  ASSERT_EQ(air.forecast.size(), 1u);
  EXPECT_EQ(air.forecast[0].aqi, 42);
  EXPECT_EQ(air.forecast[0].time.unixSeconds(), 1718017200);
  EXPECT_THROW(decodeForecaAirQuality(R"({"forecast":[{"time":"2024-06-10T14:00+03:00","aqi":42}]})"), DecodingError);
}

constexpr const char* kWarnings = R"({"warnings":[
  {"name":"wind","type":"wind","significance":"orange","attribution":"FMI",
   "attributionUrl":"https://en.ilmatieteenlaitos.fi/warnings","validFrom":"2024-06-10T09:00:00Z",
   "validUntil":"2024-06-10T21:00:00Z","description":[{"lang":"fi","title":"Tuulivaroitus","text":"Kova tuuli."},
   {"lang":"en","title":"Wind warning"}],"significanceDescription":"Be prepared",
   "sent":"2024-06-10T08:45:12.250Z","title":"Wind warning for sea areas","langArea":"Merialueet"},
  {"name":"heat","type":"heat","significance":"purple","attribution":"FMI","attributionUrl":"",
   "validFrom":"2024-06-10T09:00:00+03:00","validUntil":"2024-06-11T09:00:00+03:00","description":[],
   "significanceDescription":"Take action","sent":"2024-06-10T05:00:00Z"}
]})";

TEST(ForecaWireTest, DecodesWarnings) {
  auto answer = decodeForecaWarnings(kWarnings);
  ASSERT_EQ(answer.warnings.size(), 2u);
  const ForecaWarning& wind = answer.warnings[0];
  EXPECT_EQ(wind.significance, ForecaWarning::Significance::orange);
  EXPECT_EQ(wind.validFrom.unixSeconds(), 1718010000);
  EXPECT_EQ(wind.sent.unixSeconds(), 1718009112.25);
  ASSERT_EQ(wind.description.size(), 2u);
  EXPECT_EQ(wind.description[1].lang, "en");
  EXPECT_FALSE(wind.description[1].text.has_value());
  ASSERT_TRUE(wind.attributionUrl.has_value());
  EXPECT_EQ(wind.attributionUrl->host(), "en.ilmatieteenlaitos.fi");
  EXPECT_EQ(wind.langArea, "Merialueet");
  const ForecaWarning& heat = answer.warnings[1];
  EXPECT_EQ(heat.significance, ForecaWarning::Significance::purple);
  EXPECT_FALSE(heat.attributionUrl.has_value());  // empty text
  EXPECT_FALSE(heat.title.has_value());
  EXPECT_EQ(heat.validFrom.unixSeconds(), 1717999200);
}

TEST(ForecaWireTest, RefusesBadWarnings) {
  const std::pair<std::string, std::string> edits[] = {
      {R"("significance":"orange")", R"("significance":"blue")"},
      {R"("validFrom":"2024-06-10T09:00:00Z")", R"("validFrom":"2024-06-10 09:00")"},
      {R"({"lang":"en","title":"Wind warning"})", R"({"title":"Wind warning"})"},
  };
  for (const auto& [from, to] : edits) {
    SCOPED_TRACE(to);
    std::string edited = kWarnings;
    edited.replace(edited.find(from), from.size(), to);
    try {
      decodeForecaWarnings(edited);
      ADD_FAILURE() << "decoded";
    } catch (const DecodingError& error) {
      EXPECT_NE(std::string(error.what()).find("Foreca warnings answer: warnings[0]."), std::string::npos)
          << error.what();
    }
  }
}

}  // namespace
}  // namespace ombrine
