#include "radar/radar_frames.hpp"

#include <gtest/gtest.h>

#include <fstream>
#include <sstream>

#include "core/values/errors.hpp"

namespace ombrine {
namespace {

constexpr const char* kHost = "https://tilecache.rainviewer.com";

std::string testdata(const std::string& name) {
  std::ifstream file(std::string(OMBRINE_TESTDATA_DIR) + "/" + name, std::ios::binary);
  std::ostringstream text;
  text << file.rdbuf();
  return text.str();
}

TEST(RadarFramesTest, RealRepliesDecode) {
  const auto pastOnly = decodeRainViewerResponse(testdata("rainviewer_docs_example_2025_past_only.json"), kHost);
  ASSERT_EQ(pastOnly.radar.past.size(), 2u);
  EXPECT_EQ(pastOnly.radar.past[1], (RadarFrame{Date::fromUnix(1609402200), "/v2/radar/1609402200"}));
  EXPECT_FALSE(pastOnly.radar.nowcast);
  const auto withNowcast =
      decodeRainViewerResponse(testdata("rainviewer_docs_example_with_nowcast_satellite.json"), "https://cdn.example");
  EXPECT_EQ(withNowcast.host, "https://cdn.example");  // never the reply's own host
  const auto frames = displayedFrames(withNowcast.radar);
  ASSERT_EQ(frames.size(), 4u);
  EXPECT_EQ(frames[2].path, "/v2/radar/nowcast_6b3c5a659cf4");
  EXPECT_EQ(rainViewerTileTemplate(kHost, frames[0].path),
            "https://tilecache.rainviewer.com/v2/radar/1609401600/512/{z}/{x}/{y}/2/1_1.png");
  EXPECT_EQ(rainViewerTileTemplate(kHost, frames[0].path, false),
            "https://tilecache.rainviewer.com/v2/radar/1609401600/512/{z}/{x}/{y}/0/0_0.png");
}

TEST(RadarFramesTest, RepliesTheScreenCannotShow) {
  const Date newest = Date::fromUnix(1609402200);
  struct Row {
    const char* name;
    const char* json;
    double secondsAfterNewest;
    bool decodes;
    bool shown;
  };
  const Row rows[] = {
      {"two frames, fresh", R"({"radar":{"past":[{"time":1609401600,"path":"/a"},{"time":1609402200,"path":"/b"}]}})",
       0, true, true},
      {"exactly 1800 s old", R"({"radar":{"past":[{"time":1609402200,"path":"/b"},{"time":1609401600,"path":"/a"}]}})",
       1800, true, true},
      {"1801 s old", R"({"radar":{"past":[{"time":1609401600,"path":"/a"},{"time":1609402200,"path":"/b"}]}})", 1801,
       true, false},
      {"one frame", R"({"radar":{"past":[{"time":1609402200,"path":"/b"}]}})", 0, true, false},
      {"no frames",
       R"({"radar":{"past":[],"nowcast":[{"time":1609402800,"path":"/n"},{"time":1609403400,"path":"/m"}]}})", 0, true,
       false},
      {"past missing", R"({"radar":{"nowcast":[]}})", 0, false, false},
      {"time as text", R"({"radar":{"past":[{"time":"1609402200","path":"/b"},{"time":1609401600,"path":"/a"}]}})", 0,
       false, false},
      {"not JSON", R"({"radar":{"past":[)", 0, false, false},
      {"null nowcast",
       R"({"radar":{"past":[{"time":1609401600,"path":"/a"},{"time":1609402200,"path":"/b"}],"nowcast":null}})", 0,
       true, true},
  };
  for (const Row& row : rows) {
    SCOPED_TRACE(row.name);
    try {
      const auto response = decodeRainViewerResponse(row.json, kHost);
      EXPECT_TRUE(row.decodes);
      EXPECT_EQ(!rainViewerRejection(response, newest + row.secondsAfterNewest), row.shown);
    } catch (const DecodingError&) {
      EXPECT_FALSE(row.decodes);
    }
  }
}

TEST(RadarFramesTest, FallbackIsThirteenFramesOnTheLocalTenMinuteGrid) {
  struct Row {
    const char* name;
    const char* zone;
    double now;     // unix seconds
    double anchor;  // unix seconds of the newest frame
  };
  const Row rows[] = {
      {"14:37:42 CEST gives 14:30:00", "Europe/Berlin", 1718023062.0, 1718022600.0},
      {"fraction of a second dropped", "UTC", 1718023062.75, 1718022600.0},
      {"just after midnight reaches into yesterday", "UTC", 1704067390.0, 1704067200.0},
      {"on the grid stays", "UTC", 1704067200.0, 1704067200.0},
      {"03:04 CEST, minutes after the spring jump", "Europe/Berlin", 1711847040.0, 1711846800.0},
      {"the second 01:07 of the autumn fall-back", "America/New_York", 1730614020.0, 1730613600.0},
      {"17:45 in a +05:45 zone is 17:40 local", "Asia/Kathmandu", 1718020800.0, 1718020500.0},
  };
  for (const Row& row : rows) {
    SCOPED_TRACE(row.name);
    const auto zone = TimeZone::named(row.zone);
    ASSERT_TRUE(zone);
    const auto fallback = fallbackRainViewerResponse(Date::fromUnix(row.now), *zone, kHost);
    const auto& past = fallback.radar.past;
    ASSERT_EQ(past.size(), 13u);
    EXPECT_FALSE(fallback.radar.nowcast);
    EXPECT_EQ(fallback.host, kHost);
    EXPECT_EQ(past.back().time.unixSeconds(), row.anchor);
    EXPECT_EQ(past.front().time.unixSeconds(), row.anchor - 7200);
    for (std::size_t i = 1; i < past.size(); ++i) EXPECT_EQ(past[i].time - past[i - 1].time, 600.0);
    EXPECT_EQ(past.back().path, "/v2/radar/" + std::to_string(static_cast<long long>(row.anchor)));
    EXPECT_FALSE(rainViewerRejection(fallback, Date::fromUnix(row.now)));
  }
}

TEST(RadarFramesTest, SelectionAfterReload) {
  std::vector<RadarFrame> frames;
  for (int i = 0; i < 6; ++i) frames.push_back({Date::fromUnix(10000.0 + 600 * i), ""});
  struct Row {
    const char* name;
    std::size_t present;
    bool wasPresent;
    std::optional<double> previous;
    std::size_t expected;
  };
  const Row rows[] = {
      {"on the present follows it", 4, true, 10000.0, 4},
      {"nearest within tolerance", 5, false, 10000.0 + 1300, 2},
      {"first of equals", 5, false, 10000.0 + 900, 1},
      {"exactly the tolerance past the last", 2, false, 10000.0 + 3000 + 1800, 5},
      {"beyond the tolerance falls back to the present", 2, false, 10000.0 + 3000 + 1801, 2},
      {"present beyond the end is clamped", 9, false, std::nullopt, 5},
  };
  for (const Row& row : rows) {
    SCOPED_TRACE(row.name);
    const std::optional<Date> previous = row.previous ? std::optional(Date::fromUnix(*row.previous)) : std::nullopt;
    EXPECT_EQ(selectedIndexAfterReload(frames, row.present, row.wasPresent, previous), row.expected);
  }
  EXPECT_EQ(selectedIndexAfterReload({}, 3, true, std::nullopt), 0u);
}

}  // namespace
}  // namespace ombrine
