#include "platform/linux/file_key_value_store.hpp"

#include <gtest/gtest.h>
#include <unistd.h>

#include <chrono>
#include <condition_variable>
#include <cstdlib>
#include <filesystem>
#include <functional>
#include <mutex>
#include <string>
#include <thread>
#include <vector>

#include "platform/atomic_file.hpp"
#include "platform/linux/file_cloud_key_value_store.hpp"
#include "platform/testing/forked_child.hpp"
#include "platform/testing/scratch_folder.hpp"

namespace ombrine {
namespace {

namespace fs = std::filesystem;
using namespace std::chrono_literals;

StoreValue integer(std::int64_t i) { return StoreValue{i}; }

class FileKeyValueStoreTest : public testing::Test {
 protected:
  // Runs `body` in `count` processes at once, forked now, and expects each to exit 0. Tests
  // that start a watcher thread fork their children before it instead (forkChildren).
  static void inChildren(int count, const std::function<void(int)>& body) {
    auto children = forkChildren(count, body);
    EXPECT_TRUE(runAllAndWait(children)) << "a child failed or hung";
  }

  std::vector<fs::path> corruptCopies(const fs::path& folder, const std::string& name) {
    std::vector<fs::path> found;
    for (const auto& entry : fs::directory_iterator(folder)) {
      if (entry.path().filename().string().starts_with(name + ".corrupt-")) found.push_back(entry.path());
    }
    return found;
  }

  const ScratchFolder scratch_{"ombrine-kvs"};
  const fs::path dir_ = scratch_.path();
};

TEST_F(FileKeyValueStoreTest, ProcessesWritingDifferentKeysLoseNothing) {
  const fs::path file = dir_ / "suite.json";
  constexpr int kProcesses = 4;
  constexpr int kKeys = 25;
  inChildren(kProcesses, [&](int process) {
    FileKeyValueStore store(file);
    for (int k = 0; k < kKeys; ++k) store.setValue("p" + std::to_string(process) + "k" + std::to_string(k), integer(k));
  });
  const FileKeyValueStore reader(file);
  const StoreDictionary all = reader.dictionaryRepresentation();
  EXPECT_EQ(all.size(), static_cast<size_t>(kProcesses * kKeys));
  for (int p = 0; p < kProcesses; ++p) {
    for (int k = 0; k < kKeys; ++k) {
      EXPECT_EQ(reader.integerValue("p" + std::to_string(p) + "k" + std::to_string(k)), k);
    }
  }
}

TEST_F(FileKeyValueStoreTest, AnotherProcessWriteIsSeenWithoutRestart) {
  const fs::path file = dir_ / "suite.json";
  FileKeyValueStore mine(file);
  mine.setValue("mine", integer(1));
  EXPECT_EQ(mine.integerValue("theirs"), std::nullopt);
  inChildren(1, [&](int) {
    FileKeyValueStore theirs(file);
    theirs.setValue("theirs", StoreValue{StoreDate{12.5}});
    theirs.setValue("mine", integer(2));
  });
  EXPECT_EQ(mine.dateValue("theirs"), StoreDate{12.5});
  EXPECT_EQ(mine.integerValue("mine"), 2);
  // And our own next write merges with theirs instead of writing our stale memory.
  mine.setValue("third", StoreValue{true});
  EXPECT_EQ(FileKeyValueStore(file).dictionaryRepresentation().size(), 3u);
}

TEST_F(FileKeyValueStoreTest, CorruptSuiteIsKeptAsideAndTheNextWriteStartsAfresh) {
  const fs::path file = dir_ / "suite.json";
  const std::string garbage = "{\"half\": tr";
  writeFileAtomically(file, garbage);
  FileKeyValueStore store(file);
  EXPECT_TRUE(store.dictionaryRepresentation().empty());
  const auto aside = corruptCopies(dir_, "suite.json");
  ASSERT_EQ(aside.size(), 1u);
  EXPECT_EQ(readFileIfExists(aside[0]), garbage);  // never destroyed
  store.setValue("k", integer(1));
  EXPECT_EQ(FileKeyValueStore(file).integerValue("k"), 1);

  // Garbage written while the store is open: seen on the next read, kept aside again.
  writeFileAtomically(file, "[]");
  EXPECT_EQ(store.integerValue("k"), std::nullopt);
  EXPECT_EQ(corruptCopies(dir_, "suite.json").size(), 2u);
}

TEST_F(FileKeyValueStoreTest, WritingAnEqualValueLeavesTheFileAlone) {
  const fs::path file = dir_ / "suite.json";
  FileKeyValueStore store(file);
  store.setValue("k", integer(1));
  const auto before = fs::last_write_time(file);
  const auto inode = detail::fileSignature(file).inode;
  store.setValue("k", integer(1));
  store.removeValue("absent");
  EXPECT_EQ(fs::last_write_time(file), before);
  EXPECT_EQ(detail::fileSignature(file).inode, inode);
}

TEST_F(FileKeyValueStoreTest, PathsFollowTheEnvironment) {
  ::setenv("OMBRINE_CONTAINER", dir_.c_str(), 1);
  ::unsetenv("OMBRINE_SYNC_DIR");
  EXPECT_EQ(FileKeyValueStore::suiteFile(FileKeyValueStore::kSharedSuite),
            dir_ / "Library/Preferences/group.com.quillfernhollowarts.Weather.json");
  EXPECT_EQ(FileCloudKeyValueStore::defaultSyncDirectory(), dir_ / "Library/Synced Preferences");
  ::setenv("OMBRINE_SYNC_DIR", (dir_ / "sync").c_str(), 1);
  EXPECT_EQ(FileCloudKeyValueStore::defaultSyncDirectory(), dir_ / "sync");
  ::unsetenv("OMBRINE_SYNC_DIR");
  ::unsetenv("OMBRINE_CONTAINER");
}

// Collects notifications from the watcher thread.
struct ChangeLog {
  std::mutex mutex;
  std::condition_variable changed;
  std::vector<CloudStoreChange> changes;

  Subscription observe(CloudKeyValueStore& store) {
    return store.observeExternalChanges([this](const CloudStoreChange& change) {
      std::lock_guard guard(mutex);
      changes.push_back(change);
      changed.notify_all();
    });
  }
  bool waitFor(std::size_t count) {
    std::unique_lock lock(mutex);
    return changed.wait_for(lock, 10s, [&] { return changes.size() >= count; });
  }
};

TEST_F(FileKeyValueStoreTest, CloudChangeFromAnotherProcessReachesTheWatcher) {
  // Forked before this process's store starts its watcher thread.
  ForkedChild theirs([&] {
    FileCloudKeyValueStore store(dir_, false);
    store.setValue("favorites", StoreValue{StoreData{"[]"}});
    store.setValue("local", integer(2));
    return store.synchronize();
  });
  FileCloudKeyValueStore mine(dir_);
  ChangeLog log;
  auto token = log.observe(mine);
  mine.setValue("local", integer(1));
  ASSERT_TRUE(mine.synchronize());
  ASSERT_TRUE(theirs.runAndWait());
  ASSERT_TRUE(log.waitFor(1));
  std::lock_guard guard(log.mutex);
  EXPECT_EQ(log.changes[0].reason, CloudStoreChangeReason::serverChange);
  EXPECT_EQ(log.changes[0].changedKeys, (std::vector<std::string>{"favorites", "local"}));
  EXPECT_EQ(mine.dataValue("favorites"), StoreData{"[]"});
  EXPECT_EQ(mine.integerValue("local"), 2);
}

TEST_F(FileKeyValueStoreTest, CloudProcessesSynchronizingDifferentKeysLoseNothing) {
  constexpr int kProcesses = 3;
  inChildren(kProcesses, [&](int process) {
    FileCloudKeyValueStore store(dir_, false);
    for (int k = 0; k < 10; ++k) {
      store.setValue("p" + std::to_string(process) + "k" + std::to_string(k), integer(k));
      if (!store.synchronize()) throw std::runtime_error("synchronize failed");
    }
  });
  FileCloudKeyValueStore reader(dir_, false);
  EXPECT_EQ(reader.dictionaryRepresentation().size(), static_cast<size_t>(kProcesses * 10));
}

TEST_F(FileKeyValueStoreTest, CorruptCloudFileIsKeptAsideAndRewrittenFromMemory) {
  FileCloudKeyValueStore store(dir_, false);
  ChangeLog log;
  auto token = log.observe(store);
  store.setValue("home", StoreValue{std::string("Oslo")});
  ASSERT_TRUE(store.synchronize());
  writeFileAtomically(store.file(), "not json");  // a sync tool mangled it
  ASSERT_TRUE(store.synchronize());
  // Nothing reads as removed, the garbage is kept, and the file holds memory again.
  EXPECT_TRUE(log.changes.empty());
  EXPECT_EQ(corruptCopies(dir_, std::string(FileCloudKeyValueStore::kFileName)).size(), 1u);
  EXPECT_EQ(FileCloudKeyValueStore(dir_, false).stringValue("home"), "Oslo");
}

TEST_F(FileKeyValueStoreTest, CloudWritesWaitForSynchronize) {
  {
    FileCloudKeyValueStore store(dir_, false);
    store.setValue("kept", integer(1));
    ASSERT_TRUE(store.synchronize());
    store.setValue("dropped", integer(2));
  }
  const FileCloudKeyValueStore reopened(dir_, false);
  EXPECT_EQ(reopened.integerValue("kept"), 1);
  EXPECT_EQ(reopened.integerValue("dropped"), std::nullopt);
}

}  // namespace
}  // namespace ombrine
