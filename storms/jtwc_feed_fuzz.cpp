// Any bytes as the JTWC RSS feed: items and their references, or DecodingError.
#include <cstddef>
#include <cstdint>
#include <string_view>

#include "core/values/errors.hpp"
#include "platform/icu_setup.hpp"
#include "storms/jtwc_feed.hpp"

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
  static const bool ready = (ombrine::useShippedTimeZoneData(), true);
  (void)ready;
  try {
    const auto items = ombrine::parseJTWCFeed(std::string_view(reinterpret_cast<const char*>(data), size));
    (void)ombrine::referencesAndSections(items);
  } catch (const ombrine::DecodingError&) {
  }
  return 0;
}
