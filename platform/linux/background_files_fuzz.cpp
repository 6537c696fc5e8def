// Fuzzes the readers of the files other processes and tools write for background work: the
// standing request (decodes to a request that encodes and decodes back to itself, or raises
// std::runtime_error) and the location file (a location within the coordinate ranges, or none).
#include <cmath>
#include <cstddef>
#include <cstdint>
#include <cstdlib>
#include <string_view>

#include "platform/linux/file_background_scheduler.hpp"
#include "platform/linux/file_location_provider.hpp"

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
  const std::string_view text(reinterpret_cast<const char*>(data), size);
  try {
    const auto request = ombrine::decodeBackgroundTaskRequest(text);
    const auto again = ombrine::decodeBackgroundTaskRequest(ombrine::encodeBackgroundTaskRequest(request));
    if (again.identifier != request.identifier) std::abort();
    if (again.earliestBeginDate.has_value() != request.earliestBeginDate.has_value()) std::abort();
    // Seconds as text round-trip to within a microsecond.
    if (request.earliestBeginDate &&
        std::llabs((*again.earliestBeginDate - *request.earliestBeginDate).count()) > 1000) {
      std::abort();
    }
  } catch (const std::runtime_error&) {
  }
  if (const auto location = ombrine::parseLocationFile(text)) {
    if (!(std::fabs(location->latitude) <= 90.0 && std::fabs(location->longitude) <= 180.0)) std::abort();
  }
  return 0;
}
