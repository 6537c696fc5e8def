#include "history/climate_normals_service.hpp"

#include <fmt/format.h>

#include <exception>

#include "core/values/errors.hpp"
#include "history/climate_decoding.hpp"
#include "history/climate_merge.hpp"
#include "persistence/historical_weather_cache.hpp"
#include "platform/errors.hpp"
#include "platform/exception_message.hpp"
#include "platform/log.hpp"

namespace ombrine {

namespace {

constexpr std::chrono::seconds kRequestTimeout{60};

std::string coordinateText(double value) { return fmt::format("{}", value); }

boost::urls::url withPath(const boost::urls::url& base, std::string_view path) {
  boost::urls::url url = base;
  std::string full(base.path());
  while (!full.empty() && full.back() == '/') full.pop_back();
  full += path;
  url.set_path(full);
  return url;
}

}  // namespace

ClimateNormalsService::ClimateNormalsService(HttpClient& http, ServiceEndpoints endpoints,
                                             std::optional<Secret> meteostatKey, std::filesystem::path cacheDirectory)
    : http_(http),
      endpoints_(std::move(endpoints)),
      meteostatKey_(std::move(meteostatKey)),
      cacheDirectory_(std::move(cacheDirectory)) {}

Task<std::string> ClimateNormalsService::get(HttpRequest request) {
  request.timeout = kRequestTimeout;
  const HttpResponse response = co_await http_.send(request);
  if (response.status == 429) throw NetworkError(NetworkError::exceededApiLimit);
  if (response.status != 200) throw NetworkError(NetworkError::invalidResponse);
  co_return response.body;
}

Task<std::string> ClimateNormalsService::meteostatGet(std::string path,
                                                      std::vector<std::pair<std::string, std::string>> query) {
  HttpRequest request;
  request.url = withPath(endpoints_.meteostat, path);
  for (const auto& [name, value] : query) request.url.params().append({name, value});
  if (meteostatKey_) request.headers.push_back({"X-RapidAPI-Key", meteostatKey_->reveal()});
  request.headers.push_back({"X-RapidAPI-Host", std::string(endpoints_.meteostat.host())});
  co_return co_await get(std::move(request));
}

Task<ClimateNormalsService::Months> ClimateNormalsService::pointNormals(Location location, int startYear, int endYear) {
  std::vector<std::pair<std::string, std::string>> query = {{"lat", coordinateText(location.latitude())},
                                                            {"lon", coordinateText(location.longitude())},
                                                            {"start", std::to_string(startYear)},
                                                            {"end", std::to_string(endYear)}};
  const std::string body = co_await meteostatGet("/point/normals", std::move(query));
  co_return historyMonths(decodeMeteostatNormals(body));
}

Task<std::vector<Station>> ClimateNormalsService::stationsNearby(Location location) {
  std::vector<std::pair<std::string, std::string>> query = {{"lat", coordinateText(location.latitude())},
                                                            {"lon", coordinateText(location.longitude())}};
  const std::string body = co_await meteostatGet("/stations/nearby", std::move(query));
  co_return decodeMeteostatStations(body).data;
}

Task<ClimateNormalsService::Months> ClimateNormalsService::stationNormals(std::string stationID, int startYear,
                                                                          int endYear) {
  std::vector<std::pair<std::string, std::string>> query = {
      {"station", stationID}, {"start", std::to_string(startYear)}, {"end", std::to_string(endYear)}};
  const std::string body = co_await meteostatGet("/stations/normals", std::move(query));
  co_return historyMonths(decodeMeteostatNormals(body));
}

Task<ClimateNormalsService::Months> ClimateNormalsService::nasaNormals(Location location, int startYear, int endYear) {
  // NASA POWER's climatology begins in 1981.
  if (startYear < 1981) co_return Months{};
  HttpRequest request;
  request.url = withPath(endpoints_.nasaPower, "/api/temporal/climatology/point");
  auto params = request.url.params();
  params.append({"parameters", "T2M,T2M_MAX_AVG,T2M_MIN_AVG,PRECTOTCORR_SUM"});
  params.append({"community", "AG"});
  params.append({"longitude", coordinateText(location.longitude())});
  params.append({"latitude", coordinateText(location.latitude())});
  params.append({"format", "JSON"});
  params.append({"start", std::to_string(startYear)});
  params.append({"end", std::to_string(endYear)});
  const std::string body = co_await get(std::move(request));
  co_return historyMonths(decodeNASAPowerClimatology(body));
}

Task<ClimateNormalsService::Months> ClimateNormalsService::withOlderPeriods(Location location,
                                                                            std::optional<std::string> stationID,
                                                                            int failedStart, Months have) {
  std::vector<Months> sources{std::move(have)};
  Months merged = mergeHistory(sources);
  auto period = olderNormalPeriod(failedStart);
  while (period && !isComplete(merged)) {
    Months older;
    std::exception_ptr failure;
    try {
      if (stationID) {
        older = co_await stationNormals(*stationID, period->startYear, period->endYear);
      } else {
        older = co_await pointNormals(location, period->startYear, period->endYear);
      }
    } catch (...) {
      failure = std::current_exception();
    }
    if (failure) {
      rethrowIfCancellation(failure);
      logf("Climate normals source failed: {}", exceptionMessage(failure));
      break;
    }
    sources.push_back(std::move(older));
    merged = mergeHistory(sources);
    period = olderNormalPeriod(period->startYear);
  }
  co_return merged;
}

Task<HistoryData> ClimateNormalsService::historyData(Location location) {
  const std::function<HistoryData(std::string_view)> decode = decodeHistoryData;
  const auto cached =
      HistoricalWeatherCache::cachedHistory(cacheDirectory_, location.latitude(), location.longitude(), false, decode);
  if (cached && !hasNonFiniteValue(cached->data) && isComplete(cached->data)) co_return *cached;

  Months point;
  bool meteostatRefused = false;
  try {
    point = co_await pointNormals(location, 1991, 2020);
  } catch (const NetworkError& error) {
    if (error.which() != NetworkError::invalidResponse) throw;
    meteostatRefused = true;
  }
  if (meteostatRefused) {
    const Months nasa = co_await nasaNormals(location, 1991, 2020);
    co_return HistoryData{mergeHistory(std::vector<Months>{nasa})};
  }

  Months merged = co_await withOlderPeriods(location, std::nullopt, 1991, std::move(point));
  if (!isComplete(merged)) {
    Months nasa;
    std::exception_ptr failure;
    try {
      nasa = co_await nasaNormals(location, 1991, 2020);
    } catch (...) {
      failure = std::current_exception();
    }
    if (failure) {
      rethrowIfCancellation(failure);
      logf("Climate normals source failed: {}", exceptionMessage(failure));
    } else {
      std::vector<Months> sources{std::move(merged), std::move(nasa)};
      merged = mergeHistory(sources);
    }
  }

  HistoryData history{std::move(merged)};
  try {
    HistoricalWeatherCache::store(cacheDirectory_, encodeHistoryData(history), location.latitude(),
                                  location.longitude());
  } catch (const std::exception&) {
    // The cache logged the failure; the record is still good to show.
  }
  co_return history;
}

}  // namespace ombrine
