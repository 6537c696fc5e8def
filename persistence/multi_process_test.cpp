// Real processes writing one coordinated file: forked writers, readers, and writers killed with
// SIGKILL at random moments. Children run the same code path as a program would (a Runtime and
// performCoordinatedTransaction) and leave with _exit, never returning into the test framework.
// Every child is forked before this process starts a thread, and every wait for one is bounded.

#include <fcntl.h>
#include <unistd.h>

#include <gtest/gtest.h>

#include <chrono>
#include <cstdint>
#include <random>
#include <set>
#include <thread>
#include <vector>

#include "persistence/coordinated_value_cache.hpp"
#include "persistence/persistence_test_support.hpp"
#include "platform/runtime.hpp"
#include "platform/testing/async_testing.hpp"
#include "platform/testing/forked_child.hpp"

namespace ombrine {
namespace {

using namespace testing_support;
using namespace std::chrono_literals;

std::string keyOf(int writer, int index) { return "w" + std::to_string(writer) + "-" + std::to_string(index); }

// Stores keys 0..count-1 (or forever with count < 0) of `writer`; after each store has returned
// writes its index to `ackFd` when one is given.
void writeKeys(const fs::path& file, int writer, int count, int ackFd) {
  Runtime runtime(1);
  for (int i = 0; count < 0 || i < count; ++i) {
    runtime.runBlocking(performCoordinatedTransaction(unionStore(file, Counts{{keyOf(writer, i), i}})));
    if (ackFd >= 0) {
      const std::int32_t ack = i;
      if (::write(ackFd, &ack, sizeof ack) != sizeof ack) throw std::runtime_error("ack lost");
    }
  }
}

// Reads `file` without any lock until `stopFile` exists. Fails when a file that exists does not
// decode, or when its number of keys ever goes down (each write only adds keys).
void readUntilStopped(const fs::path& file, const fs::path& stopFile) {
  const auto codec = countsCodec();
  std::size_t seen = 0;
  while (!fs::exists(stopFile)) {
    if (auto bytes = readFileIfExists(file)) {
      const Counts counts = codec.decode(*bytes);
      if (counts.size() < seen) throw std::runtime_error("a reader saw the file go back");
      seen = counts.size();
    }
    std::this_thread::sleep_for(200us);
  }
}

// Every index acknowledged through `fd` (read to its end).
std::vector<std::int32_t> drainAcks(int fd) {
  std::vector<std::int32_t> acks;
  std::int32_t ack = 0;
  while (::read(fd, &ack, sizeof ack) == sizeof ack) acks.push_back(ack);
  return acks;
}

class MultiProcessTest : public ScratchFolderTest {};

TEST_F(MultiProcessTest, ConcurrentWritersLoseNothingAndReadersNeverSeeATornFile) {
  constexpr int kWriters = 8;
  constexpr int kStores = 100;
  const fs::path file = dir_ / "Library" / "Caches" / "stress";
  const fs::path stop = dir_ / "stop";
  auto readers = forkChildren(2, [&](int) { readUntilStopped(file, stop); });
  auto writers = forkChildren(kWriters, [&](int w) { writeKeys(file, w, kStores, -1); });
  for (ForkedChild& reader : readers) reader.release();

  EXPECT_TRUE(runAllAndWait(writers, 120s));
  writeFileAtomically(stop, "");
  for (ForkedChild& reader : readers) EXPECT_EQ(reader.wait(), 0);

  const Counts final = countsCodec().decode(*readFileIfExists(file));
  EXPECT_EQ(final.size(), static_cast<std::size_t>(kWriters * kStores));
  for (int w = 0; w < kWriters; ++w) {
    for (int i = 0; i < kStores; ++i) EXPECT_EQ(final.count(keyOf(w, i)), 1u) << keyOf(w, i);
  }
}

TEST_F(MultiProcessTest, WritersKilledAtRandomLoseNoAcknowledgedWriteAndHoldNoLock) {
  constexpr int kConcurrent = 4;
  constexpr int kKills = 16;
  const fs::path file = dir_ / "crash";
  const fs::path stop = dir_ / "stop";
  ForkedChild reader([&] { readUntilStopped(file, stop); });

  // Every writer that will ever run is forked up front, each acknowledging its stores through a
  // pipe of its own; a replacement is released when a running one is killed.
  struct Writer {
    int id;
    int ackFd;
    ForkedChild process;
  };
  std::vector<Writer> writers;
  writers.reserve(kConcurrent + kKills);
  for (int id = 0; id < kConcurrent + kKills; ++id) {
    int fds[2];
    ASSERT_EQ(::pipe(fds), 0);
    ForkedChild process([&file, id, fds] {
      ::close(fds[0]);
      writeKeys(file, id, -1, fds[1]);
    });
    ::close(fds[1]);
    writers.push_back(Writer{id, fds[0], std::move(process)});
  }
  reader.release();
  const std::function<ForkedChild&(std::size_t)> writer = [&](std::size_t i) -> ForkedChild& {
    return writers[i].process;
  };
  const std::vector<std::size_t> running = releaseAndKillAtRandom(
      writer, RandomKills{kConcurrent, kKills, 20261123, std::chrono::milliseconds(2), std::chrono::milliseconds(40)});
  for (std::size_t index : running) writers[index].process.kill();
  writeFileAtomically(stop, "");
  EXPECT_EQ(reader.wait(), 0) << "a reader saw an undecodable or shrinking file";

  const auto bytes = readFileIfExists(file);
  ASSERT_TRUE(bytes);
  const Counts final = countsCodec().decode(*bytes);
  std::size_t acknowledged = 0;
  for (const Writer& writer : writers) {
    for (std::int32_t index : drainAcks(writer.ackFd)) {
      ++acknowledged;
      EXPECT_EQ(final.count(keyOf(writer.id, index)), 1u) << keyOf(writer.id, index);
    }
    ::close(writer.ackFd);
  }
  EXPECT_GT(acknowledged, 0u);
  // The lock died with its holders.
  EXPECT_TRUE(CoordinationLock::tryAcquire(coordinationFilePath(file)).has_value());
}

TEST_F(MultiProcessTest, WaitForAnotherProcessesLockIsCancellableAndTheLockDiesWithIt) {
  const fs::path coordination = dir_ / "value.coordination";
  ForkedChild holder([&] {
    prepareCoordinationFile(coordination);
    auto lock = CoordinationLock::tryAcquire(coordination);
    if (!lock) throw std::runtime_error("lock taken");
    ForkedChild::reportReady();
    ::pause();
  });
  holder.release();
  ASSERT_TRUE(holder.waitUntilReady()) << "the holder did not get the lock";

  Runtime runtime(2);
  std::atomic<bool> ran{false};
  auto operation = [&ran] { ran = true; };
  auto waiting = startTask(runtime.executor(), performCoordinatedWrite<void>(coordination, operation));
  std::this_thread::sleep_for(30ms);
  waiting.task.cancel();
  ASSERT_EQ(waiting.outcome.wait_for(10s), std::future_status::ready);
  EXPECT_TRUE(isCancellationError(waiting.outcome.get()));
  EXPECT_FALSE(ran);

  // A second waiter gets the lock as soon as the holder is killed.
  auto next = startTask(runtime.executor(), performCoordinatedWrite<void>(coordination, operation));
  std::this_thread::sleep_for(30ms);
  EXPECT_FALSE(ran);
  holder.kill();
  ASSERT_EQ(next.outcome.wait_for(10s), std::future_status::ready);
  EXPECT_EQ(next.outcome.get(), nullptr);
  EXPECT_TRUE(ran);
}

TEST_F(MultiProcessTest, ProcessesCreatingTheCoordinationFileAtOnceAllSucceed) {
  const fs::path coordination = dir_ / "deep" / "folder" / "value.coordination";
  auto children = forkChildren(6, [&](int) { prepareCoordinationFile(coordination); });
  EXPECT_TRUE(runAllAndWait(children));
  EXPECT_EQ(fs::file_size(coordination), 0u);
}

}  // namespace
}  // namespace ombrine

namespace ombrine {
namespace {

TEST_F(MultiProcessTest, ProcessesMigratingAtOnceMigrateOnce) {
  const fs::path caches = dir_ / "Library" / "Caches";
  writeFileAtomically(caches / "legacy", R"(["A",{"v":1},"B",{"v":2},"C",{"v":3}])");
  // Each run that finds the legacy file appends a line here; exactly one may.
  const fs::path runs = dir_ / "runs";
  auto migrate = [&] {
    DictionaryCacheFileMigrationTransaction<std::string, Counts> migration;
    migration.legacyFileURL = caches / "legacy";
    migration.destinationDirectoryURL = caches / "per-key";
    migration.destinationURL = [&](const std::string& key) { return caches / "per-key" / (key + ".json"); };
    migration.codec = countsCodec();
    migration.decodeDictionary = [&](std::string_view bytes) {
      const int fd = ::open(runs.c_str(), O_WRONLY | O_CREAT | O_APPEND, 0644);
      if (fd < 0 || ::write(fd, "x\n", 2) != 2) throw std::runtime_error("runs");
      ::close(fd);
      const boost::json::value document = boost::json::parse(bytes);
      const auto& array = document.as_array();
      std::vector<std::pair<std::string, Counts>> entries;
      for (std::size_t i = 0; i + 1 < array.size(); i += 2) {
        entries.emplace_back(std::string(array[i].as_string()),
                             countsCodec().decode(boost::json::serialize(array[i + 1])));
      }
      return entries;
    };
    std::function<void()> operation = [migration] { migration.commit(); };
    Runtime runtime(1);
    runtime.runBlocking(performCoordinatedWrite<void>(caches / "migration.coordination", operation));
  };
  auto children = forkChildren(4, [&](int) { migrate(); });
  EXPECT_TRUE(runAllAndWait(children));
  EXPECT_EQ(readFileIfExists(runs), "x\n");
  EXPECT_FALSE(fs::exists(caches / "legacy"));
  EXPECT_EQ(readFileIfExists(caches / "per-key" / "B.json"), R"({"v":2})");
  EXPECT_EQ(readFileIfExists(caches / "per-key" / "C.json"), R"({"v":3})");
}

}  // namespace
}  // namespace ombrine
