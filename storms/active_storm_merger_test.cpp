#include "storms/active_storm_merger.hpp"

#include <gtest/gtest.h>

#include <cmath>

#include "storms/active_storm_fetch.hpp"
#include "storms/storm_time.hpp"

namespace ombrine {
namespace {

using Identity = ActiveStormMerger::Identity;

const Date kNoon = *utcDate(2026, 9, 1, 12, 0);

// Degrees of latitude for `nm` nautical miles on the sphere distances are measured on.
double northNm(double nm) { return nm * 1852.0 / 6'371'009.0 * 180.0 / M_PI; }

Storm storm(std::string id, double latitude, double longitude, std::optional<Date> lastUpdate = kNoon,
            std::optional<double> dir = std::nullopt, std::optional<double> speed = std::nullopt) {
  Storm s;
  s.id = std::move(id);
  s.name = s.id;
  s.coordinate = {latitude, longitude};
  s.lastUpdate = lastUpdate;
  s.movementDir = dir;
  s.movementSpeed = speed;
  return s;
}

TEST(ActiveStormMergerTest, IdentifierComponents) {
  using C = ActiveStormMerger::IDComponents;
  const std::pair<const char*, std::optional<C>> rows[] = {
      {"AL012026", C{"AL", 1, "01", "26"}},
      {"al0126", C{"AL", 1, "01", "26"}},
      {"wp-93-26", C{"WP", 93, "93", "26"}},  // punctuation is dropped first
      {"AL01202", std::nullopt},              // 7 characters
      {"A1012026", std::nullopt},
      {"ALO12026", std::nullopt},  // a letter where a digit belongs
  };
  for (const auto& [id, parts] : rows) EXPECT_EQ(ActiveStormMerger::components(id), parts) << id;
  EXPECT_EQ(ActiveStormMerger::canonicalIdentifier("al012026"), "AL0126");
  EXPECT_EQ(ActiveStormMerger::canonicalIdentifier("invest-x"), "INVESTX");
}

TEST(ActiveStormMergerTest, TransitionScoreRules) {
  // The invest is the older record, moving north at 10 kt; the numbered storm lies north of it.
  const Date older = kNoon - 3 * 3600.0;
  auto invest = [&](std::optional<double> dir = 0.0, std::optional<double> speed = 10.0, Date at = kNoon - 3 * 3600.0) {
    return Identity::of(storm("AL932026", 10, -50, at, dir, speed));
  };
  auto numbered = [&](double nm, std::string id = "AL052026", Date at = kNoon, double longitudeOffset = 0) {
    return Identity::of(storm(std::move(id), 10 + northNm(nm), -50 + longitudeOffset, at));
  };
  struct Row {
    const char* why;
    Identity preferred;
    Identity fallback;
    bool matches;
  };
  const Row rows[] = {
      {"200 nm in 3 h at 10 kt: allowed 155", numbered(200), invest(), false},
      {"100 nm in 3 h at 10 kt: residual 70", numbered(100), invest(), true},
      {"other year", numbered(100, "AL052025"), invest(), false},
      {"other basin", numbered(100, "EP052026"), invest(), false},
      {"an invest never absorbs a numbered storm", Identity::of(storm("AL932026", 10 + northNm(100), -50)),
       Identity::of(storm("AL052026", 10, -50, older, 0.0, 10.0)), false},
      {"no usable motion", numbered(100), invest(std::nullopt), false},
      {"motion over 100 kt is unusable", numbered(100), invest(0.0, 101.0), false},
      {"motion the wrong way", numbered(100), invest(180.0), false},
      {"direction reduced modulo 360", numbered(100), invest(720.0), true},
      {"preferred 6 h older than the invest", numbered(10, "AL052026", kNoon - 21600), invest(0.0, 10.0, kNoon), true},
      {"preferred 6 h and 1 s older", numbered(10, "AL052026", kNoon - 21601), invest(0.0, 10.0, kNoon), false},
      {"more than 48 h apart", numbered(100, "AL052026", kNoon + 46 * 3600.0), invest(), false},
      {"25 nm needs no bearing", numbered(24.999, "AL052026", kNoon), invest(90.0, 10.0, kNoon - 3600.0), true},
      {"just over 25 nm does", numbered(25.01, "AL052026", kNoon), invest(90.0, 10.0, kNoon - 3600.0), false},
      {"no time", Identity::of(storm("AL052026", 11, -50, std::nullopt)), invest(), false},
      {"invalid coordinate", Identity::of(storm("AL052026", 91, -50)), invest(), false},
  };
  for (const auto& row : rows) {
    SCOPED_TRACE(row.why);
    EXPECT_EQ(ActiveStormMerger::transitionScore(row.preferred, row.fallback).has_value(), row.matches);
  }
  EXPECT_NEAR(*ActiveStormMerger::transitionScore(numbered(100), invest()), 100 + 70, 1e-6);
}

std::vector<std::string> idsOf(const std::vector<Storm>& storms) {
  std::vector<std::string> ids;
  for (const auto& s : storms) ids.push_back(s.id);
  return ids;
}

TEST(ActiveStormMergerTest, MergeOrderAndIdentifiers) {
  const Date older = kNoon - 3 * 3600.0;
  struct Row {
    const char* why;
    std::vector<Storm> preferred;
    std::vector<Storm> fallback;
    std::vector<std::string> ids;
    std::vector<std::set<std::string>> alternates;
  };
  const Row rows[] = {
      {"same storm by canonical id keeps the preferred fields",
       {storm("AL012026", 10, -50)},
       {storm("al0126", 30, 130)},
       {"AL012026"},
       {{"al0126"}}},
      {"an invest that became a numbered storm",
       {storm("AL052026", 10 + northNm(100), -50)},
       {storm("AL932026", 10, -50, older, 0, 10)},
       {"AL052026"},
       {{"AL932026"}}},
      {"two preferred compete: the lower score wins",
       {storm("AL052026", 10 + northNm(120), -50), storm("AL062026", 10 + northNm(100), -50)},
       {storm("AL932026", 10, -50, older, 0, 10)},
       {"AL052026", "AL062026"},
       {{}, {"AL932026"}}},
      {"equal scores: the lower preferred index wins",
       {storm("AL052026", 10 + northNm(100), -50), storm("AL062026", 10 + northNm(100), -50)},
       {storm("AL932026", 10, -50, older, 0, 10)},
       {"AL052026", "AL062026"},
       {{"AL932026"}, {}}},
      {"duplicate fallback invests without a match: the first stays",
       {},
       {storm("WP9426", 1, 1), storm("wp942026", 2, 2)},
       {"WP9426"},
       {{}}},
      {"a fallback id without components deduplicates by its normalised text",
       {storm("invest-x", 0, 0)},
       {storm("INVEST X", 5, 5), storm("other", 1, 1)},
       {"invest-x", "other"},
       {{"INVEST X"}, {}}},
      {"preferred records are never deduplicated among themselves",
       {storm("AL012026", 1, 1), storm("al0126", 1, 1)},
       {},
       {"AL012026", "al0126"},
       {{}, {}}},
  };
  for (const auto& row : rows) {
    SCOPED_TRACE(row.why);
    const auto merged = ActiveStormMerger::merge(row.preferred, row.fallback);
    EXPECT_EQ(idsOf(merged), row.ids);
    for (std::size_t i = 0; i < merged.size() && i < row.alternates.size(); ++i) {
      EXPECT_EQ(merged[i].alternateIDs, row.alternates[i]) << i;
    }
  }
  const auto merged = ActiveStormMerger::merge({storm("AL012026", 10, -50)}, {storm("al0126", 30, 130)});
  EXPECT_EQ(merged[0].coordinate, (StormCoordinate{10, -50}));
}

TEST(ActiveStormMergerTest, DescriptorsNhcAlreadyHas) {
  auto descriptor = [](std::string slug) { return JTWCStormDescriptor{slug, {}, {}, std::nullopt, {}}; };
  const auto left = ActiveStormMerger::descriptorsNotIn(
      {storm("EP092026", 0, 0)}, {descriptor("ep0926"), descriptor("wp0126"), descriptor("ep1026")});
  ASSERT_EQ(left.size(), 2u);
  EXPECT_EQ(left[0].slug, "wp0126");
}

TEST(ActiveStormFetchRulesTest, CoverageTellsNothingActiveFromNoData) {
  using C = ActiveStormCoverage;
  struct Row {
    const char* why;
    std::vector<Storm> merged;
    ActiveStormCoverageSet coverage;
    bool trusted;
  };
  const Row rows[] = {
      {"whole coverage, no storms: nothing active", {}, wholeCoverage(), true},
      {"partial coverage, no storms: no data", {}, nhcCoverage(), false},
      {"no coverage at all, no storms", {}, {}, false},
      {"partial coverage with storms", {storm("AL012026", 1, 1)}, {C::nhcAtlantic}, true},
      {"five of six areas, no storms",
       {},
       [] {
         auto s = wholeCoverage();
         s.erase(C::jtwcIndianOcean);
         return s;
       }(),
       false},
  };
  for (const auto& row : rows) {
    SCOPED_TRACE(row.why);
    if (row.trusted) {
      EXPECT_EQ(trustedActiveStorms(row.merged, row.coverage).size(), row.merged.size());
    } else {
      EXPECT_THROW(trustedActiveStorms(row.merged, row.coverage), ActiveStormFetchError);
    }
  }
}

}  // namespace
}  // namespace ombrine
