// Fuzzes the decoder of notification spool files: any bytes either decode to an entry that
// encodes and decodes back to itself, or raise SpoolDecodingError.
#include <cstddef>
#include <cstdint>
#include <cstdlib>
#include <string_view>

#include "platform/linux/notification_spool.hpp"

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
  const std::string_view text(reinterpret_cast<const char*>(data), size);
  try {
    const auto entry = ombrine::decodeSpoolEntry(text);
    if (!(ombrine::decodeSpoolEntry(ombrine::encodeSpoolEntry(entry)) == entry)) std::abort();
  } catch (const ombrine::SpoolDecodingError&) {
  }
  return 0;
}
