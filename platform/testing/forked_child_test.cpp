#include "platform/testing/forked_child.hpp"

#include <gtest/gtest.h>
#include <unistd.h>

#include <chrono>
#include <filesystem>
#include <fstream>
#include <stdexcept>
#include <thread>

namespace ombrine {
namespace {

TEST(ForkedChildTest, ReportsTheBodysOutcomeAndBoundsAHang) {
  struct Case {
    const char* name;
    std::function<bool()> body;
    bool expected;
  };
  const Case cases[] = {
      {"true", [] { return true; }, true},
      {"false", [] { return false; }, false},
      {"throws", []() -> bool { throw std::runtime_error("x"); }, false},
      {"hangs", [] { ::pause(); return true; }, false},
  };
  for (const Case& c : cases) {
    SCOPED_TRACE(c.name);
    ForkedChild child(c.body);
    EXPECT_EQ(child.runAndWait(std::chrono::milliseconds(300)), c.expected);
  }
}

TEST(ForkedChildTest, BodyRunsOnlyWhenReleased) {
  const auto marker = std::filesystem::temp_directory_path() /
                      ("ombrine-forked-" + std::to_string(::getpid()));
  std::filesystem::remove(marker);
  {
    ForkedChild released([&] { return std::ofstream(marker).good(); });
    std::this_thread::sleep_for(std::chrono::milliseconds(50));
    EXPECT_FALSE(std::filesystem::exists(marker));
    EXPECT_TRUE(released.runAndWait());
    EXPECT_TRUE(std::filesystem::exists(marker));
  }
  std::filesystem::remove(marker);
  { ForkedChild neverReleased([&] { return std::ofstream(marker).good(); }); }
  EXPECT_FALSE(std::filesystem::exists(marker));
}

}  // namespace
}  // namespace ombrine
