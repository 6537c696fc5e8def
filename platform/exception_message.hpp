#pragma once
// The text a log line shows for a caught failure.

#include <exception>
#include <string>

namespace ombrine {

// `what()` of a std::exception, "unknown error" for anything else. Never raises.
std::string exceptionMessage(const std::exception_ptr& error) noexcept;

}  // namespace ombrine
