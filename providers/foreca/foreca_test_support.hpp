#pragma once
// Test support of this folder (tests and benchmark): builders of Foreca wire rows with
// plausible defaults, so that each test states only the fields its rule reads, and the
// simulator answers recorded in testdata/recorded (testdata/record-answers).

#include <filesystem>
#include <fstream>
#include <sstream>
#include <stdexcept>
#include <string>
#include <string_view>

#include "providers/foreca/foreca_calendar.hpp"
#include "providers/foreca/foreca_client.hpp"
#include "providers/foreca/foreca_conversion.hpp"
#include "providers/foreca/foreca_wire.hpp"

namespace ombrine::testing_foreca {

// The fields current and hourly rows share.
template <class Row>
void fillCommonFields(Row& row, Date time, std::string symbol, std::string phrase, int precipProb) {
  row.time = time;
  row.symbol = std::move(symbol);
  row.symbolPhrase = std::move(phrase);
  row.temperature = Temperature::celsius(12);
  row.feelsLikeTemp = Temperature::celsius(11);
  row.windSpeed = Speed::kilometersPerHour(18);
  row.windGust = Speed::kilometersPerHour(36);
  row.windDir = Angle::degrees(200);
  row.precipProb = precipProb;
  row.cloudiness = 10;
  row.uvIndex = 1;
  row.pressure = 1012.0;
  row.visibility = 20000.0;
  row.relHumidity = 70;
  row.dewPoint = Temperature::celsius(6);
}

inline ForecaHourly hourlyRow(Date time, std::string symbol = "d000", int precipProb = 0) {
  ForecaHourly row;
  fillCommonFields(row, time, std::move(symbol), "clear", precipProb);
  row.windDirString = "S";
  return row;
}

inline ForecaDaily dailyRow(Date date, std::optional<Date> sunrise, std::optional<Date> sunset,
                            std::string symbol = "d000") {
  ForecaDaily row;
  row.date = date;
  row.symbol = std::move(symbol);
  row.symbolPhrase = "mostly clear";
  row.maxTemp = Temperature::celsius(18);
  row.minTemp = Temperature::celsius(7);
  row.maxFeelsLikeTemp = Temperature::celsius(17);
  row.minFeelsLikeTemp = Temperature::celsius(5);
  row.maxRelHumidity = 90;
  row.minRelHumidity = 45;
  row.maxDewPoint = Temperature::celsius(9);
  row.minDewPoint = Temperature::celsius(4);
  row.maxWindSpeed = Speed::kilometersPerHour(25);
  row.windDir = Angle::degrees(180);
  row.maxWindGust = Speed::kilometersPerHour(40);
  row.precipProb = 20;
  row.cloudiness = 30;
  row.sunrise = sunrise;
  row.sunset = sunset;
  row.uvIndex = 4.0;
  return row;
}

inline ForecaCurrent currentRow(Date time, int precipProb = 0) {
  ForecaCurrent current;
  fillCommonFields(current, time, "d100", "partly cloudy", precipProb);
  current.temperature = Temperature::celsius(14);
  current.feelsLikeTemp = Temperature::celsius(13);
  current.windSpeed = Speed::kilometersPerHour(10);
  current.windGust = Speed::kilometersPerHour(20);
  current.pressure = 1013.6;
  current.visibility = 9999.5;
  return current;
}

// A place whose answers were recorded, with the real zone that has the simulator's offset.
struct RecordedPlace {
  const char* name;
  double latitude;
  double longitude;
  const char* zone;
};

inline constexpr RecordedPlace kRecordedPlaces[] = {
    {"helsinki", 60.1699, 24.9384, "Europe/Helsinki"},
    {"oslo", 59.9139, 10.7522, "Europe/Oslo"},
    {"tromso", 69.6492, 18.9553, "Europe/Oslo"},
    {"suva", -18.1416, 178.4419, "Pacific/Fiji"},
};

// The instant the answers were recorded at (2026-01-15T12:00:00Z).
inline constexpr Date kRecordedAt = Date::fromUnix(1768478400);

inline std::string readTextFile(const std::filesystem::path& path) {
  std::ifstream file(path, std::ios::binary);
  if (!file) throw std::runtime_error("cannot read " + path.string());
  std::ostringstream text;
  text << file.rdbuf();
  return text.str();
}

// The recorded answers of `place` as one fetch would gather them (minutely only when the
// client would ask for it).
inline ForecaWeather loadRecordedWeather(const std::filesystem::path& recordedDir, const RecordedPlace& place) {
  const std::filesystem::path dir = recordedDir / place.name;
  const TimeZone zone = TimeZone::named(place.zone).value();
  ForecaWeather weather;
  weather.current = decodeForecaCurrent(readTextFile(dir / "current.json")).current;
  weather.hourly = decodeForecaHourly(readTextFile(dir / "hourly.json")).forecast;
  weather.daily = decodeForecaDaily(readTextFile(dir / "daily.json"), zone).forecast;
  weather.airQuality = decodeForecaAirQuality(readTextFile(dir / "airquality.json")).forecast;
  weather.warnings = decodeForecaWarnings(readTextFile(dir / "warnings.json")).warnings;
  if (forecaNeedsMinutely(forecaMinutelyProbability(weather.current, weather.hourly))) {
    weather.minutely = decodeForecaMinutely(readTextFile(dir / "minutely.json")).forecast;
  }
  return weather;
}

inline ForecaConversionContext recordedContext(const RecordedPlace& place) {
  return ForecaConversionContext{
      .location = Location(place.latitude, place.longitude),
      .timeZone = TimeZone::named(place.zone).value(),
      .now = kRecordedAt,
      .languageCode = "en",
  };
}

}  // namespace ombrine::testing_foreca
