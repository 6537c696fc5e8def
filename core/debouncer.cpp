#include "core/debouncer.hpp"

#include "platform/log.hpp"

namespace ombrine {

Observation& Observation::operator=(Observation&& other) noexcept {
  if (this != &other) {
    reset();
    end_ = std::exchange(other.end_, nullptr);
  }
  return *this;
}

void Observation::reset() noexcept {
  auto end = std::exchange(end_, nullptr);
  if (end) end();
}

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
