// Fuzzes the Bureau of Meteorology decoders and the conversion behind them. The first byte
// picks the answer (0 place, 1 search, 2 observations, 3 hourly, 4 daily, 5 warnings; modulo
// 6), the rest is the body. Any bytes must either decode or raise DecodingError; whatever
// decodes must convert (or raise the empty-data error) without fault.

#include <cstddef>
#include <cstdint>
#include <string_view>

#include "core/values/errors.hpp"
#include "platform/icu_setup.hpp"
#include "providers/bom/bom_conversion.hpp"
#include "providers/bom/bom_wire.hpp"

using namespace ombrine;

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
  static const bool icuReady = (useShippedTimeZoneData(), true);
  (void)icuReady;
  if (size == 0) return 0;
  std::string_view body(reinterpret_cast<const char*>(data) + 1, size - 1);
  BureauAnswers answers;
  answers.daily.push_back(BOM::Daily::WeatherData{});
  try {
    switch (data[0] % 6) {
      case 0: (void)decodeBomLocationInfo(body); return 0;
      case 1: (void)decodeBomLocationSearch(body); return 0;
      case 2: answers.observations = decodeBomObservations(body).data; break;
      case 3: answers.hourly = decodeBomHourly(body).data; break;
      case 4: answers.daily = BOMPublishedDailyForecasts(decodeBomDaily(body)).forecasts; break;
      default: answers.warnings = decodeBomWarnings(body); break;
    }
  } catch (const DecodingError&) {
    return 0;
  }
  BureauConversionContext context{Location(-33.87, 151.21), *TimeZone::named("Australia/Sydney"), Date{}};
  try {
    (void)mergeBureauWithSystemWeather(convertBureau(answers, context), OneCallWeather{});
  } catch (const DomainError&) {
  }
  return 0;
}
