// Any bytes as a KMZ: the reader must never read outside them, loop or allocate without bound.
#include <cstddef>
#include <cstdint>
#include <string_view>

#include "storms/zip_reader.hpp"

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
  const std::string_view archive(reinterpret_cast<const char*>(data), size);
  for (const auto& entry : ombrine::zipEntries(archive)) (void)ombrine::zipEntryData(archive, entry);
  (void)ombrine::kmlTexts(archive);
  return 0;
}
