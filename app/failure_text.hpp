#pragma once
// The words a person reads for a failure the library raised. The library keeps its typed
// errors (NetworkError, DomainError, TideServiceError, HttpError); a command prints one line
// made from them, never an internal case name or code.

#include <chrono>
#include <exception>
#include <string>
#include <string_view>

namespace ombrine::app {

// One line, no trailing newline, no command prefix: "the weather service is not answering
// (HTTP 503)"; `service` names what was asked. When the service named a wait ("Retry-After"),
// the line ends with when to try again ("; try again in 2 min"). Cancellation reads "cancelled".
// Never raises.
std::string failureText(const std::exception_ptr& error, std::string_view service = "the weather service") noexcept;

// A wait as a person reads it, rounded up: "1 s", "90 s", "2 min", "3 h".
std::string waitText(std::chrono::duration<double> wait);

// Keeps `wait` before the one more attempt after `failure`, saying so on stderr: "Foreca asked to
// wait 1 s; trying again" as a progress line on a terminal (wiped when the wait is over), as a
// line with `verbose`, nothing otherwise. Blocks the calling thread for the wait.
void waitBeforeRetry(const std::exception_ptr& failure, std::chrono::duration<double> wait, bool verbose);

}  // namespace ombrine::app
