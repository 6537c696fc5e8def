// Feeds arbitrary bytes to the forecast record decoders. Anything but a record or a
// DecodingError is a bug. The streaming and the DOM decoder must agree; a record must survive
// encode and decode unchanged, and encode to the same text twice.

#include <cstdint>
#include <cstdlib>
#include <optional>
#include <string>
#include <string_view>

#include "core/record/one_call_weather_json.hpp"
#include "platform/icu_setup.hpp"

namespace {

template <class Decode>
std::optional<ombrine::OneCallWeather> attempt(Decode&& decode) {
  try {
    return decode();
  } catch (const ombrine::DecodingError&) {
    return std::nullopt;
  }
}

}  // namespace

extern "C" int LLVMFuzzerInitialize(int*, char***) {
  ombrine::useShippedTimeZoneData();
  return 0;
}

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
  using namespace ombrine;
  const std::string_view text(reinterpret_cast<const char*>(data), size);
  const auto streamed = attempt([&] { return decodeOneCallWeather(text); });
  const auto dom = attempt([&] { return decodeOneCallWeather(parseJson(text), JsonPath()); });
  if (streamed && !(dom && *dom == *streamed)) std::abort();
  if (!dom) return 0;
  if (!streamed) {
    // The streaming decoder alone refuses a key given twice with an invalid earlier value. The
    // DOM's own text has no repeated keys, so there it must agree.
    const auto again = attempt([&] { return decodeOneCallWeather(serializeJson(parseJson(text))); });
    if (!again || !(*again == *dom)) std::abort();
  }

  const Date moment = Date::fromUnix(1726524000.0);
  const std::string encoded = encodeOneCallWeather(*dom, moment);
  const OneCallWeather decoded = decodeOneCallWeather(encoded);
  if (!(decoded == *dom)) std::abort();
  if (encodeOneCallWeather(decoded, moment) != encoded) std::abort();
  return 0;
}
