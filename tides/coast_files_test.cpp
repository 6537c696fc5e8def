#include <unistd.h>

#include <algorithm>
#include <cmath>
#include <cstdlib>
#include <cstring>
#include <filesystem>
#include <fstream>
#include <functional>
#include <limits>
#include <string>

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include "platform/testing/scratch_folder.hpp"
#include "tides/coast_candidate_mask.hpp"
#include "tides/coast_test_files.hpp"
#include "tides/coast_tile_index.hpp"

namespace ombrine {
namespace {

using testing::CoastFileWriter;
using testing::maskFile;
using testing::MaskFileSpec;
using testing::segmentBetween;
using testing::tilesFile;
using testing::TilesFileSpec;
using Bytes = std::vector<std::byte>;

std::optional<CoastCandidateMask> parseMask(const Bytes& bytes) {
  auto loaded = CoastCandidateMask::parse(coastResourceFromBuffer(bytes));
  if (!loaded) return std::nullopt;
  return CoastCandidateMask(std::move(*loaded));
}

std::optional<CoastTileIndex> parseTiles(const Bytes& bytes) {
  auto loaded = CoastTileIndex::parse(bytes);
  if (!loaded) return std::nullopt;
  return CoastTileIndex(std::move(*loaded));
}

template <class T>
void put(Bytes& bytes, std::size_t offset, T value) {
  std::memcpy(bytes.data() + offset, &value, sizeof value);
}

// A mask of 1° cells (stride 361) with three cells: the one at (10.5, 20.5), the last cell of
// the row at latitude 10, and the cell of latitude 90 at longitude 0.
MaskFileSpec sampleMask() {
  MaskFileSpec spec;
  spec.cells = {100u * 361 + 200, 100u * 361 + 359, 180u * 361 + 180};
  std::sort(spec.cells.begin(), spec.cells.end());
  return spec;
}

struct Mutation {
  const char* name;
  std::function<void(Bytes&)> apply;
};

TEST(CoastCandidateMaskTest, RejectsEveryMalformedFileWhole) {
  const Bytes valid = maskFile(sampleMask());
  ASSERT_TRUE(parseMask(valid));
  const std::size_t cellsAt = 44 + 16;  // one longitude range
  const Mutation mutations[] = {
      {"empty file", [](Bytes& b) { b.clear(); }},
      {"magic of the tile file", [](Bytes& b) { std::memcpy(b.data(), "OMBRCTI2", 8); }},
      {"magic of an older mask", [](Bytes& b) { b[7] = std::byte{'0'}; }},
      {"ends inside the magic", [](Bytes& b) { b.resize(5); }},
      {"ends inside the cell size", [](Bytes& b) { b.resize(13); }},
      {"ends inside the stride", [](Bytes& b) { b.resize(18); }},
      {"ends inside the latitude range", [](Bytes& b) { b.resize(30); }},
      {"ends inside the range count", [](Bytes& b) { b.resize(38); }},
      {"ends inside a longitude range", [](Bytes& b) { b.resize(48); }},
      {"ends inside the cell count", [](Bytes& b) { b.resize(cellsAt - 2); }},
      {"ends inside the cells", [](Bytes& b) { b.resize(b.size() - 1); }},
      {"one extra trailing byte", [](Bytes& b) { b.push_back(std::byte{0}); }},
      {"one extra trailing cell", [](Bytes& b) { b.insert(b.end(), 4, std::byte{0xff}); }},
      {"range count runs past the end", [](Bytes& b) { put<std::uint32_t>(b, 36, 0x10000000); }},
      {"range count overflows 32 bits when multiplied", [](Bytes& b) { put<std::uint32_t>(b, 36, 0xffffffff); }},
      {"cell count one too many", [](Bytes& b) { put<std::uint32_t>(b, cellsAt - 4, 4); }},
      {"cell count overflows 32 bits when multiplied",
       [](Bytes& b) { put<std::uint32_t>(b, cellsAt - 4, 0x40000003); }},
      {"cell size zero", [](Bytes& b) { put(b, 8, 0.0); }},
      {"cell size negative", [](Bytes& b) { put(b, 8, -1.0); }},
      {"cell size not a number", [](Bytes& b) { put(b, 8, std::numeric_limits<double>::quiet_NaN()); }},
      {"cell size infinite", [](Bytes& b) { put(b, 8, std::numeric_limits<double>::infinity()); }},
  };
  for (const auto& mutation : mutations) {
    SCOPED_TRACE(mutation.name);
    Bytes bytes = valid;
    mutation.apply(bytes);
    EXPECT_FALSE(parseMask(bytes));
  }
}

TEST(CoastCandidateMaskTest, KeepsTheCellsInTheFileItWasReadFrom) {
  const auto file = coastResourceFromBuffer(maskFile(sampleMask()));
  const auto loaded = CoastCandidateMask::parse(file);
  ASSERT_TRUE(loaded);
  const auto* mapped = std::get_if<CoastCandidateMask::MappedData>(&loaded->candidateStorage);
  ASSERT_NE(mapped, nullptr);
  EXPECT_EQ(mapped->file.bytes.data(), file.bytes.data());
  EXPECT_EQ(mapped->cellsOffset, 60u);
  EXPECT_EQ(mapped->cellCount, 3u);
  EXPECT_EQ(loaded->lonIndexStride, 361);
  EXPECT_EQ(loaded->filterBounds.latitudeRange, (CoastClosedRange{-90.0, 90.0}));
}

TEST(CoastCandidateMaskTest, InvertedRangesAreNotFilesToTrust) {
  auto latitude = sampleMask();
  latitude.latitudeRange = {10.0, -10.0};
  auto longitude = sampleMask();
  longitude.longitudeRanges = {{-180.0, 180.0}, {5.0, 4.0}};
  EXPECT_THROW(CoastCandidateMask::parse(coastResourceFromBuffer(maskFile(latitude))), CoastRangeError);
  EXPECT_THROW(CoastCandidateMask::parse(coastResourceFromBuffer(maskFile(longitude))), CoastRangeError);
  // An empty range (lower == upper) is a range like any other.
  auto point = sampleMask();
  point.longitudeRanges = {{20.5, 20.5}};
  EXPECT_TRUE(parseMask(maskFile(point)));
}

TEST(CoastCandidateMaskTest, ContainsAnswersByCellAndBounds) {
  struct Row {
    double latitude;
    double longitude;
    bool expected;
    const char* why;
  };
  auto spec = sampleMask();
  spec.latitudeRange = {-80.0, 90.0};
  spec.longitudeRanges = {{-180.0, 0.0}, {20.0, 180.0}};
  const auto mask = parseMask(maskFile(spec));
  ASSERT_TRUE(mask);
  const Row rows[] = {
      {10.5, 20.5, true, "inside a stored cell"},
      {10.0, 20.0, true, "the south-west corner belongs to the cell"},
      {10.999, 20.999, true, "just inside the north-east corner"},
      {11.0, 20.5, false, "the northern edge belongs to the next row"},
      {10.5, 21.0, false, "the eastern edge belongs to the next cell"},
      {9.999, 20.5, false, "just south of the cell"},
      {10.5, 179.5, true, "the last cell of a row"},
      {11.5, -180.0, false, "the row after does not inherit it"},
      {90.0, 0.0, true, "a latitude on the upper bound of the range is inside"},
      {-80.0, 20.5, false, "on the lower bound, but no cell there"},
      {-80.001, 20.5, false, "below the latitude range"},
      {10.5, 10.0, false, "between the two longitude ranges"},
      {std::nan(""), 20.5, false, "not a number"},
      {10.5, std::numeric_limits<double>::infinity(), false, "infinite longitude"},
  };
  for (const auto& row : rows) {
    SCOPED_TRACE(row.why);
    EXPECT_EQ(mask->contains(row.latitude, row.longitude), row.expected);
  }
}

TEST(CoastCandidateMaskTest, EdgeCasesOfTheCellNumber) {
  struct Row {
    MaskFileSpec spec;
    double latitude;
    double longitude;
    bool expected;
    const char* why;
  };
  const Row rows[] = {
      {{.longitudeRanges = {}, .cells = {0}}, -90.0, -180.0, false, "no longitude ranges: nothing is inside"},
      {{.cells = {}}, 0.0, 0.0, false, "no cells"},
      {{.cellSizeDegrees = 1e-7, .lonIndexStride = 0xffffffff, .cells = {0}},
       -89.0,
       -180.0,
       false,
       "the cell number passes 4,294,967,295"},
      {{.cellSizeDegrees = 1.0, .lonIndexStride = 0xffffffff, .cells = {4294967295u}},
       -89.0,
       -180.0,
       true,
       "the largest cell number is still a cell"},
      {{.latitudeRange = {-200.0, 200.0}, .cells = {0}},
       -150.0,
       -180.0,
       false,
       "bounds beyond the poles give negative indexes, never a cell"},
  };
  for (const auto& row : rows) {
    SCOPED_TRACE(row.why);
    const auto mask = parseMask(maskFile(row.spec));
    ASSERT_TRUE(mask);
    EXPECT_EQ(mask->contains(row.latitude, row.longitude), row.expected);
  }
}

TEST(CoastCandidateMaskTest, SortedCellsInMemoryAnswerLikeTheMappedFile) {
  const auto mapped = parseMask(maskFile(sampleMask()));
  ASSERT_TRUE(mapped);
  CoastCandidateMask::LoadedMask inMemory{
      .cellSizeDegrees = 1.0,
      .lonIndexStride = 361,
      .candidateStorage = CoastCandidateMask::SortedCells{sampleMask().cells},
      .filterBounds = mapped->filterBounds(),
  };
  const CoastCandidateMask sorted(std::move(inMemory));
  for (double latitude = -90.0; latitude <= 90.0; latitude += 0.5) {
    for (double longitude = -180.0; longitude <= 180.0; longitude += 0.5) {
      ASSERT_EQ(sorted.contains(latitude, longitude), mapped->contains(latitude, longitude))
          << latitude << ", " << longitude;
    }
  }
}

// Tiles of 1°: the tile (100, 200) holds two segments, (100, 201) one, (101, 200) one, and
// (100, 202) none.
TilesFileSpec sampleTiles() {
  TilesFileSpec spec;
  spec.tiles = {
      {100, 200, {segmentBetween(10.2, 20.2, 10.4, 20.4), segmentBetween(10.6, 20.6, 10.8, 20.8)}},
      {100, 201, {segmentBetween(10.5, 21.5, 10.5, 21.6)}},
      {101, 200, {segmentBetween(11.5, 20.5, 11.6, 20.5)}},
      {100, 202, {}},
  };
  return spec;
}

TEST(CoastTileIndexTest, RejectsEveryMalformedFileWhole) {
  const Bytes valid = tilesFile(sampleTiles());
  ASSERT_TRUE(parseTiles(valid));
  const std::size_t countsAt = 36 + 16;
  const std::size_t firstTileAt = countsAt + 8;
  const Mutation mutations[] = {
      {"empty file", [](Bytes& b) { b.clear(); }},
      {"magic of the mask file", [](Bytes& b) { std::memcpy(b.data(), "OMBRCMK1", 8); }},
      {"magic of an older tile file", [](Bytes& b) { b[7] = std::byte{'1'}; }},
      {"ends inside the tile size", [](Bytes& b) { b.resize(12); }},
      {"ends inside the latitude range", [](Bytes& b) { b.resize(20); }},
      {"ends inside the range count", [](Bytes& b) { b.resize(34); }},
      {"ends inside the segment count", [&](Bytes& b) { b.resize(countsAt + 6); }},
      {"ends inside a tile header", [&](Bytes& b) { b.resize(firstTileAt + 10); }},
      {"ends in the middle of a tile record", [&](Bytes& b) { b.resize(firstTileAt + 12 + 40); }},
      {"ends after the first of four tiles", [&](Bytes& b) { b.resize(firstTileAt + 12 + 64); }},
      {"one extra trailing byte", [](Bytes& b) { b.push_back(std::byte{0}); }},
      {"tile count one too many", [&](Bytes& b) { put<std::uint32_t>(b, countsAt, 5); }},
      {"tile count one too few leaves a tile behind", [&](Bytes& b) { put<std::uint32_t>(b, countsAt, 3); }},
      {"tiles hold fewer segments than S", [&](Bytes& b) { put<std::uint32_t>(b, countsAt + 4, 5); }},
      {"tiles hold more segments than S", [&](Bytes& b) { put<std::uint32_t>(b, countsAt + 4, 3); }},
      {"S far beyond the file", [&](Bytes& b) { put<std::uint32_t>(b, countsAt + 4, 0xffffffff); }},
      {"a tile's n runs past the end", [&](Bytes& b) { put<std::uint32_t>(b, firstTileAt + 8, 0x7fffffff); }},
      {"a tile's n overflows 32 bits when multiplied",
       [&](Bytes& b) { put<std::uint32_t>(b, firstTileAt + 8, 0x08000002); }},
      {"range count runs past the end", [](Bytes& b) { put<std::uint32_t>(b, 32, 0xfffffff0); }},
      {"tile size zero", [](Bytes& b) { put(b, 8, 0.0); }},
      {"tile size negative", [](Bytes& b) { put(b, 8, -0.5); }},
      {"tile size not a number", [](Bytes& b) { put(b, 8, std::numeric_limits<double>::quiet_NaN()); }},
  };
  for (const auto& mutation : mutations) {
    SCOPED_TRACE(mutation.name);
    Bytes bytes = valid;
    mutation.apply(bytes);
    EXPECT_FALSE(parseTiles(bytes));
  }
}

TEST(CoastTileIndexTest, InvertedRangesAreNotFilesToTrust) {
  auto latitude = sampleTiles();
  latitude.latitudeRange = {1.0, 0.0};
  auto longitude = sampleTiles();
  longitude.longitudeRanges = {{10.0, -10.0}};
  EXPECT_THROW(CoastTileIndex::parse(tilesFile(latitude)), CoastRangeError);
  EXPECT_THROW(CoastTileIndex::parse(tilesFile(longitude)), CoastRangeError);
}

TEST(CoastTileIndexTest, KeepsSegmentsTileAfterTileAndSkipsEmptyTiles) {
  const auto index = parseTiles(tilesFile(sampleTiles()));
  ASSERT_TRUE(index);
  EXPECT_EQ(index->allSegments().size(), 4u);
  EXPECT_EQ(index->tileSegmentRanges().size(), 3u);
  EXPECT_EQ(index->segmentRange({100, 200}), (CoastTileIndex::SegmentRange{0, 2}));
  EXPECT_EQ(index->segmentRange({100, 201}), (CoastTileIndex::SegmentRange{2, 3}));
  EXPECT_EQ(index->segmentRange({101, 200}), (CoastTileIndex::SegmentRange{3, 4}));
  EXPECT_EQ(index->segmentRange({100, 202}), std::nullopt);
  EXPECT_EQ(index->allSegments()[2], segmentBetween(10.5, 21.5, 10.5, 21.6));
}

TEST(CoastTileIndexTest, ALaterRecordOfTheSameTileWins) {
  auto spec = sampleTiles();
  spec.tiles.push_back({100, 200, {segmentBetween(10.1, 20.1, 10.1, 20.2)}});
  const auto index = parseTiles(tilesFile(spec));
  ASSERT_TRUE(index);
  EXPECT_EQ(index->segmentRange({100, 200}), (CoastTileIndex::SegmentRange{4, 5}));
  EXPECT_EQ(index->segmentsNear(10.1, 20.15, 1.0), (std::vector{segmentBetween(10.1, 20.1, 10.1, 20.2)}));
}

TEST(CoastTileIndexTest, SegmentsNearCollectTheTilesOfTheSearchBox) {
  struct Row {
    double latitude;
    double longitude;
    double radiusKilometers;
    std::vector<std::pair<int, int>> tiles;  // expected, in order
    const char* why;
  };
  const auto index = parseTiles(tilesFile(sampleTiles()));
  ASSERT_TRUE(index);
  const Row rows[] = {
      {10.5, 20.5, 10.0, {{100, 200}}, "a box inside one tile"},
      {10.5, 20.95, 10.0, {{100, 200}, {100, 201}}, "crossing a longitude edge: west tile first"},
      {10.95, 20.5, 10.0, {{100, 200}, {101, 200}}, "crossing a latitude edge: south row first"},
      {10.95, 20.95, 10.0, {{100, 200}, {100, 201}, {101, 200}}, "a corner: rows outer, longitude inner"},
      {10.5, 22.5, 10.0, {}, "a tile with no segments has no entry"},
      {10.5, 25.5, 100.0, {}, "nothing within the box"},
      {10.5, 20.5, 0.0, {{100, 200}}, "a zero radius still reads the coordinate's tile"},
      {10.5, 20.5, -1.0, {}, "a negative radius reads nothing"},
      {std::nan(""), 20.5, 10.0, {}, "not a number"},
  };
  for (const auto& row : rows) {
    SCOPED_TRACE(row.why);
    std::vector<CoastTileIndex::Segment> expected;
    for (const auto& [latitudeIndex, longitudeIndex] : row.tiles) {
      const auto range = index->segmentRange({latitudeIndex, longitudeIndex});
      ASSERT_TRUE(range);
      const auto all = index->allSegments();
      expected.insert(expected.end(), all.begin() + range->begin, all.begin() + range->end);
    }
    EXPECT_EQ(index->segmentsNear(row.latitude, row.longitude, row.radiusKilometers), expected);
  }
}

TEST(CoastTileIndexTest, TheSearchBoxFollowsTheBoundsOfTheFile) {
  const auto tileOf = [](int latitudeIndex, int longitudeIndex) {
    return testing::TileSpec{latitudeIndex,
                             longitudeIndex,
                             {segmentBetween(latitudeIndex - 90.0 + 0.5, longitudeIndex - 180.0 + 0.5,
                                             latitudeIndex - 90.0 + 0.5, longitudeIndex - 180.0 + 0.6)}};
  };
  struct Row {
    TilesFileSpec spec;
    double latitude;
    double longitude;
    std::size_t expectedSegments;
    const char* why;
  };
  const Row rows[] = {
      {{.latitudeRange = {10.0, 11.0}, .tiles = {tileOf(99, 200), tileOf(100, 200)}},
       10.05,
       20.5,
       1,
       "the box is cut at the lower latitude bound, so the row below is not read"},
      {{.latitudeRange = {20.0, 30.0}, .tiles = {tileOf(100, 200)}},
       10.5,
       20.5,
       0,
       "a box entirely below the latitude range is empty"},
      {{.latitudeRange = {-90.0, 90.0}, .tiles = {tileOf(179, 180), tileOf(179, 182)}},
       89.9,
       0.5,
       2,
       "near the pole the cosine is held at 0.1: 25 km spans 2.25° of longitude, not the world"},
      {{.latitudeRange = {-90.0, 90.0}, .tiles = {tileOf(179, 180), tileOf(179, 184)}}, 89.9, 0.5, 1, "and no further"},
      {{.longitudeRanges = {{-180.0, 20.0}, {19.0, 180.0}}, .tiles = {tileOf(100, 199)}},
       10.5,
       19.5,
       2,
       "overlapping longitude ranges read a tile twice"},
      {{.longitudeRanges = {{-180.0, 10.0}, {30.0, 180.0}}, .tiles = {tileOf(100, 200)}},
       10.5,
       20.5,
       0,
       "the box falls between the longitude ranges"},
      {{.longitudeRanges = {}, .tiles = {tileOf(100, 200)}}, 10.5, 20.5, 0, "no longitude ranges"},
      {{.longitudeRanges = {{-182.5, 182.5}}, .tiles = {tileOf(100, -1), tileOf(100, 360)}},
       10.5,
       -179.95,
       1,
       "a range past 180° reaches the tile beyond the antimeridian"},
      {{.longitudeRanges = {{-180.0, 180.0}}, .tiles = {tileOf(100, -1), tileOf(100, 360)}},
       10.5,
       -179.95,
       0,
       "a range that stops at 180° does not"},
      {{.tileSizeDegrees = 1e-9, .tiles = {tileOf(100, 200)}},
       10.5,
       20.5,
       0,
       "a minute tile size costs the tiles present, not the indexes between them"},
  };
  for (const auto& row : rows) {
    SCOPED_TRACE(row.why);
    const auto index = parseTiles(tilesFile(row.spec));
    ASSERT_TRUE(index);
    EXPECT_EQ(index->segmentsNear(row.latitude, row.longitude, 25.0).size(), row.expectedSegments);
  }
}

class CoastResourceFilesTest : public ::testing::Test {
 protected:
  void SetUp() override {
    for (const char* name : {kGeospatialResourceDirVariable, "OMBRINE_RESOURCE_DIR"}) {
      const char* value = std::getenv(name);
      saved_.emplace_back(name, value ? std::optional<std::string>(value) : std::nullopt);
    }
  }
  void TearDown() override {
    for (const auto& [name, value] : saved_) {
      if (value) {
        ::setenv(name, value->c_str(), 1);
      } else {
        ::unsetenv(name);
      }
    }
  }
  std::filesystem::path write(const std::string& name, const Bytes& bytes) {
    const auto path = folder_ / name;
    std::ofstream(path, std::ios::binary).write(reinterpret_cast<const char*>(bytes.data()), bytes.size());
    return path;
  }
  const ScratchFolder scratch_{"coast-resource-test"};
  const std::filesystem::path folder_ = scratch_.path();
  std::vector<std::pair<const char*, std::optional<std::string>>> saved_;
};

TEST_F(CoastResourceFilesTest, LoadsFromDiskOrIsAbsent) {
  EXPECT_TRUE(CoastCandidateMask::load(write("mask.bin", maskFile(sampleMask()))));
  EXPECT_TRUE(CoastTileIndex::load(write("tiles.bin", tilesFile(sampleTiles()))));
  Bytes extra = maskFile(sampleMask());
  extra.push_back(std::byte{0});
  EXPECT_EQ(CoastCandidateMask::load(write("extra.bin", extra)), nullptr);
  EXPECT_EQ(CoastTileIndex::load(write("empty.bin", {})), nullptr);
  EXPECT_EQ(CoastCandidateMask::load(folder_ / "missing.bin"), nullptr);
  EXPECT_EQ(CoastTileIndex::load(folder_), nullptr);  // a folder is not a file
}

TEST_F(CoastResourceFilesTest, TheEnvironmentFolderComesFirstWhenItHoldsTheFile) {
  const auto installed = folder_ / "resources" / "coastline";
  const auto preferred = folder_ / "preferred";
  std::filesystem::create_directories(installed);
  std::filesystem::create_directories(preferred);
  write("resources/coastline/coastline_tiles.bin", tilesFile(sampleTiles()));
  write("resources/coastline/coastline_candidate_mask.bin", maskFile(sampleMask()));
  write("preferred/coastline_tiles.bin", tilesFile(sampleTiles()));
  ::setenv("OMBRINE_RESOURCE_DIR", (folder_ / "resources").c_str(), 1);
  struct Row {
    const char* environment;  // nullptr: unset
    const char* name;
    std::optional<std::filesystem::path> expected;
    const char* why;
  };
  const Row rows[] = {
      {preferred.c_str(), "coastline_tiles", preferred / "coastline_tiles.bin", "the folder of the variable first"},
      {preferred.c_str(), "coastline_candidate_mask", installed / "coastline_candidate_mask.bin",
       "a file the folder lacks comes from the resources"},
      {nullptr, "coastline_tiles", installed / "coastline_tiles.bin", "no variable: the resources"},
      {"", "coastline_tiles", installed / "coastline_tiles.bin", "an empty variable counts as unset"},
      {preferred.c_str(), "no_such_resource", std::nullopt, "in neither place: absent"},
  };
  for (const auto& row : rows) {
    SCOPED_TRACE(row.why);
    if (row.environment) {
      ::setenv(kGeospatialResourceDirVariable, row.environment, 1);
    } else {
      ::unsetenv(kGeospatialResourceDirVariable);
    }
    EXPECT_EQ(findCoastResource(row.name), row.expected);
  }
}

using CoastResourceFilesDeathTest = CoastResourceFilesTest;

TEST_F(CoastResourceFilesDeathTest, AnInvertedRangeStopsTheProcess) {
  auto spec = sampleTiles();
  spec.latitudeRange = {5.0, -5.0};
  const auto path = write("inverted.bin", tilesFile(spec));
  EXPECT_DEATH(CoastTileIndex::load(path), "lower bound above its upper bound");
}

}  // namespace
}  // namespace ombrine
