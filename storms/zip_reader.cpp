#include "storms/zip_reader.hpp"

#include <libdeflate.h>

#include <algorithm>
#include <cctype>
#include <memory>
#include <optional>

namespace ombrine {

namespace {

constexpr std::uint32_t kEndOfDirectory = 0x06054b50;
constexpr std::uint32_t kZip64Locator = 0x07064b50;
constexpr std::uint32_t kDirectoryEntry = 0x02014b50;
constexpr std::uint32_t kLocalHeader = 0x04034b50;
constexpr std::size_t kEndRecordSize = 22;
// The end record plus the longest comment it can announce: a record further back than that
// cannot be the end record of these bytes.
constexpr std::size_t kMaxEndSearch = kEndRecordSize + 65535;
constexpr std::size_t kDirectoryEntrySize = 46;
constexpr std::size_t kLocalHeaderSize = 30;
constexpr std::uint32_t kZip64Marker = 0xffffffff;

std::uint16_t read16(std::string_view data, std::size_t at) {
  const auto* p = reinterpret_cast<const unsigned char*>(data.data() + at);
  return static_cast<std::uint16_t>(p[0] | (p[1] << 8));
}

std::uint32_t read32(std::string_view data, std::size_t at) {
  const auto* p = reinterpret_cast<const unsigned char*>(data.data() + at);
  return static_cast<std::uint32_t>(p[0]) | (static_cast<std::uint32_t>(p[1]) << 8) |
         (static_cast<std::uint32_t>(p[2]) << 16) | (static_cast<std::uint32_t>(p[3]) << 24);
}

// `length` bytes from `at` lie inside `size` (without overflowing).
bool fits(std::size_t size, std::uint64_t at, std::uint64_t length) { return at <= size && length <= size - at; }

std::optional<std::size_t> findEndRecord(std::string_view data) {
  if (data.size() < kEndRecordSize) return std::nullopt;
  const std::size_t last = data.size() - kEndRecordSize;
  const std::size_t first = data.size() > kMaxEndSearch ? data.size() - kMaxEndSearch : 0;
  for (std::size_t at = last + 1; at-- > first;) {
    if (read32(data, at) == kEndOfDirectory) return at;
  }
  return std::nullopt;
}

std::string lowered(std::string_view text) {
  std::string out(text);
  for (char& c : out) c = static_cast<char>(std::tolower(static_cast<unsigned char>(c)));
  return out;
}

bool endsWith(std::string_view text, std::string_view suffix) {
  return text.size() >= suffix.size() && text.substr(text.size() - suffix.size()) == suffix;
}

struct DecompressorDeleter {
  void operator()(libdeflate_decompressor* d) const { libdeflate_free_decompressor(d); }
};

std::variant<std::string, ZipRefusal> inflate(std::string_view compressed, std::uint32_t declared) {
  std::unique_ptr<libdeflate_decompressor, DecompressorDeleter> decompressor(libdeflate_alloc_decompressor());
  if (!decompressor) return ZipRefusal::corrupt;
  // The buffer grows from a size that fits most KML, never past what the entry declared: an
  // entry that would inflate beyond its declaration is refused without inflating the rest.
  const std::size_t limit = std::min<std::size_t>(declared, kMaxEntryBytes);
  std::size_t capacity = std::min(kFirstInflateBuffer, limit);
  std::string out;
  for (;;) {
    out.resize(capacity);
    std::size_t produced = 0;
    const auto result = libdeflate_deflate_decompress(decompressor.get(), compressed.data(), compressed.size(),
                                                      out.data(), out.size(), &produced);
    if (result == LIBDEFLATE_SUCCESS) {
      out.resize(produced);
      return out;
    }
    if (result != LIBDEFLATE_INSUFFICIENT_SPACE) return ZipRefusal::corrupt;
    if (capacity >= limit) return ZipRefusal::sizeMismatch;
    capacity = std::min(capacity * 2, limit);
  }
}

}  // namespace

const char* describe(ZipRefusal refusal) noexcept {
  switch (refusal) {
    case ZipRefusal::outsideArchive: return "entry lies outside the archive";
    case ZipRefusal::unsupportedMethod: return "unsupported compression method";
    case ZipRefusal::encrypted: return "encrypted entry";
    case ZipRefusal::zip64: return "ZIP64 entry";
    case ZipRefusal::unsafeName: return "unsafe entry name";
    case ZipRefusal::tooLarge: return "entry too large";
    case ZipRefusal::suspiciousRatio: return "compression ratio too high";
    case ZipRefusal::sizeMismatch: return "entry size differs from its declaration";
    case ZipRefusal::corrupt: return "corrupt entry";
    case ZipRefusal::notUtf8: return "entry is not UTF-8";
  }
  return "refused entry";
}

bool isValidUtf8(std::string_view text) noexcept {
  const auto* p = reinterpret_cast<const unsigned char*>(text.data());
  const std::size_t n = text.size();
  std::size_t i = 0;
  while (i < n) {
    const unsigned char c = p[i];
    if (c < 0x80) {
      ++i;
      continue;
    }
    std::size_t length;
    std::uint32_t code;
    if (c >= 0xc2 && c <= 0xdf) {
      length = 2;
      code = c & 0x1f;
    } else if (c >= 0xe0 && c <= 0xef) {
      length = 3;
      code = c & 0x0f;
    } else if (c >= 0xf0 && c <= 0xf4) {
      length = 4;
      code = c & 0x07;
    } else {
      return false;
    }
    if (n - i < length) return false;
    for (std::size_t k = 1; k < length; ++k) {
      if ((p[i + k] & 0xc0) != 0x80) return false;
      code = (code << 6) | (p[i + k] & 0x3f);
    }
    if ((length == 3 && code < 0x800) || (length == 4 && (code < 0x10000 || code > 0x10ffff)) ||
        (code >= 0xd800 && code <= 0xdfff)) {
      return false;
    }
    i += length;
  }
  return true;
}

bool isSafeZipName(std::string_view name) noexcept {
  if (name.empty() || name.front() == '/' || name.find('\\') != std::string_view::npos ||
      name.find('\0') != std::string_view::npos) {
    return false;
  }
  if (name.size() >= 2 && name[1] == ':') return false;
  std::size_t start = 0;
  while (start <= name.size()) {
    const std::size_t end = std::min(name.find('/', start), name.size());
    if (name.substr(start, end - start) == "..") return false;
    start = end + 1;
  }
  return true;
}

std::vector<ZipEntry> zipEntries(std::string_view data, const std::function<bool()>& cancelled) {
  std::vector<ZipEntry> entries;
  if (data.size() > kMaxArchiveBytes) return entries;
  const auto end = findEndRecord(data);
  if (!end) return entries;
  if (*end >= 20 && read32(data, *end - 20) == kZip64Locator) return entries;
  const std::uint32_t size = read32(data, *end + 12);
  const std::uint32_t offset = read32(data, *end + 16);
  if (size == kZip64Marker || offset == kZip64Marker || read16(data, *end + 10) == 0xffff) return entries;
  if (!fits(data.size(), offset, size)) return entries;
  const std::string_view directory = data.substr(offset, size);
  std::size_t at = 0;
  while (fits(directory.size(), at, kDirectoryEntrySize)) {
    if (cancelled && cancelled()) break;
    if (read32(directory, at) != kDirectoryEntry) break;
    ZipEntry entry;
    entry.flags = read16(directory, at + 8);
    entry.compMethod = read16(directory, at + 10);
    entry.crc32 = read32(directory, at + 16);
    entry.compSize = read32(directory, at + 20);
    entry.uncompSize = read32(directory, at + 24);
    const std::size_t nameLength = read16(directory, at + 28);
    const std::size_t extraLength = read16(directory, at + 30);
    const std::size_t commentLength = read16(directory, at + 32);
    entry.localHeaderOffset = read32(directory, at + 42);
    const std::uint64_t nameAt = std::uint64_t(offset) + at + kDirectoryEntrySize;
    if (!fits(data.size(), nameAt, nameLength)) break;
    const std::string_view name = data.substr(nameAt, nameLength);
    // A name that is not UTF-8 is not ASCII either, so it reads as empty text.
    entry.name = isValidUtf8(name) ? std::string(name) : std::string();
    entries.push_back(std::move(entry));
    at += kDirectoryEntrySize + nameLength + extraLength + commentLength;
  }
  return entries;
}

std::variant<std::string, ZipRefusal> zipEntryData(std::string_view data, const ZipEntry& entry) {
  if (entry.compSize == kZip64Marker || entry.uncompSize == kZip64Marker || entry.localHeaderOffset == kZip64Marker) {
    return ZipRefusal::zip64;
  }
  if (!isSafeZipName(entry.name)) return ZipRefusal::unsafeName;
  if (entry.flags & 0x1) return ZipRefusal::encrypted;
  if (entry.compMethod != 0 && entry.compMethod != 8) return ZipRefusal::unsupportedMethod;
  if (entry.uncompSize > kMaxEntryBytes) return ZipRefusal::tooLarge;
  if (entry.compMethod == 8 && entry.uncompSize > std::uint64_t(entry.compSize) * kMaxCompressionRatio &&
      entry.uncompSize > kFirstInflateBuffer) {
    return ZipRefusal::suspiciousRatio;
  }
  if (!fits(data.size(), entry.localHeaderOffset, kLocalHeaderSize) ||
      read32(data, entry.localHeaderOffset) != kLocalHeader) {
    return ZipRefusal::outsideArchive;
  }
  const std::uint64_t start = std::uint64_t(entry.localHeaderOffset) + kLocalHeaderSize +
                              read16(data, entry.localHeaderOffset + 26) + read16(data, entry.localHeaderOffset + 28);
  if (!fits(data.size(), start, entry.compSize)) return ZipRefusal::outsideArchive;
  const std::string_view raw = data.substr(start, entry.compSize);
  std::string bytes;
  if (entry.compMethod == 0) {
    if (entry.compSize != entry.uncompSize) return ZipRefusal::sizeMismatch;
    bytes.assign(raw);
  } else {
    auto inflated = inflate(raw, entry.uncompSize);
    if (auto* refusal = std::get_if<ZipRefusal>(&inflated)) return *refusal;
    bytes = std::move(std::get<std::string>(inflated));
    if (bytes.size() != entry.uncompSize) return ZipRefusal::sizeMismatch;
  }
  if (libdeflate_crc32(0, bytes.data(), bytes.size()) != entry.crc32) return ZipRefusal::corrupt;
  return bytes;
}

std::vector<std::pair<std::string, std::string>> kmlTexts(std::string_view kmz,
                                                          const std::function<bool()>& cancelled) {
  std::vector<ZipEntry> entries = zipEntries(kmz, cancelled);
  std::erase_if(entries, [](const ZipEntry& e) { return !endsWith(lowered(e.name), ".kml"); });
  std::stable_sort(entries.begin(), entries.end(), [](const ZipEntry& a, const ZipEntry& b) {
    const std::string la = lowered(a.name);
    const std::string lb = lowered(b.name);
    const bool docA = endsWith(la, "doc.kml");
    const bool docB = endsWith(lb, "doc.kml");
    if (docA != docB) return docA;
    return la < lb;
  });
  std::vector<std::pair<std::string, std::string>> texts;
  for (const auto& entry : entries) {
    auto data = zipEntryData(kmz, entry);
    auto* text = std::get_if<std::string>(&data);
    if (!text || !isValidUtf8(*text)) continue;
    texts.emplace_back(entry.name, std::move(*text));
  }
  return texts;
}

}  // namespace ombrine
