// Any text as a KML document: features or KMLParseError, nothing else.
#include <cstddef>
#include <cstdint>
#include <string_view>

#include "platform/icu_setup.hpp"
#include "storms/kml_reader.hpp"

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
  static const bool ready = (ombrine::useShippedTimeZoneData(), true);
  (void)ready;
  try {
    (void)ombrine::kmlFeatures(std::string_view(reinterpret_cast<const char*>(data), size),
                               ombrine::Date::fromUnix(1.7e9));
  } catch (const ombrine::KMLParseError&) {
  }
  return 0;
}
