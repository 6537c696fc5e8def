// Feeds arbitrary bytes to the forecast record decoder. Anything but a record or a DecodingError
// is a bug; a record must survive encode and decode unchanged, and encode to the same text twice.

#include <cstdint>
#include <cstdlib>
#include <string>
#include <string_view>

#include "core/one_call_weather_json.hpp"
#include "platform/icu_setup.hpp"

extern "C" int LLVMFuzzerInitialize(int*, char***) {
  ombrine::useShippedTimeZoneData();
  return 0;
}

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
  const std::string_view text(reinterpret_cast<const char*>(data), size);
  ombrine::OneCallWeather weather;
  try {
    weather = ombrine::decodeOneCallWeather(text);
  } catch (const ombrine::DecodingError&) {
    return 0;
  }
  const ombrine::Date moment = ombrine::Date::fromUnix(1726524000.0);
  const std::string encoded = ombrine::encodeOneCallWeather(weather, moment);
  const ombrine::OneCallWeather again = ombrine::decodeOneCallWeather(encoded);
  if (!(again == weather)) std::abort();
  if (ombrine::encodeOneCallWeather(again, moment) != encoded) std::abort();
  return 0;
}
