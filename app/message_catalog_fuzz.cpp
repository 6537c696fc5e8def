// Feeds arbitrary bytes to the message catalogue reader: it may accept them or raise FileError,
// never read outside them or crash; what it accepts answers lookups.

#include <cstddef>
#include <cstdint>
#include <string_view>

#include "app/message_catalog.hpp"
#include "platform/errors.hpp"

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
  try {
    const auto catalog =
        ombrine::app::MessageCatalog::fromBytes(std::string_view(reinterpret_cast<const char*>(data), size), "fuzz");
    catalog("Now");
    catalog("");
  } catch (const ombrine::FileError&) {
  }
  return 0;
}
