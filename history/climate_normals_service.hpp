#pragma once
// Monthly climate normals for a place: Meteostat's normals (through the RapidAPI gateway) for
// 1991-2020, older normal periods where months are missing, NASA POWER's climatology for what is
// still missing, blended month by month and kept in the historical weather cache.
//
// `historyData` serves a cached record only when it is complete (12 months with finite minimum
// and maximum temperature and precipitation) and holds no non-finite value; otherwise it asks
// the services and stores what it blended (a failed store is logged and ignored). When
// Meteostat refuses the point request (any status but 200 and 429), NASA POWER's answer is used
// alone and not stored, so that the next call asks Meteostat again. Later sources only add:
// their failures are logged ("Climate normals source failed: <what>") and what was obtained
// stands.
//
// Every request has a 60-second time-out. Meteostat requests carry "X-RapidAPI-Key" (when a key
// is configured; without one the gateway refuses, which reads as a Meteostat failure) and
// "X-RapidAPI-Host" with the gateway's host name.
//
// Context: any executor; the service holds no mutable state, so calls may overlap. Cache reads
// and writes block the calling thread briefly (small files). The HTTP client must outlive the
// service. Raises NetworkError (exceededApiLimit for 429, invalidResponse for any other status
// but 200, invalidURL), DecodingError for an answer of the wrong shape, HttpError for transport
// failures, CancellationError.

#include <filesystem>
#include <optional>
#include <string>
#include <vector>

#include "core/fetch/credentials.hpp"
#include "core/fetch/service_endpoints.hpp"
#include "core/values/location.hpp"
#include "history/climate_records.hpp"
#include "platform/async/task.hpp"
#include "platform/http_client.hpp"

namespace ombrine {

class ClimateNormalsService {
 public:
  ClimateNormalsService(HttpClient& http, ServiceEndpoints endpoints, std::optional<Secret> meteostatKey,
                        std::filesystem::path cacheDirectory);

  using Months = std::vector<HistoryData::History>;

  Task<HistoryData> historyData(Location location);

  Task<Months> pointNormals(Location location, int startYear, int endYear);
  Task<std::vector<Station>> stationsNearby(Location location);
  Task<Months> stationNormals(std::string stationID, int startYear, int endYear);
  // Nothing is asked for a start before 1981: the answer is empty.
  Task<Months> nasaNormals(Location location, int startYear, int endYear);

  // The older periods after the one starting at `failedStart` (history/climate_merge.hpp), each
  // merged after `have` while the result is incomplete; from the station when one is named,
  // else from the point. A failure ends the chain with what was obtained.
  Task<Months> withOlderPeriods(Location location, std::optional<std::string> stationID, int failedStart, Months have);

  const std::filesystem::path& cacheDirectory() const noexcept { return cacheDirectory_; }

 private:
  Task<std::string> meteostatGet(std::string path, std::vector<std::pair<std::string, std::string>> query);
  Task<std::string> get(HttpRequest request);

  HttpClient& http_;
  ServiceEndpoints endpoints_;
  std::optional<Secret> meteostatKey_;
  std::filesystem::path cacheDirectory_;
};

}  // namespace ombrine
