#pragma once
// Where the tests of places/ find their data: the shipped files in resources/places and the
// small sample files in testdata/place_index_fuzz (written by resources/places/generate).

#include <cstddef>
#include <filesystem>
#include <fstream>
#include <iterator>
#include <vector>

namespace ombrine::testing {

inline std::filesystem::path shippedPlacesDirectory() {
  return std::filesystem::path(OMBRINE_TESTDATA_DIR) / ".." / ".." / "resources" / "places";
}

inline std::filesystem::path samplePlacesFile() {
  return std::filesystem::path(OMBRINE_TESTDATA_DIR) / "place_index_fuzz" / "sample_places.bin";
}

inline std::filesystem::path sampleTimeZonesFile() {
  return std::filesystem::path(OMBRINE_TESTDATA_DIR) / "place_index_fuzz" / "sample_timezones.bin";
}

inline std::vector<std::byte> readBytes(const std::filesystem::path& file) {
  std::ifstream in(file, std::ios::binary);
  std::vector<char> chars{std::istreambuf_iterator<char>(in), std::istreambuf_iterator<char>()};
  std::vector<std::byte> bytes(chars.size());
  for (std::size_t i = 0; i < chars.size(); ++i) bytes[i] = static_cast<std::byte>(chars[i]);
  return bytes;
}

}  // namespace ombrine::testing
