#pragma once
// The failure types shared by every layer.
//
// Cancellation is one type, `CancellationError`. Code that catches broadly must rethrow it
// unchanged (see `rethrowIfCancellation`), so that a cancelled task always ends as cancelled.

#include <exception>
#include <stdexcept>
#include <string>

namespace ombrine {

// Raised when the task awaiting an operation was cancelled. Never swallowed, never wrapped.
class CancellationError : public std::runtime_error {
 public:
  CancellationError() : std::runtime_error("cancelled") {}
};

// An error identified by a domain name and a numeric code, e.g. {"Request", 5001} for a failed
// provider request or {"No result", 6000} for a coordinate that cannot be named.
class DomainError : public std::runtime_error {
 public:
  DomainError(std::string domain, int code, std::string detail = {});
  const std::string& domain() const noexcept { return domain_; }
  int code() const noexcept { return code_; }
  // What the raiser added for people ("HTTP 503", "no place named ..."); may be empty.
  const std::string& detail() const noexcept { return detail_; }

 private:
  std::string domain_;
  int code_;
  std::string detail_;
};

// A file could not be read, written or replaced. `what()` names the path and the system error.
class FileError : public std::runtime_error {
 public:
  using std::runtime_error::runtime_error;
};

// True when `error` holds a CancellationError, or Asio's operation_aborted, which is how Asio
// reports a cancelled wait.
bool isCancellation(const std::exception_ptr& error) noexcept;

// Rethrows `error` as CancellationError if it is a cancellation; otherwise returns.
// Use inside `catch (...)` blocks that would otherwise absorb every exception.
void rethrowIfCancellation(const std::exception_ptr& error);

}  // namespace ombrine
