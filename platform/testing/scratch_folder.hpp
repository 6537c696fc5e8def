#pragma once
// A fresh, empty folder of a test's own under the system's temporary folder (made with mkdtemp,
// so no two tests or test processes ever share one), removed with everything in it when the
// object ends. Raises std::system_error when the folder cannot be made. Not thread-safe; a
// forked child that leaves with _exit leaves the folder to its parent.

#include <filesystem>
#include <string>

namespace ombrine {

class ScratchFolder {
 public:
  // `name` starts the folder's name, for finding it while debugging.
  explicit ScratchFolder(const std::string& name = "ombrine-test");
  ~ScratchFolder();
  ScratchFolder(const ScratchFolder&) = delete;
  ScratchFolder& operator=(const ScratchFolder&) = delete;

  const std::filesystem::path& path() const noexcept { return path_; }

 private:
  std::filesystem::path path_;
};

}  // namespace ombrine
