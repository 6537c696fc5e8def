#pragma once
// Reading the generated little-endian files (places.bin, timezones.bin): integer loads that
// never assume alignment, and the checks every section of a header goes through.
// Internal to places/.

#include <bit>
#include <cstddef>
#include <cstdint>
#include <cstring>
#include <optional>
#include <span>
#include <string>
#include <string_view>

#include "platform/errors.hpp"

namespace ombrine::binary {

static_assert(std::endian::native == std::endian::little, "the place files are little-endian");

inline std::uint16_t u16(const std::byte* at) noexcept {
  std::uint16_t value;
  std::memcpy(&value, at, sizeof value);
  return value;
}

inline std::uint32_t u32(const std::byte* at) noexcept {
  std::uint32_t value;
  std::memcpy(&value, at, sizeof value);
  return value;
}

inline std::uint32_t u24(const std::byte* at) noexcept {
  return static_cast<std::uint32_t>(at[0]) | static_cast<std::uint32_t>(at[1]) << 8 |
         static_cast<std::uint32_t>(at[2]) << 16;
}

// Raises FileError("<label>: corrupt <kind>: <what>").
[[noreturn]] inline void corrupt(std::string_view label, std::string_view kind, std::string_view what) {
  throw FileError(std::string(label) + ": corrupt " + std::string(kind) + ": " + std::string(what));
}

// A file's bytes with the name used in its error messages.
struct File {
  std::span<const std::byte> bytes;
  std::string label;
  std::string_view kind;  // "place index", "time-zone grid"

  [[noreturn]] void fail(std::string_view what) const { corrupt(label, kind, what); }

  std::uint32_t u32At(std::size_t offset) const noexcept { return u32(bytes.data() + offset); }

  // The section whose {offset, size} pair is stored at `entry` in the header: inside the file,
  // 4-byte aligned, and exactly `count` records of `recordSize` bytes (no count for sections of
  // variable length).
  std::span<const std::byte> section(std::size_t entry, std::string_view name, std::size_t recordSize,
                                     std::optional<std::uint64_t> count) const {
    const std::uint64_t offset = u32At(entry);
    const std::uint64_t size = u32At(entry + 4);
    if (offset % 4 != 0) fail(std::string(name) + " section is misaligned");
    if (offset + size > bytes.size()) fail(std::string(name) + " section runs past the end of the file");
    if (count && size != *count * recordSize) {
      fail(std::string(name) + " section has " + std::to_string(size) + " bytes, expected " +
           std::to_string(*count * recordSize));
    }
    return bytes.subspan(offset, size);
  }

  // The NUL-terminated string pool: non-empty and ending in NUL, so that every offset inside
  // it starts a terminated string.
  std::span<const std::byte> stringPool(std::size_t entry) const {
    auto pool = section(entry, "string", 1, std::nullopt);
    if (pool.empty() || pool.back() != std::byte{0}) fail("string pool is not terminated");
    return pool;
  }
};

// The string at `offset` of a validated pool.
inline std::string_view string(const File& file, std::span<const std::byte> pool, std::uint32_t offset) {
  if (offset >= pool.size()) file.fail("string reference " + std::to_string(offset) + " is outside the pool");
  return std::string_view(reinterpret_cast<const char*>(pool.data() + offset));
}

// Checks the fields every header starts with: magic (8 bytes), version (u32 at 8), header
// size (u32 at 12) and the size of the whole file (u32 at 16).
inline void checkHeader(const File& file, std::string_view magic, std::uint32_t version, std::size_t headerSize) {
  if (file.bytes.size() < headerSize) file.fail("the file is shorter than its header");
  if (std::memcmp(file.bytes.data(), magic.data(), magic.size()) != 0) file.fail("wrong magic number");
  if (file.u32At(8) != version) {
    file.fail("format version " + std::to_string(file.u32At(8)) + " (this program reads version " +
              std::to_string(version) + ")");
  }
  if (file.u32At(12) != headerSize) file.fail("unexpected header size");
  if (file.u32At(16) != file.bytes.size()) {
    file.fail("the file has " + std::to_string(file.bytes.size()) + " bytes, its header says " +
              std::to_string(file.u32At(16)) + " (truncated or padded)");
  }
}

}  // namespace ombrine::binary
