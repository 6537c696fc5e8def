// Any bytes through the three climate decoders and the cache form: each either decodes or
// raises DecodingError, and what decodes converts to months without crashing.

#include <cstddef>
#include <cstdint>
#include <string_view>

#include "core/values/errors.hpp"
#include "history/climate_decoding.hpp"
#include "history/climate_merge.hpp"

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
  const std::string_view text(reinterpret_cast<const char*>(data), size);
  using namespace ombrine;
  try {
    const auto months = historyMonths(decodeMeteostatNormals(text));
    const std::vector<std::vector<HistoryData::History>> sources{months, months};
    (void)isComplete(mergeHistory(sources));
  } catch (const DecodingError&) {
  }
  try {
    (void)decodeMeteostatStations(text);
  } catch (const DecodingError&) {
  }
  try {
    const auto months = historyMonths(decodeNASAPowerClimatology(text));
    (void)hasNonFiniteValue(months);
  } catch (const DecodingError&) {
  }
  try {
    const HistoryData history = decodeHistoryData(text);
    (void)encodeHistoryData(history);
  } catch (const DecodingError&) {
  } catch (const EncodingError&) {
  }
  return 0;
}
