// Throughput of the forecast record's JSON form on a full record (10 days, 240 hours, 60
// minutes): decoding (streaming, and through a DOM), encoding, and a bare boost::json::parse of
// the same bytes for comparison. Bytes are those of the encoded text.

#include <benchmark/benchmark.h>

#include <boost/json/monotonic_resource.hpp>
#include <boost/json/parse.hpp>

#include "core/record/one_call_weather_json.hpp"
#include "core/record/testing_records.hpp"
#include "platform/icu_setup.hpp"

namespace {

using namespace ombrine;

const Date kMoment = Date::fromUnix(1726524000.0);

const std::string& recordText() {
  static const std::string text = encodeOneCallWeather(testing_records::makeForecastRecord(), kMoment);
  return text;
}

void decodeRecord(benchmark::State& state) {
  const std::string& text = recordText();
  for (auto _ : state) benchmark::DoNotOptimize(decodeOneCallWeather(text));
  state.SetBytesProcessed(static_cast<int64_t>(state.iterations() * text.size()));
}
BENCHMARK(decodeRecord);

// The DOM path, for records embedded in larger documents: exact parse into an arena, then walk.
void decodeRecordFromDom(benchmark::State& state) {
  const std::string& text = recordText();
  for (auto _ : state) {
    boost::json::monotonic_resource arena(text.size() * 2 + 1024);
    benchmark::DoNotOptimize(decodeOneCallWeather(parseJson(text, &arena), JsonPath()));
  }
  state.SetBytesProcessed(static_cast<int64_t>(state.iterations() * text.size()));
}
BENCHMARK(decodeRecordFromDom);

void encodeRecord(benchmark::State& state) {
  const OneCallWeather record = testing_records::makeForecastRecord();
  for (auto _ : state) benchmark::DoNotOptimize(encodeOneCallWeather(record, kMoment));
  state.SetBytesProcessed(static_cast<int64_t>(state.iterations() * recordText().size()));
}
BENCHMARK(encodeRecord);

// The exact parser alone (correctly rounded doubles), into the same kind of arena as decoding.
void parseExact(benchmark::State& state) {
  const std::string& text = recordText();
  for (auto _ : state) {
    boost::json::monotonic_resource arena(text.size() * 2 + 1024);
    benchmark::DoNotOptimize(parseJson(text, &arena));
  }
  state.SetBytesProcessed(static_cast<int64_t>(state.iterations() * text.size()));
}
BENCHMARK(parseExact);

// Boost.JSON's own parser (its doubles may be one unit in the last place off): the upper limit.
void boostParse(benchmark::State& state) {
  const std::string& text = recordText();
  for (auto _ : state) {
    boost::json::monotonic_resource arena(text.size() * 2 + 1024);
    benchmark::DoNotOptimize(boost::json::parse(text, &arena));
  }
  state.SetBytesProcessed(static_cast<int64_t>(state.iterations() * text.size()));
}
BENCHMARK(boostParse);

void hashRecord(benchmark::State& state) {
  const OneCallWeather record = testing_records::makeForecastRecord();
  for (auto _ : state) benchmark::DoNotOptimize(std::hash<OneCallWeather>{}(record));
}
BENCHMARK(hashRecord);

}  // namespace

int main(int argc, char** argv) {
  ombrine::useShippedTimeZoneData();
  benchmark::Initialize(&argc, argv);
  if (benchmark::ReportUnrecognizedArguments(argc, argv)) return 1;
  benchmark::RunSpecifiedBenchmarks();
  benchmark::Shutdown();
  return 0;
}
