#pragma once
// Loads the two frame timelines of the map: RainViewer's radar (which never fails for the user:
// the computed fallback stands in) and the Foreca map capabilities behind the tile proxy.
//
// Context: stateless apart from its references; any executor. Both loads are cancellable and a
// cancellation always stays a cancellation.

#include <boost/url/url.hpp>

#include <string>

#include "core/values/date.hpp"
#include "core/values/time_zone.hpp"
#include "platform/http_client.hpp"
#include "radar/foreca_map_capabilities.hpp"
#include "radar/radar_frames.hpp"
#include "radar/tile_token_manager.hpp"

namespace ombrine {

struct RadarEndpoints {
  boost::urls::url rainViewer;  // the public maps API, "/public/weather-maps.json" below it
  std::string rainViewerTiles;  // the tile CDN origin, no trailing slash
  boost::urls::url tileProxy;   // the tile proxy's base URL
};

// A RainViewer timeline and where it came from.
struct RainViewerFrames {
  RainViewerResponse response;
  bool fromService = false;
  // Why the fallback stands in (status, transport failure, decoding, too few or too old frames).
  std::string fallbackReason;
};

class RadarLoader {
 public:
  // `http` is the shared session (with the HTTP cache in front of it); `zone` the device's.
  // Every reference must outlive the loader.
  RadarLoader(HttpClient& http, TileTokenManager& tokens, RadarEndpoints endpoints, TimeZone zone)
      : http_(http), tokens_(tokens), endpoints_(std::move(endpoints)), zone_(std::move(zone)) {}

  // The service's frames when it answers 2xx with at least two past frames, the newest at most
  // 1,800 seconds old at `now`; otherwise the fallback. Raises only CancellationError.
  Task<RainViewerFrames> loadRainViewerFrames(Date now);

  // GET "api/v1/capabilities" on the proxy with a tile token, ignoring the local cache; a 401 or
  // 403 invalidates the token and retries once. Raises NetworkError (exceededApiLimit for 429,
  // invalidResponse for any other non-2xx), DecodingError, the token's failures, HttpError and
  // CancellationError.
  Task<ForecaMapCapabilities> loadForecaCapabilities();

  const RadarEndpoints& endpoints() const noexcept { return endpoints_; }

 private:
  HttpClient& http_;
  TileTokenManager& tokens_;
  RadarEndpoints endpoints_;
  TimeZone zone_;
};

}  // namespace ombrine
