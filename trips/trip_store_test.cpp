#include "trips/trip_store.hpp"

#include <gtest/gtest.h>
#include <algorithm>

#include "platform/testing/in_memory_key_value_store.hpp"

namespace ombrine {
namespace {

Trip makeTrip(int n, const char* name) {
  Trip trip;
  trip.id.bytes[15] = static_cast<std::uint8_t>(n);
  trip.destination = {name, std::nullopt, "airplane", Location(10.0 + n, 20.0), *TimeZone::named("Asia/Tokyo")};
  trip.dates.from = Date::fromReference(800'000'000.0 + n * 86'400.0);
  trip.dates.to = trip.dates.from + 3 * 86'400.0;
  return trip;
}

StoreValue asData(const std::vector<Trip>& trips) { return StoreValue{StoreData{encodeTrips(trips)}}; }

struct Fixture {
  std::shared_ptr<InMemoryCloudServer> server = std::make_shared<InMemoryCloudServer>();
  std::unique_ptr<InMemoryCloudKeyValueStore> cloud;
  std::unique_ptr<TripStore> store;
  std::vector<std::vector<Trip>> heard;
  Subscription token;

  explicit Fixture(std::optional<StoreValue> initial = std::nullopt) {
    if (initial) server->setValue("trips", *initial);
    cloud = std::make_unique<InMemoryCloudKeyValueStore>(server);
    store = std::make_unique<TripStore>(*cloud);
    token = store->observe([this](const std::vector<Trip>& trips) { heard.push_back(trips); });
  }
};

TEST(TripStoreTest, LoadsWhatIsStored) {
  const std::vector<Trip> two{makeTrip(1, "Kyoto"), makeTrip(2, "Nara")};
  struct Row {
    const char* why;
    std::optional<StoreValue> stored;
    std::vector<Trip> expected;
  };
  const Row rows[] = {
      {"nothing stored", std::nullopt, {}},
      {"a stored list", asData(two), two},
      {"bytes that are not a trip list", StoreValue{StoreData{"[{\"id\":1}]"}}, {}},
      {"a value that is not data", StoreValue{std::string("[]")}, {}},
  };
  for (const Row& row : rows) {
    SCOPED_TRACE(row.why);
    Fixture fixture(row.stored);
    EXPECT_EQ(fixture.store->trips(), row.expected);
  }
}

TEST(TripStoreTest, LocalChangeIsWrittenThroughAndHeardOnce) {
  Fixture fixture;
  const std::vector<Trip> trips{makeTrip(1, "Kyoto")};
  fixture.store->setTrips(trips);
  EXPECT_EQ(fixture.server->values().at("trips"), asData(trips));
  ASSERT_EQ(fixture.heard.size(), 1u);
  EXPECT_EQ(fixture.heard[0], trips);
  // Setting the same list again is no change and writes nothing.
  fixture.store->setTrips(trips);
  EXPECT_EQ(fixture.heard.size(), 1u);
  EXPECT_EQ(fixture.server->values().at("trips"), asData(trips));
}

TEST(TripStoreTest, ExternalChangesAreAppliedWithoutWriteBack) {
  const std::vector<Trip> mine{makeTrip(1, "Kyoto")};
  const std::vector<Trip> theirs{makeTrip(1, "Kyoto"), makeTrip(2, "Nara")};
  struct Row {
    const char* why;
    std::string key;
    std::optional<StoreValue> external;
    std::vector<Trip> expected;
    size_t changesHeard;
  };
  const Row rows[] = {
      {"another device adds a trip", "trips", asData(theirs), theirs, 1},
      {"another device removes every trip", "trips", asData({}), {}, 1},
      {"a wiped store keeps the trips, to be written back", "trips", std::nullopt, mine, 0},
      {"undecodable bytes keep memory", "trips", StoreValue{StoreData{"{not json"}}, mine, 0},
      {"a wrong kind keeps memory", "trips", StoreValue{std::int64_t{3}}, mine, 0},
      {"the same list again is no change", "trips", asData(mine), mine, 0},
      {"another key is not ours", "favorites", asData(theirs), mine, 0},
  };
  for (const Row& row : rows) {
    SCOPED_TRACE(row.why);
    Fixture fixture;
    fixture.store->setTrips(mine);
    fixture.heard.clear();
    const size_t synchronizations = fixture.cloud->synchronizeCount();
    fixture.cloud->changeExternally(row.key, row.external);
    EXPECT_EQ(fixture.store->trips(), row.expected);
    EXPECT_EQ(fixture.heard.size(), row.changesHeard);
    EXPECT_EQ(fixture.cloud->synchronizeCount(), synchronizations);
    const StoreDictionary server = fixture.server->values();
    if (row.key == "trips" && row.external) EXPECT_EQ(server.at("trips"), *row.external);
  }
}

TEST(TripStoreTest, ObserverReactingToAnExternalChangeDoesNotEchoIt) {
  Fixture fixture;
  bool sawFlag = false;
  auto token = fixture.store->observe([&](const std::vector<Trip>& trips) {
    sawFlag = fixture.store->isApplyingExternalKeyValueStoreUpdate();
    if (trips.size() == 1) fixture.store->save(makeTrip(3, "Osaka"));  // e.g. a screen that tidies the list
  });
  const std::vector<Trip> theirs{makeTrip(2, "Nara")};
  fixture.cloud->changeExternally("trips", asData(theirs));
  EXPECT_TRUE(sawFlag);
  EXPECT_FALSE(fixture.store->isApplyingExternalKeyValueStoreUpdate());
  EXPECT_EQ(fixture.cloud->synchronizeCount(), 0u);
  EXPECT_EQ(fixture.server->values().at("trips"), asData(theirs));
  EXPECT_EQ(fixture.store->trips().size(), 2u);
}

TEST(TripStoreTest, SaveAndRemoveKeepOrder) {
  Fixture fixture;
  fixture.store->save(makeTrip(1, "Kyoto"));
  fixture.store->save(makeTrip(2, "Nara"));
  Trip renamed = makeTrip(1, "Kyoto");
  renamed.destination.displayName = "Old capital";
  fixture.store->save(renamed);
  EXPECT_EQ(fixture.store->trips(), (std::vector<Trip>{renamed, makeTrip(2, "Nara")}));
  EXPECT_EQ(fixture.store->trip(makeTrip(2, "Nara").id), makeTrip(2, "Nara"));
  EXPECT_TRUE(fixture.store->remove(renamed.id));
  EXPECT_FALSE(fixture.store->remove(renamed.id));
  EXPECT_EQ(fixture.store->trips(), (std::vector<Trip>{makeTrip(2, "Nara")}));
  EXPECT_EQ(decodeTrips(std::get<StoreData>(fixture.server->values().at("trips").value).bytes), fixture.store->trips());
}

TEST(TripStoreTest, UnencodableListLeavesTheCloudValue) {
  Fixture fixture;
  const std::vector<Trip> good{makeTrip(1, "Kyoto")};
  fixture.store->setTrips(good);
  std::vector<Trip> bad = good;
  bad[0].dates.to = Date::fromReference(std::numeric_limits<double>::infinity());
  fixture.store->setTrips(bad);
  EXPECT_EQ(fixture.server->values().at("trips"), asData(good));
  EXPECT_EQ(fixture.store->trips().size(), 1u);
}

}  // namespace
}  // namespace ombrine

namespace ombrine {
namespace {

// A checked save builds the trip from the other trips as stored (not as this process last read
// them), keeps its place in the list, and stores the list as normalised; an edit of a trip that
// another process removed meanwhile raises and writes nothing.
TEST(TripStoreTest, CheckedSaveBuildsFromTheStoredOthers) {
  Fixture fixture;
  fixture.store->save(makeTrip(1, "Kyoto"));
  fixture.server->setValue("trips", asData({makeTrip(1, "Kyoto"), makeTrip(2, "Nara")}));  // another process
  std::vector<Trip> seen;
  const auto make = [&](const std::vector<Trip>& others) {
    seen = others;
    return makeTrip(1, "Osaka");
  };
  const auto reversed = [](std::vector<Trip> trips) {
    std::reverse(trips.begin(), trips.end());
    return trips;
  };
  const Trip stored = fixture.store->saveChecked(makeTrip(1, "").id, true, make, reversed);
  EXPECT_EQ(stored.destination.name, "Osaka");
  EXPECT_EQ(seen, std::vector<Trip>{makeTrip(2, "Nara")});
  EXPECT_EQ(fixture.server->values().at("trips"), asData({makeTrip(2, "Nara"), makeTrip(1, "Osaka")}));

  fixture.server->setValue("trips", asData({makeTrip(2, "Nara")}));  // removed elsewhere
  EXPECT_THROW(fixture.store->saveChecked(makeTrip(1, "").id, true, make, reversed), TripRemovedError);
  EXPECT_EQ(fixture.server->values().at("trips"), asData({makeTrip(2, "Nara")}));
}

}  // namespace
}  // namespace ombrine
