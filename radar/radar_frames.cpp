#include "radar/radar_frames.hpp"

#include <fmt/format.h>

#include <cmath>

#include "core/values/value_json.hpp"

namespace ombrine {

namespace {

void decodeFrame(const boost::json::value& value, const JsonPath& path, RadarFrame& out) {
  JsonObjectReader reader(value, path);
  double seconds = 0.0;
  reader.read("time", seconds);
  reader.read("path", out.path);
  out.time = Date::fromUnix(seconds);
}

void decodeFrames(const boost::json::value& value, const JsonPath& path, std::vector<RadarFrame>& out) {
  const boost::json::array& array = jsonArray(value, path);
  out.clear();
  out.reserve(std::min<std::size_t>(array.size(), 4096));
  for (std::size_t i = 0; i < array.size(); ++i) {
    const JsonPath element = path.index(i);
    decodeFrame(array[i], element, out.emplace_back());
  }
}

}  // namespace

RainViewerResponse decodeRainViewerResponse(std::string_view json, std::string host) {
  const boost::json::value document = parseJson(json);
  const JsonPath root;
  JsonObjectReader reader(document, root);
  const boost::json::value* radar = reader.find("radar");
  const JsonPath radarPath = root.key("radar");
  if (!radar) radarPath.fail("missing key");
  JsonObjectReader radarReader(*radar, radarPath);
  RainViewerResponse response{.host = std::move(host)};
  const JsonPath pastPath = radarPath.key("past");
  const boost::json::value* past = radarReader.find("past");
  if (!past) pastPath.fail("missing key");
  decodeFrames(*past, pastPath, response.radar.past);
  const JsonPath nowcastPath = radarPath.key("nowcast");
  if (const boost::json::value* nowcast = radarReader.find("nowcast"); nowcast && !nowcast->is_null()) {
    decodeFrames(*nowcast, nowcastPath, response.radar.nowcast.emplace());
  }
  return response;
}

Date fallbackAnchor(Date now, const TimeZone& zone) {
  // Rounding the local wall time down to ten minutes moves the instant back by the same amount:
  // zone offsets and transitions fall on whole minutes, mostly on whole ten minutes.
  const double local = now.unixSeconds() + zone.secondsFromGMT(now);
  const double intoTenMinutes = local - std::floor(local / kFallbackFrameStep) * kFallbackFrameStep;
  return now - intoTenMinutes;
}

RainViewerResponse fallbackRainViewerResponse(Date now, const TimeZone& zone, std::string host) {
  const Date anchor = fallbackAnchor(now, zone);
  RainViewerResponse response{.host = std::move(host)};
  for (int k = static_cast<int>(kFallbackFrameCount) - 1; k >= 0; --k) {
    const Date time = anchor - kFallbackFrameStep * k;
    response.radar.past.push_back(
        RadarFrame{time, fmt::format("/v2/radar/{}", static_cast<long long>(std::floor(time.unixSeconds())))});
  }
  return response;
}

std::optional<std::string> rainViewerRejection(const RainViewerResponse& response, Date now) {
  const auto& past = response.radar.past;
  if (past.size() < 2) return fmt::format("{} past frame(s), fewer than 2", past.size());
  Date newest = past.front().time;
  for (const auto& frame : past) newest = std::max(newest, frame.time);
  const double age = now - newest;
  if (age > kRainViewerMaximumAge) return fmt::format("newest frame {:.0f} seconds old", age);
  return std::nullopt;
}

std::vector<RadarFrame> displayedFrames(const RadarData& radar) {
  std::vector<RadarFrame> frames = radar.past;
  if (radar.nowcast) frames.insert(frames.end(), radar.nowcast->begin(), radar.nowcast->end());
  return frames;
}

std::string rainViewerTileTemplate(std::string_view host, std::string_view path, bool isRadar) {
  return fmt::format("{}{}/512/{{z}}/{{x}}/{{y}}/{}", host, path, isRadar ? "2/1_1.png" : "0/0_0.png");
}

std::size_t selectedIndexAfterReload(const std::vector<RadarFrame>& frames, std::size_t presentIndex,
                                     bool previousWasPresent, std::optional<Date> previousDate) {
  if (frames.empty()) return 0;
  const std::size_t last = frames.size() - 1;
  if (previousWasPresent) return std::min(presentIndex, last);
  if (previousDate) {
    std::optional<std::size_t> nearest;
    double nearestDistance = 0.0;
    for (std::size_t i = 0; i < frames.size(); ++i) {
      const double distance = std::fabs(frames[i].time - *previousDate);
      if (!nearest || distance < nearestDistance) nearest = i, nearestDistance = distance;
    }
    if (nearest && nearestDistance <= kRadarFrameMatchTolerance) return *nearest;
  }
  return std::min(last, presentIndex);
}

}  // namespace ombrine
