// Feeds arbitrary bytes to every decoder of the tide services' replies and of the tide cache
// files. Each must either decode or raise DecodingError; nothing else may escape.

#include <cstddef>
#include <cstdint>
#include <string_view>

#include "core/values/errors.hpp"
#include "tides/tide_disk_cache.hpp"
#include "tides/tide_feeds.hpp"

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
  const std::string_view text(reinterpret_cast<const char*>(data), size);
  auto attempt = [&](auto decode) {
    try {
      decode();
    } catch (const ombrine::DecodingError&) {
    }
  };
  attempt([&] { ombrine::decodeNOAAStations(text); });
  attempt([&] {
    for (const auto& row : ombrine::decodeNOAAPredictions(text)) {
      ombrine::parseNOAAPredictionTime(row.time);
      ombrine::parseDecimal(row.value);
    }
  });
  attempt([&] { ombrine::decodeCHSStations(text); });
  attempt([&] { ombrine::decodeCHSDataPoints(text); });
  attempt([&] { ombrine::decodeTideDataPayload(text, 0.0); });
  return 0;
}
