// Fuzzes the wire date decoder: any bytes either decode or raise DecodingError, and a decoded
// whole-second date survives formatting and decoding again unchanged.

#include <cstddef>
#include <cstdint>
#include <cstdlib>
#include <string_view>

#include "core/values/errors.hpp"
#include "core/values/iso8601.hpp"

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
  const std::string_view text(reinterpret_cast<const char*>(data), size);
  ombrine::Date date;
  try {
    date = ombrine::decodeISO8601Date(text);
  } catch (const ombrine::DecodingError&) {
    return 0;
  }
  // Offsets can carry a date just outside the years the formatter writes.
  constexpr double kYear1 = -62135596800.0;
  constexpr double kYear10000 = 253402300800.0;
  if (date.unixSeconds() < kYear1 || date.unixSeconds() >= kYear10000) return 0;
  if (ombrine::parseInternetDateTime(text, false)) {
    if (ombrine::decodeISO8601Date(ombrine::iso8601String(date)) != date) std::abort();
  }
  ombrine::decodeISO8601Date(ombrine::iso8601String(date, true));
  return 0;
}
