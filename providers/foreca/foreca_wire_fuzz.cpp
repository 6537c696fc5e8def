// Fuzzes the Foreca answer decoders and the conversion behind them. The first byte picks the
// answer (0 current, 1 hourly, 2 daily, 3 minutely, 4 air quality, 5 warnings; modulo 6), the
// rest is the body. Any bytes must either decode or raise DecodingError; whatever decodes must
// convert without fault, however odd its dates and numbers.

#include <cstddef>
#include <cstdint>
#include <string_view>

#include "core/values/errors.hpp"
#include "platform/icu_setup.hpp"
#include "providers/foreca/foreca_conversion.hpp"
#include "providers/foreca/foreca_wire.hpp"

namespace {

using namespace ombrine;

// A small valid weather around `time`, into which the decoded rows are put.
ForecaWeather baseWeather(Date time) {
  ForecaWeather weather;
  weather.current.time = time;
  weather.current.symbol = "d100";
  for (int hour = 0; hour < 3; ++hour) {
    ForecaHourly row;
    row.time = time + hour * 3600.0;
    row.symbol = "d220";
    weather.hourly.push_back(row);
  }
  ForecaDaily day;
  day.date = time;
  day.sunrise = time + 3600.0;
  day.sunset = time + 7200.0;
  weather.daily.push_back(day);
  return weather;
}

void convert(const ForecaWeather& weather, const TimeZone& zone) {
  ForecaConversionContext context{
      .location = Location(60.17, 24.94), .timeZone = zone, .now = weather.current.time, .languageCode = "fi"};
  convertForecaWeather(weather, context);
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
  static const bool icuReady = (useShippedTimeZoneData(), true);
  static const TimeZone helsinki = TimeZone::named("Europe/Helsinki").value_or(TimeZone::gmt());
  static const TimeZone kiritimati = TimeZone::named("Pacific/Kiritimati").value_or(TimeZone::gmt());
  (void)icuReady;
  if (size == 0) return 0;
  const std::string_view body(reinterpret_cast<const char*>(data) + 1, size - 1);
  const Date reference = Date::fromUnix(1718000000);
  try {
    ForecaWeather weather = baseWeather(reference);
    const TimeZone* zone = &helsinki;
    switch (data[0] % 6) {
      case 0: weather.current = decodeForecaCurrent(body).current; break;
      case 1: weather.hourly = decodeForecaHourly(body).forecast; break;
      case 2:
        if ((data[0] / 6) % 2 != 0) zone = &kiritimati;
        weather.daily = decodeForecaDaily(body, *zone).forecast;
        break;
      case 3: weather.minutely = decodeForecaMinutely(body).forecast; break;
      case 4: weather.airQuality = decodeForecaAirQuality(body).forecast; break;
      default: weather.warnings = decodeForecaWarnings(body).warnings; break;
    }
    convert(weather, *zone);
  } catch (const DecodingError&) {
  }
  return 0;
}
