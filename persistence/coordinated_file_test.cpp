#include "persistence/coordinated_file.hpp"

#include <gtest/gtest.h>

#include <atomic>
#include <chrono>
#include <fstream>
#include <thread>

#include "persistence/coordinated_value_cache.hpp"
#include "persistence/persistence_test_support.hpp"
#include "platform/runtime.hpp"
#include "platform/testing/async_testing.hpp"

namespace ombrine {
namespace {

using namespace testing_support;
using namespace std::chrono_literals;

void writeRaw(const fs::path& file, const std::string& bytes) {
  std::ofstream out(file, std::ios::binary | std::ios::trunc);
  out << bytes;
}

class CoordinatedFileTest : public ScratchFolderTest {
 protected:
  // Takes the lock of `coordination_` as another writer would, then starts a write that must
  // wait for it; the write's operation sets `ran_`.
  StartedTask startBlockedWrite() {
    coordination_ = dir_ / "value.coordination";
    prepareCoordinationFile(coordination_);
    held_ = CoordinationLock::tryAcquire(coordination_);
    EXPECT_TRUE(held_);
    auto operation = [this] { ran_ = true; };
    return startTask(runtime_.executor(), performCoordinatedWrite<void>(coordination_, operation));
  }

  Runtime runtime_{2};
  fs::path coordination_;
  std::optional<CoordinationLock> held_;
  std::atomic<bool> ran_{false};
};

TEST_F(CoordinatedFileTest, CoordinationFileKeepsTheValueFilesExtension) {
  EXPECT_EQ(coordinationFilePath("/c/TripCache/E621E1F8-C36C-495A-93FC-0C247A3E6E5F.json").filename(),
            "E621E1F8-C36C-495A-93FC-0C247A3E6E5F.json.coordination");
  EXPECT_EQ(coordinationFilePath("/c/latestWeatherCache"), "/c/latestWeatherCache.coordination");
}

TEST_F(CoordinatedFileTest, FirstWriteCreatesFolderAndCoordinationFile) {
  const fs::path coordination = dir_ / "a" / "b" / "value.coordination";
  const int result = runtime_.runBlocking(performCoordinatedWrite<int>(coordination, [] { return 42; }));
  EXPECT_EQ(result, 42);
  ASSERT_TRUE(fs::exists(coordination));
  EXPECT_EQ(fs::file_size(coordination), 0u);
  // Preparing again (as a second process would) succeeds and never touches the file.
  writeRaw(coordination, "kept");
  prepareCoordinationFile(coordination);
  EXPECT_EQ(readFileIfExists(coordination), "kept");
}

TEST_F(CoordinatedFileTest, OperationErrorsReachTheCallerUnchanged) {
  const fs::path coordination = dir_ / "value.coordination";
  auto failing = [] { throw FileError("disk on fire"); };
  auto error = errorOf(runtime_, performCoordinatedWrite<void>(coordination, failing));
  EXPECT_EQ(messageOf(error), "disk on fire");
  // The lock was released with the failure.
  EXPECT_TRUE(CoordinationLock::tryAcquire(coordination).has_value());
}

TEST_F(CoordinatedFileTest, UnpreparableFolderIsAFileError) {
  writeRaw(dir_ / "plain", "x");
  std::atomic<bool> ran{false};
  auto operation = [&ran] { ran = true; };
  auto error = errorOf(runtime_, performCoordinatedWrite<void>(dir_ / "plain" / "v.coordination", operation));
  EXPECT_NE(messageOf(error).find("cannot create folder"), std::string::npos) << messageOf(error);
  EXPECT_FALSE(ran);
}

TEST_F(CoordinatedFileTest, WritesToTheSamePathSerialiseAndOthersDoNot) {
  auto waiting = startBlockedWrite();
  EXPECT_FALSE(CoordinationLock::tryAcquire(coordination_)) << "a second open file must be refused";
  // Another path is independent of the held lock.
  runtime_.runBlocking(performCoordinatedWrite<void>(dir_ / "other.coordination", [] {}));
  std::this_thread::sleep_for(30ms);
  EXPECT_FALSE(ran_);
  held_.reset();
  ASSERT_EQ(waiting.outcome.wait_for(10s), std::future_status::ready);
  EXPECT_EQ(waiting.outcome.get(), nullptr);
  EXPECT_TRUE(ran_);
}

TEST_F(CoordinatedFileTest, CancelledWaiterRunsNoOperationAndLeavesTheLockFree) {
  auto waiting = startBlockedWrite();
  std::this_thread::sleep_for(20ms);
  waiting.task.cancel();
  ASSERT_EQ(waiting.outcome.wait_for(10s), std::future_status::ready);
  EXPECT_TRUE(isCancellationError(waiting.outcome.get()));
  held_.reset();
  std::this_thread::sleep_for(30ms);
  EXPECT_FALSE(ran_);
  EXPECT_TRUE(CoordinationLock::tryAcquire(coordination_).has_value());
}

TEST_F(CoordinatedFileTest, StoreTreatsUnusableFilesAsNothingStored) {
  struct Row {
    const char* what;
    std::optional<std::string> content;  // nothing: no file
  };
  const Row rows[] = {
      {"missing", std::nullopt},
      {"empty", ""},
      {"truncated", R"({"a":1,"b")"},
      {"garbage", "\x00\xff not json"},
      {"foreign JSON", R"(["an", "array"])"},
      {"wrong value type", R"({"a":"text"})"},
  };
  for (const Row& row : rows) {
    SCOPED_TRACE(row.what);
    const fs::path file = dir_ / "value";
    fs::remove(file);
    if (row.content) writeRaw(file, *row.content);
    std::optional<Counts> applied;
    auto transaction = unionStore(file, Counts{{"new", 7}});
    transaction.applyPersistedValue = [&applied](const std::optional<Counts>& value, Date) { applied = value; };
    runtime_.runBlocking(performCoordinatedTransaction(transaction));
    EXPECT_EQ(readFileIfExists(file), R"({"new":7})");
    EXPECT_EQ(applied, (Counts{{"new", 7}}));
  }
}

TEST_F(CoordinatedFileTest, StoreThatChangesNothingKeepsTheFileDate) {
  const fs::path file = dir_ / "value";
  runtime_.runBlocking(performCoordinatedTransaction(unionStore(file, Counts{{"a", 1}})));
  const auto written = fileModificationDate(file);
  ASSERT_TRUE(written);
  std::this_thread::sleep_for(20ms);
  std::optional<Date> appliedDate;
  auto same = unionStore(file, Counts{{"a", 1}});
  same.applyPersistedValue = [&appliedDate](const std::optional<Counts>&, Date date) { appliedDate = date; };
  runtime_.runBlocking(performCoordinatedTransaction(same));
  EXPECT_EQ(fileModificationDate(file), written);
  EXPECT_EQ(appliedDate, written);

  // A real change moves the date forward.
  runtime_.runBlocking(performCoordinatedTransaction(unionStore(file, Counts{{"b", 2}})));
  EXPECT_GT(*fileModificationDate(file), *written);
  EXPECT_EQ(readFileIfExists(file), R"({"a":1,"b":2})");
}

TEST_F(CoordinatedFileTest, ShouldCommitFalseIsANoOp) {
  const fs::path file = dir_ / "value";
  writeRaw(file, "garbage");
  bool applied = false;
  auto transaction = unionStore(file, Counts{{"a", 1}});
  transaction.shouldCommit = [] { return false; };
  transaction.applyPersistedValue = [&applied](const std::optional<Counts>&, Date) { applied = true; };
  runtime_.runBlocking(performCoordinatedTransaction(transaction));
  EXPECT_EQ(readFileIfExists(file), "garbage");
  EXPECT_FALSE(applied);
}

TEST_F(CoordinatedFileTest, RemoveOfAMissingFileReportsNothingAndTheCurrentTime) {
  const fs::path file = dir_ / "value";
  for (bool exists : {true, false}) {
    SCOPED_TRACE(exists);
    if (exists) writeRaw(file, R"({"a":1})");
    auto transaction = unionStore(file, {});
    transaction.mutation = RemoveValue{};
    std::optional<std::pair<std::optional<Counts>, Date>> applied;
    transaction.applyPersistedValue = [&applied](const std::optional<Counts>& value, Date date) {
      applied.emplace(value, date);
    };
    runtime_.runBlocking(performCoordinatedTransaction(transaction));
    EXPECT_FALSE(fs::exists(file));
    ASSERT_TRUE(applied);
    EXPECT_EQ(applied->first, std::nullopt);
    EXPECT_EQ(applied->second, Date::fromReference(1000.0));
  }
}

TEST_F(CoordinatedFileTest, UnreadableFileFailsTheStoreAndStaysAsItIs) {
  // A folder in place of the value file cannot be read, whoever runs the test.
  const fs::path file = dir_ / "value";
  fs::create_directories(file / "inside");
  bool applied = false;
  auto transaction = unionStore(file, Counts{{"a", 1}});
  transaction.applyPersistedValue = [&applied](const std::optional<Counts>&, Date) { applied = true; };
  auto error = errorOf(runtime_, performCoordinatedTransaction(transaction));
  EXPECT_NE(error, nullptr);
  EXPECT_TRUE(fs::is_directory(file / "inside"));
  EXPECT_FALSE(applied);
}

class MigrationTest : public ScratchFolderTest {
 protected:
  using Entries = std::vector<std::pair<std::string, Counts>>;

  DictionaryCacheFileMigrationTransaction<std::string, Counts> migration() const {
    DictionaryCacheFileMigrationTransaction<std::string, Counts> transaction;
    transaction.legacyFileURL = dir_ / "legacy";
    transaction.destinationDirectoryURL = dir_ / "per-key";
    transaction.destinationURL = [dir = dir_](const std::string& key) { return dir / "per-key" / (key + ".json"); };
    transaction.codec = countsCodec();
    // The legacy file: an array of alternating key and value.
    transaction.decodeDictionary = [](std::string_view bytes) {
      const boost::json::value document = boost::json::parse(bytes);
      const auto& array = document.as_array();
      if (array.size() % 2 != 0) throw std::runtime_error("odd dictionary array");
      Entries entries;
      for (std::size_t i = 0; i < array.size(); i += 2) {
        entries.emplace_back(std::string(array[i].as_string()),
                             countsCodec().decode(boost::json::serialize(array[i + 1])));
      }
      return entries;
    };
    return transaction;
  }
};

TEST_F(MigrationTest, MovesEntriesKeepsValidFilesAndReplacesCorruptOnes) {
  writeRaw(dir_ / "legacy", R"(["A",{"v":1},"B",{"v":2},"C",{"v":3}])");
  fs::create_directories(dir_ / "per-key");
  writeRaw(dir_ / "per-key" / "A.json", R"({"v":100})");  // newer than the legacy entry
  writeRaw(dir_ / "per-key" / "B.json", "{corrupt");
  migration().commit();
  EXPECT_EQ(readFileIfExists(dir_ / "per-key" / "A.json"), R"({"v":100})");
  EXPECT_EQ(readFileIfExists(dir_ / "per-key" / "B.json"), R"({"v":2})");
  EXPECT_EQ(readFileIfExists(dir_ / "per-key" / "C.json"), R"({"v":3})");
  EXPECT_FALSE(fs::exists(dir_ / "legacy"));
  // A second run (the other process) finds nothing to do.
  migration().commit();
  EXPECT_EQ(readFileIfExists(dir_ / "per-key" / "C.json"), R"({"v":3})");
}

TEST_F(MigrationTest, WorthlessLegacyFileIsRemovedWithoutPerKeyFiles) {
  writeRaw(dir_ / "legacy", "not a dictionary");
  migration().commit();
  EXPECT_FALSE(fs::exists(dir_ / "legacy"));
  EXPECT_FALSE(fs::exists(dir_ / "per-key"));
}

TEST_F(MigrationTest, FailedWriteKeepsTheLegacyFileForTheNextRun) {
  writeRaw(dir_ / "legacy", R"(["A",{"v":1},"B",{"v":2}])");
  fs::create_directories(dir_ / "per-key" / "B.json" / "blocker");  // B cannot be read or written
  EXPECT_THROW(migration().commit(), FileError);
  EXPECT_TRUE(fs::exists(dir_ / "legacy"));
  EXPECT_EQ(readFileIfExists(dir_ / "per-key" / "A.json"), R"({"v":1})");
  fs::remove_all(dir_ / "per-key" / "B.json");
  migration().commit();
  EXPECT_EQ(readFileIfExists(dir_ / "per-key" / "B.json"), R"({"v":2})");
  EXPECT_FALSE(fs::exists(dir_ / "legacy"));
}

}  // namespace
}  // namespace ombrine
