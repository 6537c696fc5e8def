#include "tides/tide_service.hpp"

#include <boost/asio/co_spawn.hpp>
#include <boost/asio/this_coro.hpp>
#include <boost/asio/use_awaitable.hpp>

#include <algorithm>
#include <array>
#include <cmath>
#include <numbers>

#include "core/values/errors.hpp"
#include "core/values/iso8601.hpp"
#include "platform/async/coroutines.hpp"
#include "platform/errors.hpp"
#include "platform/exception_message.hpp"
#include "platform/log.hpp"

namespace ombrine {

namespace {

const char* caseName(TideServiceError::Case which) {
  return which == TideServiceError::invalidURL ? "TideServiceError.invalidURL" : "TideServiceError.invalidResponse";
}

// True when the calling coroutine's task has been cancelled, without raising.
Task<bool> taskIsCancelled() {
  auto state = co_await asio::this_coro::cancellation_state;
  co_return state.cancelled() != asio::cancellation_type::none;
}

// `base` with `path` appended to its own path ("/noaa" + "/api/..." on the simulator).
boost::urls::url under(const boost::urls::url& base, std::string_view path) {
  boost::urls::url url = base;
  std::string joined(base.path());
  while (!joined.empty() && joined.back() == '/') joined.pop_back();
  joined.append(path);
  url.set_path(joined);
  return url;
}

// The rows whose time and value both parse, as (date, metres, row); the others are skipped.
template <class Visit>
void forEachReadableRow(const std::vector<NOAAPrediction>& rows, Visit visit) {
  for (const auto& row : rows) {
    const auto date = parseNOAAPredictionTime(row.time);
    const auto value = parseDecimal(row.value);
    if (date && value) visit(*date, Length::meters(*value), row);
  }
}

std::vector<TideChartPoint> noaaChartPoints(const std::vector<NOAAPrediction>& rows) {
  std::vector<TideChartPoint> points;
  forEachReadableRow(rows, [&](Date date, Length height, const NOAAPrediction&) { points.push_back({date, height}); });
  std::stable_sort(points.begin(), points.end(), tideChartPointLess);
  return points;
}

// Rows without a type of "H" or "L" are not extremes.
std::vector<TideExtreme> noaaExtremes(const std::vector<NOAAPrediction>& rows) {
  std::vector<TideExtreme> extremes;
  forEachReadableRow(rows, [&](Date date, Length height, const NOAAPrediction& row) {
    const auto kind = row.type ? tideExtremeKindFromString(*row.type) : std::nullopt;
    if (kind) extremes.push_back({date, height, *kind});
  });
  std::stable_sort(extremes.begin(), extremes.end(), tideExtremeLess);
  return extremes;
}

bool hasPredictionSeries(const CHSStation& station) {
  if (!station.timeSeries) return false;
  return std::any_of(station.timeSeries->begin(), station.timeSeries->end(), [](const CHSStation::TimeSeries& series) {
    return series.code == "wlp" || series.code == "wlp-hilo";
  });
}

}  // namespace

TideServiceError::TideServiceError(Case which) : std::runtime_error(caseName(which)), which_(which) {}

bool isTideRegion(std::string_view region) noexcept {
  constexpr std::array<std::string_view, 8> kRegions = {"US", "CA", "BS", "PR", "VI", "GU", "MP", "AS"};
  return std::find(kRegions.begin(), kRegions.end(), region) != kRegions.end();
}

double haversineDistance(double latitude1, double longitude1, double latitude2, double longitude2) noexcept {
  constexpr double kRadius = 6'371'000.0;
  constexpr double kRadians = std::numbers::pi / 180.0;
  const double phi1 = latitude1 * kRadians;
  const double phi2 = latitude2 * kRadians;
  const double dPhi = (latitude2 - latitude1) * kRadians;
  const double dLambda = (longitude2 - longitude1) * kRadians;
  const double a = std::sin(dPhi / 2) * std::sin(dPhi / 2) +
                   std::cos(phi1) * std::cos(phi2) * std::sin(dLambda / 2) * std::sin(dLambda / 2);
  return 2.0 * std::atan2(std::sqrt(a), std::sqrt(1.0 - a)) * kRadius;
}

std::optional<NearestTideStation> nearestNOAAStation(const std::vector<TideStation>& stations, double latitude,
                                                     double longitude) {
  std::optional<NearestTideStation> best;
  for (const auto& station : stations) {
    const double distance = haversineDistance(latitude, longitude, station.latitude, station.longitude);
    if (!best || distance < best->distance) best = NearestTideStation{station, distance};
  }
  return best;
}

std::optional<NearestTideStation> nearestCHSStation(const std::vector<CHSStation>& stations, double latitude,
                                                    double longitude) {
  std::optional<NearestTideStation> best;
  for (const auto& station : stations) {
    if (station.operating && !*station.operating) continue;
    if (!hasPredictionSeries(station)) continue;
    const double distance = haversineDistance(latitude, longitude, station.latitude, station.longitude);
    if (distance <= kMaxTideStationDistance && (!best || distance < best->distance)) {
      best = NearestTideStation{station.tideStation(), distance};
    }
  }
  return best;
}

std::vector<TideChartPoint> downsampledChartPoints(std::vector<CHSDataPoint> points, int minutes) {
  std::stable_sort(points.begin(), points.end(),
                   [](const CHSDataPoint& a, const CHSDataPoint& b) { return a.eventDate < b.eventDate; });
  std::vector<TideChartPoint> out;
  if (minutes < 1) {
    out.reserve(points.size());
    for (const auto& point : points) out.push_back({point.eventDate, Length::meters(point.value)});
    return out;
  }
  const double size = minutes * 60.0;
  struct Kept {
    CHSDataPoint point;
    double distance;
  };
  std::map<double, Kept> buckets;
  for (const auto& point : points) {
    const double t = point.eventDate.timeIntervalSinceReferenceDate;
    const double start = std::floor(t / size) * size;
    const double distance = std::fabs(start + size / 2 - t);
    const auto found = buckets.find(start);
    if (found == buckets.end()) {
      buckets.emplace(start, Kept{point, distance});
    } else if (distance < found->second.distance) {
      found->second = Kept{point, distance};
    }
  }
  out.reserve(buckets.size());
  for (const auto& [start, kept] : buckets) out.push_back({kept.point.eventDate, Length::meters(kept.point.value)});
  return out;
}

std::vector<TideExtreme> classifiedExtremes(const std::vector<CHSDataPoint>& points) {
  using Kind = TideExtreme::Kind;
  std::vector<TideExtreme> out;
  const size_t n = points.size();
  out.reserve(n);
  for (size_t i = 0; i < n; ++i) {
    const double value = points[i].value;
    Kind kind;
    if (i == 0) {
      kind = n > 1 && points[1].value < value ? Kind::high : Kind::low;
    } else if (i == n - 1) {
      kind = points[i - 1].value < value ? Kind::high : Kind::low;
    } else {
      const double before = points[i - 1].value;
      const double after = points[i + 1].value;
      if (before < value && after < value) {
        kind = Kind::high;
      } else if (before > value && after > value) {
        kind = Kind::low;
      } else {
        // Neither a peak nor a trough among its neighbours: highs and lows alternate in the
        // reply, so the position decides.
        kind = i % 2 == 0 ? Kind::high : Kind::low;
      }
    }
    out.push_back({points[i].eventDate, Length::meters(value), kind});
  }
  return out;
}

std::vector<TideExtreme> derivedExtremes(const std::vector<CHSDataPoint>& points) {
  std::vector<TideExtreme> out;
  if (points.size() < 3) return out;
  for (size_t i = 1; i + 1 < points.size(); ++i) {
    const double before = points[i - 1].value;
    const double value = points[i].value;
    const double after = points[i + 1].value;
    if (value > before && value > after)
      out.push_back({points[i].eventDate, Length::meters(value), TideExtreme::Kind::high});
    if (value < before && value < after)
      out.push_back({points[i].eventDate, Length::meters(value), TideExtreme::Kind::low});
  }
  return out;
}

// -- TideService -----------------------------------------------------------------------------

TideService::TideService(Strand strand, HttpClient& http, const Clock& clock, const ServiceEndpoints& endpoints,
                         TideDiskCache& diskCache, TideRegionGate gate)
    : strand_(std::move(strand)),
      http_(http),
      clock_(clock),
      endpoints_(endpoints),
      diskCache_(diskCache),
      gate_(std::move(gate)) {}

Date TideService::now() const { return Date::fromSystem(clock_.now()); }

Task<std::optional<TideData>> TideService::tideData(double latitude, double longitude, std::string region) {
  auto task = tideDataOnStrand(latitude, longitude, std::move(region));
  co_return co_await asio::co_spawn(strand_, std::move(task), asio::use_awaitable);
}

Task<TideData> TideService::noaaTideData(TideStation station, double distance) {
  auto task = noaaTideDataOnStrand(std::move(station), distance);
  co_return co_await asio::co_spawn(strand_, std::move(task), asio::use_awaitable);
}

Task<std::optional<TideData>> TideService::chsTideData(TideStation station, double distance) {
  auto task = chsTideDataOnStrand(std::move(station), distance);
  co_return co_await asio::co_spawn(strand_, std::move(task), asio::use_awaitable);
}

Task<std::vector<TideStation>> TideService::noaaStations() {
  auto task = loadNOAAStations();
  co_return co_await asio::co_spawn(strand_, std::move(task), asio::use_awaitable);
}

Task<std::vector<CHSStation>> TideService::chsStations() {
  auto task = loadCHSStations();
  co_return co_await asio::co_spawn(strand_, std::move(task), asio::use_awaitable);
}

Task<std::optional<TideData>> TideService::tideDataOnStrand(double latitude, double longitude, std::string region) {
  if (!isTideRegion(region)) co_return std::nullopt;
  if (!gate_.admits(latitude, longitude)) co_return std::nullopt;

  std::exception_ptr chsError;
  if (region == "CA") {
    try {
      auto found = co_await chsRoute(latitude, longitude);
      if (found) co_return found;
    } catch (...) {
      const auto error = std::current_exception();
      if (isCancellation(error)) throw CancellationError();
      chsError = error;
    }
  }

  const auto stations = co_await loadNOAAStations();
  const auto nearest = nearestNOAAStation(stations, latitude, longitude);
  if (nearest && nearest->distance <= kMaxTideStationDistance) {
    co_return co_await noaaTideDataOnStrand(nearest->station, nearest->distance);
  }
  if (chsError) std::rethrow_exception(chsError);
  co_return std::nullopt;
}

Task<std::optional<TideData>> TideService::chsRoute(double latitude, double longitude) {
  const auto stations = co_await loadCHSStations();
  const auto nearest = nearestCHSStation(stations, latitude, longitude);
  if (!nearest) co_return std::nullopt;
  auto data = co_await chsTideDataOnStrand(nearest->station, nearest->distance);
  if (!data) throw TideServiceError(TideServiceError::invalidResponse);
  co_return data;
}

template <>
std::vector<TideStation> TideService::decodeStations<TideStation>(const std::string& body) {
  return decodeNOAAStations(body);
}

template <>
std::vector<CHSStation> TideService::decodeStations<CHSStation>(const std::string& body) {
  return decodeCHSStations(body);
}

template <class Station, class LoadDisk, class Download, class SaveDisk>
Task<std::vector<Station>> TideService::loadCatalogue(Catalogue<Station>& memory, LoadDisk loadDisk, Download download,
                                                      SaveDisk saveDisk, double window) {
  // The later expiry wins; none counts as infinitely old, and memory wins a tie.
  Catalogue<Station> chosen = memory;
  if (auto disk = co_await loadDisk()) {
    const bool diskIsLater = !chosen.stations || !chosen.expiresAt || disk->expiresAt > *chosen.expiresAt;
    if (diskIsLater) {
      chosen = Catalogue<Station>{std::move(disk->stations), disk->expiresAt};
      memory = chosen;
    }
  }
  if (chosen.stations && chosen.expiresAt && now() < *chosen.expiresAt) co_return *chosen.stations;

  std::exception_ptr failure;
  try {
    auto body = co_await download();
    auto stations = decodeStations<Station>(body);
    const Date expiresAt = now() + window;
    memory = Catalogue<Station>{stations, expiresAt};
    saveDisk(stations, expiresAt);
    co_return stations;
  } catch (...) {
    failure = std::current_exception();
  }
  if (co_await taskIsCancelled()) throw CancellationError();
  if (isCancellation(failure)) throw CancellationError();
  // Any catalogue, however stale, beats none. Memory may have been filled meanwhile.
  if (memory.stations) co_return *memory.stations;
  if (chosen.stations) {
    memory = chosen;
    co_return *chosen.stations;
  }
  std::rethrow_exception(failure);
}

Task<std::vector<TideStation>> TideService::loadNOAAStations() {
  auto loadDisk = [this]() { return diskCache_.loadNOAAStations(); };
  auto download = [this]() {
    auto url = under(endpoints_.noaaMetadata, "/mdapi/prod/webapi/stations.json");
    url.params().append({"type", "tidepredictions"});
    return get(std::move(url));
  };
  auto saveDisk = [this](const std::vector<TideStation>& stations, Date expiresAt) {
    diskCache_.saveNOAAStations(stations, expiresAt);
  };
  co_return co_await loadCatalogue(stations_, loadDisk, download, saveDisk, kNOAAStationValidityWindow);
}

Task<std::vector<CHSStation>> TideService::loadCHSStations() {
  auto loadDisk = [this]() { return diskCache_.loadCHSStations(); };
  auto download = [this]() { return get(under(endpoints_.chsIwls, "/api/v1/stations")); };
  auto saveDisk = [this](const std::vector<CHSStation>& stations, Date expiresAt) {
    diskCache_.saveCHSStations(stations, expiresAt);
  };
  co_return co_await loadCatalogue(chsStations_, loadDisk, download, saveDisk, kCHSStationValidityWindow);
}

Task<std::string> TideService::get(boost::urls::url url) {
  HttpRequest request;
  request.url = std::move(url);
  request.timeout = kRequestTimeout;
  const HttpResponse response = co_await http_.send(request);
  if (response.status != 200) throw TideServiceError(TideServiceError::invalidResponse);
  co_return response.body;
}

Task<std::vector<NOAAPrediction>> TideService::requestPredictions(std::string stationID, std::string interval,
                                                                  Date begin, Date end) {
  auto url = under(endpoints_.noaaData, "/api/prod/datagetter");
  auto params = url.params();
  params.append({"product", "predictions"});
  params.append({"datum", "MLLW"});
  params.append({"station", stationID});
  params.append({"time_zone", "gmt"});
  params.append({"units", "metric"});
  params.append({"begin_date", formatNOAARequestTime(begin)});
  params.append({"end_date", formatNOAARequestTime(end)});
  params.append({"format", "json"});
  params.append({"interval", interval});
  params.append({"application", "WeatherApp"});
  const std::string body = co_await get(std::move(url));
  co_return decodeNOAAPredictions(body);
}

Task<std::vector<CHSDataPoint>> TideService::requestCHSSeries(std::string stationID, std::string seriesCode, Date from,
                                                              Date to) {
  auto url = under(endpoints_.chsIwls, "/api/v1/stations");
  url.segments().push_back(stationID);
  url.segments().push_back("data");
  auto params = url.params();
  params.append({"time-series-code", seriesCode});
  params.append({"from", iso8601String(from, true)});
  params.append({"to", iso8601String(to, true)});
  params.append({"format", "json"});
  const std::string body = co_await get(std::move(url));
  co_return decodeCHSDataPoints(body);
}

Task<void> TideService::storePredictions(std::string stationID, std::string interval, Date begin, Date end,
                                         std::shared_ptr<std::vector<NOAAPrediction>> out) {
  *out = co_await requestPredictions(std::move(stationID), std::move(interval), begin, end);
}

// Each series keeps its own failure: a missing high/low list is not fatal, a missing series is.
Task<void> TideService::storeCHSSeries(std::string stationID, std::string seriesCode, Date from, Date to,
                                       std::shared_ptr<std::vector<CHSDataPoint>> out,
                                       std::shared_ptr<std::exception_ptr> error) {
  try {
    *out = co_await requestCHSSeries(std::move(stationID), std::move(seriesCode), from, to);
  } catch (...) {
    *error = std::current_exception();
  }
}

Task<TideData> TideService::fetchNOAA(const TideStation& station, double distance) {
  const Date fetchTime = now();
  const Date begin = fetchTime - kWindowBefore;
  const Date end = fetchTime + kWindowAfter;
  TideData data{.station = station, .distance = distance, .extremes = {}, .chartPoints = {}, .fetchedAt = fetchTime};
  if (!station.isSubordinate()) {
    auto chartRows = std::make_shared<std::vector<NOAAPrediction>>();
    auto hiloRows = std::make_shared<std::vector<NOAAPrediction>>();
    auto body = [this, id = station.id, begin, end, chartRows, hiloRows](TaskGroup& group) -> Task<void> {
      group.spawn(storePredictions(id, "15", begin, end, chartRows));
      group.spawn(storePredictions(id, "hilo", begin, end, hiloRows));
      co_return;
    };
    co_await withTaskGroup(body);
    data.chartPoints = noaaChartPoints(*chartRows);
    data.extremes = noaaExtremes(*hiloRows);
  } else {
    const DateInterval window{begin, end};
    const auto rows = co_await requestPredictions(station.id, "hilo", begin - 86'400.0, end + 86'400.0);
    const auto extremes = noaaExtremes(rows);
    data.chartPoints = chartPoints(extremes, 900.0, window);
    for (const auto& extreme : extremes) {
      if (window.contains(extreme.date)) data.extremes.push_back(extreme);
    }
  }
  if (data.chartPoints.empty() || data.extremes.empty()) throw TideServiceError(TideServiceError::invalidResponse);
  co_return data;
}

Task<TideData> TideService::fetchCHS(const TideStation& station, double distance) {
  const Date fetchTime = now();
  const Date from = fetchTime - kWindowBefore;
  const Date to = fetchTime + kWindowAfter;
  auto series = std::make_shared<std::vector<CHSDataPoint>>();
  auto hilo = std::make_shared<std::vector<CHSDataPoint>>();
  auto seriesError = std::make_shared<std::exception_ptr>();
  auto hiloError = std::make_shared<std::exception_ptr>();
  auto body = [this, id = station.id, from, to, series, hilo, seriesError, hiloError](TaskGroup& group) -> Task<void> {
    group.spawn(storeCHSSeries(id, "wlp-hilo", from, to, hilo, hiloError));
    group.spawn(storeCHSSeries(id, "wlp", from, to, series, seriesError));
    co_return;
  };
  co_await withTaskGroup(body);
  if (*seriesError) std::rethrow_exception(asCancellationError(*seriesError));
  if ((*hiloError && isCancellation(*hiloError)) || co_await taskIsCancelled()) throw CancellationError();
  if (*hiloError) hilo->clear();

  TideData data{.station = station, .distance = distance, .extremes = {}, .chartPoints = {}, .fetchedAt = fetchTime};
  data.chartPoints = downsampledChartPoints(*series, kCHSDownsampleIntervalMinutes);
  if (data.chartPoints.empty()) throw TideServiceError(TideServiceError::invalidResponse);
  data.extremes = hilo->empty() ? derivedExtremes(*series) : classifiedExtremes(*hilo);
  if (data.extremes.empty()) throw TideServiceError(TideServiceError::invalidResponse);
  std::stable_sort(data.extremes.begin(), data.extremes.end(), tideExtremeLess);
  co_return data;
}

template <class Fetch>
Task<std::optional<TideData>> TideService::throughCaches(std::string key, const TideStation& station, double distance,
                                                         bool isCHS, Fetch fetch) {
  auto served = [&station, distance](TideData data) {
    data.station = station;
    data.distance = distance;
    return data;
  };
  if (isCHS && co_await taskIsCancelled()) throw CancellationError();
  const Date start = now();
  if (const auto found = cache_.find(key); found != cache_.end()) {
    if (start - found->second.fetchedAt < kCacheValidityWindow && found->second.data.coversChartWindow(start)) {
      co_return served(found->second.data);
    }
  }
  std::optional<TideData> stale;
  if (auto loaded = co_await diskCache_.loadTideData(key, distance)) {
    const Date checked = now();
    if (checked < loaded->expiresAt && loaded->data.coversChartWindow(checked)) {
      cache_[key] = CachedEntry{loaded->data, checked};
      co_return served(std::move(loaded->data));
    }
    stale = std::move(loaded->data);
  }

  std::exception_ptr failure;
  try {
    TideData fresh = co_await fetch();
    cache_[key] = CachedEntry{fresh, now()};
    diskCache_.saveTideData(fresh, key, kDiskCacheValidityWindow);
    co_return fresh;
  } catch (...) {
    failure = std::current_exception();
  }
  if (isCHS) {
    if (isCancellation(failure) || co_await taskIsCancelled()) throw CancellationError();
  }
  if (stale) {
    logDetail("Tide predictions for {} could not be fetched ({}); serving the stored ones", key,
              exceptionMessage(failure));
    // Dated by its own fetch, so the memory check lets the next call try the network at once.
    cache_[key] = CachedEntry{*stale, stale->fetchedAt};
    co_return served(std::move(*stale));
  }
  if (isCHS) co_return std::nullopt;
  std::rethrow_exception(failure);
}

Task<TideData> TideService::noaaTideDataOnStrand(TideStation station, double distance) {
  const std::string key =
      station.isSubordinate() ? "noaa-adjusted-hilo-v1:" + station.id : stationKey(TideStationSource::noaa, station.id);
  auto fetch = [this, &station, distance]() { return fetchNOAA(station, distance); };
  auto data = co_await throughCaches(key, station, distance, false, fetch);
  co_return std::move(*data);
}

Task<std::optional<TideData>> TideService::chsTideDataOnStrand(TideStation station, double distance) {
  const std::string key = stationKey(TideStationSource::chs, station.id);
  auto fetch = [this, &station, distance]() { return fetchCHS(station, distance); };
  co_return co_await throughCaches(key, station, distance, true, fetch);
}

}  // namespace ombrine
