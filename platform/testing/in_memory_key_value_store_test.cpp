#include "platform/testing/in_memory_key_value_store.hpp"

#include <gtest/gtest.h>

#include <functional>
#include <stdexcept>
#include <string>
#include <vector>

#include "platform/errors.hpp"

namespace ombrine {
namespace {

StoreValue integer(std::int64_t i) { return StoreValue{i}; }

// Records what observers are told.
struct Recorder {
  std::vector<CloudStoreChange> changes;
  Subscription token;
  explicit Recorder(CloudKeyValueStore& store) {
    token = store.observeExternalChanges([this](const CloudStoreChange& change) { changes.push_back(change); });
  }
};

TEST(InMemoryKeyValueStoreTest, StoresRemovesAndFailsWithoutChange) {
  InMemoryKeyValueStore store;
  store.setValue("a", integer(1));
  store.setValue("b", integer(2));
  store.removeValue("a");
  EXPECT_EQ(store.dictionaryRepresentation(), (StoreDictionary{{"b", integer(2)}}));
  store.failWrites(true);
  EXPECT_THROW(store.setValue("b", integer(3)), FileError);
  EXPECT_EQ(store.integerValue("b"), 2);
  EXPECT_EQ(store.writeCount(), 3u);
}

TEST(InMemoryCloudKeyValueStoreTest, WritesReachTheServerOnlyOnSynchronize) {
  auto server = std::make_shared<InMemoryCloudServer>();
  InMemoryCloudKeyValueStore store(server);
  store.setValue("a", integer(1));
  EXPECT_EQ(store.integerValue("a"), 1);  // memory at once
  EXPECT_TRUE(server->values().empty());
  EXPECT_TRUE(store.synchronize());
  EXPECT_EQ(server->values(), (StoreDictionary{{"a", integer(1)}}));
  store.removeValue("a");
  EXPECT_TRUE(store.synchronize());
  EXPECT_TRUE(server->values().empty());
}

TEST(InMemoryCloudKeyValueStoreTest, ExternalChangesNameExactlyTheKeysThatDiffer) {
  auto server = std::make_shared<InMemoryCloudServer>();
  server->replaceAll({{"same", integer(1)}, {"moved", integer(1)}, {"gone", integer(1)}});
  InMemoryCloudKeyValueStore phone(server);
  InMemoryCloudKeyValueStore laptop(server);
  Recorder heard(phone);

  laptop.setValue("same", integer(1));  // written again, equal: no change for the phone
  laptop.setValue("moved", integer(2));
  laptop.removeValue("gone");
  laptop.setValue("new", integer(3));
  ASSERT_TRUE(laptop.synchronize());
  ASSERT_TRUE(phone.refresh());

  ASSERT_EQ(heard.changes.size(), 1u);
  EXPECT_EQ(heard.changes[0].reason, CloudStoreChangeReason::serverChange);
  EXPECT_EQ(heard.changes[0].changedKeys, (std::vector<std::string>{"gone", "moved", "new"}));
  EXPECT_EQ(phone.dictionaryRepresentation(),
            (StoreDictionary{{"same", integer(1)}, {"moved", integer(2)}, {"new", integer(3)}}));

  // Nothing moved since: no notification.
  ASSERT_TRUE(phone.refresh());
  EXPECT_EQ(heard.changes.size(), 1u);
}

TEST(InMemoryCloudKeyValueStoreTest, PendingLocalWriteWinsOverTheServer) {
  auto server = std::make_shared<InMemoryCloudServer>();
  InMemoryCloudKeyValueStore phone(server);
  Recorder heard(phone);
  phone.setValue("k", integer(1));
  server->setValue("k", integer(2));
  server->setValue("other", integer(9));
  ASSERT_TRUE(phone.refresh());  // reads in without writing out: the pending write stays
  EXPECT_EQ(phone.integerValue("k"), 1);
  EXPECT_EQ(server->values().at("k"), integer(2));
  ASSERT_TRUE(phone.synchronize());
  EXPECT_EQ(server->values().at("k"), integer(1));
  EXPECT_EQ(server->values().at("other"), integer(9));  // the server's other key is kept
  ASSERT_EQ(heard.changes.size(), 1u);
  EXPECT_EQ(heard.changes[0].changedKeys, std::vector<std::string>{"other"});
}

TEST(InMemoryCloudKeyValueStoreTest, UnreachableServerKeepsPendingWrites) {
  auto server = std::make_shared<InMemoryCloudServer>();
  InMemoryCloudKeyValueStore store(server);
  store.setValue("k", integer(1));
  server->setReachable(false);
  EXPECT_FALSE(store.synchronize());
  EXPECT_EQ(store.integerValue("k"), 1);
  server->setReachable(true);
  EXPECT_TRUE(store.synchronize());
  EXPECT_EQ(server->values().at("k"), integer(1));
  EXPECT_EQ(store.synchronizeCount(), 2u);
}

TEST(InMemoryCloudKeyValueStoreTest, LimitsRefuseTheWriteAndTellObservers) {
  InMemoryCloudKeyValueStore store;
  Recorder heard(store);
  struct Row {
    const char* why;
    std::string key;
    StoreValue value;
  };
  const std::string big(CloudKeyValueStore::kMaximumTotalBytes, 'x');
  const Row rows[] = {
      {"key one byte too long", std::string(CloudKeyValueStore::kMaximumKeyBytes + 1, 'k'), integer(1)},
      {"value beyond the total", "big", StoreValue{big}},
  };
  for (const Row& row : rows) {
    SCOPED_TRACE(row.why);
    heard.changes.clear();
    store.setValue(row.key, row.value);
    EXPECT_EQ(store.value(row.key), std::nullopt);
    ASSERT_EQ(heard.changes.size(), 1u);
    EXPECT_EQ(heard.changes[0].reason, CloudStoreChangeReason::quotaViolation);
    EXPECT_EQ(heard.changes[0].changedKeys, std::vector<std::string>{row.key});
  }
  // At the limits exactly, writes pass.
  store.setValue(std::string(CloudKeyValueStore::kMaximumKeyBytes, 'k'), integer(1));
  for (std::size_t i = 1; i < CloudKeyValueStore::kMaximumKeyCount; ++i) store.setValue(std::to_string(i), integer(1));
  heard.changes.clear();
  store.setValue("1", integer(2));  // replacing a key never counts as one more
  EXPECT_TRUE(heard.changes.empty());
  store.setValue("one too many", integer(1));
  ASSERT_EQ(heard.changes.size(), 1u);
  EXPECT_EQ(heard.changes[0].reason, CloudStoreChangeReason::quotaViolation);
  EXPECT_EQ(store.dictionaryRepresentation().size(), CloudKeyValueStore::kMaximumKeyCount);
}

}  // namespace
}  // namespace ombrine

namespace ombrine {
namespace {

// One keyed change sees the key as the server holds it now (not as this store last saw it),
// sends the pending local writes with it, and leaves server and memory as they were when it
// fails.
TEST(InMemoryCloudKeyValueStoreTest, ChangeValueAppliesToTheServersValueOrChangesNothing) {
  struct Row {
    const char* why;
    std::function<void(InMemoryCloudServer&, InMemoryCloudKeyValueStore&)> arrange;
    CloudKeyValueStore::ValueChange change;
    bool raises;
    StoreDictionary server;  // afterwards; memory holds the same
  };
  const auto addOne = [](const std::optional<StoreValue>& stored) -> std::optional<StoreValue> {
    return integer((stored ? std::get<std::int64_t>(stored->value) : 0) + 1);
  };
  const Row rows[] = {
      {"another device's value is the base",
       [](InMemoryCloudServer& s, auto&) { s.setValue("n", integer(41)); },
       addOne,
       false,
       {{"n", integer(42)}}},
      {"absent key", [](auto&, auto&) {}, addOne, false, {{"n", integer(1)}}},
      {"pending writes go along",
       [](auto&, InMemoryCloudKeyValueStore& c) { c.setValue("p", integer(7)); },
       addOne,
       false,
       {{"n", integer(1)}, {"p", integer(7)}}},
      {"removal",
       [](InMemoryCloudServer& s, auto&) { s.setValue("n", integer(1)); },
       [](const std::optional<StoreValue>&) { return std::optional<StoreValue>(); },
       false,
       {}},
      {"change raises",
       [](InMemoryCloudServer& s, auto&) { s.setValue("n", integer(5)); },
       [](const std::optional<StoreValue>&) -> std::optional<StoreValue> { throw std::runtime_error("no"); },
       true,
       {{"n", integer(5)}}},
      {"server unreachable", [](InMemoryCloudServer& s, auto&) { s.setReachable(false); }, addOne, true, {}},
      {"over the size limit",
       [](auto&, auto&) {},
       [](const std::optional<StoreValue>&) {
         return std::optional<StoreValue>(StoreValue{std::string(CloudKeyValueStore::kMaximumTotalBytes, 'x')});
       },
       true,
       {}},
  };
  for (const Row& row : rows) {
    SCOPED_TRACE(row.why);
    auto server = std::make_shared<InMemoryCloudServer>();
    InMemoryCloudKeyValueStore store(server);
    row.arrange(*server, store);
    const StoreDictionary memoryBefore = store.dictionaryRepresentation();
    if (row.raises) {
      EXPECT_ANY_THROW(store.changeValue("n", row.change));
      EXPECT_EQ(store.dictionaryRepresentation(), memoryBefore);
    } else {
      store.changeValue("n", row.change);
      EXPECT_EQ(store.dictionaryRepresentation(), row.server);
    }
    server->setReachable(true);
    EXPECT_EQ(server->values(), row.server);
  }
}

}  // namespace
}  // namespace ombrine
