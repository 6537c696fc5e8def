// Fuzzes the system weather answer decoder and the mapping behind it: any bytes must either
// decode or raise DecodingError; whatever decodes must map without fault.

#include <cstddef>
#include <cstdint>
#include <string_view>

#include "core/values/errors.hpp"
#include "platform/icu_setup.hpp"
#include "providers/system/weatherkit_conversion.hpp"
#include "providers/system/weatherkit_wire.hpp"

using namespace ombrine;

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
  static const bool icuReady = (useShippedTimeZoneData(), true);
  (void)icuReady;
  AppleWeather weather;
  try {
    weather = decodeWeatherKitAnswer(std::string_view(reinterpret_cast<const char*>(data), size));
  } catch (const DecodingError&) {
    return 0;
  }
  Date now = weather.currentWeather ? weather.currentWeather->asOf : Date{};
  SystemWeatherConversionContext context{Location(40.7, -74.0), *TimeZone::named("America/New_York"), now};
  (void)convertSystemWeather(weather, context);
  return 0;
}
