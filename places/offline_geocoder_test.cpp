#include "places/offline_geocoder.hpp"

#include <gtest/gtest.h>

#include <algorithm>
#include <string>
#include <thread>

#include "core/values/geo_naming.hpp"
#include "places/places_test_data.hpp"
#include "platform/errors.hpp"

namespace ombrine {
namespace {

const OfflineGeocoder& geocoder() {
  static const OfflineGeocoder instance(testing::shippedPlacesDirectory());
  return instance;
}

Placemark at(double latitude, double longitude) {
  const auto marks = geocoder().reverseGeocode(Location(latitude, longitude));
  EXPECT_EQ(marks.size(), 1u);
  return marks.empty() ? Placemark{} : marks.front();
}

TEST(OfflineGeocoderTest, ReverseGeocodingNamesTheNearestPlaceWithItsRegionCountryAndZone) {
  struct Row {
    const char* why;
    double latitude;
    double longitude;
    const char* name;  // geoDetails(placemark).name
    const char* region;
    const char* zone;
  };
  const Row rows[] = {
      {"a city centre", 48.137, 11.575, "Munich", "DE", "Europe/Berlin"},
      {"diacritics kept in names", 47.3769, 8.5417, "Zürich", "CH", "Europe/Zurich"},
      {"southern hemisphere", -23.5505, -46.6333, "São Paulo", "BR", "America/Sao_Paulo"},
      {"a border town, south side", 32.5149, -117.0382, "Tijuana", "MX", "America/Tijuana"},
      {"across the border", 32.7157, -117.1611, "San Diego", "US", "America/Los_Angeles"},
      {"Frankfurt (Oder), German side of the Oder", 52.3471, 14.5506, "Frankfurt (Oder)", "DE", "Europe/Berlin"},
      {"Słubice, Polish side", 52.3503, 14.5606, "Słubice", "PL", "Europe/Warsaw"},
      {"US: the description's city part names the locality", 39.7817, -89.6501, "Springfield", "US", "America/Chicago"},
      {"west of the date line", -18.1416, 178.4419, "Suva", "FJ", "Pacific/Fiji"},
      {"(0,0) at sea: the coordinate, no region, nautical zone", 0, 0, "0.00°N 0.00°E", "XX", "Etc/GMT"},
      {"mid-Atlantic", 30, -40, "30.00°N 40.00°W", "XX", "Etc/GMT+3"},
      {"the date line at sea, east", 0, -179.99, "0.00°N 179.99°W", "XX", "Etc/GMT+12"},
      {"the North Pole", 90, 0, "90.00°N 0.00°E", "XX", "Etc/GMT"},
      {"the South Pole: the zone's country", -90, 0, "Antarctica", "AQ", "Antarctica/McMurdo"},
      {"the outback, far from towns: the division of the country", -25, 133, "Northern Territory", "AU",
       "Australia/Darwin"},
  };
  for (const auto& row : rows) {
    SCOPED_TRACE(row.why);
    const Placemark mark = at(row.latitude, row.longitude);
    const GeoDetails details = geoDetails(mark);
    EXPECT_EQ(details.name, row.name) << mark.description;
    EXPECT_EQ(details.region.identifier, row.region);
    EXPECT_EQ(details.timeZone.identifier(), row.zone);
  }
}

TEST(OfflineGeocoderTest, PlacemarkFieldsAndDescription) {
  const Placemark springfield = at(39.7817, -89.6501);
  EXPECT_EQ(springfield.locality, "Springfield");
  EXPECT_EQ(springfield.administrativeArea, "Illinois");
  EXPECT_EQ(springfield.country, "United States");
  EXPECT_EQ(springfield.ISOcountryCode, "US");
  EXPECT_EQ(springfield.description.substr(0, springfield.description.find(" @ ")),
            springfield.subLocality ? *springfield.subLocality + ", Springfield, IL, United States"
                                    : "Springfield, IL, United States");
  EXPECT_NE(springfield.description.find("@ <+39.78170000,-89.65010000>"), std::string::npos);

  const Placemark sea = at(-40, -130);
  EXPECT_EQ(sea.name, "40.00°S 130.00°W");
  EXPECT_FALSE(sea.locality);
  EXPECT_FALSE(sea.country);
  EXPECT_FALSE(sea.ISOcountryCode);
  ASSERT_TRUE(sea.timeZone);
  EXPECT_EQ(sea.timeZone->identifier(), "Etc/GMT+9");
  EXPECT_EQ(sea.timeZone->secondsFromGMT(Date{}), -9 * 3600);
}

TEST(OfflineGeocoderTest, ADistrictNearerThanAnyTownIsTheSubLocality) {
  // Favoriten is a GeoNames section (district) of Vienna.
  const Placemark mark = at(48.1612, 16.3823);
  EXPECT_EQ(mark.subLocality, "Favoriten");
  EXPECT_EQ(mark.name, "Favoriten");
  EXPECT_EQ(mark.locality, "Vienna");
  EXPECT_EQ(geoDetails(mark).name, "Vienna");
}

TEST(OfflineGeocoderTest, TimeZoneComesFromTheGridEverywhere) {
  EXPECT_EQ(geocoder().timeZone(Location(48.137, 11.575)).identifier(), "Europe/Berlin");
  EXPECT_EQ(geocoder().timeZone(Location(0, 179.99)).identifier(), "Etc/GMT-12");
  EXPECT_EQ(geocoder().timeZone(Location(0, -179.99)).identifier(), "Etc/GMT+12");
  // Across the date line the clocks are a day apart.
  const Date instant = Date::fromUnix(1.7e9);
  EXPECT_EQ(geocoder().timeZone(Location(0, 179.99)).secondsFromGMT(instant) -
                geocoder().timeZone(Location(0, -179.99)).secondsFromGMT(instant),
            24 * 3600);
  EXPECT_THROW(geocoder().timeZone(Location(91, 0)), InvalidPlaceQuery);
  EXPECT_THROW(geocoder().reverseGeocode(Location(0, 200)), InvalidPlaceQuery);
}

std::vector<std::string> describe(const std::vector<PlaceMatch>& matches) {
  std::vector<std::string> out;
  for (const auto& m : matches) out.push_back(m.name + ", " + m.admin1 + ", " + m.countryCode);
  return out;
}

TEST(OfflineGeocoderTest, SearchFindsPlacesIgnoringCaseAndAccents) {
  struct Row {
    const char* query;
    const char* first;  // "name, admin1, country code" of the best match
  };
  const Row rows[] = {
      {"Munich", "Munich, Bavaria, DE"},
      {"münchen", "Munich, Bavaria, DE"},  // another name of the place
      {"zurich", "Zürich, Zurich, CH"},
      {"ZÜRICH", "Zürich, Zurich, CH"},
      {"sao paulo", "São Paulo, São Paulo, BR"},
      {"Москва", "Moscow, Moscow, RU"},  // non-Latin names of large places
      {"東京", "Tokyo, Tokyo, JP"},
      {"cologne", "Köln, North Rhine-Westphalia, DE"},
      {"Paris", "Paris, Île-de-France, FR"},
      {"Paris, Texas", "Paris, Texas, US"},
      {"Paris, TX", "Paris, Texas, US"},
      {"Paris, FR", "Paris, Île-de-France, FR"},
      {"Springfield, IL", "Springfield, Illinois, US"},
      {"Springfield, MO", "Springfield, Missouri, US"},
      {"springfield, illinois, usa", "Springfield, Illinois, US"},
      // Region abbreviations outside the United States, where the index's codes are numbers.
      {"Sydney, NSW", "Sydney, New South Wales, AU"},
      {"Perth, WA", "Perth, Western Australia, AU"},
      {"Halifax, NS", "Halifax, Nova Scotia, CA"},
      {"London, ON", "London, Ontario, CA"},
      {"Cardiff, WLS", "Cardiff, Wales, GB"},
      {"Augsburg, BY", "Augsburg, Bavaria, DE"},
      {"Recife, PE", "Recife, Pernambuco, BR"},
      {"Pune, MH", "Pune, Maharashtra, IN"},
      {"Monterrey, NL", "Monterrey, Nuevo León, MX"},
      {"st louis", "St. Louis, Missouri, US"},
      {"new york", "New York City, New York, US"},
  };
  for (const auto& row : rows) {
    SCOPED_TRACE(row.query);
    const auto matches = geocoder().search(row.query, 5);
    ASSERT_FALSE(matches.empty());
    EXPECT_EQ(describe(matches).front(), row.first);
  }
}

TEST(OfflineGeocoderTest, SearchRanksExactNamesThenPopulationThenPrefixes) {
  const auto matches = geocoder().search("Springfield", 50);
  ASSERT_GE(matches.size(), 10u);
  std::size_t exact = 0;
  while (exact < matches.size() && matches[exact].name == "Springfield") ++exact;
  ASSERT_GE(exact, 5u);
  for (std::size_t i = 1; i < exact; ++i) EXPECT_GE(matches[i - 1].population, matches[i].population);
  for (std::size_t i = exact; i < matches.size(); ++i) EXPECT_NE(matches[i].name, "Springfield");

  const auto prefix = geocoder().search("Springf", 3);
  ASSERT_EQ(prefix.size(), 3u);
  EXPECT_EQ(prefix.front().name, "Springfield");
  EXPECT_EQ(prefix.front().admin1, "Missouri");  // the largest Springfield

  const auto one = geocoder().search("Munich", 1);
  ASSERT_EQ(one.size(), 1u);
  EXPECT_EQ(one.front().countryName, "Germany");
  EXPECT_EQ(one.front().timeZoneIdentifier, "Europe/Berlin");
  EXPECT_GT(one.front().population, 1'000'000);
  EXPECT_NEAR(one.front().coordinate.latitude(), 48.137, 0.01);
  EXPECT_TRUE(geocoder().search("Munich", 0).empty());
}

// Places of equal population (often 0 in GeoNames) must come in one stable order, and no
// place may appear twice even when several of its names match.
TEST(OfflineGeocoderTest, TiesInPopulationAreOrderedStablyAndPlacesAreNotRepeated) {
  const auto first = geocoder().search("Santa", 200);
  const auto again = geocoder().search("Santa", 200);
  EXPECT_EQ(first, again);
  for (std::size_t i = 1; i < first.size(); ++i) {
    EXPECT_FALSE(first[i - 1].name == first[i].name && first[i - 1].coordinate == first[i].coordinate);
  }
  const auto larger = geocoder().search("Santa", 20);
  ASSERT_EQ(larger.size(), 20u);
  EXPECT_TRUE(std::equal(larger.begin(), larger.end(), first.begin()));
}

TEST(OfflineGeocoderTest, SearchAcceptsACoordinate) {
  const auto matches = geocoder().search(" 48.137, 11.575 ", 10);
  ASSERT_EQ(matches.size(), 1u);
  EXPECT_EQ(matches.front().name, "Munich");
  EXPECT_EQ(matches.front().countryCode, "DE");
  EXPECT_EQ(matches.front().coordinate, Location(48.137, 11.575));
  EXPECT_EQ(matches.front().timeZoneIdentifier, "Europe/Berlin");

  const auto sea = geocoder().search("0,0", 10);
  ASSERT_EQ(sea.size(), 1u);
  EXPECT_EQ(sea.front().name, "0.00°N 0.00°E");
  EXPECT_EQ(sea.front().countryCode, "");
  EXPECT_EQ(sea.front().timeZoneIdentifier, "Etc/GMT");
}

TEST(OfflineGeocoderTest, MalformedQueriesRaiseClearErrorsAndUnknownNamesFindNothing) {
  struct Row {
    const char* query;
    const char* message;
  };
  const Row rows[] = {
      {"", "the search text is empty"},
      {"   ", "the search text is empty"},
      {"91,200", "latitude 91 is outside -90 to 90"},
      {"48.1,", "\"48.1,\" is not a coordinate"},
      {", IL", "has no place name"},
  };
  for (const auto& row : rows) {
    SCOPED_TRACE(row.query);
    try {
      geocoder().search(row.query, 5);
      ADD_FAILURE() << "accepted";
    } catch (const InvalidPlaceQuery& e) {
      EXPECT_NE(std::string(e.what()).find(row.message), std::string::npos) << e.what();
    }
  }
  EXPECT_TRUE(geocoder().search("xqzvbnm", 5).empty());
  EXPECT_TRUE(geocoder().search("Springfield, Atlantis", 5).empty());
  EXPECT_TRUE(geocoder().search("abc", 5).size() <= 5);
}

TEST(OfflineGeocoderTest, ConcurrentLookupsAgree) {
  const auto expected = geocoder().search("Lon", 10);
  std::vector<std::thread> threads;
  std::vector<int> failures(4, 0);
  for (int t = 0; t < 4; ++t) {
    threads.emplace_back([&, t] {
      for (int i = 0; i < 50; ++i) {
        if (geocoder().search("Lon", 10) != expected) ++failures[t];
        if (geocoder().timeZone(Location(-30 + i, 10 * t)).identifier().empty()) ++failures[t];
      }
    });
  }
  for (auto& thread : threads) thread.join();
  for (int f : failures) EXPECT_EQ(f, 0);
}

TEST(OfflineGeocoderTest, MissingDataRaisesAFileError) {
  EXPECT_THROW(OfflineGeocoder("/nonexistent/places"), FileError);
}

}  // namespace
}  // namespace ombrine
