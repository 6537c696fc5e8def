#include "radar/radar_timeline_state.hpp"

#include <algorithm>
#include <cmath>

#include "core/values/iso8601.hpp"
#include "platform/errors.hpp"

namespace ombrine {

RadarFrameState radarFrameStateAfterLoad(const RainViewerResponse& response, const RadarFrameState& previous) {
  RadarFrameState state;
  state.frames = displayedFrames(response.radar);
  if (state.frames.empty()) {
    state.errorText = kNoRadarFramesMessage;
    return state;
  }
  state.presentIndex = response.radar.past.empty() ? 0 : response.radar.past.size() - 1;
  std::optional<Date> previousDate;
  if (previous.selectedIndex < previous.frames.size()) previousDate = previous.frames[previous.selectedIndex].time;
  // A first load starts on the present.
  const bool wasPresent = previous.frames.empty() || previous.selectedIndex == previous.presentIndex;
  state.selectedIndex = selectedIndexAfterReload(state.frames, state.presentIndex, wasPresent, previousDate);
  return state;
}

void ForecaLayerTimeline::changeLayer(ForecaMapLayer layer) {
  layer_ = layer;
  ++current_;
  clear();
}

bool ForecaLayerTimeline::finishLoad(std::uint64_t id, const ForecaMapCapabilities& capabilities, Date now) {
  if (id != current_) return false;
  frames_ = forecaFrames(layer_, capabilities, now);
  selectedIndex_ = frames_ ? frames_->nowIndex : 0;
  return true;
}

bool ForecaLayerTimeline::failLoad(std::uint64_t id, const std::exception_ptr& error) {
  if (id != current_ || isCancellation(error)) return false;
  clear();
  return true;
}

void ForecaLayerTimeline::clear() {
  frames_.reset();
  selectedIndex_ = 0;
}

StormOnlyTimeline StormOnlyTimeline::make(Date anchor) {
  StormOnlyTimeline timeline{.anchor = anchor};
  timeline.frames.reserve(kLastIndex + 1);
  for (std::size_t i = 0; i <= kLastIndex; ++i) {
    const Date time = anchor + kFallbackFrameStep * (static_cast<double>(i) - static_cast<double>(kPresentIndex));
    timeline.frames.push_back(RadarFrame{time, iso8601String(time)});
  }
  return timeline;
}

std::size_t StormOnlyTimeline::carriedIndex(Date oldAnchor, std::size_t index, Date newAnchor) {
  if (index == kPresentIndex) return kPresentIndex;
  const Date selected =
      oldAnchor + kFallbackFrameStep * (static_cast<double>(index) - static_cast<double>(kPresentIndex));
  const double steps = std::round((selected - newAnchor) / kFallbackFrameStep) + static_cast<double>(kPresentIndex);
  return static_cast<std::size_t>(std::clamp(steps, 0.0, static_cast<double>(kLastIndex)));
}

StormOnlyTimeline StormOnlyTimelineFramesCache::timeline(Date anchor) {
  std::lock_guard lock(mutex_);
  const auto found =
      std::find_if(entries_.begin(), entries_.end(), [&](const auto& entry) { return entry.anchor == anchor; });
  if (found != entries_.end()) {
    entries_.splice(entries_.begin(), entries_, found);
    return entries_.front();
  }
  entries_.push_front(StormOnlyTimeline::make(anchor));
  while (entries_.size() > capacity_) entries_.pop_back();
  return entries_.front();
}

std::size_t StormOnlyTimelineFramesCache::count() const {
  std::lock_guard lock(mutex_);
  return entries_.size();
}

}  // namespace ombrine
