#include "persistence/coordinated_value_cache.hpp"

namespace ombrine::detail {

void removeFileIfExists(const std::filesystem::path& file) {
  std::error_code ec;
  std::filesystem::remove(file, ec);
  if (ec) throw FileError("cannot remove " + file.string() + ": " + ec.message());
}

}  // namespace ombrine::detail
