#pragma once
// The words a person reads for a failure the library raised. The library keeps its typed
// errors (NetworkError, DomainError, TideServiceError, HttpError); a command prints one line
// made from them, never an internal case name or code.

#include <exception>
#include <string>
#include <string_view>

namespace ombrine::app {

// One line, no trailing newline, no command prefix: "the weather service is not answering
// (HTTP 503)"; `service` names what was asked. Cancellation reads "cancelled". Never raises.
std::string failureText(const std::exception_ptr& error, std::string_view service = "the weather service") noexcept;

}  // namespace ombrine::app
