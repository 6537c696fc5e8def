#pragma once
// Builds ZIP archives for the reader's tests, including the malformed ones a hostile server
// could send (sizes that lie, data descriptors, long comments).

#include <cstdint>
#include <optional>
#include <string>
#include <vector>

namespace ombrine::testing_zip {

struct Entry {
  std::string name;
  std::string data;
  bool deflate = true;
  bool dataDescriptor = false;                // sizes and CRC only behind the data
  std::optional<std::uint32_t> declaredSize;  // the central directory's uncompressed size
  std::optional<std::uint16_t> method;        // overrides the method field
};

std::string buildArchive(const std::vector<Entry>& entries, std::size_t commentLength = 0);

}  // namespace ombrine::testing_zip
