#include "platform/linux/file_key_value_store_support.hpp"

#include <fcntl.h>
#include <sys/file.h>
#include <sys/stat.h>
#include <unistd.h>

#include <cerrno>
#include <cstring>
#include <ctime>
#include <stdexcept>
#include <string>

#include <fmt/format.h>

#include "platform/atomic_file.hpp"
#include "platform/errors.hpp"
#include "platform/key_value_store_json.hpp"
#include "platform/log.hpp"

namespace ombrine::detail {

namespace {

[[noreturn]] void fail(const char* what, const std::filesystem::path& path, int error) {
  throw FileError(std::string(what) + " " + path.string() + ": " + std::strerror(error));
}

// "20261123T144501Z", the moment the corrupt content was written.
std::string utcStamp(std::int64_t nanoseconds) {
  const std::time_t seconds = static_cast<std::time_t>(nanoseconds / 1000000000);
  std::tm parts{};
  ::gmtime_r(&seconds, &parts);
  char buffer[32];
  std::strftime(buffer, sizeof buffer, "%Y%m%dT%H%M%SZ", &parts);
  return buffer;
}

std::filesystem::path unusedSetAsidePath(const std::filesystem::path& file, std::int64_t modified) {
  const std::string base = file.filename().string() + ".corrupt-" + utcStamp(modified);
  std::filesystem::path candidate = file.parent_path() / base;
  for (int n = 2; std::filesystem::exists(candidate); ++n) {
    candidate = file.parent_path() / fmt::format("{}-{}", base, n);
  }
  return candidate;
}

}  // namespace

FileSignature fileSignature(const std::filesystem::path& file) {
  struct stat st {};
  if (::stat(file.c_str(), &st) != 0) {
    if (errno == ENOENT) return FileSignature{};
    fail("cannot read the attributes of", file, errno);
  }
  return FileSignature{true, st.st_dev, st.st_ino, st.st_size,
                       static_cast<std::int64_t>(st.st_mtim.tv_sec) * 1000000000 + st.st_mtim.tv_nsec};
}

std::filesystem::path lockFilePath(const std::filesystem::path& file) {
  std::filesystem::path lock = file;
  lock += ".lock";
  return lock;
}

DictionaryFileLock::DictionaryFileLock(const std::filesystem::path& file) {
  const std::filesystem::path lock = lockFilePath(file);
  std::error_code ec;
  std::filesystem::create_directories(lock.parent_path(), ec);
  if (ec) fail("cannot create folder", lock.parent_path(), ec.value());
  fd_ = ::open(lock.c_str(), O_RDWR | O_CREAT | O_CLOEXEC, 0644);
  if (fd_ < 0) fail("cannot open lock file", lock, errno);
  while (::flock(fd_, LOCK_EX) != 0) {
    if (errno == EINTR) continue;
    const int error = errno;
    ::close(fd_);
    fail("cannot lock", lock, error);
  }
}

DictionaryFileLock::~DictionaryFileLock() {
  if (fd_ >= 0) ::close(fd_);
}

DictionaryFile readDictionaryFile(const std::filesystem::path& file, bool setAsideCorrupt) {
  // The signature first: if the file is replaced between the two calls, the next read sees a
  // signature that differs from this one and reads again.
  DictionaryFile result;
  result.signature = fileSignature(file);
  const std::optional<std::string> bytes = readFileIfExists(file);
  if (!bytes) {
    result.signature = FileSignature{};
    result.values = StoreDictionary{};
    return result;
  }
  try {
    result.values = decodeStoreDictionaryJson(*bytes);
    return result;
  } catch (const std::invalid_argument& error) {
    if (!setAsideCorrupt) return result;
    const std::filesystem::path aside = unusedSetAsidePath(file, result.signature.modifiedNanoseconds);
    if (::rename(file.c_str(), aside.c_str()) != 0) fail("cannot set aside", file, errno);
    logf("Key-value store {} is corrupt ({}); kept aside as {}", file.string(), error.what(),
         aside.filename().string());
    result.signature = FileSignature{};
    return result;
  }
}

FileSignature writeDictionaryFile(const std::filesystem::path& file, const StoreDictionary& values) {
  removeStaleTemporaryFiles(file, std::filesystem::file_time_type::clock::now());
  writeFileAtomically(file, encodeStoreDictionaryJson(values));
  return fileSignature(file);
}

}  // namespace ombrine::detail
