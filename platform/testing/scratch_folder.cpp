#include "platform/testing/scratch_folder.hpp"

#include <stdlib.h>

#include <cerrno>
#include <system_error>

namespace ombrine {

ScratchFolder::ScratchFolder(const std::string& name) {
  std::string pattern = (std::filesystem::temp_directory_path() / (name + "-XXXXXX")).string();
  if (::mkdtemp(pattern.data()) == nullptr)
    throw std::system_error(errno, std::generic_category(), "mkdtemp " + pattern);
  path_ = pattern;
}

ScratchFolder::~ScratchFolder() {
  std::error_code ignored;
  std::filesystem::remove_all(path_, ignored);
}

}  // namespace ombrine
