// Fuzzes the OpenWeather decoders and the conversion behind them. The first byte picks the
// answer (0 current, 1 forecast, 2 daily; modulo 3), the rest is the body. Any bytes must
// either decode or raise DecodingError; whatever decodes must convert without fault.

#include <cstddef>
#include <cstdint>
#include <string_view>

#include "core/values/errors.hpp"
#include "platform/icu_setup.hpp"
#include "providers/openweather/openweather_conversion.hpp"
#include "providers/openweather/openweather_wire.hpp"

using namespace ombrine;

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
  static const bool icuReady = (useShippedTimeZoneData(), true);
  (void)icuReady;
  if (size == 0) return 0;
  std::string_view body(reinterpret_cast<const char*>(data) + 1, size - 1);
  OpenWeatherCurrentResponse current;
  OpenWeatherForecastResponse forecast;
  OpenWeatherDailyResponse daily;
  try {
    switch (data[0] % 3) {
      case 0: current = decodeOpenWeatherCurrent(body); break;
      case 1: forecast = decodeOpenWeatherForecast(body); break;
      default: daily = decodeOpenWeatherDaily(body); break;
    }
  } catch (const DecodingError&) {
    return 0;
  }
  OpenWeatherConversionContext context{Location(48.1, 11.6), *TimeZone::named("Europe/Berlin"), current.dt};
  (void)convertOpenWeather(current, forecast, daily, {}, context);
  return 0;
}
