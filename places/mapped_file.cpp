#include "places/mapped_file.hpp"

#include <fcntl.h>
#include <sys/mman.h>
#include <sys/stat.h>
#include <unistd.h>

#include <cerrno>
#include <cstring>
#include <string>
#include <utility>

#include "platform/errors.hpp"

namespace ombrine {

namespace {

[[noreturn]] void fail(const std::filesystem::path& path, const char* what, int error) {
  throw FileError(path.string() + ": cannot " + what + ": " + std::strerror(error));
}

}  // namespace

MappedFile::MappedFile(const std::filesystem::path& path) : path_(path) {
  const int fd = ::open(path.c_str(), O_RDONLY | O_CLOEXEC);
  if (fd < 0) fail(path, "open", errno);
  struct stat info {};
  if (::fstat(fd, &info) != 0) {
    const int error = errno;
    ::close(fd);
    fail(path, "read the size of", error);
  }
  if (!S_ISREG(info.st_mode)) {
    ::close(fd);
    throw FileError(path.string() + ": not a regular file");
  }
  size_ = static_cast<std::size_t>(info.st_size);
  if (size_ > 0) {
    void* mapped = ::mmap(nullptr, size_, PROT_READ, MAP_PRIVATE, fd, 0);
    if (mapped == MAP_FAILED) {
      const int error = errno;
      ::close(fd);
      fail(path, "map", error);
    }
    data_ = static_cast<const std::byte*>(mapped);
  }
  ::close(fd);
}

MappedFile::~MappedFile() { release(); }

MappedFile::MappedFile(MappedFile&& other) noexcept
    : path_(std::move(other.path_)), data_(std::exchange(other.data_, nullptr)), size_(std::exchange(other.size_, 0)) {}

MappedFile& MappedFile::operator=(MappedFile&& other) noexcept {
  if (this != &other) {
    release();
    path_ = std::move(other.path_);
    data_ = std::exchange(other.data_, nullptr);
    size_ = std::exchange(other.size_, 0);
  }
  return *this;
}

void MappedFile::release() noexcept {
  if (data_) ::munmap(const_cast<std::byte*>(data_), size_);
  data_ = nullptr;
  size_ = 0;
}

}  // namespace ombrine
