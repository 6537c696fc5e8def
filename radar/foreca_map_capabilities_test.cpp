#include "radar/foreca_map_capabilities.hpp"

#include <gtest/gtest.h>

#include "core/values/errors.hpp"

namespace ombrine {
namespace {

// 2024-06-10T12:00:00Z
const Date kNow = Date::fromUnix(1718020800);

std::string image(int id, const std::string& times, int maxZoom = 9) {
  return R"({"id":)" + std::to_string(id) + R"(,"title":"Layer )" + std::to_string(id) + R"(","times":{"available":[)" +
         times +
         R"(],"current":0},"extent":{"minLat":-90,"maxLat":90,"minLon":-180,"maxLon":180,"minZoom":0,"maxZoom":)" +
         std::to_string(maxZoom) + "}}";
}

TEST(ForecaMapCapabilitiesTest, LayerChoiceAndFrames) {
  struct Row {
    const char* name;
    ForecaMapLayer layer;
    std::string images;
    std::optional<std::int64_t> imageID;  // nothing: the layer has no frames
    std::vector<std::string> paths;
    std::size_t nowIndex;
  };
  const std::string hourly = R"("2024-06-10T11:00:00Z","2024-06-10T12:20:00Z","2024-06-10T13:00:00Z")";
  const Row rows[] = {
      {"first id of the table that exists",
       ForecaMapLayer::cloudCoverage,
       image(4, hourly) + "," + image(14, hourly),
       14,
       {"2024-06-10T11:00:00Z", "2024-06-10T12:20:00Z", "2024-06-10T13:00:00Z"},
       1},
      {"no image serves the layer", ForecaMapLayer::uvIndex, image(2, hourly), std::nullopt, {}, 0},
      {"fractional seconds accepted, no zone skipped",
       ForecaMapLayer::temperature,
       image(2, R"("2024-06-10T11:50:00.500Z","2024-06-10T12:00:00","2024-06-10T12:10:00+00:00")"),
       2,
       {"2024-06-10T11:50:00.500Z", "2024-06-10T12:10:00+00:00"},
       0},
      {"36 hours ahead kept, one second more dropped",
       ForecaMapLayer::airQuality,
       image(79, R"("2024-06-12T00:00:00Z","2024-06-12T00:00:01Z")"),
       79,
       {"2024-06-12T00:00:00Z"},
       0},
      {"nothing left fails the layer",
       ForecaMapLayer::airQuality,
       image(79, R"("2024-06-12T00:00:01Z","garbage")"),
       std::nullopt,
       {},
       0},
      {"first of equal distances is now",
       ForecaMapLayer::temperature,
       image(2, R"("2024-06-10T11:30:00Z","2024-06-10T12:30:00Z")"),
       2,
       {"2024-06-10T11:30:00Z", "2024-06-10T12:30:00Z"},
       0},
  };
  for (const Row& row : rows) {
    SCOPED_TRACE(row.name);
    const auto capabilities = decodeForecaMapCapabilities(R"({"images":[)" + row.images + "]}");
    const auto frames = forecaFrames(row.layer, capabilities, kNow);
    ASSERT_EQ(frames.has_value(), row.imageID.has_value());
    if (!frames) continue;
    EXPECT_EQ(frames->forecaMapLayerImageID, *row.imageID);
    EXPECT_EQ(frames->forecaMapLayerMaximumZoom, 9);
    std::vector<std::string> paths;
    for (const auto& frame : frames->frames) paths.push_back(frame.path);
    EXPECT_EQ(paths, row.paths);
    EXPECT_EQ(frames->nowIndex, row.nowIndex);
  }
}

TEST(ForecaMapCapabilitiesTest, TableTemplatesAndMalformedDocuments) {
  for (auto layer : {ForecaMapLayer::cloudCoverage, ForecaMapLayer::temperature, ForecaMapLayer::uvIndex,
                     ForecaMapLayer::airQuality}) {
    EXPECT_EQ(forecaMapLayerFromText(textOf(layer)), layer);
  }
  EXPECT_EQ(std::vector<std::int64_t>(imageIDsOf(ForecaMapLayer::cloudCoverage).begin(),
                                      imageIDsOf(ForecaMapLayer::cloudCoverage).end()),
            (std::vector<std::int64_t>{130, 14, 4}));
  const std::string tile = forecaTileTemplate("https://proxy.example/", "2024-06-10T12:00:00Z", 2);
  EXPECT_EQ(tile, "https://proxy.example/api/v1/image/tile/{z}/{x}/{y}/2024-06-10T12:00:00Z/2");
  EXPECT_EQ(forecaTileSize(tile), 256);
  EXPECT_EQ(forecaTileSize("https://p/512/{z}"), 512);
  for (const char* bad :
       {R"({"images":[{"id":1}]})", R"({"images":{}})", "[]", R"({"images":[{"id":1.5,"title":"t"}]})"}) {
    EXPECT_THROW(decodeForecaMapCapabilities(bad), DecodingError) << bad;
  }
}

}  // namespace
}  // namespace ombrine
