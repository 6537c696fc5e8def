// Fuzzes the state file decoder and the record string forms: any bytes decode or raise
// DecodingError, and a decoded state encodes to text that decodes to the same state.
#include <cstddef>
#include <cstdint>
#include <cstdlib>
#include <string_view>

#include "core/values/errors.hpp"
#include "core/values/value_json.hpp"
#include "notifications/weather_alert_notification_records.hpp"

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
  const std::string_view text(reinterpret_cast<const char*>(data), size);
  (void)ombrine::decodeWeatherAlertRecord(text);
  try {
    const auto state = ombrine::decodeWeatherAlertNotificationState(text);
    for (const auto& value : state.recordValues) {
      if (auto record = ombrine::decodeWeatherAlertRecord(value)) {
        try {
          if (!(ombrine::decodeWeatherAlertRecord(ombrine::encodeWeatherAlertRecord(*record)) == record)) std::abort();
        } catch (const ombrine::EncodingError&) {
        }
      }
    }
    if (!(ombrine::decodeWeatherAlertNotificationState(ombrine::encodeWeatherAlertNotificationState(state)) == state)) {
      std::abort();
    }
  } catch (const ombrine::DecodingError&) {
  } catch (const ombrine::EncodingError&) {
  }
  return 0;
}
