// Saved places and trips written by many processes at once through the file-backed synced store,
// as several `ombrine places save` / `trips add` runs do: every save that returned is in the file,
// also when writers are killed with SIGKILL at random moments; the file always decodes, and the
// temporaries of killed writers go once they are a minute old. Every child is forked before this
// process starts a thread, and every wait is bounded.

#include <sys/stat.h>
#include <unistd.h>

#include <gtest/gtest.h>

#include <chrono>
#include <cstdint>
#include <filesystem>
#include <random>
#include <set>
#include <thread>
#include <vector>

#include "persistence/favorite_store.hpp"
#include "platform/linux/file_cloud_key_value_store.hpp"
#include "platform/testing/forked_child.hpp"
#include "platform/testing/scratch_folder.hpp"
#include "trips/trip_store.hpp"

namespace ombrine {
namespace {

namespace fs = std::filesystem;
using namespace std::chrono_literals;

// One id per (writer, save); the trip and the place of a save share it.
Uuid idOf(int writer, int index) {
  Uuid id;
  id.bytes[0] = static_cast<std::uint8_t>(writer);
  id.bytes[1] = static_cast<std::uint8_t>(index >> 8);
  id.bytes[2] = static_cast<std::uint8_t>(index);
  return id;
}

FavoriteLocation placeOf(int writer, int index) {
  return FavoriteLocation{idOf(writer, index), Location(writer, index * 0.01), "P", std::nullopt, std::nullopt,
                          std::nullopt};
}

Trip tripOf(int writer, int index) {
  Trip trip;
  trip.id = idOf(writer, index);
  trip.destination = {"T", std::nullopt, "airplane", Location(-writer, index * 0.01), TimeZone::gmt()};
  trip.dates.from = Date::fromReference(820'000'000.0 + index * 86'400.0);
  trip.dates.to = trip.dates.from + 86'400.0;
  return trip;
}

// Saves place and trip 0..count-1 (forever with count < 0) of `writer`, each through a store
// opened as a command opens it; after both have returned writes the index to `ackFd`.
void saveAll(const fs::path& folder, int writer, int count, int ackFd) {
  for (int i = 0; count < 0 || i < count; ++i) {
    FileCloudKeyValueStore cloud(folder, false, FileCloudKeyValueStore::Unreadable::raised);
    FavoriteStore(cloud).save(placeOf(writer, i));
    TripStore(cloud).save(tripOf(writer, i));
    const std::int32_t ack = i;
    if (::write(ackFd, &ack, sizeof ack) != sizeof ack) throw std::runtime_error("ack lost");
  }
}

struct Writer {
  int id;
  int ackFd;
  ForkedChild process;
};

// Forks `count` writers now, each with its pipe of acknowledgements.
std::vector<Writer> forkWriters(const fs::path& folder, int count, int saves) {
  std::vector<Writer> writers;
  writers.reserve(static_cast<std::size_t>(count));
  for (int id = 0; id < count; ++id) {
    int fds[2];
    if (::pipe(fds) != 0) throw std::runtime_error("pipe");
    ForkedChild process([&folder, id, saves, fds] {
      ::close(fds[0]);
      saveAll(folder, id, saves, fds[1]);
    });
    ::close(fds[1]);
    writers.push_back(Writer{id, fds[0], std::move(process)});
  }
  return writers;
}

// The temporaries beside the store file, and files set aside as corrupt.
std::vector<fs::path> leftovers(const fs::path& folder) {
  std::vector<fs::path> found;
  for (const auto& entry : fs::directory_iterator(folder)) {
    const std::string name = entry.path().filename().string();
    if (name.starts_with(".") || name.find(".corrupt-") != std::string::npos) found.push_back(entry.path());
  }
  return found;
}

// Checks that every acknowledged save of every writer is stored; returns how many there were.
std::size_t expectAcknowledgedSavesStored(const fs::path& folder, std::vector<Writer>& writers) {
  FileCloudKeyValueStore cloud(folder, false, FileCloudKeyValueStore::Unreadable::raised);
  std::set<Uuid> places;
  std::set<Uuid> trips;
  for (const FavoriteLocation& place : FavoriteStore(cloud).locations()) places.insert(place.id);
  for (const Trip& trip : TripStore(cloud).trips()) trips.insert(trip.id);
  std::size_t acknowledged = 0;
  for (Writer& writer : writers) {
    std::int32_t index = 0;
    while (::read(writer.ackFd, &index, sizeof index) == sizeof index) {
      ++acknowledged;
      EXPECT_EQ(places.count(idOf(writer.id, index)), 1u) << "place " << writer.id << "/" << index;
      EXPECT_EQ(trips.count(idOf(writer.id, index)), 1u) << "trip " << writer.id << "/" << index;
    }
    ::close(writer.ackFd);
  }
  return acknowledged;
}

class StoreStressTest : public testing::Test {
 protected:
  const ScratchFolder scratch_{"ombrine-store-stress"};
  const fs::path folder_ = scratch_.path();
};

TEST_F(StoreStressTest, ConcurrentSaversLoseNoSave) {
  constexpr int kWriters = 6;
  constexpr int kSaves = 12;
  std::vector<Writer> writers = forkWriters(folder_, kWriters, kSaves);
  for (Writer& writer : writers) writer.process.release();
  for (Writer& writer : writers) EXPECT_EQ(writer.process.wait(), 0);
  EXPECT_EQ(expectAcknowledgedSavesStored(folder_, writers), static_cast<std::size_t>(kWriters * kSaves));
  EXPECT_TRUE(leftovers(folder_).empty());
}

TEST_F(StoreStressTest, SaversKilledAtRandomLoseNoAcknowledgedSave) {
  constexpr int kConcurrent = 4;
  constexpr int kKills = 12;
  // Every writer that will ever run is forked up front; a replacement is released when a running
  // one is killed.
  std::vector<Writer> writers = forkWriters(folder_, kConcurrent + kKills, -1);
  const std::function<ForkedChild&(std::size_t)> writer = [&](std::size_t i) -> ForkedChild& {
    return writers[i].process;
  };
  const std::vector<std::size_t> running =
      releaseAndKillAtRandom(writer, RandomKills{kConcurrent, kKills, 20261124, 5ms, 60ms});
  std::this_thread::sleep_for(50ms);
  for (std::size_t index : running) writers[index].process.kill();

  EXPECT_GT(expectAcknowledgedSavesStored(folder_, writers), 0u);
  // A killed writer may have left its temporary; the next save removes it once a minute old.
  for (const fs::path& left : leftovers(folder_)) {
    ASSERT_EQ(left.filename().string().find(".corrupt-"), std::string::npos) << "the file was torn";
    fs::last_write_time(left, fs::file_time_type::clock::now() - 2min);
  }
  FileCloudKeyValueStore cloud(folder_, false, FileCloudKeyValueStore::Unreadable::raised);
  FavoriteStore(cloud).save(placeOf(99, 0));
  EXPECT_TRUE(leftovers(folder_).empty());
}

}  // namespace
}  // namespace ombrine
