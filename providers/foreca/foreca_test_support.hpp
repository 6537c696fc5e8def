#pragma once
// Builders of Foreca wire rows for the tests of this folder: plausible defaults, so that each
// test states only the fields its rule reads.

#include <string>
#include <string_view>

#include "providers/foreca/foreca_calendar.hpp"
#include "providers/foreca/foreca_wire.hpp"

namespace ombrine::testing_foreca {

inline ForecaHourly hourlyRow(Date time, std::string symbol = "d000", int precipProb = 0) {
  ForecaHourly row;
  row.time = time;
  row.symbol = std::move(symbol);
  row.symbolPhrase = "clear";
  row.temperature = Temperature::celsius(12);
  row.feelsLikeTemp = Temperature::celsius(11);
  row.windSpeed = Speed::kilometersPerHour(18);
  row.windGust = Speed::kilometersPerHour(36);
  row.windDir = Angle::degrees(200);
  row.windDirString = "S";
  row.precipProb = precipProb;
  row.cloudiness = 10;
  row.uvIndex = 1;
  row.pressure = 1012.0;
  row.visibility = 20000.0;
  row.relHumidity = 70;
  row.dewPoint = Temperature::celsius(6);
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
  current.time = time;
  current.symbol = "d100";
  current.symbolPhrase = "partly cloudy";
  current.temperature = Temperature::celsius(14);
  current.feelsLikeTemp = Temperature::celsius(13);
  current.relHumidity = 60;
  current.dewPoint = Temperature::celsius(6);
  current.windSpeed = Speed::kilometersPerHour(10);
  current.windDir = Angle::degrees(90);
  current.windGust = Speed::kilometersPerHour(20);
  current.precipProb = precipProb;
  current.cloudiness = 40;
  current.uvIndex = 2;
  current.pressure = 1013.6;
  current.visibility = 9999.5;
  return current;
}

}  // namespace ombrine::testing_foreca
