#include "tides/coast_resource.hpp"

#include <fcntl.h>
#include <sys/mman.h>
#include <sys/stat.h>
#include <unistd.h>

#include <bit>
#include <cerrno>
#include <cstdlib>
#include <cstring>
#include <string>
#include <system_error>

#include "platform/log.hpp"
#include "platform/paths.hpp"

namespace ombrine {

static_assert(std::endian::native == std::endian::little, "the coastline files are little-endian");

namespace {

bool isRegularFile(const std::filesystem::path& path) {
  std::error_code error;
  return std::filesystem::is_regular_file(path, error);
}

// Owns a mapping; made in place by make_shared so that no copy ever unmaps it.
struct Mapping {
  Mapping(void* at, std::size_t length) noexcept : address(at), size(length) {}
  Mapping(const Mapping&) = delete;
  Mapping& operator=(const Mapping&) = delete;
  ~Mapping() { ::munmap(address, size); }

  void* address;
  std::size_t size;
};

struct Descriptor {
  int fd;
  ~Descriptor() { ::close(fd); }
};

std::optional<std::vector<std::byte>> readAll(int fd, std::size_t size) {
  std::vector<std::byte> buffer(size);
  std::size_t done = 0;
  while (done < size) {
    const ssize_t got = ::pread(fd, buffer.data() + done, size - done, static_cast<off_t>(done));
    if (got < 0 && errno == EINTR) continue;
    if (got <= 0) return std::nullopt;
    done += static_cast<std::size_t>(got);
  }
  return buffer;
}

}  // namespace

std::optional<std::filesystem::path> findCoastResource(std::string_view name) {
  const std::string file = std::string(name) + ".bin";
  if (const char* dir = std::getenv(kGeospatialResourceDirVariable); dir && *dir) {
    auto candidate = std::filesystem::path(dir) / file;
    if (isRegularFile(candidate)) return candidate;
  }
  auto installed = resourceDirectory() / "coastline" / file;
  if (isRegularFile(installed)) return installed;
  return std::nullopt;
}

std::optional<CoastResourceBytes> readCoastResource(const std::filesystem::path& path) {
  const Descriptor file{::open(path.c_str(), O_RDONLY | O_CLOEXEC)};
  if (file.fd < 0) return std::nullopt;
  struct stat info {};
  if (::fstat(file.fd, &info) != 0 || !S_ISREG(info.st_mode)) return std::nullopt;
  const auto size = static_cast<std::size_t>(info.st_size);
  if (size == 0) return coastResourceFromBuffer({});
  if (void* address = ::mmap(nullptr, size, PROT_READ, MAP_PRIVATE, file.fd, 0); address != MAP_FAILED) {
    auto mapping = std::make_shared<const Mapping>(address, size);
    return CoastResourceBytes{mapping, {static_cast<const std::byte*>(address), size}};
  }
  auto buffer = readAll(file.fd, size);
  if (!buffer) return std::nullopt;
  return coastResourceFromBuffer(std::move(*buffer));
}

CoastResourceBytes coastResourceFromBuffer(std::vector<std::byte> buffer) {
  auto owned = std::make_shared<const std::vector<std::byte>>(std::move(buffer));
  return CoastResourceBytes{owned, {owned->data(), owned->size()}};
}

bool CoastFilterBounds::contains(double latitude, double longitude) const noexcept {
  if (!latitudeRange.contains(latitude)) return false;
  for (const auto& range : longitudeRanges) {
    if (range.contains(longitude)) return true;
  }
  return false;
}

bool CoastByteCursor::skipMagic(std::string_view magic) noexcept {
  if (remaining() < magic.size() || std::memcmp(bytes_.data() + offset_, magic.data(), magic.size()) != 0) {
    return false;
  }
  offset_ += magic.size();
  return true;
}

bool CoastByteCursor::skip(std::uint64_t count) noexcept {
  if (count > remaining()) return false;
  offset_ += static_cast<std::size_t>(count);
  return true;
}

namespace {

template <class T>
std::optional<T> load(std::span<const std::byte> bytes, std::size_t& offset) noexcept {
  if (bytes.size() - offset < sizeof(T)) return std::nullopt;
  T value;
  std::memcpy(&value, bytes.data() + offset, sizeof value);
  offset += sizeof value;
  return value;
}

}  // namespace

std::optional<std::uint32_t> CoastByteCursor::u32() noexcept { return load<std::uint32_t>(bytes_, offset_); }
std::optional<std::int32_t> CoastByteCursor::i32() noexcept { return load<std::int32_t>(bytes_, offset_); }
std::optional<double> CoastByteCursor::f64() noexcept { return load<double>(bytes_, offset_); }

std::optional<CoastClosedRange> CoastByteCursor::range() {
  if (remaining() < 16) return std::nullopt;
  const CoastClosedRange range{*f64(), *f64()};
  if (range.lower > range.upper) {
    throw CoastRangeError("range [" + std::to_string(range.lower) + ", " + std::to_string(range.upper) + "] at byte " +
                          std::to_string(offset_ - 16) + " has its lower bound above its upper bound");
  }
  return range;
}

std::optional<std::vector<CoastClosedRange>> CoastByteCursor::ranges() {
  const auto count = u32();
  // Checked before reserving, so a corrupt count cannot ask for gigabytes.
  if (!count || std::uint64_t{*count} * 16 > remaining()) return std::nullopt;
  std::vector<CoastClosedRange> result;
  result.reserve(*count);
  for (std::uint32_t i = 0; i < *count; ++i) result.push_back(*range());
  return result;
}

void stopOnInvertedRange(const std::filesystem::path& path, const CoastRangeError& error) noexcept {
  logf("{}: {}", path.string(), error.what());
  std::abort();
}

}  // namespace ombrine
