// Fuzz target for the binary property-list decoder: any bytes decode or raise
// PropertyListError, and what decodes encodes to a document that decodes to the same value.
#include <cmath>
#include <cstddef>
#include <cstdint>
#include <cstdlib>
#include <string>
#include <string_view>

#include "persistence/property_list.hpp"

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
  const std::string_view bytes(reinterpret_cast<const char*>(data), size);
  try {
    const ombrine::StoreValue value = ombrine::decodeBinaryPropertyList(bytes);
    const std::string once = ombrine::encodeBinaryPropertyList(value);
    const std::string twice = ombrine::encodeBinaryPropertyList(ombrine::decodeBinaryPropertyList(once));
    if (once != twice) std::abort();
  } catch (const ombrine::PropertyListError&) {
  }
  return 0;
}
