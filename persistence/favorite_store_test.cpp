#include "persistence/favorite_store.hpp"

#include <gtest/gtest.h>

#include <string>
#include <vector>

#include "core/values/errors.hpp"
#include "platform/testing/in_memory_key_value_store.hpp"

namespace ombrine {
namespace {

FavoriteLocation place(const char* name, double latitude, double longitude) {
  FavoriteLocation f;
  f.id = Uuid::random();
  f.location = Location(latitude, longitude);
  f.name = name;
  return f;
}

std::string dataText(const InMemoryCloudServer& server, const std::string& key) {
  return std::get<StoreData>(server.values().at(key).value).bytes;
}

TEST(FavoriteLocationJsonTest, KeysInOrderAndAbsentOnesLeftOut) {
  FavoriteLocation full = place("Sankt Moritz", 46.4908, 9.8355);
  full.id = *Uuid::parse("E621E1F8-C36C-495A-93FC-0C247A3E6E5F");
  full.displayName = "Ski";
  full.timeZone = TimeZone::named("Europe/Zurich");
  full.region = Region{"CH"};
  EXPECT_EQ(encodeFavoriteLocation(full),
            R"({"id":"E621E1F8-C36C-495A-93FC-0C247A3E6E5F","location":{"latitude":46.4908,"longitude":9.8355},)"
            R"("name":"Sankt Moritz","displayName":"Ski","timeZone":"Europe/Zurich","region":"CH"})");
  FavoriteLocation bare = full;
  bare.displayName.reset();
  bare.timeZone.reset();
  bare.region.reset();
  EXPECT_EQ(encodeFavoriteLocation(bare),
            R"({"id":"E621E1F8-C36C-495A-93FC-0C247A3E6E5F","location":{"latitude":46.4908,"longitude":9.8355},)"
            R"("name":"Sankt Moritz"})");
  const std::vector<FavoriteLocation> both{full, bare};
  EXPECT_EQ(decodeFavoriteLocations(encodeFavoriteLocations(both)), both);
}

TEST(FavoriteLocationJsonTest, DecodingRules) {
  const std::string id = R"("id":"E621E1F8-C36C-495A-93FC-0C247A3E6E5F")";
  struct Row {
    std::string json;
    const char* error;  // nullptr: decodes
  };
  const Row rows[] = {
      {"{" + id + R"(,"location":{"latitude":1,"longitude":2},"name":"a","displayName":null,"timeZone":null})",
       nullptr},
      {"{" + id + R"(,"location":{"latitude":1,"longitude":2},"name":"a","timeZone":"Mars/Olympus"})", nullptr},
      {"{" + id + R"(,"location":{"latitude":1},"name":"a"})", "location.longitude: missing key"},
      {"{" + id + R"(,"name":"a"})", "location: missing key"},
      {R"({"id":"nope","location":{"latitude":1,"longitude":2},"name":"a"})", "id: not a UUID"},
      {"{" + id + R"(,"location":{"latitude":1,"longitude":2},"name":5})", "name"},
  };
  for (const Row& row : rows) {
    SCOPED_TRACE(row.json);
    if (row.error == nullptr) {
      const FavoriteLocation f = decodeFavoriteLocation(row.json);
      EXPECT_EQ(f.displayName, std::nullopt);
      EXPECT_EQ(f.timeZone, std::nullopt);  // an unknown zone reads as none
    } else {
      try {
        decodeFavoriteLocation(row.json);
        ADD_FAILURE() << "decoded";
      } catch (const DecodingError& error) {
        EXPECT_NE(std::string(error.what()).find(row.error), std::string::npos) << error.what();
      }
    }
  }
}

class FavoriteStoreTest : public testing::Test {
 protected:
  std::shared_ptr<InMemoryCloudServer> server_ = std::make_shared<InMemoryCloudServer>();
  InMemoryCloudKeyValueStore phone_{server_};
  InMemoryCloudKeyValueStore tablet_{server_};
};

// Each change applies to the list as stored at that moment, by id: a store that has not yet heard
// of the other's saves keeps them all the same, and memory ends up with what is stored.
TEST_F(FavoriteStoreTest, ChangesMergeIntoTheStoredListById) {
  FavoriteStore phone(phone_);
  FavoriteStore tablet(tablet_);
  const FavoriteLocation oslo = place("Oslo", 59.91, 10.75);
  const FavoriteLocation bergen = place("Bergen", 60.39, 5.32);
  const FavoriteLocation tromso = place("Tromso", 69.65, 18.96);
  phone.save(oslo);
  tablet.save(bergen);  // the tablet has not refreshed: its memory holds no Oslo
  EXPECT_EQ(tablet.locations(), (std::vector<FavoriteLocation>{oslo, bergen}));
  phone.save(tromso);
  tablet.remove(oslo.id);
  FavoriteLocation renamed = bergen;
  renamed.displayName = "Rain";
  phone.save(renamed);
  const std::vector<FavoriteLocation> expected{renamed, tromso};
  EXPECT_EQ(decodeFavoriteLocations(dataText(*server_, "favorites")), expected);
  EXPECT_EQ(phone.locations(), expected);
}

TEST_F(FavoriteStoreTest, WriteThroughReachesTheOtherDevice) {
  FavoriteStore phone(phone_);
  FavoriteStore tablet(tablet_);
  std::vector<std::vector<FavoriteLocation>> tabletHeard;
  auto observation = tablet.observe([&](const auto& list) { tabletHeard.push_back(list); });

  const FavoriteLocation oslo = place("Oslo", 59.91, 10.75);
  phone.save(oslo);  // on the server at once
  EXPECT_EQ(decodeFavoriteLocations(dataText(*server_, "favorites")), std::vector<FavoriteLocation>{oslo});

  ASSERT_TRUE(tablet_.refresh());
  ASSERT_EQ(tabletHeard.size(), 1u);
  EXPECT_EQ(tablet.locations(), std::vector<FavoriteLocation>{oslo});
  EXPECT_EQ(tablet_.synchronizeCount(), 0u);  // applied without writing back

  // Saving the same place again changes nothing and tells nobody.
  phone.save(oslo);

  // Renaming replaces in place; removing by id.
  FavoriteLocation renamed = oslo;
  renamed.displayName = "Home town";
  const FavoriteLocation bergen = place("Bergen", 60.39, 5.32);
  phone.save(bergen);
  phone.save(renamed);
  EXPECT_EQ(phone.locations(), (std::vector<FavoriteLocation>{renamed, bergen}));
  EXPECT_TRUE(phone.remove(oslo.id));
  EXPECT_FALSE(phone.remove(oslo.id));
  ASSERT_TRUE(tablet_.refresh());
  EXPECT_EQ(tablet.locations(), std::vector<FavoriteLocation>{bergen});
}

TEST_F(FavoriteStoreTest, UndecodableOrRemovedValueKeepsMemory) {
  const FavoriteLocation oslo = place("Oslo", 59.91, 10.75);
  server_->setValue("favorites", StoreValue{StoreData{encodeFavoriteLocations({oslo})}});
  ASSERT_TRUE(phone_.refresh());
  FavoriteStore store(phone_);
  ASSERT_EQ(store.locations().size(), 1u);
  int heard = 0;
  auto observation = store.observe([&](const auto&) { ++heard; });
  struct Row {
    const char* why;
    std::optional<StoreValue> value;
  };
  const Row rows[] = {
      {"truncated JSON", StoreValue{StoreData{"[{\"id\""}}},
      {"wrong kind", StoreValue{std::int64_t{3}}},
      {"removed (a wiped store)", std::nullopt},
  };
  for (const Row& row : rows) {
    SCOPED_TRACE(row.why);
    phone_.changeExternally("favorites", row.value);
    EXPECT_EQ(store.locations(), std::vector<FavoriteLocation>{oslo});
  }
  EXPECT_EQ(heard, 0);
}

TEST_F(FavoriteStoreTest, HomeIsSetClearedAndFollowsRemoval) {
  HomeStore phone(phone_);
  HomeStore tablet(tablet_);
  EXPECT_EQ(phone.home(), std::nullopt);
  const FavoriteLocation home = place("Tromsø", 69.65, 18.96);
  phone.setHome(home);
  EXPECT_EQ(decodeFavoriteLocation(dataText(*server_, "home")), home);
  ASSERT_TRUE(tablet_.refresh());
  EXPECT_EQ(tablet.home(), home);
  tablet.setHome(std::nullopt);
  EXPECT_FALSE(server_->values().contains("home"));  // no home: no key
  ASSERT_TRUE(phone_.refresh());
  EXPECT_EQ(phone.home(), std::nullopt);
}

}  // namespace
}  // namespace ombrine
