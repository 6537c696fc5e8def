#include "trips/trip.hpp"

#include <gtest/gtest.h>

#include <fstream>
#include <sstream>
#include <string>

#include "core/values/errors.hpp"
#include "platform/atomic_file.hpp"

namespace ombrine {
namespace {

std::string readTestdata(const std::string& name) {
  return readFileIfExists(std::string(OMBRINE_TESTDATA_DIR) + "/" + name).value_or("");
}

TripDates decodeDates(const std::string& json) {
  const std::string trip = R"({"id":"6F9619FF-8B86-D011-B42D-00C04FC964FF","destination":{"name":"Oslo",)"
                           R"("symbolName":"house","location":{"latitude":59.9,"longitude":10.7},)"
                           R"("timeZone":"Europe/Oslo"},"dates":)" +
                           json + "}";
  return decodeTrip(trip).dates;
}

TEST(TripJsonTest, AbsentFlagsReadAsTheirDerivedDefaults) {
  struct Row {
    const char* why;
    const char* dates;
    bool hasTimes, hasArrivalTime, infersEndTime, returnsHome, hasExclusiveEnd;
  };
  const Row rows[] = {
      {"bare all-day record", R"({"from":0,"to":86400})", false, false, false, false, false},
      {"timed record without arrival flag reads arrival as timed", R"({"from":0,"to":1,"hasTimes":true})", true, true,
       false, false, false},
      {"timed, no inferred end, no return: inclusive end", R"({"from":0,"to":1,"hasTimes":true,"infersEndTime":false})",
       true, true, false, false, false},
      {"timed with a return time: exclusive end", R"({"from":0,"to":1,"hasTimes":true,"returnHomeAt":5})", true, true,
       false, false, true},
      {"timed with an inferred end: exclusive end", R"({"from":0,"to":1,"hasTimes":true,"infersEndTime":true})", true,
       true, true, false, true},
      {"all-day with a return time stays inclusive", R"({"from":0,"to":1,"returnHomeAt":5})", false, false, false,
       false, false},
      {"explicit arrival flag wins over hasTimes", R"({"from":0,"to":1,"hasTimes":true,"hasArrivalTime":false})", true,
       false, false, false, false},
      {"explicit exclusive-end flag wins over derivation",
       R"({"from":0,"to":1,"hasTimes":true,"infersEndTime":true,"hasExclusiveEnd":false})", true, true, true, false,
       false},
      {"null optional flags read as absent",
       R"({"from":0,"to":1,"hasTimes":true,"hasArrivalTime":null,"returnHomeAt":null})", true, true, false, false,
       false},
      {"returnsHomeBetweenTrips read", R"({"from":0,"to":1,"returnsHomeBetweenTrips":true})", false, false, false, true,
       false},
  };
  for (const Row& row : rows) {
    SCOPED_TRACE(row.why);
    const TripDates dates = decodeDates(row.dates);
    EXPECT_EQ(dates.hasTimes, row.hasTimes);
    EXPECT_EQ(dates.hasArrivalTime, row.hasArrivalTime);
    EXPECT_EQ(dates.infersEndTime, row.infersEndTime);
    EXPECT_EQ(dates.returnsHomeBetweenTrips, row.returnsHome);
    EXPECT_EQ(dates.hasExclusiveEnd, row.hasExclusiveEnd);
  }
}

TEST(TripJsonTest, EncodesEveryFlagInOrderAndOptionalsOnlyWhenPresent) {
  Trip trip;
  trip.id = *Uuid::parse("0e2d2b4b-8f0a-4c57-9a55-3a2f4c1e9b10");
  trip.destination = {"Auckland", std::nullopt, "airplane", Location(-36.8485, 174.7633),
                      *TimeZone::named("Pacific/Auckland")};
  trip.dates.from = Date::fromReference(786020400.0);
  trip.dates.to = Date::fromReference(786538800.5);
  EXPECT_EQ(
      encodeTrip(trip),
      R"({"id":"0E2D2B4B-8F0A-4C57-9A55-3A2F4C1E9B10","destination":{"name":"Auckland",)"
      R"("symbolName":"airplane","location":{"latitude":-36.8485,"longitude":174.7633},)"
      R"("timeZone":"Pacific/Auckland"},"dates":{"from":786020400,"to":786538800.5,"hasTimes":false,)"
      R"("hasArrivalTime":false,"infersEndTime":false,"returnsHomeBetweenTrips":false,"hasExclusiveEnd":false}})");

  trip.destination.displayName = "Home away";
  trip.dates.returnHomeAt = Date::fromReference(786600000.0);
  trip.dates.returnHomeTimeZone = TimeZone::named("Europe/Lisbon");
  const std::string json = encodeTrip(trip);
  EXPECT_NE(json.find(R"("name":"Auckland","displayName":"Home away","symbolName")"), std::string::npos);
  EXPECT_NE(json.find(R"("infersEndTime":false,"returnHomeAt":786600000,"returnHomeTimeZone":"Europe/Lisbon",)"
                      R"("returnsHomeBetweenTrips")"),
            std::string::npos);
  EXPECT_EQ(decodeTrip(json), trip);
}

TEST(TripJsonTest, StoredListRoundTripsByteForByte) {
  const std::string stored = readTestdata("trips_v1.json");
  const std::vector<Trip> trips = decodeTrips(stored);
  ASSERT_EQ(trips.size(), 2u);
  EXPECT_EQ(trips[0].destination.shownName(), "Tāmaki Makaurau");
  EXPECT_EQ(trips[1].destination.shownName(), "Honolulu");
  EXPECT_EQ(trips[1].dates.from, Date::fromReference(787000000.5));
  EXPECT_EQ(trips[1].dates.returnHomeTimeZone, TimeZone::named("Europe/Lisbon"));
  // The fixture is one line per trip with a leading space on the second: compare without them.
  std::string compact;
  for (char c : stored) {
    if (c != '\n' && !(c == ' ' && !compact.empty() && compact.back() == ',')) compact.push_back(c);
  }
  EXPECT_EQ(encodeTrips(trips), compact);
  EXPECT_EQ(decodeTrips(encodeTrips(trips)), trips);
}

TEST(TripJsonTest, SortedKeyFormIsCanonical) {
  const std::vector<Trip> trips = decodeTrips(readTestdata("trips_v1.json"));
  const std::string sorted = encodeTripSortedKeys(trips[1]);
  EXPECT_EQ(sorted.substr(0, 20), R"({"dates":{"from":787)");
  EXPECT_LT(sorted.find(R"("hasArrivalTime")"), sorted.find(R"("hasExclusiveEnd")"));
  EXPECT_LT(sorted.find(R"("destination")"), sorted.find(R"("id")"));
  Trip renamed = trips[1];
  renamed.destination.displayName = "Oahu";
  EXPECT_NE(encodeTripSortedKeys(renamed), sorted);
}

TEST(TripJsonTest, MalformedRecordsFailWithTheirPlace) {
  struct Row {
    const char* json;
    const char* message;
  };
  const Row rows[] = {
      {R"([{"id":"nope","destination":{},"dates":{}}])", "[0].id: not a UUID"},
      {R"([{"id":"6F9619FF-8B86-D011-B42D-00C04FC964FF","dates":{}}])", "[0].destination: missing key"},
      {R"([{"id":"6F9619FF-8B86-D011-B42D-00C04FC964FF","destination":{"name":"X","symbolName":"s",)"
       R"("location":{"latitude":1,"longitude":2},"timeZone":"Mars/Olympus"},"dates":{}}])",
       "[0].destination.timeZone: unknown time zone"},
      {R"([{"id":"6F9619FF-8B86-D011-B42D-00C04FC964FF","destination":{"name":"X","symbolName":"s",)"
       R"("location":{"latitude":1},"timeZone":"UTC"},"dates":{}}])",
       "[0].destination.location.longitude: missing key"},
      {R"([{"id":"6F9619FF-8B86-D011-B42D-00C04FC964FF","destination":{"name":"X","symbolName":"s",)"
       R"("location":{"latitude":1,"longitude":2},"timeZone":"UTC"},"dates":{"from":1}}])",
       "[0].dates.to: missing key"},
      {R"([{"id":"6F9619FF-8B86-D011-B42D-00C04FC964FF","destination":{"name":"X","symbolName":"s",)"
       R"("location":{"latitude":1,"longitude":2},"timeZone":"UTC"},"dates":{"from":1,"to":2,"hasTimes":1}}])",
       "[0].dates.hasTimes: expected a boolean, found a number"},
      {R"({"trips":[]})", "expected an array, found an object"},
  };
  for (const Row& row : rows) {
    SCOPED_TRACE(row.json);
    try {
      decodeTrips(row.json);
      ADD_FAILURE() << "decoded";
    } catch (const DecodingError& error) {
      EXPECT_EQ(std::string(error.what()), row.message);
    }
  }
  EXPECT_THROW(decodeTrips("[{"), DecodingError);
}

}  // namespace
}  // namespace ombrine
