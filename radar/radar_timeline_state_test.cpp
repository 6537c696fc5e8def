#include "radar/radar_timeline_state.hpp"

#include <gtest/gtest.h>

#include "core/values/errors.hpp"
#include "platform/errors.hpp"

namespace ombrine {
namespace {

RainViewerResponse response(std::vector<double> past, std::vector<double> nowcast = {}) {
  RainViewerResponse out{.host = "https://tiles"};
  for (double t : past)
    out.radar.past.push_back({Date::fromUnix(t), "/v2/radar/" + std::to_string(static_cast<long>(t))});
  if (!nowcast.empty()) {
    out.radar.nowcast.emplace();
    for (double t : nowcast) out.radar.nowcast->push_back({Date::fromUnix(t), "/v2/radar/nowcast"});
  }
  return out;
}

TEST(RadarTimelineStateTest, RadarStateAfterLoads) {
  const RadarFrameState first = radarFrameStateAfterLoad(response({0, 600, 1200}, {1800}), {});
  EXPECT_EQ(first.selectedIndex, 2u);  // the present: the newest past frame
  EXPECT_EQ(first.frames.size(), 4u);
  EXPECT_FALSE(first.errorText);

  // On the present: follows the new present.
  EXPECT_EQ(radarFrameStateAfterLoad(response({600, 1200, 1800}, {2400}), first).selectedIndex, 2u);
  // On an older frame: the same date, moved to its new index.
  RadarFrameState older = first;
  older.selectedIndex = 1;  // 600
  EXPECT_EQ(radarFrameStateAfterLoad(response({600, 1200, 1800}), older).selectedIndex, 0u);

  const RadarFrameState empty = radarFrameStateAfterLoad(response({}), first);
  EXPECT_TRUE(empty.frames.empty());
  EXPECT_EQ(empty.selectedIndex, 0u);
  EXPECT_EQ(empty.errorText, "No radar frames found.");
}

TEST(RadarTimelineStateTest, OnlyTheCurrentCapabilitiesLoadCounts) {
  const Date now = Date::fromUnix(1718020800);  // 2024-06-10T12:00:00Z
  ForecaMapCapabilities capabilities;
  capabilities.images.push_back({.id = 2,
                                 .title = "Temperature",
                                 .times = {.available = {"2024-06-10T11:00:00Z", "2024-06-10T12:00:00Z"}},
                                 .extent = {.maxZoom = 8}});
  ForecaLayerTimeline timeline(ForecaMapLayer::temperature);
  const auto older = timeline.beginLoad();
  const auto newer = timeline.beginLoad();
  EXPECT_FALSE(timeline.finishLoad(older, capabilities, now));  // superseded: disappears
  EXPECT_FALSE(timeline.frames());
  EXPECT_TRUE(timeline.finishLoad(newer, capabilities, now));
  ASSERT_TRUE(timeline.frames());
  EXPECT_EQ(timeline.selectedIndex(), 1u);

  const auto cancelled = timeline.beginLoad();
  EXPECT_FALSE(timeline.failLoad(cancelled, std::make_exception_ptr(CancellationError())));
  EXPECT_TRUE(timeline.frames());  // a cancellation changes nothing
  const auto failed = timeline.beginLoad();
  EXPECT_TRUE(timeline.failLoad(failed, std::make_exception_ptr(NetworkError(NetworkError::exceededApiLimit))));
  EXPECT_FALSE(timeline.frames());

  const auto beforeSwitch = timeline.beginLoad();
  timeline.changeLayer(ForecaMapLayer::uvIndex);
  EXPECT_FALSE(timeline.finishLoad(beforeSwitch, capabilities, now));
  EXPECT_TRUE(timeline.finishLoad(timeline.beginLoad(), capabilities, now));
  EXPECT_FALSE(timeline.frames());  // no image serves UV here: the layer has no frames
}

TEST(RadarTimelineStateTest, StormOnlyTimeline) {
  const Date anchor = Date::fromUnix(1718020800);
  const StormOnlyTimeline timeline = StormOnlyTimeline::make(anchor);
  ASSERT_EQ(timeline.frames.size(), 361u);
  EXPECT_EQ(timeline.frames[144].time, anchor);
  EXPECT_EQ(timeline.frames.front().time, anchor - 86400);
  EXPECT_EQ(timeline.frames.back().time, anchor + 129600);
  EXPECT_EQ(timeline.frames[144].path, "2024-06-10T12:00:00Z");

  struct Row {
    const char* name;
    std::size_t index;
    double anchorMove;
    std::size_t expected;
  };
  const Row rows[] = {
      {"present stays present", 144, 600, 144},  {"a date moves back one step", 150, 600, 149},
      {"a date moves forward", 10, -1200, 12},   {"the oldest falls off the start", 0, 600, 0},
      {"the last stays within", 360, -600, 360},
  };
  for (const Row& row : rows) {
    SCOPED_TRACE(row.name);
    EXPECT_EQ(StormOnlyTimeline::carriedIndex(anchor, row.index, anchor + row.anchorMove), row.expected);
  }

  StormOnlyTimelineFramesCache cache(2);
  cache.timeline(anchor);
  cache.timeline(anchor + 600);
  cache.timeline(anchor);  // most recent again
  cache.timeline(anchor + 1200);
  EXPECT_EQ(cache.count(), 2u);
  EXPECT_EQ(cache.timeline(anchor).anchor, anchor);
}

}  // namespace
}  // namespace ombrine
