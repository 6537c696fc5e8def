// Fuzz target for the JSON form of key-value dictionaries: any bytes either decode or raise
// std::invalid_argument, and what decodes re-encodes to a text that decodes to the same text.
#include <cstddef>
#include <cstdint>
#include <cstdlib>
#include <stdexcept>
#include <string>
#include <string_view>

#include "platform/key_value_store_json.hpp"

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
  const std::string_view text(reinterpret_cast<const char*>(data), size);
  try {
    const ombrine::StoreDictionary values = ombrine::decodeStoreDictionaryJson(text);
    const std::string once = ombrine::encodeStoreDictionaryJson(values);
    const std::string twice = ombrine::encodeStoreDictionaryJson(ombrine::decodeStoreDictionaryJson(once));
    if (once != twice) std::abort();
  } catch (const std::invalid_argument&) {
  }
  return 0;
}
