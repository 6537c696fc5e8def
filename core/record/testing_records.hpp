#pragma once
// Realistic forecast records for tests and benchmarks (not part of the library).
//
// `makeForecastRecord` builds a full record the way a provider would deliver it: a ten-day,
// 240-hour, 60-minute forecast for Berlin with a daily temperature cycle, showers, gusts, sun
// events, air quality, alerts and an attribution, every optional field exercised somewhere.
// Values come from a seeded generator, so the same shape gives the same record on every run;
// many are the inexact doubles unit conversions produce, which is what round trips must keep.

#include <algorithm>
#include <cmath>
#include <cstdint>
#include <random>
#include <string>

#include "core/record/one_call_weather.hpp"
#include "core/values/value_json.hpp"

namespace ombrine::testing_records {

struct RecordShape {
  int days = 10;
  int hours = 240;
  int minutes = 60;  // 0 leaves `minutely` absent
  bool alerts = true;
  bool tides = true;
  std::uint64_t seed = 20240917;
};

inline OneCallWeather makeForecastRecord(const RecordShape& shape = {}) {
  std::mt19937_64 random(shape.seed);
  auto uniform = [&](double low, double high) {
    return low + (high - low) * static_cast<double>(random() >> 11) * 0x1.0p-53;
  };
  auto chance = [&](double p) { return uniform(0.0, 1.0) < p; };
  constexpr double kPi = 3.14159265358979323846;

  // 2024-09-17 00:00 Europe/Berlin (22:00 UTC the day before), seconds since 2001.
  const Date start = Date::fromUnix(1726524000.0);
  const OneCallWeather::Glyph clear{800, "Clear", "clear sky", "sun.max", true};
  const OneCallWeather::Glyph partly{802, "Clouds", "scattered clouds", "cloud.sun", true};
  const OneCallWeather::Glyph broken{803, "Clouds", "broken clouds", "cloud", true};
  const OneCallWeather::Glyph showers{521, "Rain", "shower rain", "cloud.sun.rain", true};
  const OneCallWeather::Glyph mist{701, "Mist", "mist", "cloud.fog", false};

  auto temperatureAt = [&](double hourOfForecast) {
    double dayCycle = std::sin((std::fmod(hourOfForecast, 24.0) - 9.0) / 24.0 * 2.0 * kPi);
    return Temperature::fahrenheit(59.0 + 14.0 * dayCycle + uniform(-1.5, 1.5));
  };
  auto glyphFor = [&](double rain, int clouds, bool day) {
    OneCallWeather::Glyph glyph = rain > 0.0 ? showers : clouds > 84 ? broken : clouds > 40 ? partly : clear;
    glyph.isDaylight = day;
    return glyph;
  };

  OneCallWeather weather;
  weather.lat = 52.520008;
  weather.lon = 13.404954;
  weather.timeZone = *TimeZone::named("Europe/Berlin");

  auto& c = weather.current;
  c.dt = start + 9.5 * 3600.0;
  c.sunrise = start + 5.0 * 3600.0 + 1234.0;
  c.sunset = start + 17.0 * 3600.0 + 2871.0;
  c.temp = temperatureAt(9.5);
  c.feelsLike = Temperature::celsius(c.temp.measurement - 1.3);
  c.pressure = 1013;
  c.dewPoint = Temperature::kelvin(281.37);
  c.uvi = 2.71;
  c.humidity = 72;
  c.clouds = 64;
  c.visibility = 10000;
  c.windSpeed = Speed::kilometersPerHour(17.0);
  c.windGust = Speed::kilometersPerHour(31.0);
  c.windDeg = Angle::degrees(247.0);
  c.rain = OneCallWeather::Rain{Precipitation::millimeters(0.21)};
  c.weather = {glyphFor(0.21, 64, true), mist};
  c.airQuality = AirQuality{c.dt, 37};

  if (shape.minutes > 0) {
    std::vector<OneCallWeather::Minutely> minutes;
    for (int m = 0; m < shape.minutes; ++m) {
      OneCallWeather::Minutely minute;
      minute.dt = c.dt + 60.0 * m;
      double rate = m < 25 ? 0.0 : std::max(0.0, std::sin((m - 25) / 35.0 * kPi) * 2.4 + uniform(-0.2, 0.2));
      minute.precipitation = Precipitation::inches(rate / 25.4);
      if (m % 7 != 3) minute.type = rate > 0.0 ? PrecipitationKind::rain : PrecipitationKind::none;
      minutes.push_back(minute);
    }
    weather.minutely = std::move(minutes);
  }

  for (int h = 0; h < shape.hours; ++h) {
    OneCallWeather::Hourly hour;
    hour.dt = start + 3600.0 * (h + 10);
    hour.temp = temperatureAt(h + 10.0);
    hour.feelsLike = Temperature::celsius(hour.temp.measurement - uniform(0.0, 3.0));
    if (h % 11 != 5) hour.pressure = 1005 + static_cast<int>(uniform(0.0, 20.0));
    hour.humidity = static_cast<int>(uniform(45.0, 98.0));
    hour.dewPoint = Temperature::celsius(hour.temp.measurement - uniform(1.0, 9.0));
    double hourOfDay = std::fmod(h + 10.0, 24.0);
    bool day = hourOfDay >= 6.0 && hourOfDay < 19.0;
    hour.uvi = day ? std::round(uniform(0.0, 5.0) * 100.0) / 100.0 : 0.0;
    hour.clouds = static_cast<int>(uniform(0.0, 100.0));
    if (h % 13 != 7) hour.visibility = chance(0.1) ? static_cast<int>(uniform(800.0, 9000.0)) : 10000;
    hour.windSpeed = Speed::milesPerHour(uniform(1.0, 25.0));
    hour.windDeg = Angle::degrees(std::round(uniform(0.0, 359.0)));
    if (chance(0.6)) hour.windGust = Speed::metersPerSecond(hour.windSpeed.measurement * uniform(1.2, 2.1));
    hour.pop = std::round(uniform(0.0, 1.0) * 100.0) / 100.0;
    double rain = hour.pop > 0.6 ? std::round(uniform(0.1, 3.0) * 100.0) / 100.0 : 0.0;
    if (rain > 0.0) hour.rain = OneCallWeather::Rain{Precipitation::millimeters(rain)};
    if (hour.temp.measurement < 1.0 && rain > 0.0)
      hour.snow = OneCallWeather::Snow{Precipitation::centimeters(rain / 8.0)};
    hour.weather = {glyphFor(rain, hour.clouds, day)};
    if (hourOfDay == 5.0) hour.sunStateChange = SunStateChange::rise(hour.dt + 1500.0 + h);
    if (hourOfDay == 18.0) hour.sunStateChange = SunStateChange::set(hour.dt + 2400.0 - h);
    if (h < 96) hour.airQuality = AirQuality{hour.dt, static_cast<int>(uniform(15.0, 120.0))};
    weather.hourly.push_back(std::move(hour));
  }

  for (int d = 0; d < shape.days; ++d) {
    OneCallWeather::Daily day;
    day.dt = start + 86400.0 * d + 12.0 * 3600.0;
    double low = 6.0 + uniform(-2.0, 3.0);
    day.temp = {Temperature::celsius(low), Temperature::celsius(low + uniform(6.0, 13.0))};
    day.feelsLike = {Temperature::celsius(low + 7.1), Temperature::celsius(low - 1.4), Temperature::celsius(low + 4.2),
                     Temperature::celsius(low - 0.6)};
    day.pop = std::round(uniform(0.0, 1.0) * 100.0) / 100.0;
    if (day.pop > 0.4) day.rain = Precipitation::millimeters(std::round(uniform(0.2, 14.0) * 10.0) / 10.0);
    if (d == 8) day.snow = Precipitation::centimeters(0.7);
    if (d != 9) {
      day.uvi = std::round(uniform(0.5, 5.0) * 10.0) / 10.0;
      day.windSpeed = Speed::kilometersPerHour(uniform(5.0, 40.0));
      day.windDeg = Angle::degrees(std::round(uniform(0.0, 359.0)));
      day.windGust = Speed::kilometersPerHour(uniform(30.0, 70.0));
      day.humidity = std::round(uniform(50.0, 95.0));
      day.dewPoint = Temperature::celsius(low - 2.2);
      day.clouds = std::round(uniform(0.0, 100.0));
    }
    day.weather = {
        glyphFor(day.rain ? day.rain->measurement : 0.0, day.clouds ? static_cast<int>(*day.clouds) : 0, true)};
    day.sunrise = start + 86400.0 * d + 5.0 * 3600.0 + 1234.0 + 96.0 * d;
    day.sunset = start + 86400.0 * d + 17.0 * 3600.0 + 2871.0 - 168.0 * d;
    weather.daily.push_back(std::move(day));
  }

  if (shape.alerts) {
    OneCallWeather::Alert wind;
    wind.senderName = "Deutscher Wetterdienst";
    wind.event = "Sturmböen";
    wind.start = start + 14.0 * 3600.0;
    wind.end = start + 23.0 * 3600.0;
    wind.description =
        "Es treten Sturmböen mit Geschwindigkeiten um 70 km/h (20 m/s, 38 kn, Bft 8) auf.\n"
        "Tabs\tand \"quotes\" and a backslash \\ survive too.";
    wind.url = boost::urls::url("https://www.dwd.de/warnungen?region=berlin&lang=de");
    wind.severity = WeatherSeverity::moderate;
    wind.tags = {"Wind", "Sturm"};
    OneCallWeather::Alert statement;
    statement.senderName = "Deutscher Wetterdienst";
    statement.event = "special weather statement";
    statement.start = start + 30.0 * 3600.0;
    statement.tags = {};
    weather.alerts = std::vector<OneCallWeather::Alert>{wind, statement};
  }
  weather.attribution = WeatherServiceAttribution{
      WeatherServiceAttribution::NameAttribution{"Foreca", boost::urls::url("https://www.foreca.com")}};
  if (shape.tides) {
    TideData tides;
    tides.station = TideStation{.id = "9414290",
                                .name = "San Francisco",
                                .latitude = 37.8063,
                                .longitude = -122.4659,
                                .state = "CA",
                                .type = "R",
                                .referenceStationID = std::nullopt};
    tides.distance = 1234.5;
    tides.extremes = {{start + 3600.0, Length::meters(1.716), TideExtreme::Kind::high},
                      {start + 26100.0, Length::meters(-0.0), TideExtreme::Kind::low}};
    tides.chartPoints = {{start, Length::meters(1.25)}, {start + 900.0, Length::meters(1.3125)}};
    tides.fetchedAt = start - 60.5;
    weather.tideData = tides;
  }
  return weather;
}

}  // namespace ombrine::testing_records
