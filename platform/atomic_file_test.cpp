#include "platform/atomic_file.hpp"

#include <gtest/gtest.h>
#include <signal.h>
#include <sys/file.h>
#include <sys/stat.h>
#include <unistd.h>

#include <filesystem>
#include <random>
#include <string>

#include "platform/errors.hpp"
#include "platform/testing/forked_child.hpp"
#include "platform/testing/scratch_folder.hpp"

namespace ombrine {
namespace {

namespace fs = std::filesystem;

class AtomicFileTest : public testing::Test {
 protected:
  void TearDown() override {
    std::error_code ec;
    fs::permissions(dir_ / "locked", fs::perms::owner_all, ec);
  }
  size_t entriesIn(const fs::path& folder) {
    return static_cast<size_t>(std::distance(fs::directory_iterator(folder), fs::directory_iterator()));
  }
  const ScratchFolder scratch_{"ombrine-atomic"};
  const fs::path dir_ = scratch_.path();
};

TEST_F(AtomicFileTest, WritesReplacesAndReads) {
  const fs::path file = dir_ / "a" / "b" / "value.json";
  EXPECT_EQ(readFileIfExists(file), std::nullopt);
  writeFileAtomically(file, "first");
  EXPECT_EQ(readFileIfExists(file), "first");
  writeFileAtomically(file, std::string("sec\0ond", 7));
  EXPECT_EQ(readFileIfExists(file), std::string("sec\0ond", 7));
  writeFileAtomically(file, "");
  EXPECT_EQ(readFileIfExists(file), "");
  // No temporary file is left beside the target.
  EXPECT_EQ(entriesIn(file.parent_path()), 1u);
}

TEST_F(AtomicFileTest, ModeIsApplied) {
  const fs::path file = dir_ / "secret";
  writeFileAtomically(file, "x", 0600);
  struct stat st {};
  ASSERT_EQ(::stat(file.c_str(), &st), 0);
  EXPECT_EQ(st.st_mode & 0777, 0600u);
}

TEST_F(AtomicFileTest, FailureKeepsOldContentAndLeavesNoTemporary) {
  if (::geteuid() == 0) GTEST_SKIP() << "root ignores folder permissions";
  const fs::path locked = dir_ / "locked";
  writeFileAtomically(locked / "value", "old");
  fs::permissions(locked, fs::perms::owner_read | fs::perms::owner_exec);
  EXPECT_THROW(writeFileAtomically(locked / "value", "new"), FileError);
  EXPECT_EQ(readFileIfExists(locked / "value"), "old");
  EXPECT_EQ(entriesIn(locked), 1u);
}

TEST_F(AtomicFileTest, ReadingAFolderIsAnError) { EXPECT_THROW(readFileIfExists(dir_), FileError); }

// A writer killed at random moments never leaves a torn file: the target always holds one
// complete version.
TEST_F(AtomicFileTest, KilledWriterNeverLeavesATornFile) {
  const fs::path file = dir_ / "value";
  auto version = [](int i) { return std::string(200000, static_cast<char>('a' + i % 26)); };
  writeFileAtomically(file, version(0));
  std::mt19937 random(42);
  for (int round = 0; round < 10; ++round) {
    ForkedChild writer([&] {
      for (int i = 1;; ++i) writeFileAtomically(file, version(i));
    });
    writer.release();
    ::usleep(1000 + random() % 20000);
    ASSERT_EQ(writer.kill(), 128 + SIGKILL) << "the writer ended by itself";
    auto content = readFileIfExists(file);
    ASSERT_TRUE(content.has_value());
    ASSERT_EQ(content->size(), 200000u);
    EXPECT_EQ(content->find_first_not_of(content->front()), std::string::npos);
  }
}

// Leftovers of killed writers of "value" go once they are a minute old and nobody holds them;
// a live writer's file, a young file and every other name stay.
TEST_F(AtomicFileTest, StaleTemporaryFilesOfTheTargetAreRemoved) {
  struct Case {
    const char* name;
    int ageSeconds;
    bool heldByAWriter;
    bool removed;
  };
  const Case cases[] = {
      {".value.Ab12cD", 61, false, true},
      {".value.Ab12cD", 3600, false, true},
      {".value.Ab12cD", 50, false, false},         // may still be mid-write, unlocked for a moment
      {".value.Ab12cD", 3600, true, false},        // a slow writer is alive
      {".value.json.Ab12cD", 3600, false, false},  // another file's
      {"value.Ab12cD", 3600, false, false},
      {".value.Ab12c", 3600, false, false},
      {".value.Ab12cDe", 3600, false, false},
      {".valuex.Ab12cD", 3600, false, false},
      {"value", 3600, false, false},  // the target itself
  };
  const auto now = fs::file_time_type::clock::now();
  for (const Case& c : cases) {
    SCOPED_TRACE(std::string(c.name) + " age " + std::to_string(c.ageSeconds));
    const fs::path leftover = dir_ / c.name;
    writeFileAtomically(leftover, "partial");
    fs::last_write_time(leftover, now - std::chrono::seconds(c.ageSeconds));
    const int writer = ::open(leftover.c_str(), O_RDONLY);
    ASSERT_GE(writer, 0);
    if (c.heldByAWriter) ASSERT_EQ(::flock(writer, LOCK_EX), 0);
    EXPECT_EQ(removeStaleTemporaryFiles(dir_ / "value", now), c.removed ? 1u : 0u);
    EXPECT_EQ(fs::exists(leftover), !c.removed);
    ::close(writer);
    fs::remove(leftover);
  }
  EXPECT_EQ(removeStaleTemporaryFiles(dir_ / "missing-folder" / "value", now), 0u);
}

// A writer killed between creating and renaming its temporary file leaves it behind; it is found
// and removed (after the minimum age, here zero) while a concurrently running writer's is not.
TEST_F(AtomicFileTest, LeftoverOfAKilledWriterIsFoundAndRemoved) {
  const fs::path file = dir_ / "value";
  const std::string big(32 << 20, 'x');
  std::mt19937 random(7);
  auto leftovers = [&] {
    size_t count = 0;
    for (const auto& entry : fs::directory_iterator(dir_)) count += entry.path().filename() != "value";
    return count;
  };
  for (int round = 0; round < 20 && leftovers() == 0; ++round) {
    ForkedChild writer([&] {
      for (;;) writeFileAtomically(file, big);
    });
    writer.release();
    ::usleep(5000 + random() % 20000);
    ASSERT_EQ(writer.kill(), 128 + SIGKILL) << "the writer ended by itself";
  }
  const size_t left = leftovers();
  ASSERT_GT(left, 0u) << "no writer was killed mid-write";
  EXPECT_EQ(removeStaleTemporaryFiles(file, fs::file_time_type::clock::now(), std::chrono::seconds(0)), left);
  EXPECT_EQ(leftovers(), 0u);
}

}  // namespace
}  // namespace ombrine
