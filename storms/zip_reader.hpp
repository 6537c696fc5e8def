#pragma once
// A small reader for the ZIP containers that storm overlays arrive in (KMZ).
//
// Only what a KMZ needs: the central directory, stored (method 0) and deflated (method 8)
// entries. Sizes are taken from the central directory, so entries written with a trailing data
// descriptor (general flag bit 3, zero sizes in the local header) read like any other. Every
// integer is little-endian.
//
// Archives come from the network, so the reader trusts nothing it is told:
//  - an archive over kMaxArchiveBytes, a ZIP64 archive or entry, an encrypted entry, or a
//    central directory that leaves the data refuses (the archive or the entry);
//  - an entry whose name could escape a folder ("../x.kml", "/x.kml", "C:x.kml", a backslash
//    or a NUL) is refused although nothing is ever written to disk;
//  - an entry declaring more than kMaxEntryBytes, or inflating to anything but its declared
//    size, or to more than kMaxCompressionRatio times its compressed size, or whose CRC-32
//    differs, is refused: this is what stops a ZIP bomb before the memory goes.
// A refused or unreadable entry is skipped; it never fails the whole archive.
//
// Pure functions of the bytes; thread-safe. Nothing raises for bad input.

#include <cstddef>
#include <cstdint>
#include <functional>
#include <string>
#include <string_view>
#include <utility>
#include <variant>
#include <vector>

namespace ombrine {

struct ZipEntry {
  std::string name;
  std::uint16_t compMethod = 0;
  std::uint32_t compSize = 0;
  std::uint32_t uncompSize = 0;
  std::uint32_t localHeaderOffset = 0;
  std::uint32_t crc32 = 0;
  std::uint16_t flags = 0;

  bool operator==(const ZipEntry&) const = default;
};

inline constexpr std::size_t kMaxArchiveBytes = 64u << 20;
inline constexpr std::size_t kMaxEntryBytes = 16u << 20;        // 16777216
inline constexpr std::size_t kFirstInflateBuffer = 256u << 10;  // 262144
inline constexpr std::uint64_t kMaxCompressionRatio = 200;

// Why an entry was not read.
enum class ZipRefusal {
  outsideArchive,     // its local header or data does not lie inside the bytes
  unsupportedMethod,  // neither stored nor deflated
  encrypted,
  zip64,
  unsafeName,
  tooLarge,         // declares more than kMaxEntryBytes
  suspiciousRatio,  // declares more than kMaxCompressionRatio times its compressed size
  sizeMismatch,     // inflates to another size than declared (or stored sizes differ)
  corrupt,          // the deflate stream or the CRC-32 is bad
  notUtf8,
};

const char* describe(ZipRefusal refusal) noexcept;

// The entries of the central directory, in directory order. An archive without an end record
// (searched in the last 65558 bytes), with a directory outside the bytes, over
// kMaxArchiveBytes or in ZIP64 form gives nothing; a walk that meets a bad record ends with the
// entries found so far. `cancelled` (optional) is asked before every record and ends the walk
// early.
std::vector<ZipEntry> zipEntries(std::string_view archive, const std::function<bool()>& cancelled = {});

// The bytes of one entry, inflated and checked, or why not.
std::variant<std::string, ZipRefusal> zipEntryData(std::string_view archive, const ZipEntry& entry);

// True when `name` could not leave the folder it is unpacked in.
bool isSafeZipName(std::string_view name) noexcept;

// The KML documents of a KMZ as (name, text): the ".kml" entries (any case), "doc.kml" ones
// first, then by lower-cased name; entries that are refused or are not UTF-8 are left out.
std::vector<std::pair<std::string, std::string>> kmlTexts(std::string_view kmz,
                                                          const std::function<bool()>& cancelled = {});

// True when `text` is well-formed UTF-8 (no overlong forms, no surrogates, nothing above U+10FFFF).
bool isValidUtf8(std::string_view text) noexcept;

}  // namespace ombrine
