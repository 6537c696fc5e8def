// `ombrine trips forecast` run as a user runs it: real processes sharing one container, against
// the embedded simulator.

#include <gtest/gtest.h>
#include <sys/wait.h>

#include <unistd.h>

#include <array>
#include <chrono>
#include <cstdio>
#include <ctime>
#include <filesystem>
#include <fstream>
#include <sstream>
#include <string>

#include <boost/json.hpp>

namespace ombrine {
namespace {

namespace fs = std::filesystem;

struct ProgramRun {
  int exitCode = -1;
  std::string out;
  std::string err;
};

// One container, caches and sync folder for every run of a test.
class TripsForecastCommandTest : public testing::Test {
 protected:
  void SetUp() override {
    char pattern[] = "/tmp/ombrine-trips-forecast-test-XXXXXX";
    root_ = ::mkdtemp(pattern);
  }
  void TearDown() override { fs::remove_all(root_); }

  ProgramRun run(const std::string& arguments) const {
    const std::string errFile = (root_ / "stderr").string();
    const std::string command = "OMBRINE_CONTAINER=" + (root_ / "group").string() +
                                " XDG_CACHE_HOME=" + (root_ / "cache").string() +
                                " OMBRINE_SYNC_DIR=" + (root_ / "sync").string() +
                                " XDG_CONFIG_HOME=" + (root_ / "config").string() + " NO_COLOR=1 LANG=en_US.UTF-8 " +
                                OMBRINE_PROGRAM " " + arguments + " 2>" + errFile;
    ProgramRun result;
    FILE* pipe = ::popen(command.c_str(), "r");
    if (!pipe) return result;
    std::array<char, 4096> buffer;
    size_t n;
    while ((n = std::fread(buffer.data(), 1, buffer.size(), pipe)) > 0) result.out.append(buffer.data(), n);
    const int status = ::pclose(pipe);
    result.exitCode = WIFEXITED(status) ? WEXITSTATUS(status) : -1;
    std::ifstream in(errFile);
    std::stringstream text;
    text << in.rdbuf();
    result.err = text.str();
    return result;
  }

  // The UTC calendar day `days` from today, YYYY-MM-DD: a day that has begun nowhere yet is
  // never "in the past" at the destination.
  static std::string dayFromToday(int days) {
    const std::time_t at = std::time(nullptr) + days * 86400;
    std::tm parts{};
    ::gmtime_r(&at, &parts);
    char text[16];
    std::strftime(text, sizeof text, "%Y-%m-%d", &parts);
    return text;
  }

  fs::path root_;
};

TEST_F(TripsForecastCommandTest, FetchesOnceThenServesTheTripFromTheCache) {
  ASSERT_EQ(run("places home --at 52.52,13.405").exitCode, 0);
  const ProgramRun added = run("trips add Lisbon --from " + dayFromToday(2) + " --to " + dayFromToday(4));
  ASSERT_EQ(added.exitCode, 0) << added.err;

  const ProgramRun fetched = run("--services sim trips forecast lisbon --json");
  ASSERT_EQ(fetched.exitCode, 0) << fetched.err;
  const boost::json::value document = boost::json::parse(fetched.out);
  EXPECT_EQ(document.at("trip").at("destination").at("name").as_string(), "Lisbon");
  ASSERT_TRUE(document.at("source").is_object()) << fetched.out;
  EXPECT_EQ(document.at("source").at("fetched").as_bool(), true);
  const auto& days = document.at("days").as_array();
  ASSERT_EQ(days.size(), 3u);
  EXPECT_EQ(days[0].at("date").as_string(), dayFromToday(2));
  for (const auto& day : days) {
    EXPECT_EQ(day.at("place").as_string(), "Lisbon");
    EXPECT_TRUE(day.at("weather").is_object()) << boost::json::serialize(day);
  }
  const std::string id(document.at("trip").at("id").as_string());
  EXPECT_TRUE(fs::exists(root_ / "group" / "Library" / "Caches" / "TripCache" / (id + ".json")));

  // No trip named: the next one. Nothing is fetched; the days come from the trip cache.
  const ProgramRun cached = run("--services sim trips forecast --no-fetch");
  ASSERT_EQ(cached.exitCode, 0) << cached.err;
  EXPECT_NE(cached.out.find("Trip to Lisbon"), std::string::npos) << cached.out;
  EXPECT_NE(cached.out.find("from the trip cache"), std::string::npos) << cached.out;
  EXPECT_EQ(cached.out.find("no forecast"), std::string::npos) << cached.out;

  // By id prefix, as the other trips commands accept.
  EXPECT_EQ(run("--services sim trips forecast " + id.substr(0, 8) + " --no-fetch --json").exitCode, 0);
}

TEST_F(TripsForecastCommandTest, UnknownOrMissingTripIsAUsageError) {
  const ProgramRun none = run("--services sim trips forecast");
  EXPECT_EQ(none.exitCode, 2);
  EXPECT_NE(none.err.find("no current or upcoming trip"), std::string::npos) << none.err;
  const ProgramRun unknown = run("--services sim trips forecast Atlantis");
  EXPECT_EQ(unknown.exitCode, 2);
  EXPECT_NE(unknown.err.find("no trip is named \"Atlantis\""), std::string::npos) << unknown.err;
}

}  // namespace
}  // namespace ombrine
