#pragma once
// How a tile load fails: an HTTP status (TileHTTPError), or one of the URL loading codes the
// tile source delivers itself (TileURLError). Transport failures stay HttpError and a
// cancellation inside the downloader stays CancellationError; both reach the caller unchanged.
// Plain values; thread-safe.

#include <optional>
#include <stdexcept>
#include <string>
#include <string_view>

#include "core/values/date.hpp"

namespace ombrine {

// The tile server answered with a status outside 200 to 299.
class TileHTTPError : public std::runtime_error {
 public:
  TileHTTPError(int statusCode, std::optional<Date> retryAfter);
  int statusCode() const noexcept { return statusCode_; }
  // When the server asked to be left alone until ("Retry-After"), if it did.
  std::optional<Date> retryAfter() const noexcept { return retryAfter_; }

 private:
  int statusCode_;
  std::optional<Date> retryAfter_;
};

// A load the tile source ended itself.
class TileURLError : public std::runtime_error {
 public:
  enum Code {
    badURL,                    // the path lies outside the world (y beyond 2^z)
    cancelled,                 // superseded by a newer load, or the frame changed
    cannotDecodeContentData,   // the bytes are not an image
    dataLengthExceedsMaximum,  // refused by the memory cache
  };
  explicit TileURLError(Code code);
  Code code() const noexcept { return code_; }

 private:
  Code code_;
};

// True for a TileURLError `cancelled` and for CancellationError.
bool isTileLoadCancellation(std::exception_ptr error) noexcept;

// "Retry-After" relative to `now`: a finite decimal number of seconds (negative counts as 0),
// else an HTTP date ("Sun, 06 Nov 1994 08:49:37 GMT"; a past one counts as now); nothing when
// absent or unreadable.
std::optional<Date> parseRetryAfter(std::optional<std::string_view> header, Date now);

}  // namespace ombrine
