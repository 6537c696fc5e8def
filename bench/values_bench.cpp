// Costs of showing values: formatting through the per-locale formatter cache against building
// the formatters for every call, and decoding wire dates.

#include <benchmark/benchmark.h>

#include "core/values/geo_naming.hpp"
#include "core/values/iso8601.hpp"
#include "core/values/value_format.hpp"
#include "platform/icu_setup.hpp"

namespace {

using namespace ombrine;

void cachedSpeed(benchmark::State& state) {
  const icu::Locale locale("fi_FI");
  double value = 0;
  for (auto _ : state) {
    benchmark::DoNotOptimize(formattedSpeed(Speed::metersPerSecond(value), locale));
    value += 0.1;
  }
}
BENCHMARK(cachedSpeed);

void cachedTemperature(benchmark::State& state) {
  const ValueFormatter& format = ValueFormatter::forLocale(icu::Locale("en_US"));
  double value = -20;
  for (auto _ : state) {
    benchmark::DoNotOptimize(format.temperature(Temperature::celsius(value), TemperatureWidth::abbreviated));
    value += 0.1;
  }
}
BENCHMARK(cachedTemperature);

void localTemperatureLabel(benchmark::State& state) {
  const LocalTemperatureUnitFormatter local{icu::Locale("en_US"), Region{"GB"}};
  for (auto _ : state) benchmark::DoNotOptimize(local.localTemperatureLabel(Temperature::celsius(-0.4)));
}
BENCHMARK(localTemperatureLabel);

// What every call would cost without the cache: build the locale's formatters, format once.
void uncachedSpeed(benchmark::State& state) {
  const icu::Locale locale("fi_FI");
  for (auto _ : state) benchmark::DoNotOptimize(ValueFormatter(locale).speed(Speed::metersPerSecond(5.4)));
}
BENCHMARK(uncachedSpeed);

void decodeDate(benchmark::State& state) {
  for (auto _ : state) benchmark::DoNotOptimize(decodeISO8601Date("2024-03-10T19:35:09+05:30"));
}
BENCHMARK(decodeDate);

void decodeFractionalDate(benchmark::State& state) {
  for (auto _ : state) benchmark::DoNotOptimize(decodeISO8601Date("2024-03-10T14:05:09.250Z"));
}
BENCHMARK(decodeFractionalDate);

void formatDate(benchmark::State& state) {
  const Date date = Date::fromUnix(1710079509.25);
  for (auto _ : state) benchmark::DoNotOptimize(iso8601String(date, true));
}
BENCHMARK(formatDate);

void nameUsPlacemark(benchmark::State& state) {
  const Placemark placemark{
      .name = "Apple Park",
      .locality = "Cupertino",
      .ISOcountryCode = "US",
      .timeZone = TimeZone::named("America/Los_Angeles"),
      .description = "Apple Park, 1 Apple Park Way, Cupertino, CA  95014, United States @ <+37.33,-122.01>"};
  for (auto _ : state) benchmark::DoNotOptimize(geoDetails(placemark));
}
BENCHMARK(nameUsPlacemark);

}  // namespace

int main(int argc, char** argv) {
  ombrine::useShippedTimeZoneData();
  benchmark::Initialize(&argc, argv);
  if (benchmark::ReportUnrecognizedArguments(argc, argv)) return 1;
  benchmark::RunSpecifiedBenchmarks();
  benchmark::Shutdown();
  return 0;
}
