#include "sim/storm_routes.hpp"

#include <gtest/gtest.h>

#include "sim/storm_season.hpp"
#include "sim/zip_writer.hpp"

namespace ombrine::sim {
namespace {

// A season cycle starts every 240 hours from the epoch; this one on 2026-09-04.
const Instant kCycleStart{std::chrono::seconds(1788480000)};

std::vector<std::string> listed(int hour, bool nhc) {
  std::vector<std::string> ids;
  for (const auto& storm : simulatedStorms(kCycleStart + std::chrono::hours(hour))) {
    if (nhc && storm.nhcNumber) ids.push_back(storm.nhcID());
    if (!nhc && storm.jtwcNumber) ids.push_back(storm.jtwcSlug());
  }
  return ids;
}

TEST(StormSeasonTest, TheSeasonUnfolds) {
  using V = std::vector<std::string>;
  struct Row {
    int hour;
    V nhc;
    V jtwc;
  };
  const Row rows[] = {
      {1, {}, {"wp0626"}},                                   // the first storm has formed
      {30, {"al052026"}, {"wp0626", "cp9126"}},              // an invest in the Central Pacific
      {45, {"al052026", "cp012026"}, {"wp0626", "cp9126"}},  // NHC has numbered it, JTWC not yet
      {50, {"al052026", "cp012026"}, {"wp0626", "cp0126"}},  // renumbered in both
      {100, {"al052026", "cp012026", "ep092026"}, {"wp0626", "cp0126", "ep0926"}},
      {150, {"al052026", "cp012026", "ep092026"}, {"wp0626", "cp0126", "ep0926", "sh0426"}},
      {225, {}, {}},          // the quiet end of the cycle
      {241, {}, {"wp0626"}},  // and the next season
  };
  for (const auto& row : rows) {
    SCOPED_TRACE(row.hour);
    EXPECT_EQ(listed(row.hour, true), row.nhc);
    EXPECT_EQ(listed(row.hour, false), row.jtwc);
  }
  // Iona crosses the date line westward around hour 66.
  auto iona = [](int hour) {
    for (const auto& s : simulatedStorms(kCycleStart + std::chrono::hours(hour))) {
      if (s.name == "Iona") return s.current.longitude;
    }
    return 0.0;
  };
  EXPECT_LT(iona(48), -175.0);
  EXPECT_GT(iona(90), 170.0);
}

TEST(StormSeasonTest, StoredZipEntriesCarryTheirChecksum) {
  EXPECT_EQ(crc32("123456789"), 0xcbf43926u);
  const std::string zip = storedZip({{"doc.kml", "<kml/>"}});
  EXPECT_EQ(zip.substr(0, 4), std::string("PK\x03\x04", 4));
  EXPECT_EQ(zip.substr(zip.size() - 22, 4), std::string("PK\x05\x06", 4));
  EXPECT_NE(zip.find("<kml/>"), std::string::npos);
}

}  // namespace
}  // namespace ombrine::sim
