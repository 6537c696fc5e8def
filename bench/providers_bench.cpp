// The OpenWeather, system weather and Bureau of Meteorology clients: decoding and mapping of a
// full real answer, and the wall time of a fetch against the simulator with 50 ms of latency on
// every route, next to the slowest single request of that fetch (the requests run concurrently,
// so the fetch should take little more than its slowest request).

#include <benchmark/benchmark.h>

#include <chrono>
#include <fstream>
#include <sstream>

#include "platform/icu_setup.hpp"
#include "platform/linux/curl_http_client.hpp"
#include "platform/runtime.hpp"
#include "providers/bom/bom_client.hpp"
#include "providers/bom/bom_conversion.hpp"
#include "providers/openweather/openweather_client.hpp"
#include "providers/openweather/openweather_conversion.hpp"
#include "providers/system/system_weather_client.hpp"
#include "providers/system/weatherkit_conversion.hpp"
#include "sim/pinned_clock.hpp"
#include "sim/sim_server.hpp"

namespace ombrine {
namespace {

std::string readText(const std::string& path) {
  std::ifstream in(path, std::ios::binary);
  std::stringstream text;
  text << in.rdbuf();
  return text.str();
}

void BM_OpenWeatherDecodeAndMap(benchmark::State& state) {
  useShippedTimeZoneData();
  const std::string dir = OMBRINE_PROVIDERS_DIR "/openweather/testdata/";
  const std::string current = readText(dir + "pyopenweathermap_weather_docs_example_zocca.json");
  const std::string forecast = readText(dir + "openhab_forecast_5day_munich.json");
  const std::string daily = readText(dir + "daily_munich_documented_shape.json");
  const OpenWeatherConversionContext context{Location(48.137, 11.575), *TimeZone::named("Europe/Berlin"),
                                             Date::fromUnix(1782851400)};
  for (auto _ : state) {
    auto record = convertOpenWeather(decodeOpenWeatherCurrent(current, OpenWeatherUnits::standard),
                                     decodeOpenWeatherForecast(forecast, OpenWeatherUnits::standard),
                                     decodeOpenWeatherDaily(daily), {}, context);
    benchmark::DoNotOptimize(record.hourly.size());
  }
}
BENCHMARK(BM_OpenWeatherDecodeAndMap)->Unit(benchmark::kMicrosecond);

void BM_SystemWeatherDecodeAndMap(benchmark::State& state) {
  useShippedTimeZoneData();
  const std::string answer = readText(OMBRINE_PROVIDERS_DIR "/system/testdata/go-weatherkit_full_weather.json");
  const SystemWeatherConversionContext context{Location(40.713, -74.006), *TimeZone::named("America/New_York"),
                                               Date::fromUnix(1657042133)};
  for (auto _ : state) {
    auto record = convertSystemWeather(decodeWeatherKitAnswer(answer), context);
    benchmark::DoNotOptimize(record.hourly.size());
  }
}
BENCHMARK(BM_SystemWeatherDecodeAndMap)->Unit(benchmark::kMicrosecond);

void BM_BureauDecodeAndMap(benchmark::State& state) {
  useShippedTimeZoneData();
  const std::string dir = OMBRINE_PROVIDERS_DIR "/bom/testdata/";
  const std::string observations = readText(dir + "bremor_apidoc_observations.json");
  const std::string hourly = readText(dir + "bremor_hourly_forecast_2022-10-07.json");
  const std::string daily = readText(dir + "bremor_apidoc_forecasts_daily.json");
  const std::string warnings = readText(dir + "bremor_apidoc_warnings.json");
  const BureauConversionContext context{Location(-12.46, 130.84), *TimeZone::named("Australia/Darwin"),
                                        Date::fromUnix(1665101400)};
  for (auto _ : state) {
    BureauAnswers answers{decodeBomObservations(observations).data, decodeBomHourly(hourly).data,
                          BOMPublishedDailyForecasts(decodeBomDaily(daily)).forecasts, decodeBomWarnings(warnings)};
    auto record = convertBureau(answers, context);
    benchmark::DoNotOptimize(record.hourly.size());
  }
}
BENCHMARK(BM_BureauDecodeAndMap)->Unit(benchmark::kMicrosecond);

struct LatentService {
  sim::PinnedClock clock{std::chrono::sys_seconds(std::chrono::seconds(1768478400))};
  Runtime runtime{2};
  CurlHttpClient http;
  sim::SimServer server{sim::SimServer::Options{.seed = 0, .clock = &clock}};
  ServiceEndpoints endpoints = ServiceEndpoints::simulator(server.baseUrl());
  DeveloperKey key = DeveloperKey::generate();
  DeveloperTokenClaims claims{"K", "T", "S"};

  LatentService() {
    server.setFault("*", sim::parseFault("latency=50"));
    server.trustWeatherKitKey(key.publicPem());
  }

  double millisecondsOf(Task<void> task) {
    auto start = std::chrono::steady_clock::now();
    runtime.runBlocking(std::move(task));
    return std::chrono::duration<double, std::milli>(std::chrono::steady_clock::now() - start).count();
  }

  Task<void> send(HttpRequest request) {
    HttpResponse response = co_await http.send(request);
    benchmark::DoNotOptimize(response.body.size());
  }

  Task<void> fetch(int which) {
    const Location place = which == 2 ? Location(-33.87, 151.21) : Location(39.9, 116.4);
    const TimeZone zone = *TimeZone::named(which == 2 ? "Australia/Sydney" : "Asia/Shanghai");
    SystemWeatherClient system(http, endpoints, key, claims, clock, "en");
    OneCallWeather record;
    if (which == 0) {
      OpenWeatherClient client(http, endpoints, Secret("bench"), Secret("bench"), clock, "en");
      record = co_await client.fetch(place, zone);
    } else if (which == 1) {
      record = co_await system.fetch(place, Region{"CN"}, zone);
    } else {
      BureauClient bureau(http, endpoints, clock);
      Task<OneCallWeather> a = bureau.fetch(place, zone);
      Task<OneCallWeather> b = system.fetch(place, Region{"AU"}, zone);
      record = co_await fetchBureauMerged(std::move(a), std::move(b));
    }
    benchmark::DoNotOptimize(record.hourly.size());
  }

  // The single requests of one fetch.
  std::vector<HttpRequest> requests(int which) {
    std::vector<HttpRequest> out;
    const Location place = which == 2 ? Location(-33.87, 151.21) : Location(39.9, 116.4);
    SystemWeatherClient system(http, endpoints, key, claims, clock, "en");
    const Date now = Date::fromSystem(clock.now());
    const std::string bearer = "Bearer " + signDeveloperToken(key, claims, now);
    if (which == 0) {
      OpenWeatherClient client(http, endpoints, Secret("bench"), std::nullopt, clock, "en");
      for (auto r : {OpenWeatherRequest::current, OpenWeatherRequest::forecast, OpenWeatherRequest::daily}) {
        out.push_back(HttpRequest{.url = client.requestUrl(r, place)});
      }
      return out;
    }
    for (bool alerts : {false, true}) {
      HttpRequest request{.url = system.requestUrl(alerts, place, Region{"CN"}, TimeZone::gmt(), now)};
      request.headers.push_back({"Authorization", bearer});
      out.push_back(request);
    }
    if (which == 2) {
      BureauClient bureau(http, endpoints, clock);
      for (auto r : {BureauRequest::placeInformation, BureauRequest::hourly, BureauRequest::daily,
                     BureauRequest::observations, BureauRequest::warnings}) {
        out.push_back(HttpRequest{.url = bureau.requestUrl(r, place), .headers = bureau.requestHeaders()});
      }
    }
    return out;
  }
};

LatentService& service() {
  static auto* shared = new LatentService();  // never destroyed: the pool outlives main's benchmarks
  return *shared;
}

void BM_FetchWith50msLatency(benchmark::State& state) {
  useShippedTimeZoneData();
  LatentService& s = service();
  const int which = static_cast<int>(state.range(0));
  state.SetLabel(which == 0 ? "openweather" : which == 1 ? "system weather" : "bureau merged");
  double slowest = 0.0;
  for (const HttpRequest& request : s.requests(which)) {
    s.millisecondsOf(s.send(request));  // warm the connection pool
    slowest = std::max(slowest, s.millisecondsOf(s.send(request)));
  }
  double total = 0.0;
  for (auto _ : state) {
    const double elapsed = s.millisecondsOf(s.fetch(which));
    state.SetIterationTime(elapsed / 1000.0);
    total += elapsed;
  }
  const double fetch = total / static_cast<double>(state.iterations());
  state.counters["fetch_ms"] = fetch;
  state.counters["slowest_request_ms"] = slowest;
  state.counters["ratio"] = fetch / slowest;
}
BENCHMARK(BM_FetchWith50msLatency)->DenseRange(0, 2)->UseManualTime()->Iterations(10)->Unit(benchmark::kMillisecond);

}  // namespace
}  // namespace ombrine

BENCHMARK_MAIN();
