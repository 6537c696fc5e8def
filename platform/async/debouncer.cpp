#include "platform/async/debouncer.hpp"

#include "platform/log.hpp"

namespace ombrine {

namespace detail {

void logDebounceFailure(std::exception_ptr error) noexcept {
  try {
    std::rethrow_exception(error);
  } catch (const std::exception& e) {
    logf("Debouncer observer failed: {}", e.what());
  } catch (...) {
    logf("Debouncer observer failed");
  }
}

}  // namespace detail

}  // namespace ombrine
