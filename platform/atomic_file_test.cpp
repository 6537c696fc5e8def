#include "platform/atomic_file.hpp"

#include <gtest/gtest.h>
#include <signal.h>
#include <sys/stat.h>
#include <sys/wait.h>
#include <unistd.h>

#include <filesystem>
#include <random>
#include <string>

#include "platform/errors.hpp"

namespace ombrine {
namespace {

namespace fs = std::filesystem;

class AtomicFileTest : public testing::Test {
 protected:
  void SetUp() override {
    dir_ = fs::temp_directory_path() / ("ombrine-atomic-" + std::to_string(::getpid()) + "-" +
                                        testing::UnitTest::GetInstance()->current_test_info()->name());
    fs::remove_all(dir_);
    fs::create_directories(dir_);
  }
  void TearDown() override {
    std::error_code ec;
    fs::permissions(dir_ / "locked", fs::perms::owner_all, ec);
    fs::remove_all(dir_);
  }
  size_t entriesIn(const fs::path& folder) {
    return static_cast<size_t>(std::distance(fs::directory_iterator(folder), fs::directory_iterator()));
  }
  fs::path dir_;
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

TEST_F(AtomicFileTest, ReadingAFolderIsAnError) {
  EXPECT_THROW(readFileIfExists(dir_), FileError);
}

// A writer killed at random moments never leaves a torn file: the target always holds one
// complete version.
TEST_F(AtomicFileTest, KilledWriterNeverLeavesATornFile) {
  const fs::path file = dir_ / "value";
  auto version = [](int i) { return std::string(200000, static_cast<char>('a' + i % 26)); };
  writeFileAtomically(file, version(0));
  std::mt19937 random(42);
  for (int round = 0; round < 10; ++round) {
    pid_t child = ::fork();
    ASSERT_GE(child, 0);
    if (child == 0) {
      for (int i = 1;; ++i) writeFileAtomically(file, version(i));
    }
    ::usleep(1000 + random() % 20000);
    ::kill(child, SIGKILL);
    int status = 0;
    ::waitpid(child, &status, 0);
    auto content = readFileIfExists(file);
    ASSERT_TRUE(content.has_value());
    ASSERT_EQ(content->size(), 200000u);
    EXPECT_EQ(content->find_first_not_of(content->front()), std::string::npos);
  }
}

}  // namespace
}  // namespace ombrine
