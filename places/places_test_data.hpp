#pragma once
// Where the tests of places/ find their data: the shipped files in resources/places and the
// small sample files in testdata/place_index_fuzz (written by resources/places/generate).

#include <gtest/gtest.h>

#include <cstddef>
#include <cstdint>
#include <cstring>
#include <filesystem>
#include <fstream>
#include <functional>
#include <iterator>
#include <span>
#include <string>
#include <vector>

#include "platform/errors.hpp"

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

inline void putU16(std::vector<std::byte>& bytes, std::size_t offset, std::uint16_t value) {
  std::memcpy(bytes.data() + offset, &value, sizeof value);
}

inline void putU32(std::vector<std::byte>& bytes, std::size_t offset, std::uint32_t value) {
  std::memcpy(bytes.data() + offset, &value, sizeof value);
}

inline std::uint32_t getU32(const std::vector<std::byte>& bytes, std::size_t offset) {
  std::uint32_t value;
  std::memcpy(&value, bytes.data() + offset, sizeof value);
  return value;
}

// One way of damaging a good file, and the text the loader's error must contain.
struct Damage {
  const char* why;
  std::function<void(std::vector<std::byte>&)> apply;
  const char* message;
};

// Applies each damage to a copy of `good` and expects `load` to raise a FileError that holds
// `prefix` (which names the data) and the row's message.
inline void expectEachDamageRejected(const std::vector<std::byte>& good, std::span<const Damage> damages,
                                     const std::function<void(std::span<const std::byte>)>& load,
                                     const std::string& prefix) {
  for (const Damage& damage : damages) {
    SCOPED_TRACE(damage.why);
    std::vector<std::byte> bytes = good;
    damage.apply(bytes);
    try {
      load(bytes);
      ADD_FAILURE() << "no error";
    } catch (const FileError& e) {
      EXPECT_NE(std::string(e.what()).find(damage.message), std::string::npos) << e.what();
      EXPECT_NE(std::string(e.what()).find(prefix), std::string::npos) << e.what();
    }
  }
}

}  // namespace ombrine::testing
