// Trip cache files and the legacy trip dictionary are outside bytes: another process, an older
// version, a crash or a user may leave anything there. The decoders must raise DecodingError or
// return a record that encodes and decodes back to itself, never crash.

#include <cstddef>
#include <cstdint>
#include <cstdlib>
#include <string_view>

#include "core/values/errors.hpp"
#include "core/values/value_json.hpp"
#include "persistence/trip_cache_store.hpp"

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
  using namespace ombrine;
  const std::string_view text(reinterpret_cast<const char*>(data), size);
  try {
    const TripCacheRecord record = decodeTripCacheRecord(text);
    const Date moment = Date::fromReference(0.0);
    if (decodeTripCacheRecord(encodeTripCacheRecord(record, moment)) != record) std::abort();
    (void)mergedRecord(record, record);
  } catch (const DecodingError&) {
  } catch (const EncodingError&) {
  }
  try {
    (void)decodeLegacyTripCache(text);
  } catch (const DecodingError&) {
  }
  return 0;
}
