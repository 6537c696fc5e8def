#include "storms/storm.hpp"

#include <gtest/gtest.h>

namespace ombrine {
namespace {

using Kind = StormIntensityTag::Kind;

Storm hurricane(std::string id, std::optional<int> knots) {
  Storm storm;
  storm.id = std::move(id);
  storm.name = "Ada";
  storm.classification = Storm::Classification::fromCode("HU");
  storm.intensity = knots;
  return storm;
}

TEST(StormTest, CategoriesAtEveryBoundary) {
  const std::pair<int, std::optional<int>> rows[] = {
      {63, std::nullopt}, {64, 1}, {82, 1}, {83, 2}, {95, 2}, {96, 3}, {112, 3}, {113, 4}, {136, 4}, {137, 5}, {200, 5},
  };
  for (const auto& [knots, category] : rows) EXPECT_EQ(categoryForKnots(knots), category) << knots;
}

TEST(StormTest, TagsFromText) {
  const std::pair<std::optional<std::string>, StormIntensityTag> rows[] = {
      {std::nullopt, StormIntensityTag::other("")},
      {" \n", StormIntensityTag::other("")},
      {"hu", StormIntensityTag::hurricane()},
      {" HU3\n", StormIntensityTag::hurricane(3)},
      {"HU9", StormIntensityTag::hurricane(9)},  // no range test on the number
      {"HUX", StormIntensityTag::other("HUX")},
      {"td", StormIntensityTag::plain(Kind::tropicalDepression)},
      {"PTC", StormIntensityTag::plain(Kind::potentialTropicalCyclone)},
      {"ty", StormIntensityTag::other("TY")},
  };
  for (const auto& [text, tag] : rows) EXPECT_EQ(tagFromText(text), tag) << text.value_or("(none)");
}

TEST(StormTest, TitlesAndLabelsBySuperTyphoonRule) {
  const icu::Locale locale("en_US");
  struct Row {
    const char* id;
    std::optional<int> knots;
    const char* title;
    std::optional<std::string> label;
  };
  const Row rows[] = {
      {"WP052026", 129, "Ada (Cat 4)", "Typhoon (Category 4)"},
      {"WP052026", 130, "Ada", "Super Typhoon"},  // a super typhoon shows no category
      {"AL052026", 130, "Ada (Cat 4)", "Hurricane (Category 4)"},
      {"SH052026", 140, "Ada (Cat 5)", "Cyclone (Category 5)"},
      {"IO012026", 70, "Ada (Cat 1)", "Cyclone (Category 1)"},
      {"AL052026", 60, "Ada", "Hurricane"},  // below 64: no category anywhere
      {"AL052026", std::nullopt, "Ada", "Hurricane"},
      {"XX012026", 100, "Ada (Cat 3)", "Hurricane (Category 3)"},
  };
  for (const auto& row : rows) {
    SCOPED_TRACE(std::string(row.id) + " " + std::to_string(row.knots.value_or(-1)));
    const Storm storm = hurricane(row.id, row.knots);
    EXPECT_EQ(storm.title(locale), row.title);
    EXPECT_EQ(intensityLabel(storm.intensityTag(), storm.basin(), storm.intensity, locale), row.label);
  }
  EXPECT_EQ(hurricane("AL1", 60).intensityTag(), StormIntensityTag::hurricane());
  EXPECT_EQ(intensityLabel(StormIntensityTag::other("UNK"), StormBasin::atlantic, 20, locale), std::nullopt);
  EXPECT_EQ(intensityLabel(StormIntensityTag::other("LO"), StormBasin::atlantic, 20, locale), "LO");
}

TEST(StormTest, BasinsAndMergedIdentifiers) {
  const std::pair<const char*, StormBasin> rows[] = {
      {"al012026", StormBasin::atlantic},
      {"EP09", StormBasin::eastPacific},
      {"cp01", StormBasin::centralPacific},
      {"wp0126", StormBasin::westPacific},
      {"sh05", StormBasin::southernHemisphere},
      {"SI01", StormBasin::southernHemisphere},
      {"sp01", StormBasin::southernHemisphere},
      {"io02", StormBasin::indianOcean},
      {"a", StormBasin::otherBasin},
  };
  for (const auto& [id, basin] : rows) EXPECT_EQ(basinOf(id), basin) << id;

  Storm other = hurricane("WP0126", 80);
  other.alternateIDs = {"WP9126"};
  const Storm merged = hurricane("WP012026", 90).mergingAlternateIdentifiers(other);
  EXPECT_EQ(merged.alternateIDs, (std::set<std::string>{"WP0126", "WP9126"}));
  EXPECT_EQ(merged.intensity, 90);
}

}  // namespace
}  // namespace ombrine
