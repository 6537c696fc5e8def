#include "radar/radar_loader.hpp"

#include <fmt/format.h>

#include "core/values/errors.hpp"
#include "platform/exception_message.hpp"

namespace ombrine {

using namespace std::chrono_literals;

Task<RainViewerFrames> RadarLoader::loadRainViewerFrames(Date now) {
  RainViewerFrames result{.response = fallbackRainViewerResponse(now, zone_, endpoints_.rainViewerTiles)};
  const HttpRequest request{.url = appendingPathComponent(endpoints_.rainViewer, "public/weather-maps.json")};
  HttpResponse response;
  try {
    response = co_await http_.send(request);
  } catch (...) {
    const std::exception_ptr error = std::current_exception();
    if (isCancellation(error)) throw CancellationError();
    result.fallbackReason = "request failed: " + exceptionMessage(error);
  }
  if (!result.fallbackReason.empty()) co_return result;
  if (response.status < 200 || response.status > 299) {
    result.fallbackReason = fmt::format("HTTP status {}", response.status);
    co_return result;
  }
  try {
    RainViewerResponse decoded = decodeRainViewerResponse(response.body, endpoints_.rainViewerTiles);
    if (auto rejection = rainViewerRejection(decoded, now)) {
      result.fallbackReason = std::move(*rejection);
    } else {
      result.response = std::move(decoded);
      result.fromService = true;
    }
  } catch (const DecodingError& error) {
    result.fallbackReason = std::string("cannot decode: ") + error.what();
  }
  co_return result;
}

Task<ForecaMapCapabilities> RadarLoader::loadForecaCapabilities() {
  const boost::urls::url url = appendingPathComponent(endpoints_.tileProxy, "api/v1/capabilities");
  HttpResponse response;
  for (int attempt = 0; attempt < 2; ++attempt) {
    HttpRequest request{.url = url, .timeout = 20s, .cachePolicy = CachePolicy::reloadIgnoringLocalCacheData};
    const std::string token = co_await tokens_.token();
    request.headers.push_back({TileTokenManager::kTokenHeader, token});
    response = co_await http_.send(request);
    if (attempt == 0 && (response.status == 401 || response.status == 403)) {
      co_await tokens_.invalidateToken();
      continue;
    }
    break;
  }
  if (response.status >= 200 && response.status <= 299) co_return decodeForecaMapCapabilities(response.body);
  if (response.status == 429) throw NetworkError(NetworkError::exceededApiLimit);
  throw NetworkError(NetworkError::invalidResponse);
}

}  // namespace ombrine
