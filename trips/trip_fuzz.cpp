// Feeds arbitrary bytes to the trip list decoder. Anything but a list or a DecodingError is a
// bug; a decoded list must encode, decode back to an equal list, and encode to the same text.

#include <cstdint>
#include <cstdlib>
#include <string>
#include <string_view>

#include "platform/icu_setup.hpp"
#include "trips/trip.hpp"

extern "C" int LLVMFuzzerInitialize(int*, char***) {
  ombrine::useShippedTimeZoneData();
  return 0;
}

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, size_t size) {
  const std::string_view text(reinterpret_cast<const char*>(data), size);
  std::vector<ombrine::Trip> trips;
  try {
    trips = ombrine::decodeTrips(text);
  } catch (const ombrine::DecodingError&) {
    return 0;
  }
  std::string encoded;
  try {
    encoded = ombrine::encodeTrips(trips);
  } catch (const ombrine::EncodingError&) {
    return 0;  // a decoded number can still be too large to be finite after rounding
  }
  const std::vector<ombrine::Trip> again = ombrine::decodeTrips(encoded);
  if (!(again == trips) || ombrine::encodeTrips(again) != encoded) std::abort();
  return 0;
}
