// Any bytes as a JTWC warning text (the caller has checked UTF-8) and as a track KMZ.
#include <cstddef>
#include <cstdint>
#include <string_view>

#include "storms/jtwc_storms.hpp"
#include "storms/zip_reader.hpp"

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
  const std::string_view text(reinterpret_cast<const char*>(data), size);
  const auto now = ombrine::Date::fromUnix(1.7e9);
  if (ombrine::isValidUtf8(text)) (void)ombrine::readJTWCWarningText(text, now, now);
  (void)ombrine::summarizeJTWCTrack(text, now, now);
  return 0;
}
