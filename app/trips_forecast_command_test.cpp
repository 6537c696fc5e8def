// `ombrine trips forecast`, `trips add` with times and `trips hourly`, run as a user runs them:
// real processes sharing one container, against the embedded simulator.

#include <gtest/gtest.h>

#include <sys/wait.h>
#include "platform/testing/program_sandbox.hpp"

#include <unistd.h>

#include <array>
#include <chrono>
#include <cstdio>
#include <ctime>
#include <filesystem>
#include <fstream>
#include <sstream>
#include <string>
#include <utility>
#include <vector>

#include <boost/json.hpp>

namespace ombrine {
namespace {

namespace fs = std::filesystem;

// One sandbox for every run of a test.
class TripsForecastCommandTest : public testing::Test {
 protected:
  ProgramRun run(const std::string& arguments) const {
    return sandbox_.run(OMBRINE_PROGRAM, arguments, "LANG=en_US.UTF-8");
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

  ProgramSandbox sandbox_{"ombrine-trips-forecast-test"};
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
  EXPECT_TRUE(fs::exists(sandbox_.container() / "Library" / "Caches" / "TripCache" / (id + ".json")));

  // No trip named: the next one. Nothing is fetched; the days come from the trip cache.
  const ProgramRun cached = run("--services sim trips forecast --no-fetch");
  ASSERT_EQ(cached.exitCode, 0) << cached.err;
  EXPECT_NE(cached.out.find("Trip to Lisbon"), std::string::npos) << cached.out;
  EXPECT_NE(cached.out.find("from the trip cache"), std::string::npos) << cached.out;
  EXPECT_EQ(cached.out.find("no forecast"), std::string::npos) << cached.out;

  // By id prefix, as the other trips commands accept.
  EXPECT_EQ(run("--services sim trips forecast " + id.substr(0, 8) + " --no-fetch --json").exitCode, 0);

  // A stale record and a failed refresh: the stored days on stdout, one line on stderr, exit 3.
  const fs::path file = sandbox_.container() / "Library" / "Caches" / "TripCache" / (id + ".json");
  boost::json::value stored = boost::json::parse(readTextFile(file));
  boost::json::value& dt = stored.at("entries").at(0).at("cachedWeather").at("weather").at("current").at("dt");
  dt = dt.to_number<double>() - 3600;
  std::ofstream(file) << boost::json::serialize(stored);
  const ProgramRun failed = sandbox_.run(OMBRINE_PROGRAM, "--services sim trips forecast",
                                         "LANG=en_US.UTF-8 OMBRINE_SIM_FAULTS='*=status=503'");
  EXPECT_EQ(failed.exitCode, 3) << failed.err;
  EXPECT_EQ(failed.err,
            "ombrine trips forecast: the weather service is not answering (HTTP 503); try again in 1 s; showing what "
            "the trip cache holds\n");
  EXPECT_NE(failed.out.find("Trip to Lisbon"), std::string::npos) << failed.out;
}

// The user's own name for a trip is its label; the place is named as the place, and the
// embedded simulator chosen by OMBRINE_SERVICES=sim needs no token.
TEST_F(TripsForecastCommandTest, ALabelledTripNamesItsPlaceAsThePlace) {
  ASSERT_EQ(run("places home --at 52.52,13.405").exitCode, 0);
  ASSERT_EQ(run("trips add Bergen --name Weekend --from " + dayFromToday(1) + " --to " + dayFromToday(2)).exitCode, 0);
  const ProgramRun shown =
      sandbox_.run(std::string("env -u OMBRINE_FORECA_TOKEN -u OMBRINE_OPENWEATHER_KEY ") + OMBRINE_PROGRAM,
                   "trips forecast weekend", "LANG=en_US.UTF-8 OMBRINE_SERVICES=sim");
  ASSERT_EQ(shown.exitCode, 0) << shown.err;
  EXPECT_NE(shown.out.find("Weekend — trip to Bergen"), std::string::npos) << shown.out;
  EXPECT_NE(shown.out.find("forecast for Bergen"), std::string::npos) << shown.out;
  EXPECT_EQ(shown.out.find("Trip to Weekend"), std::string::npos) << shown.out;
  EXPECT_EQ(shown.out.find("for Weekend"), std::string::npos) << shown.out;
}

TEST_F(TripsForecastCommandTest, UnknownOrMissingTripIsAFailure) {
  const ProgramRun none = run("--services sim trips forecast");
  EXPECT_EQ(none.exitCode, 1);
  EXPECT_NE(none.err.find("no current or upcoming trip"), std::string::npos) << none.err;
  const ProgramRun unknown = run("--services sim trips forecast Atlantis");
  EXPECT_EQ(unknown.exitCode, 1);
  EXPECT_NE(unknown.err.find("no trip matches \"Atlantis\""), std::string::npos) << unknown.err;
  // Every trips command says so alike, and a huge or hostile name is not echoed as it is.
  EXPECT_EQ(run("trips show Atlantis").exitCode, 1);
  const ProgramRun huge = run("trips forecast \"$(printf '\\033[2J')\"" + std::string(100'000, 'a'));
  EXPECT_EQ(huge.exitCode, 1);
  EXPECT_LT(huge.err.size(), 400u) << huge.err.substr(0, 400);
  EXPECT_NE(huge.err.find("…"), std::string::npos) << huge.err.substr(0, 400);
  EXPECT_EQ(huge.err.find('\x1b'), std::string::npos) << huge.err.substr(0, 400);
}

// `at` on the wall clock of a zone with a fixed offset, "YYYY-MM-DD HH:MM".
std::string wallClock(std::time_t at, int offsetHours) {
  const std::time_t shifted = at + offsetHours * 3600;
  std::tm parts{};
  ::gmtime_r(&shifted, &parts);
  char text[32];
  std::strftime(text, sizeof text, "%Y-%m-%d %H:%M", &parts);
  return text;
}

// `trips add` with times and `trips hourly`: the hours of where the user will be.
TEST_F(TripsForecastCommandTest, ATimedTripTakesOverAtItsLocalArrivalAndHandsBackHome) {
  ASSERT_EQ(run("places home --at 52.52,13.405").exitCode, 0);
  // Arrive in Tokyo (UTC+9 all year) at the half hour three to four hours from now, stay four hours.
  const std::time_t arrival = (std::time(nullptr) / 1800 + 7) * 1800;
  const std::time_t departure = arrival + 4 * 3600;
  const std::string from = wallClock(arrival, 9);
  const std::string to = wallClock(departure, 9);
  const ProgramRun added = run("trips add Tokyo --from \"" + from + "\" --to \"" + to + "\"");
  ASSERT_EQ(added.exitCode, 0) << added.err;
  EXPECT_NE(added.out.find(from + " to " + to), std::string::npos) << added.out;

  const ProgramRun hourly = run("--services sim trips hourly --json");
  ASSERT_EQ(hourly.exitCode, 0) << hourly.err;
  const boost::json::value document = boost::json::parse(hourly.out);
  const std::string homeID(document.at("place").at("id").as_string());
  EXPECT_EQ(document.at("home").at("id").as_string(), homeID);
  const auto& timeline = document.at("timeline").as_array();
  ASSERT_GE(timeline.size(), 24u);
  // Where each point comes from, in order: home, then Tokyo from the arrival, then home again.
  std::vector<std::pair<std::string, std::string>> handovers;  // place name, local time
  for (const auto& point : timeline) {
    if (point.at("handover").as_bool()) {
      handovers.emplace_back(point.at("location").at("name").as_string(), point.at("localTime").as_string());
    }
  }
  ASSERT_EQ(handovers.size(), 2u) << hourly.out;
  EXPECT_EQ(handovers[0].first, "Tokyo");
  EXPECT_EQ(handovers[0].second, from + " UTC+09");
  EXPECT_EQ(handovers[1].first, std::string(document.at("place").at("name").as_string()));
  // Back home on Berlin's clock at the moment the trip ends.
  const std::string berlinEnd = handovers[1].second;
  EXPECT_TRUE(berlinEnd == wallClock(departure, 1) + " UTC+01" || berlinEnd == wallClock(departure, 2) + " UTC+02")
      << berlinEnd;
  EXPECT_EQ(timeline.front().at("location").at("id").as_string(), homeID);
  EXPECT_EQ(document.at("routes").as_array().size(), 1u);

  // The readable view marks both changes, and the trip's forecast now comes from the trip cache.
  const ProgramRun readable = run("--services sim trips hourly --no-fetch");
  ASSERT_EQ(readable.exitCode, 0) << readable.err;
  EXPECT_NE(readable.out.find("▸ " + from + " UTC+09  Tokyo"), std::string::npos) << readable.out;
  EXPECT_NE(readable.out.find("arrive in Tokyo"), std::string::npos) << readable.out;
  EXPECT_NE(readable.out.find("back home"), std::string::npos) << readable.out;

  // The list shows the trip's row weather from the trip cache.
  const ProgramRun listed = run("trips list --json");
  ASSERT_EQ(listed.exitCode, 0) << listed.err;
  const boost::json::value trips = boost::json::parse(listed.out);
  ASSERT_EQ(trips.as_array().size(), 1u);
  EXPECT_TRUE(trips.as_array()[0].at("rowWeather").is_object()) << listed.out;
  EXPECT_EQ(trips.as_array()[0].at("arrival").as_string(), from);
  // And the trip's own page shows the same.
  const ProgramRun shown = run("trips show Tokyo --json");
  ASSERT_EQ(shown.exitCode, 0) << shown.err;
  EXPECT_EQ(boost::json::parse(shown.out).at("rowWeather"), trips.as_array()[0].at("rowWeather")) << shown.out;
}

TEST_F(TripsForecastCommandTest, TimedTripRefusalsAndHourlyUsageErrors) {
  struct Row {
    const char* why;
    std::string arguments;
    int exitCode;
    const char* message;
  };
  const Row rows[] = {
      {"no place and no home", "--services sim trips hourly", 2, "no place to start from"},
      {"a trip needs a home first", "trips add Tokyo --from \"2031-05-01 10:00\"", 2,
       "Before adding a trip, set a home location in Ombrine."},
      {"home set", "places home --at 52.52,13.405", 0, ""},
      {"a time New York's clocks skip", "trips add \"New York\" --from \"2031-03-09 02:30\"", 2,
       "This time is unavailable at your destination. Choose another time."},
      {"departure before arrival", "trips add Tokyo --from \"2031-05-01 10:00\" --to \"2031-05-01 09:00\"", 2,
       "The return time must be after your arrival."},
      {"a time on one end only", "trips add Tokyo --from 2031-05-01 --to \"2031-05-02 09:00\"", 2, "both with a time"},
      {"a malformed time", "trips add Tokyo --from \"2031-05-01 25:00\"", 2, "is not a date and time"},
      {"without a departure the trip lasts the arrival day", "trips add Tokyo --from \"2031-05-01 10:00\"", 0,
       "2031-05-01 10:00 to 2031-05-02 00:00"},
      {"a coordinate off the globe", "--services sim trips hourly --at 95,0", 2, "ombrine trips hourly: "},
  };
  for (const Row& row : rows) {
    SCOPED_TRACE(row.why);
    const ProgramRun result = run(row.arguments);
    EXPECT_EQ(result.exitCode, row.exitCode) << result.err;
    const std::string& text = row.exitCode == 0 ? result.out : result.err;
    EXPECT_NE(text.find(row.message), std::string::npos) << text;
  }
}

}  // namespace
}  // namespace ombrine
