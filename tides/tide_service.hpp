#pragma once
// Which tide station serves a coordinate, and its predicted tides for the next two days.
//
// Two public services: NOAA CO-OPS (metadata station list and data getter) and the Canadian
// Hydrographic Service IWLS API. Only places in "US", "CA", "BS", "PR", "VI", "GU", "MP" and "AS"
// are served, and only those the coastline gate (tides/tide_region_gate.hpp) lets through.
// Canada asks CHS first and falls back to NOAA; every other region asks NOAA alone. A station is
// used when it lies within 80 km (haversine on a 6,371 km sphere).
//
// Caches: the NOAA catalogue is good for 7 days, the CHS catalogue for 2 days; predictions are
// served from memory for 30 minutes and from disk (tides/tide_disk_cache.hpp) for 4 hours, and
// only while their chart reaches from 4 hours back to 52 hours ahead. A failed download falls
// back to the last catalogue or prediction however stale; a stale prediction served this way
// does not hold back the next attempt. Every request goes through the HTTP client with a
// 12-second time-out.
//
// Context: every call hops onto the service's own serial context (a strand) and its state is
// touched only there; the two requests of one prediction fetch run concurrently as child tasks.
// Two callers for one station may fetch twice. The service must outlive its calls.
//
// Failures: TideServiceError (invalidURL, invalidResponse) for a refused or unusable reply,
// DecodingError for a reply of the wrong shape, HttpError for transport failures. A cancelled
// caller always gets CancellationError, except inside noaaTideData, where a cancelled fetch is a
// failure like any other and may still serve stale data.

#include <exception>
#include <map>
#include <memory>
#include <optional>
#include <stdexcept>
#include <string>
#include <string_view>
#include <vector>

#include "core/fetch/service_endpoints.hpp"
#include "core/record/tide_records.hpp"
#include "core/values/date.hpp"
#include "platform/async/task.hpp"
#include "platform/clock.hpp"
#include "platform/http_client.hpp"
#include "tides/tide_disk_cache.hpp"
#include "tides/tide_feeds.hpp"
#include "tides/tide_region_gate.hpp"

namespace ombrine {

class TideServiceError : public std::runtime_error {
 public:
  enum Case { invalidURL, invalidResponse };
  explicit TideServiceError(Case which);
  Case which() const noexcept { return which_; }

 private:
  Case which_;
};

// A station and how far it lies from the asked coordinate, in metres.
struct NearestTideStation {
  TideStation station;
  double distance = 0.0;
  bool operator==(const NearestTideStation&) const = default;
};

// -- The rules, as pure functions ------------------------------------------------------------

inline constexpr double kMaxTideStationDistance = 80'000.0;

// True for the regions with tide service.
bool isTideRegion(std::string_view region) noexcept;
// Great-circle distance in metres on a sphere of 6,371,000 m.
double haversineDistance(double latitude1, double longitude1, double latitude2, double longitude2) noexcept;
// The nearest NOAA station of any type, the earliest of equals; no distance limit.
std::optional<NearestTideStation> nearestNOAAStation(const std::vector<TideStation>& stations, double latitude,
                                                     double longitude);
// The nearest operating CHS station with a "wlp" or "wlp-hilo" series within 80 km, the
// earliest of equals.
std::optional<NearestTideStation> nearestCHSStation(const std::vector<CHSStation>& stations, double latitude,
                                                    double longitude);
// One point per bucket of `minutes` (counted from 2001-01-01T00:00:00Z), the one nearest the
// bucket's centre, the earliest of equals; by bucket. Under one minute: the sorted points.
std::vector<TideChartPoint> downsampledChartPoints(std::vector<CHSDataPoint> points, int minutes);
// Highs and lows of a CHS "wlp-hilo" list in reply order: by the neighbours' values, and for an
// inner point that is neither, by index parity (even high, odd low).
std::vector<TideExtreme> classifiedExtremes(const std::vector<CHSDataPoint>& points);
// Strict local maxima and minima of a full series; plateaus give none.
std::vector<TideExtreme> derivedExtremes(const std::vector<CHSDataPoint>& points);

class TideService {
 public:
  static constexpr double kNOAAStationValidityWindow = 604'800.0;
  static constexpr double kCHSStationValidityWindow = 172'800.0;
  static constexpr double kCacheValidityWindow = 1'800.0;
  static constexpr double kDiskCacheValidityWindow = 14'400.0;
  static constexpr double kWindowBefore = 28'800.0;  // predictions asked for from 8 h back
  static constexpr double kWindowAfter = 201'600.0;  // to 56 h ahead
  static constexpr int kCHSDownsampleIntervalMinutes = 15;
  static constexpr std::chrono::milliseconds kRequestTimeout{12'000};

  struct CachedEntry {
    TideData data;
    Date fetchedAt;  // when the entry became valid for the memory check
  };

  // `http`, `clock` and `diskCache` must outlive the service.
  TideService(Strand strand, HttpClient& http, const Clock& clock, const ServiceEndpoints& endpoints,
              TideDiskCache& diskCache, TideRegionGate gate);

  // The tides for a coordinate in `region` (a country or territory code); nothing when the
  // place has none.
  Task<std::optional<TideData>> tideData(double latitude, double longitude, std::string region);
  // Predictions of a NOAA station through both caches.
  Task<TideData> noaaTideData(TideStation station, double distance);
  // Predictions of a CHS station (given by its CHS id) through both caches; nothing when
  // neither the network nor a cache has any.
  Task<std::optional<TideData>> chsTideData(TideStation station, double distance);

  // The catalogues, through their caches (a stale one when the download fails).
  Task<std::vector<TideStation>> noaaStations();
  Task<std::vector<CHSStation>> chsStations();

 private:
  template <class Station>
  struct Catalogue {
    std::optional<std::vector<Station>> stations;
    std::optional<Date> expiresAt;
  };

  Task<std::optional<TideData>> tideDataOnStrand(double latitude, double longitude, std::string region);
  Task<std::optional<TideData>> chsRoute(double latitude, double longitude);
  Task<TideData> noaaTideDataOnStrand(TideStation station, double distance);
  Task<std::optional<TideData>> chsTideDataOnStrand(TideStation station, double distance);
  Task<std::vector<TideStation>> loadNOAAStations();
  Task<std::vector<CHSStation>> loadCHSStations();
  template <class Station, class LoadDisk, class Download, class SaveDisk>
  Task<std::vector<Station>> loadCatalogue(Catalogue<Station>& memory, LoadDisk loadDisk, Download download,
                                           SaveDisk saveDisk, double window);

  Task<TideData> fetchNOAA(const TideStation& station, double distance);
  Task<TideData> fetchCHS(const TideStation& station, double distance);
  Task<std::vector<NOAAPrediction>> requestPredictions(std::string stationID, std::string interval, Date begin,
                                                       Date end);
  Task<std::vector<CHSDataPoint>> requestCHSSeries(std::string stationID, std::string seriesCode, Date from, Date to);
  Task<std::string> get(boost::urls::url url);
  Task<void> storePredictions(std::string stationID, std::string interval, Date begin, Date end,
                              std::shared_ptr<std::vector<NOAAPrediction>> out);
  Task<void> storeCHSSeries(std::string stationID, std::string seriesCode, Date from, Date to,
                            std::shared_ptr<std::vector<CHSDataPoint>> out, std::shared_ptr<std::exception_ptr> error);
  template <class Station>
  static std::vector<Station> decodeStations(const std::string& body);

  // Serves a cache hit or fetches, as noaaTideData and chsTideData share it.
  template <class Fetch>
  Task<std::optional<TideData>> throughCaches(std::string key, const TideStation& station, double distance, bool isCHS,
                                              Fetch fetch);

  Date now() const;

  Strand strand_;
  HttpClient& http_;
  const Clock& clock_;
  ServiceEndpoints endpoints_;
  TideDiskCache& diskCache_;
  TideRegionGate gate_;
  Catalogue<TideStation> stations_;
  Catalogue<CHSStation> chsStations_;
  std::map<std::string, CachedEntry, std::less<>> cache_;
};

}  // namespace ombrine
