#include "storms/nhc_feed.hpp"

#include <gtest/gtest.h>

#include "core/values/errors.hpp"
#include "storms/storm_time.hpp"

namespace ombrine {
namespace {

// The shape of the live feed: numeric position keys beside text ones, strings for intensity and
// pressure, linked files as objects.
const char* kFeed = R"({"activeStorms":[
 {"id":"al052026","binNumber":"AT5","name":"Ernesto","classification":"hu","intensity":"85","pressure":"968",
  "latitude":"24.9N","longitude":"67.3W","latitudeNumeric":24.9,"longitudeNumeric":-67.3,"movementDir":350,
  "movementSpeed":12,"lastUpdate":"2026-08-16T15:00:00.000Z",
  "publicAdvisory":{"advNum":"17","issuance":"2026-08-16T15:00:00.000Z","fileUpdateTime":"2026-08-16T14:52:15.102Z","url":"https://www.nhc.noaa.gov/text/MIATCPAT5.shtml"},
  "forecastTrack":{"advNum":"017","issuance":"2026-08-16T15:00:00.000Z","fileUpdateTime":"x","zipFile":"z","kmzFile":"https://www.nhc.noaa.gov/storm_graphics/api/AL052026_017adv_TRACK.kmz"},
  "trackCone":{"kmzFile":"https://www.nhc.noaa.gov/storm_graphics/api/AL052026_017adv_CONE.kmz"},
  "bestTrackGIS":{"kmzFile":"https://www.nhc.noaa.gov/gis/best_track/al052026_best_track.kmz"}},
 {"id":"ep092026","name":"Nine-E","classification":"TD","intensity":"N/A","pressure":"+1007",
  "latitudeNumeric":15.0,"longitudeNumeric":-110,"forecastTrack":"none","lastUpdate":"2026-08-16T15:00:00Z"}
]})";

TEST(NHCFeedTest, DecodesTheFeed) {
  const auto response = decodeNHCActiveStorms(kFeed);
  EXPECT_EQ(response.completeCoverage, nhcCoverage());
  ASSERT_EQ(response.activeStorms.size(), 2u);
  const Storm& ernesto = response.activeStorms[0];
  EXPECT_EQ(ernesto.id, "al052026");  // kept as the feed spells it
  EXPECT_EQ(ernesto.classification, Storm::Classification::fromCode("HU"));
  EXPECT_EQ(ernesto.intensity, 85);
  EXPECT_EQ(ernesto.pressure, 968);
  EXPECT_EQ(ernesto.coordinate, (StormCoordinate{24.9, -67.3}));
  EXPECT_EQ(ernesto.movementDir, 350.0);
  EXPECT_EQ(ernesto.lastUpdate, utcDate(2026, 8, 16, 15, 0));
  EXPECT_EQ(ernesto.forecastIssuance, utcDate(2026, 8, 16, 15, 0));
  EXPECT_EQ(ernesto.trackURL->path(), "/storm_graphics/api/AL052026_017adv_TRACK.kmz");
  EXPECT_EQ(ernesto.coneURL->path(), "/storm_graphics/api/AL052026_017adv_CONE.kmz");
  EXPECT_EQ(ernesto.historyURL->path(), "/gis/best_track/al052026_best_track.kmz");
  EXPECT_EQ(ernesto.advisoryURL->path(), "/text/MIATCPAT5.shtml");
  EXPECT_TRUE(ernesto.alternateIDs.empty());
  const Storm& nine = response.activeStorms[1];
  EXPECT_EQ(nine.intensity, std::nullopt);  // "N/A" is no value and no error
  EXPECT_EQ(nine.pressure, 1007);
  EXPECT_EQ(nine.trackURL, std::nullopt);  // "none" instead of an object
  EXPECT_EQ(nine.forecastIssuance, std::nullopt);
}

TEST(NHCFeedTest, BadEntriesWithdrawTheirBasin) {
  const std::string good =
      R"({"id":"al012026","name":"A","classification":"TS","latitudeNumeric":1,"longitudeNumeric":2})";
  struct Row {
    const char* why;
    std::string entry;
    ActiveStormCoverageSet coverage;
  };
  using C = ActiveStormCoverage;
  const Row rows[] = {
      // clang-format off
      {"no latitude, Atlantic id", R"({"id":"al052024","name":"A","classification":"TS","longitudeNumeric":2})", {C::nhcEastCentralPacific}},
      {"bad date, Central Pacific id", R"({"id":"cp012026","name":"A","classification":"TS","latitudeNumeric":1,"longitudeNumeric":2,"lastUpdate":"yesterday"})", {C::nhcAtlantic}},
      {"bad issuance inside an object", R"({"id":"EP012026","name":"A","classification":"TS","latitudeNumeric":1,"longitudeNumeric":2,"forecastTrack":{"issuance":"soon"}})", {C::nhcAtlantic}},
      {"no id", R"({"name":"A"})", {}},
      {"an id of another basin", R"({"id":"wp012026"})", {}},
      {"not an object", "42", {}},
      // clang-format on
  };
  for (const auto& row : rows) {
    SCOPED_TRACE(row.why);
    const auto response = decodeNHCActiveStorms(R"({"activeStorms":[)" + good + "," + row.entry + "]}");
    ASSERT_EQ(response.activeStorms.size(), 1u);
    EXPECT_EQ(response.completeCoverage, row.coverage);
  }
}

TEST(NHCFeedTest, TopLevelFailuresFailTheFeed) {
  EXPECT_EQ(decodeNHCActiveStorms(R"({"activeStorms":[]})").completeCoverage, nhcCoverage());
  for (const char* body : {"", "{", "[]", R"({"activeStorms":{}})", R"({"storms":[]})"}) {
    EXPECT_THROW(decodeNHCActiveStorms(body), DecodingError) << body;
  }
}

}  // namespace
}  // namespace ombrine
