#pragma once
// The map's frame state: what the slider shows for the radar, for the supplemental Foreca
// layer, and (with the radar off) for storms alone.
//
// Context: `RadarFrameState` and `ForecaLayerTimeline` belong to the main context, where loads
// report back; they take no lock. `StormOnlyTimelineFramesCache` is safe from any thread.

#include <cstddef>
#include <cstdint>
#include <exception>
#include <list>
#include <mutex>
#include <optional>
#include <string>
#include <vector>

#include "radar/foreca_map_capabilities.hpp"
#include "radar/radar_frames.hpp"

namespace ombrine {

struct RadarFrameState {
  std::vector<RadarFrame> frames;
  std::size_t selectedIndex = 0;
  std::size_t presentIndex = 0;  // the newest past frame
  std::optional<std::string> errorText;
};

// The state after a RainViewer load: its frames ("past", then the nowcast), the selection
// carried over from `previous` (the present is the newest past frame), or with no frames an
// empty state whose error text is "No radar frames found.".
RadarFrameState radarFrameStateAfterLoad(const RainViewerResponse& response, const RadarFrameState& previous);

// The supplemental layer's frames. Every capabilities load carries a fresh identifier; only the
// result of the current one is used, and a newer load or a change of layer makes older results
// disappear.
class ForecaLayerTimeline {
 public:
  explicit ForecaLayerTimeline(ForecaMapLayer layer) : layer_(layer) {}

  ForecaMapLayer layer() const noexcept { return layer_; }
  // Starts a load: its identifier.
  std::uint64_t beginLoad() { return ++current_; }
  // Switches layers; a load still running is now out of date.
  void changeLayer(ForecaMapLayer layer);

  // The load `id` ended with `capabilities`: false when it is no longer current (ignored).
  // Otherwise the layer's frames, or cleared when it has none; the selection goes to the
  // frame nearest now.
  bool finishLoad(std::uint64_t id, const ForecaMapCapabilities& capabilities, Date now);
  // The load `id` failed: a cancellation changes nothing; any other failure of the current load
  // clears image id, maximum zoom, frames and index. False when nothing changed.
  bool failLoad(std::uint64_t id, const std::exception_ptr& error);

  const std::optional<ForecaLayerFrames>& frames() const noexcept { return frames_; }
  std::size_t selectedIndex() const noexcept { return selectedIndex_; }

 private:
  void clear();

  ForecaMapLayer layer_;
  std::uint64_t current_ = 0;
  std::optional<ForecaLayerFrames> frames_;
  std::size_t selectedIndex_ = 0;
};

// The slider's frames when only storms are shown: every 10 minutes from 24 hours before the
// fallback anchor (index 0) through the anchor (index 144) to 36 hours after it.
struct StormOnlyTimeline {
  static constexpr double kPastSpan = 86400.0;
  static constexpr double kFutureSpan = 129600.0;
  static constexpr std::size_t kPresentIndex = 144;
  static constexpr std::size_t kLastIndex = 360;

  Date anchor;
  std::vector<RadarFrame> frames;  // paths are the frames' ISO 8601 times

  static StormOnlyTimeline make(Date anchor);

  // The index in a timeline anchored at `newAnchor` for the selection `index` of one anchored
  // at `oldAnchor`: the present stays the present, any other date is carried over (nearest
  // frame, kept within the timeline).
  static std::size_t carriedIndex(Date oldAnchor, std::size_t index, Date newAnchor);
};

// Storm-only timelines by anchor, least recently used first out. Thread-safe.
class StormOnlyTimelineFramesCache {
 public:
  explicit StormOnlyTimelineFramesCache(std::size_t capacity = 4) : capacity_(capacity) {}
  // The timeline of `anchor`, made on a miss.
  StormOnlyTimeline timeline(Date anchor);
  std::size_t count() const;

 private:
  mutable std::mutex mutex_;
  std::size_t capacity_;
  std::list<StormOnlyTimeline> entries_;  // most recently used first
};

}  // namespace ombrine
