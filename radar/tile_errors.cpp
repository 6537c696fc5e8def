#include "radar/tile_errors.hpp"

#include <fmt/format.h>

#include "platform/errors.hpp"
#include "platform/retry_after.hpp"

namespace ombrine {

namespace {

const char* describe(TileURLError::Code code) {
  switch (code) {
    case TileURLError::badURL: return "tile: bad URL";
    case TileURLError::cancelled: return "tile: cancelled";
    case TileURLError::cannotDecodeContentData: return "tile: the reply is not an image";
    case TileURLError::dataLengthExceedsMaximum: return "tile: too large to keep";
  }
  return "tile: failed";
}

}  // namespace

TileHTTPError::TileHTTPError(int statusCode, std::optional<Date> retryAfter)
    : std::runtime_error(fmt::format("tile: HTTP {}", statusCode)), statusCode_(statusCode), retryAfter_(retryAfter) {}

TileURLError::TileURLError(Code code) : std::runtime_error(describe(code)), code_(code) {}

bool isTileLoadCancellation(std::exception_ptr error) noexcept {
  if (!error) return false;
  try {
    std::rethrow_exception(error);
  } catch (const TileURLError& failure) {
    return failure.code() == TileURLError::cancelled;
  } catch (const CancellationError&) {
    return true;
  } catch (...) {
    return false;
  }
}

std::optional<Date> parseRetryAfter(std::optional<std::string_view> header, Date now) {
  if (!header) return std::nullopt;
  const auto delay = retryAfterDelay(*header, now.toSystem());
  if (!delay) return std::nullopt;
  return now + delay->count();
}

}  // namespace ombrine
