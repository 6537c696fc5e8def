#include "radar/tile_errors.hpp"

#include <fmt/format.h>

#include <charconv>
#include <cmath>

#include "platform/errors.hpp"
#include "platform/http_freshness.hpp"

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

std::string_view trimmed(std::string_view text) {
  while (!text.empty() && (text.front() == ' ' || text.front() == '\t')) text.remove_prefix(1);
  while (!text.empty() && (text.back() == ' ' || text.back() == '\t')) text.remove_suffix(1);
  return text;
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
  const std::string_view text = trimmed(*header);
  double seconds = 0.0;
  const char* end = text.data() + text.size();
  const auto [stop, error] = std::from_chars(text.data(), end, seconds);
  if (!text.empty() && error == std::errc() && stop == end && std::isfinite(seconds)) {
    return now + std::max(seconds, 0.0);
  }
  if (const auto date = parseHttpDate(text)) return Date::fromUnix(*date);
  return std::nullopt;
}

}  // namespace ombrine
