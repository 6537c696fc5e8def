#include "storms/storm_report.hpp"

#include <gtest/gtest.h>

namespace ombrine {
namespace {

Storm storm(std::string id, double latitude, double longitude, std::set<std::string> alternates = {}) {
  Storm s;
  s.id = std::move(id);
  s.name = "S";
  s.coordinate = {latitude, longitude};
  s.alternateIDs = std::move(alternates);
  return s;
}

TEST(StormReportTest, AgenciesMovementAndLookup) {
  EXPECT_EQ(agencyLabel(storm("al052026", 0, 0)), "NHC");
  EXPECT_EQ(agencyLabel(storm("WP0626", 0, 0)), "JTWC");
  EXPECT_EQ(agencyLabel(storm("cp012026", 0, 0, {"CP9126"})), "NHC+JTWC");

  const std::tuple<std::optional<double>, std::optional<double>, std::optional<std::string>> moves[] = {
      {0.0, 10.0, "N at 10 kt"},        {11.2, 5.0, "N at 5 kt"},  {11.3, 5.0, "NNE at 5 kt"},
      {348.8, 9.0, "N at 9 kt"},        {-90.0, 9.0, "W at 9 kt"}, {292.5, 12.4, "WNW at 12 kt"},
      {std::nullopt, 9.0, std::nullopt}};
  const ScreenWords english(icu::Locale("en_US"));
  for (const auto& [direction, speed, text] : moves) EXPECT_EQ(formatStormMovement(direction, speed, english), text);
  EXPECT_EQ(formatStormPosition(-12.54, 179.96, english), "12.5S 180.0E");
  EXPECT_EQ(formatStormPosition(-12.54, 179.96, ScreenWords(icu::Locale("ar_EG"))), "١٢٫٥S ١٨٠٫٠E");

  const std::vector<Storm> storms = {storm("al052026", 0, 0), storm("cp012026", 0, 0, {"CP9126"})};
  EXPECT_EQ(findStorm(storms, "AL0526")->id, "al052026");
  EXPECT_EQ(findStorm(storms, "cp9126")->id, "cp012026");  // by an absorbed identifier
  EXPECT_EQ(findStorm(storms, "ep092026"), std::nullopt);
}

TEST(StormReportTest, NearestFirstWithinTheRadius) {
  const std::vector<Storm> storms = {storm("far", 0, 60), storm("near", 0, 10), storm("across", 0, -179)};
  const Location place(0, 179);  // the storm across the date line is the nearest
  const auto all = stormListEntries(storms, place, std::nullopt);
  ASSERT_EQ(all.size(), 3u);
  EXPECT_EQ(all[0].storm.id, "across");
  EXPECT_NEAR(*all[0].distanceKm, 222.4, 0.5);
  const auto within = stormListEntries(storms, place, 500.0);
  ASSERT_EQ(within.size(), 1u);
  EXPECT_EQ(stormListEntries(storms, std::nullopt, 1.0).size(), 3u);  // no place: no filter, list order
}

}  // namespace
}  // namespace ombrine
