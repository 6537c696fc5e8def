#pragma once
// The smallest ZIP writer that makes a valid KMZ: stored (uncompressed) entries with their
// CRC-32, a central directory and its end record. Pure; thread-safe.

#include <cstdint>
#include <string>
#include <string_view>
#include <utility>
#include <vector>

namespace ombrine::sim {

std::uint32_t crc32(std::string_view data);

// An archive holding `entries` (name, bytes) in order. Names and sizes must fit ZIP's 16- and
// 32-bit fields (KMZ files are tiny).
std::string storedZip(const std::vector<std::pair<std::string, std::string>>& entries);

}  // namespace ombrine::sim
