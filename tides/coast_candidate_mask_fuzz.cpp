// Feeds arbitrary bytes to the candidate mask reader and queries what it accepts.
#include <cstdint>
#include <cstring>
#include <vector>

#include "tides/coast_candidate_mask.hpp"

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
  std::vector<std::byte> bytes(size);
  if (size > 0) std::memcpy(bytes.data(), data, size);
  try {
    auto loaded = ombrine::CoastCandidateMask::parse(ombrine::coastResourceFromBuffer(std::move(bytes)));
    if (!loaded) return 0;
    const ombrine::CoastCandidateMask mask(std::move(*loaded));
    for (double latitude : {-90.0, -33.9, 0.0, 10.5, 51.1, 90.0}) {
      for (double longitude : {-180.0, -63.6, 0.0, 1.3, 179.99, 180.0}) (void)mask.contains(latitude, longitude);
    }
  } catch (const ombrine::CoastRangeError&) {
    // An inverted range: the loader stops the process for it, the parser reports it.
  }
  return 0;
}
