// Trips shared between processes through the file-backed cloud store: what one process adds,
// another one that is already running sees without a restart.

#include <gtest/gtest.h>
#include <unistd.h>

#include <chrono>
#include <condition_variable>
#include <cstdlib>
#include <filesystem>
#include <mutex>
#include <thread>

#include "platform/linux/file_cloud_key_value_store.hpp"
#include "platform/testing/forked_child.hpp"
#include "platform/testing/scratch_folder.hpp"
#include "trips/trip_store.hpp"

namespace ombrine {
namespace {

Trip makeTrip(int n, const char* name) {
  Trip trip;
  trip.id.bytes[15] = static_cast<std::uint8_t>(n);
  trip.destination = {name, std::nullopt, "airplane", Location(-33.0 - n, 151.0), *TimeZone::named("Australia/Sydney")};
  trip.dates.from = Date::fromReference(820'000'000.0 + n * 86'400.0);
  trip.dates.to = trip.dates.from + 2 * 86'400.0;
  return trip;
}

// Waits until `store` holds `count` trips, as its watcher delivers changes from the folder.
bool waitForCount(TripStore& store, size_t count) {
  std::mutex mutex;
  std::condition_variable changed;
  Subscription observation = store.observe([&](const std::vector<Trip>&) {
    std::lock_guard lock(mutex);
    changed.notify_all();
  });
  std::unique_lock lock(mutex);
  return changed.wait_for(lock, std::chrono::seconds(10), [&] { return store.trips().size() == count; });
}

TEST(TripStoreProcessTest, TripsAddedElsewhereAppearWithoutRestart) {
  const ScratchFolder scratch("ombrine-trips");
  const std::filesystem::path& folder = scratch.path();
  // The other processes (the widget, another terminal) are forked before this one starts its
  // watcher thread; each runs its part when released below.
  ForkedChild adder([&] {
    FileCloudKeyValueStore otherCloud(folder, false);
    TripStore other(otherCloud);
    if (other.trips() != std::vector<Trip>{makeTrip(1, "Sydney")}) return false;
    other.save(makeTrip(2, "Hobart"));
    return true;
  });
  ForkedChild remover([&] {
    FileCloudKeyValueStore otherCloud(folder, false);
    TripStore other(otherCloud);
    return other.remove(makeTrip(1, "Sydney").id);
  });

  FileCloudKeyValueStore cloud(folder, true);
  TripStore store(cloud);
  store.save(makeTrip(1, "Sydney"));

  // The second process reads the list and adds to it.
  ASSERT_TRUE(adder.runAndWait());
  ASSERT_TRUE(waitForCount(store, 2));
  EXPECT_EQ(store.trips(), (std::vector<Trip>{makeTrip(1, "Sydney"), makeTrip(2, "Hobart")}));

  // And a removal made there is seen here too; nothing is written back by applying it.
  ASSERT_TRUE(remover.runAndWait());
  ASSERT_TRUE(waitForCount(store, 1));
  EXPECT_EQ(store.trips(), std::vector<Trip>{makeTrip(2, "Hobart")});
  FileCloudKeyValueStore reader(folder, false);
  EXPECT_EQ(TripStore(reader).trips(), std::vector<Trip>{makeTrip(2, "Hobart")});
}

TEST(TripStoreProcessTest, CorruptListFromElsewhereKeepsMemoryUntilTheNextChange) {
  const ScratchFolder scratch("ombrine-trips");
  const std::filesystem::path& folder = scratch.path();
  ForkedChild corrupter([&] {
    FileCloudKeyValueStore otherCloud(folder, false);
    otherCloud.setValue(TripStore::key, StoreValue{StoreData{"[{\"id\":\"broken\"}]"}});
    return otherCloud.synchronize();
  });
  FileCloudKeyValueStore cloud(folder, true);
  TripStore store(cloud);
  store.save(makeTrip(1, "Sydney"));
  ASSERT_TRUE(corrupter.runAndWait());
  // Give the watcher time to read the change in; memory must not move.
  std::this_thread::sleep_for(std::chrono::milliseconds(300));
  EXPECT_EQ(store.trips(), std::vector<Trip>{makeTrip(1, "Sydney")});
  store.save(makeTrip(3, "Perth"));
  FileCloudKeyValueStore reader(folder, false);
  EXPECT_EQ(TripStore(reader).trips(), (std::vector<Trip>{makeTrip(1, "Sydney"), makeTrip(3, "Perth")}));
}

}  // namespace
}  // namespace ombrine
