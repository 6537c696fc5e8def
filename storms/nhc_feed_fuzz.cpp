// Any bytes as a CurrentStorms.json body: a response or DecodingError, nothing else.
#include <cstddef>
#include <cstdint>
#include <string_view>

#include "core/values/errors.hpp"
#include "storms/nhc_feed.hpp"

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
  try {
    (void)ombrine::decodeNHCActiveStorms(std::string_view(reinterpret_cast<const char*>(data), size));
  } catch (const ombrine::DecodingError&) {
  }
  return 0;
}
