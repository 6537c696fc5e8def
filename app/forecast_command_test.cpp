// The `ombrine` program run as a user runs it: a real process, against the embedded simulator.

#include <gtest/gtest.h>

#include <sys/wait.h>
#include "platform/testing/program_sandbox.hpp"

#include <signal.h>
#include <spawn.h>
#include <unistd.h>

#include <fmt/chrono.h>
#include <fmt/format.h>
#include <unicode/locid.h>
#include <algorithm>
#include <array>
#include <chrono>
#include <cstdio>
#include <cstdlib>
#include <filesystem>

#include <fstream>
#include <optional>
#include <regex>
#include <sstream>
#include <string>
#include <thread>

#include "app/message_catalog.hpp"
#include "app/terminal_text.hpp"
#include "core/record/one_call_weather_json.hpp"
#include "core/values/value_json.hpp"
#include "platform/icu_setup.hpp"

namespace ombrine {
namespace {

std::string readFile(const std::filesystem::path& path) { return readTextFile(path); }

// A container, caches and sync folder of the test's own, so runs never see the user's files
// (or another test's) and a test can look at what a run left behind.
using Scratch = ProgramSandbox;

// Moves the cached record's observation time `seconds` into the past, as if it had been
// fetched that much earlier.
void ageLatestRecord(const std::filesystem::path& file, double seconds) {
  boost::json::value cached = parseJson(readFile(file));
  boost::json::value& dt = cached.at("weather").at("current").at("dt");
  dt = dt.to_number<double>() - seconds;
  std::ofstream(file) << serializeJson(cached);
}

// Runs the program with `arguments` (shell words); `environment` (a scratch's, with faults)
// stands over a scratch of the run's own.
ProgramRun runOmbrine(const std::string& arguments, const std::string& environment = "") {
  const Scratch fallback("ombrine-forecast-test");
  return fallback.run(OMBRINE_PROGRAM, arguments, environment);
}

bool contains(const std::string& text, const std::string& part) { return text.find(part) != std::string::npos; }

// Runs within one container: the second run sees what the first cached.
TEST(ForecastCommandTest, CachedRecordGatesRepeatedRunsAndStandsInForAFailedFetch) {
  useShippedTimeZoneData();
  const Scratch scratch;
  const std::string arguments = "--services sim forecast --provider foreca --at 48.137,11.575 --json -v";
  struct Row {
    const char* why;
    const char* extraArguments;
    const char* faults;
    int exitCode;
    const char* expectInErr;
    bool expectRequest;
    bool expectRecord;
    bool ageCachedRecord = false;  // older than fresh, so a forced fetch cannot end at the cache
  };
  const Row rows[] = {
      {"the first run fetches", "", "", 0, "fetch: ", true, true},
      {"a second run within 300 s ends with the cached record", "", "", 0, "fresh cached record", false, true},
      {"--force fetches past the cached record", "--force", "", 0, "fetch: ", true, true},
      {"429: the limit message, and the last good record is shown", "--force", "foreca.current=status=429", 3,
       "Sorry! There are currently way more people", true, true, true},
      {"no service: what failed, and the last good record", "--force", "*=status=503", 3,
       "showing the last good record", true, true, true},
      {"a place 3 km away has no fresh record: it fetches", "--at 48.164,11.575", "", 0, "fetch: ", true, true},
  };
  double firstDt = 0;
  for (const auto& row : rows) {
    SCOPED_TRACE(row.why);
    std::string args = arguments;
    if (std::string(row.extraArguments).starts_with("--at")) {
      args = "--services sim forecast --provider foreca --json -v " + std::string(row.extraArguments);
    } else {
      args += " " + std::string(row.extraArguments);
    }
    if (row.ageCachedRecord) ageLatestRecord(scratch.root() / "group/Library/Caches/latestWeatherCache", 600);
    const std::string environment = scratch.environment() + " OMBRINE_SIM_FAULTS='" + row.faults + "'";
    const ProgramRun run = runOmbrine(args, environment);
    EXPECT_EQ(run.exitCode, row.exitCode) << run.err;
    EXPECT_TRUE(contains(run.err, row.expectInErr)) << run.err;
    EXPECT_EQ(contains(run.err, "fetch: "), row.expectRequest) << run.err;
    ASSERT_EQ(!run.out.empty(), row.expectRecord) << run.err;
    const OneCallWeather weather = decodeOneCallWeather(run.out);
    if (firstDt == 0) firstDt = weather.current.dt.timeIntervalSinceReferenceDate;
    if (row.ageCachedRecord) continue;
    if (!row.expectRequest)
      EXPECT_EQ(weather.current.dt.timeIntervalSinceReferenceDate, firstDt) << "the cached record";
  }
  EXPECT_TRUE(
      std::filesystem::exists(scratch.root() / "group/Library/Application Support/WidgetCenter/reloadAllTimelines"))
      << "a good fetch reloads the widgets";
}

TEST(ForecastCommandTest, FailureWithoutCacheIsOneLineAndNoOutput) {
  const ProgramRun run = runOmbrine("--services sim forecast --provider foreca --at 48.1,11.5",
                                    "OMBRINE_SIM_FAULTS='foreca.current=status=429'");
  EXPECT_EQ(run.exitCode, 1);
  EXPECT_EQ(run.out, "");
  EXPECT_TRUE(contains(run.err, "Sorry! There are currently way more people")) << run.err;
  EXPECT_FALSE(contains(run.err, "showing the last good record"));
}

// A service that names a wait ("Retry-After") on a failed answer is asked once more after it,
// when the wait fits; 429 never is. Each row runs in a container of its own.
TEST(ForecastCommandTest, RetryAfterIsHonouredOnceWhereAWaitFits) {
  useShippedTimeZoneData();
  struct Row {
    const char* why;
    const char* options;
    const char* fault;
    bool lastGoodStored;  // a good record of the place, too old to stand in by itself
    int exitCode;
    const char* expectInErr;  // nullptr: stderr stays empty
    bool oneLine;
    bool expectRecord;
  };
  const Row rows[] = {
      {"a 503 once: one quiet retry shows the forecast", "", "status=503,retry-after=1,times=1", false, 0, nullptr,
       false, true},
      {"-v tells of the wait", "-v", "status=503,retry-after=1,times=1", false, 0,
       "Foreca asked to wait 1 s; trying again", false, true},
      {"a 503 twice: one retry only, then one line", "", "status=503,retry-after=1,times=2", false, 1,
       "ombrine forecast: the weather service is not answering (HTTP 503); try again in 1 s", true, false},
      {"a wait beyond --timeout: no retry", "--timeout 20", "status=503,retry-after=60", false, 1,
       "ombrine forecast: the weather service is not answering (HTTP 503); try again in 60 s", true, false},
      {"the same with a stored record: shown from it", "--timeout 20", "status=503,retry-after=60", true, 3,
       "try again in 60 s; showing the last good record", true, true},
      {"429: no retry, the apology says when", "", "status=429,retry-after=120", false, 1,
       "Sorry again! (try again in 2 min)", true, false},
  };
  for (const Row& row : rows) {
    SCOPED_TRACE(row.why);
    const Scratch scratch;
    const std::string place = "--services sim forecast --provider foreca --at 48.137,11.575 --json";
    if (row.lastGoodStored) {
      ASSERT_EQ(runOmbrine(place, scratch.environment()).exitCode, 0);
      ageLatestRecord(scratch.root() / "group/Library/Caches/latestWeatherCache", 600);
    }
    const std::string environment = scratch.environment() + " OMBRINE_SIM_FAULTS='foreca.current=" + row.fault + "'";
    const ProgramRun run = runOmbrine(place + " --force " + row.options, environment);
    EXPECT_EQ(run.exitCode, row.exitCode) << run.err;
    EXPECT_EQ(!run.out.empty(), row.expectRecord) << run.err;
    if (row.expectInErr == nullptr) {
      EXPECT_EQ(run.err, "");
    } else {
      EXPECT_TRUE(contains(run.err, row.expectInErr)) << run.err;
    }
    if (row.oneLine) EXPECT_EQ(std::count(run.err.begin(), run.err.end(), '\n'), 1) << run.err;
  }
}

// --watch as a user drives it: signals for the refresh gesture and the data source, a file
// for the place, Ctrl-C to end.
TEST(ForecastCommandTest, WatchFollowsEventsAndEndsCleanlyOnInterrupt) {
  const Scratch scratch;
  const auto errFile = scratch.root() / "watch.err";
  const auto outFile = scratch.root() / "watch.out";
  const auto locationFile = scratch.root() / "place";
  std::ofstream(locationFile) << "48.137,11.575\n";
  const std::string command = "exec env " + scratch.environment() +
                              " NO_COLOR=1 " OMBRINE_PROGRAM
                              " --services sim forecast --provider foreca --at 48.137,11.575 --watch --location-file " +
                              locationFile.string() + " >" + outFile.string() + " 2>" + errFile.string();
  const char* argv[] = {"/bin/sh", "-c", command.c_str(), nullptr};
  pid_t child = 0;
  ASSERT_EQ(::posix_spawn(&child, "/bin/sh", nullptr, nullptr, const_cast<char* const*>(argv), environ), 0);
  auto waitFor = [&](const std::string& text, int occurrences = 1) {
    // Bounded generously: a sanitizer build on a loaded machine is slow, and a line that never
    // comes fails the test all the same.
    for (int i = 0; i < 12000; ++i) {
      const auto err = readFile(errFile);
      int found = 0;
      for (auto at = err.find(text); at != std::string::npos; at = err.find(text, at + 1)) ++found;
      if (found >= occurrences) return true;
      std::this_thread::sleep_for(std::chrono::milliseconds(10));
    }
    return false;
  };
  // Each step waits for the previous request to have finished, so no event races a request
  // still writing its record, and every wait is for a line the step must print.
  ASSERT_TRUE(waitFor("watching (pid")) << readFile(errFile);
  ASSERT_TRUE(waitFor("finished")) << readFile(errFile);
  ::kill(child, SIGUSR1);
  ASSERT_TRUE(waitFor("event: refresh gesture: forced fetch")) << readFile(errFile);
  ASSERT_TRUE(waitFor("finished", 2)) << readFile(errFile);
  EXPECT_TRUE(waitFor("published the new record", 2)) << readFile(errFile);
  std::ofstream(locationFile) << "48.157,11.575\n";  // 2.2 km north: unforced, held back by the interval
  ASSERT_TRUE(waitFor("event: location moved")) << readFile(errFile);
  EXPECT_TRUE(waitFor("no fetch")) << readFile(errFile);
  ::kill(child, SIGUSR2);
  EXPECT_TRUE(waitFor("event: data source changed to ow")) << readFile(errFile);
  ::kill(child, SIGINT);
  int status = 0;
  ASSERT_EQ(::waitpid(child, &status, 0), child);
  EXPECT_TRUE(WIFEXITED(status) && WEXITSTATUS(status) == 0) << readFile(errFile);
  EXPECT_TRUE(contains(readFile(outFile), "Munich")) << readFile(outFile);
}

TEST(ForecastCommandTest, JsonIsACompleteRecordForTheAskedPlace) {
  useShippedTimeZoneData();
  const ProgramRun run = runOmbrine("--services sim forecast --provider foreca --at 48.137,11.575 --json");
  ASSERT_EQ(run.exitCode, 0);
  const OneCallWeather weather = decodeOneCallWeather(run.out);
  EXPECT_DOUBLE_EQ(weather.lat, 48.137);
  EXPECT_DOUBLE_EQ(weather.lon, 11.575);
  EXPECT_EQ(weather.timeZone.identifier(), "Europe/Berlin");
  EXPECT_GE(weather.hourly.size(), 24u);
  EXPECT_GE(weather.daily.size(), 10u);
  ASSERT_TRUE(weather.attribution);
}

TEST(ForecastCommandTest, ExitCodesAndScreen) {
  struct Row {
    const char* arguments;
    int exitCode;
    const char* expectInOutput;
  };
  const Row rows[] = {
      {"--services sim forecast Munich", 0, "Munich"},
      {"--services sim forecast --at -33.87,151.21 --provider foreca", 0, "Days"},
      // Across the date line: Fiji's forecast is named and shown in its own zone.
      {"--services sim forecast --at -18.14,178.44 --provider foreca", 0, "Pacific/Fiji"},
      {"--services sim forecast --at 91,200", 2, ""},  // malformed coordinate: usage error
      {"--services sim forecast", 2, ""},              // no place at all
      {"--services sim forecast Munich --provider nope", 2, ""},
      {"--services sim forecast --at 48.1,11.5 --provider ow", 0, "Data: OpenWeather"},
  };
  for (const auto& row : rows) {
    SCOPED_TRACE(row.arguments);
    const ProgramRun run = runOmbrine(row.arguments);
    EXPECT_EQ(run.exitCode, row.exitCode);
    EXPECT_NE(run.out.find(row.expectInOutput), std::string::npos);
    if (row.exitCode != 0) EXPECT_EQ(run.out, "");  // errors never go to stdout
  }
}

// Every human screen in the reader's language and digits: its heading translated, no Latin
// digit in an Arabic or Persian locale outside identifiers (URLs, paths, station and storm ids),
// and its table's columns lined up within 80 terminal cells (CJK counts two).
enum class Columns {
  none,      // not a table (or one checked by its own renderer's test)
  firstGap,  // the second cell starts where the first run of two spaces ends (rows without one are not measured)
  sameWidth  // right-aligned cells: every row as wide as the header
};
// What must fit 80 columns: prose, links and paths may run longer.
enum class Fit { everyLine, rows, nothing };
struct Screen {
  const char* arguments;
  const char* setup;  // commands run first in the screen's sandbox, ';' apart, {} the day after tomorrow
  const char* environment;
  const char* heading;     // an English word of the screen, shown translated
  const char* tableStart;  // the line the table starts at (translated), or "" for the first
  const char* rowPrefix;   // how the table's rows start
  Columns columns;
  const char* identifiers;  // what may hold Latin digits whatever the locale
  Fit fit = Fit::everyLine;
};
const Screen kScreens[] = {
    {"--services sim forecast Helsinki", "", "", "Next hours", "", "", Columns::none, R"(\w+://\S+)"},
    {"sun --at 48.137,11.575 --date 2026-06-21", "", "", "Sunrise", "", "  ", Columns::firstGap, "$^"},
    {"--services sim history Munich", "", "", "Month", "Month", "", Columns::sameWidth, "$^"},
    {"--services sim tides --at 38.78,-75.12", "", "", "Tides for {}", "", "", Columns::none,
     R"(\((noaa|chs):[^)]*\)|\w+://\S+)", Fit::nothing},
    {"sources", "", "", "Configured", "", "", Columns::firstGap, "$^", Fit::nothing},
    {"--services sim storms", "", "", "mb", "", "", Columns::none, R"(\b[A-Za-z]{2}\d{4,6}\b|\b[A-Z]{2}\d\b)",
     Fit::nothing},
    {"--services sim fires --at 39.5,-121.5 --radius 300", "", "", "Perimeters", "", "", Columns::none, R"(\w+://\S+)",
     Fit::nothing},
    {"--services sim threats Miami", "", "", "Threats to {} within {} km", "", "", Columns::none, "$^", Fit::nothing},
    {"--services sim alerts Miami", "", "OMBRINE_SIM_ALERT_PLACES=25.77,-80.19,1", "Weather alerts for {}", "", "",
     Columns::none, "$^"},
    {"places search Munich", "", "", "pop. {}", "", "", Columns::none, "$^"},
    {"places at 48.137,11.575", "", "", "time zone", "", "  ", Columns::firstGap, "$^"},
    {"--services sim trips forecast", "places home --at 52.52,13.405;trips add Lisbon --from {} --to {}", "",
     "Source: {}", "", "  ", Columns::none, "$^", Fit::rows},
    {"--services sim trips hourly --hours 72", "places home --at 52.52,13.405;trips add Lisbon --from {} --to {}", "",
     "arrive in {}", "", "", Columns::none, "$^", Fit::nothing},
    {"cache show", "", "", "Nothing cached.", "", "", Columns::none, R"((^|[\s(])/[^\s)]*)", Fit::nothing},
    {"trips list", "places home --at 52.52,13.405;trips add Lisbon --from {} --to {}", "", "upcoming, in {}", "", "",
     Columns::none, R"([0-9A-F]{8})"},
    {"trips show Lisbon", "places home --at 52.52,13.405;trips add Lisbon --from {} --to {}", "", "all day", "", "  ",
     Columns::firstGap, R"([0-9A-F]{8}[-0-9A-F]*)"},
    {"daemon status", "places home --at 52.52,13.405", "", "standing request", "", "  ", Columns::none,
     R"((^|[\s(])/[^\s)]*)", Fit::nothing},
    {"units", "", "", "held as", "value", "", Columns::firstGap, "$^", Fit::rows},
    {"notifications list", "", "", "Notification spool {}", "", "", Columns::none, R"((^|[\s(])/[^\s)]*)",
     Fit::nothing},
};

void PrintTo(const Screen& screen, std::ostream* out) { *out << screen.arguments; }

// One test per screen, each run in every locale.
class ScreenInEveryLocaleTest : public ::testing::TestWithParam<Screen> {};

INSTANTIATE_TEST_SUITE_P(Screens, ScreenInEveryLocaleTest, ::testing::ValuesIn(kScreens));

TEST_P(ScreenInEveryLocaleTest, SpeaksTheReadersLanguageInOneSetOfDigitsAndKeepsItsColumns) {
  const Screen& screen = GetParam();
  const ProgramSandbox sandbox("ombrine-screens-test");
  const std::string dayAfterTomorrow =
      fmt::format("{:%Y-%m-%d}", std::chrono::system_clock::now() + std::chrono::days(2));
  const std::string setup = fmt::format(fmt::runtime(screen.setup), dayAfterTomorrow, dayAfterTomorrow);
  for (std::size_t at = 0; at < setup.size();) {
    const std::size_t end = std::min(setup.find(';', at), setup.size());
    ASSERT_EQ(sandbox.run(OMBRINE_PROGRAM, setup.substr(at, end - at)).exitCode, 0) << setup.substr(at, end - at);
    at = end + 1;
  }
  const char* locales[] = {"en_US", "de_DE", "fr_FR", "es_ES", "it_IT", "ja_JP", "ar_EG", "fa_IR"};
  for (const char* locale : locales) {
    SCOPED_TRACE(std::string(locale) + ": " + screen.arguments);
    const ProgramRun run = sandbox.run(OMBRINE_PROGRAM, screen.arguments,
                                       std::string(screen.environment) + " LC_ALL=" + locale + ".UTF-8");
    ASSERT_EQ(run.exitCode, 0) << run.err;
    const app::MessageCatalog& words = app::screenMessages(icu::Locale(locale));
    // The heading's words around its values: "Tides for ", "の潮汐".
    const std::string heading(words(screen.heading));
    for (std::size_t at = 0; at < heading.size();) {
      const std::size_t value = std::min(heading.find('{', at), heading.size());
      if (value > at)
        EXPECT_NE(run.out.find(heading.substr(at, value - at)), std::string::npos) << heading << "\n" << run.out;
      at = value == heading.size() ? value : heading.find('}', value) + 1;
    }
    const std::string language = icu::Locale(locale).getLanguage();
    if (language != "en" && language != "ar" && language != "fa") {
      EXPECT_NE(std::string(words(screen.heading)), screen.heading) << "no translation";
    }
    if (language == "ar" || language == "fa") {
      const std::string numbers = std::regex_replace(run.out, std::regex(screen.identifiers), "");
      EXPECT_FALSE(std::regex_search(numbers, std::regex("[0-9]"))) << run.out;
    }
    std::istringstream lines(run.out);
    std::string line;
    bool inTable = *screen.tableStart == 0;
    std::optional<std::size_t> anchor;
    while (std::getline(lines, line)) {
      if (screen.fit == Fit::everyLine) EXPECT_LE(app::displayWidth(line), 80u) << line;
      if (!inTable) {
        inTable = line.starts_with(std::string(words(screen.tableStart)));
        if (!inTable) continue;
      } else if (line.empty() && anchor) {
        break;  // one table per screen
      }
      if (!line.starts_with(screen.rowPrefix)) continue;
      if (screen.fit == Fit::rows) EXPECT_LE(app::displayWidth(line), 80u) << line;
      std::size_t at = 0;
      if (screen.columns == Columns::firstGap) {
        const std::size_t gap = line.find("  ", line.find_first_not_of(' '));
        if (gap == std::string::npos || line.find_first_not_of(' ', gap) == std::string::npos) continue;
        at = app::displayWidth(line.substr(0, line.find_first_not_of(' ', gap)));
      } else if (screen.columns == Columns::sameWidth) {
        at = app::displayWidth(line);
      } else {
        continue;
      }
      if (!anchor) anchor = at;
      EXPECT_EQ(at, *anchor) << line;
    }
  }
}

}  // namespace
}  // namespace ombrine
