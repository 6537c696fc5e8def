#pragma once
// A whole file mapped read-only into memory.
//
// The mapping lives as long as the object (move-only). Pages are shared with every other
// process that maps the same file, so opening costs nothing per byte. Raises FileError naming
// the path when the file cannot be opened, measured or mapped. Thread-safe once constructed.

#include <cstddef>
#include <filesystem>
#include <span>

namespace ombrine {

class MappedFile {
 public:
  explicit MappedFile(const std::filesystem::path& path);
  ~MappedFile();
  MappedFile(MappedFile&& other) noexcept;
  MappedFile& operator=(MappedFile&& other) noexcept;
  MappedFile(const MappedFile&) = delete;
  MappedFile& operator=(const MappedFile&) = delete;

  std::span<const std::byte> bytes() const noexcept { return {data_, size_}; }
  const std::filesystem::path& path() const noexcept { return path_; }

 private:
  void release() noexcept;
  std::filesystem::path path_;
  const std::byte* data_ = nullptr;
  std::size_t size_ = 0;
};

}  // namespace ombrine
