// Every forecast source end to end: the real `ombrine` program against the embedded simulator,
// each run in a container, caches and configuration of its own.

#include <gtest/gtest.h>

#include <filesystem>
#include <string>

#include "core/record/one_call_weather_json.hpp"
#include "core/record/weather_derived.hpp"
#include "platform/testing/program_sandbox.hpp"

namespace ombrine {
namespace {

// Runs the program with `arguments` in a fresh scratch container (no credentials at all).
ProgramRun runIsolated(const std::string& arguments, const std::string& environment = "") {
  const ProgramSandbox sandbox("ombrine-sources-test");
  // The credentials the caller may have are unset first; `environment` comes after them.
  const std::string program =
      "env -u OMBRINE_FORECA_TOKEN -u OMBRINE_OPENWEATHER_KEY -u OMBRINE_WEATHERKIT_KEY_FILE -u OMBRINE_SERVICES " +
      environment + " " OMBRINE_PROGRAM;
  return sandbox.run(program, arguments);
}

// The service a record names in its attribution.
std::string serviceOf(const OneCallWeather& weather) {
  if (!weather.attribution) return "none";
  if (std::holds_alternative<WeatherServiceAttribution::Apple>(weather.attribution->source)) return "apple";
  if (const auto* name = std::get_if<WeatherServiceAttribution::NameAttribution>(&weather.attribution->source)) {
    return name->serviceName.starts_with("Bureau") && name->serviceName.size() > 21 ? "merged" : name->serviceName;
  }
  return "image";
}

struct Row {
  const char* provider;
  const char* place;
  const char* faults;
  const char* service;
};

// One run per chosen source; `dynamic` picks by region and falls back when its choice fails.
TEST(ForecastSourcesTest, EverySourceGivesAFullForecastAndDynamicPicksByRegionAndFallsBack) {
  const Row rows[] = {
      {"apple", "Munich", "", "apple"},
      {"ow", "Riyadh", "", "OpenWeather"},
      {"dynamic", "Sydney", "", "merged"},
      {"dynamic", "Sydney", "bom.*=status=503", "apple"},  // the Bureau down: the other record alone
      {"dynamic", "Sydney", "weatherkit.*=status=503", "Bureau of Meteorology"},
      {"dynamic", "Beijing", "", "apple"},
      {"dynamic", "Riyadh", "weatherkit.*=status=429", "Foreca"},  // the pipeline falls back
      {"dynamic", "Munich", "", "Foreca"},
  };
  for (const Row& row : rows) {
    SCOPED_TRACE(std::string(row.provider) + " " + row.place + " " + row.faults);
    const ProgramRun run =
        runIsolated(std::string("--services sim forecast --json --provider ") + row.provider + " " + row.place,
                    std::string("OMBRINE_SIM_FAULTS='") + row.faults + "'");
    ASSERT_EQ(run.exitCode, 0) << run.err;
    const OneCallWeather weather = decodeOneCallWeather(run.out);
    EXPECT_EQ(serviceOf(weather), row.service);
    EXPECT_GE(weather.hourly.size(), 24u);
    EXPECT_GE(weather.daily.size(), 5u);
  }
}

TEST(ForecastSourcesTest, SourcesListsConfigurationAndTheDynamicChoice) {
  const ProgramRun real = runIsolated("sources Sydney");
  ASSERT_EQ(real.exitCode, 0) << real.err;
  EXPECT_NE(real.out.find("ow       OpenWeather"), std::string::npos) << real.out;
  EXPECT_NE(real.out.find("no: needs an OpenWeather key"), std::string::npos) << real.out;
  EXPECT_NE(real.out.find("no: needs weatherkit_key_file"), std::string::npos) << real.out;
  EXPECT_NE(real.out.find("dynamic uses the Bureau of Meteorology merged"), std::string::npos) << real.out;

  const ProgramRun simulated = runIsolated("--services sim sources Riyadh");
  ASSERT_EQ(simulated.exitCode, 0) << simulated.err;
  EXPECT_NE(simulated.out.find("the system weather service, falling back to Foreca"), std::string::npos)
      << simulated.out;
  EXPECT_NE(simulated.out.find("yes (simulator)"), std::string::npos) << simulated.out;
  // Without a system weather key, `apple` fails with one clear line.
  const ProgramRun apple = runIsolated("forecast --provider apple Munich", "OMBRINE_SERVICES=http://127.0.0.1:9");
  EXPECT_EQ(apple.exitCode, 1);
}

}  // namespace
}  // namespace ombrine
