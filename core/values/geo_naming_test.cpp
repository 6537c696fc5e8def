#include "core/values/geo_naming.hpp"

#include <gtest/gtest.h>

#include <vector>

#include "core/values/errors.hpp"

namespace ombrine {
namespace {

constexpr const char* kCupertino =
    "Apple Park, 1 Apple Park Way, Cupertino, CA  95014, United States @ <+37.33,-122.01> +/- 100.00m";

TEST(GeoNamingTest, NameFollowsAirportThenUsDescriptionThenFieldOrder) {
  struct Row {
    const char* why;
    Placemark placemark;
    const char* name;
  };
  const Row rows[] = {
      {"an airport wins over everything",
       {.locality = "San Mateo",
        .ISOcountryCode = "US",
        .areasOfInterest = {"Golden Gate Park", "San Francisco International Airport", "Oakland Airport"},
        .description = kCupertino},
       "San Francisco International Airport"},
      {"the airport match is case-sensitive",
       {.locality = "Hounslow", .ISOcountryCode = "GB", .areasOfInterest = {"heathrow airport"}},
       "Hounslow"},
      {"US: the third component from the end is the locality",
       {.name = "Apple Park",
        .locality = "Cupertino",
        .administrativeArea = "CA",
        .ISOcountryCode = "US",
        .description = kCupertino},
       "Cupertino"},
      {"US: compared ignoring case, the locality's spelling is kept",
       {.locality = "McAllen",
        .ISOcountryCode = "US",
        .description = "1 Main St, MCALLEN, TX  78501, United States @ <+26.20,-98.23>"},
       "McAllen"},
      {"US: else the sub-locality",
       {.locality = "New York",
        .subLocality = "Brooklyn",
        .ISOcountryCode = "US",
        .description = "1 Main St, Brooklyn, NY  11201, United States @ <+40.70,-73.99>"},
       "Brooklyn"},
      {"US: white space and line breaks of any kind are trimmed",
       {.locality = "Reno",
        .ISOcountryCode = "US",
        .description = "1 Virginia St,\n\u00A0Reno\t\n, NV  89501, United States\n@ <+39.52,-119.81>"},
       "Reno"},
      {"US: commas after the @ do not count",
       {.locality = "Garden City",
        .subLocality = "Boise",
        .ISOcountryCode = "US",
        .description = "Boise, ID  83702, United States @ <+43.61,-116.20>"},
       "Boise"},
      {"US: fewer than three components use the first",
       {.locality = "Springfield", .ISOcountryCode = "US", .description = "springfield @ <+39.80,-89.64>"},
       "Springfield"},
      {"US: no match falls back to the field order (sub-locality is not in it)",
       {.locality = "New York",
        .subLocality = "Manhattan",
        .ISOcountryCode = "US",
        .description = "1 Broadway, Manhattan Island, NY  10004, United States @ <+40.70,-74.01>"},
       "New York"},
      {"US: no match and no locality",
       {.subLocality = "Old Faithful",
        .administrativeArea = "WY",
        .ISOcountryCode = "US",
        .description = "Yellowstone National Park @ <+44.46,-110.83>"},
       "WY"},
      {"outside the US the description is not read",
       {.subLocality = "Soho",
        .subAdministrativeArea = "Greater London",
        .ISOcountryCode = "GB",
        .description = "1 Dean St, Soho, London W1D 3RB, United Kingdom"},
       "Greater London"},
      {"administrative area before country",
       {.name = "Somewhere", .administrativeArea = "Lapland", .country = "Finland", .ISOcountryCode = "FI"},
       "Lapland"},
      {"country before name", {.name = "Ocean Point", .country = "Fiji"}, "Fiji"},
      {"name last", {.name = "Pacific Ocean"}, "Pacific Ocean"},
      {"nothing usable", {}, "Unknown"},
  };
  for (const auto& row : rows) {
    SCOPED_TRACE(row.why);
    EXPECT_EQ(geoDetails(row.placemark).name, row.name);
  }
}

TEST(GeoNamingTest, RegionAndTimeZoneFallBackToUnknownAndTheDevice) {
  const auto helsinki = TimeZone::named("Europe/Helsinki");
  ASSERT_TRUE(helsinki);
  const GeoDetails found = geoDetails({.locality = "Helsinki", .ISOcountryCode = "FI", .timeZone = helsinki});
  EXPECT_EQ(found, (GeoDetails{"Helsinki", Region{"FI"}, *helsinki}));

  const GeoDetails bare = geoDetails({.name = "Point Nemo"});
  EXPECT_EQ(bare.region, Region{"XX"});
  EXPECT_EQ(bare.timeZone, TimeZone::current());
}

TEST(GeoNamingTest, AnEmptyResultIsTheNoResultError) {
  try {
    geoDetailsOfFirst({});
    FAIL() << "expected DomainError";
  } catch (const DomainError& e) {
    EXPECT_EQ(e.domain(), "No result");
    EXPECT_EQ(e.code(), 6000);
  }
  const std::vector<Placemark> results = {{.locality = "Oulu", .ISOcountryCode = "FI"},
                                          {.locality = "Kempele", .ISOcountryCode = "FI"}};
  EXPECT_EQ(geoDetailsOfFirst(results).name, "Oulu");
}

}  // namespace
}  // namespace ombrine
