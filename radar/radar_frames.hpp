#pragma once
// RainViewer's radar timeline: the frame records, their JSON, the fallback timeline computed
// when the service fails or is stale, the tile URL templates, and the choice of a frame after a
// reload. Pure functions; thread-safe.

#include <cstddef>
#include <optional>
#include <string>
#include <string_view>
#include <vector>

#include "core/values/date.hpp"
#include "core/values/time_zone.hpp"

namespace ombrine {

// One image of an animated layer. For RainViewer `path` is the frame's URL path; for Foreca it
// is the frame's raw time text.
struct RadarFrame {
  Date time;
  std::string path;

  bool operator==(const RadarFrame&) const = default;
};

struct RadarData {
  std::vector<RadarFrame> past;
  std::optional<std::vector<RadarFrame>> nowcast;

  bool operator==(const RadarData&) const = default;
};

struct RainViewerResponse {
  RadarData radar;
  // Never read from the reply: always the tile CDN origin.
  std::string host;

  bool operator==(const RainViewerResponse&) const = default;
};

inline constexpr double kRainViewerMaximumAge = 1800.0;
inline constexpr double kTimeSliderNowLabelTolerance = 7200.0;
inline constexpr double kForecaTimelineForecastLimit = 129600.0;
inline constexpr double kRadarFrameMatchTolerance = 1800.0;
inline constexpr int kRainViewerMaximumZoom = 7;
inline constexpr std::size_t kFallbackFrameCount = 13;
inline constexpr double kFallbackFrameStep = 600.0;
inline constexpr const char* kNoRadarFramesMessage = "No radar frames found.";

// The reply of "/public/weather-maps.json" ("time" in seconds since 1970), with `host` as the
// tile origin. Keys other than "radar" are ignored. Raises DecodingError.
RainViewerResponse decodeRainViewerResponse(std::string_view json, std::string host);

// The current hour and minute in `zone`, the minute rounded down to a multiple of 10, seconds 0.
Date fallbackAnchor(Date now, const TimeZone& zone);

// 13 frames, oldest first, 600 seconds apart, the newest at the anchor; paths
// "/v2/radar/<unix seconds>"; no nowcast.
RainViewerResponse fallbackRainViewerResponse(Date now, const TimeZone& zone, std::string host);

// Why a decoded reply cannot be shown and the fallback is used instead (fewer than 2 past
// frames, or the newest more than 1,800 seconds old at `now`); nothing when it can be shown.
std::optional<std::string> rainViewerRejection(const RainViewerResponse& response, Date now);

// What the screen shows: "past" followed by the nowcast.
std::vector<RadarFrame> displayedFrames(const RadarData& radar);

// "<host><path>/512/{z}/{x}/{y}/2/1_1.png" for the radar itself; with "/0/0_0.png" otherwise.
std::string rainViewerTileTemplate(std::string_view host, std::string_view path, bool isRadar = true);

// The frame to select after a reload: the present index when the previous selection was on the
// present, else the frame nearest the previously selected date within 1,800 seconds (the first
// of equals), else the smaller of the last index and the present index. 0 for no frames.
std::size_t selectedIndexAfterReload(const std::vector<RadarFrame>& frames, std::size_t presentIndex,
                                     bool previousWasPresent, std::optional<Date> previousDate);

}  // namespace ombrine
