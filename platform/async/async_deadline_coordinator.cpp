#include "platform/async/async_deadline_coordinator.hpp"

namespace ombrine {

AsyncDeadlineError::AsyncDeadlineError(Case which)
    : std::runtime_error("The operation did not finish before its deadline."), which_(which) {}

}  // namespace ombrine
