#include "fires/fire_map_loader.hpp"

#include <boost/asio/experimental/awaitable_operators.hpp>

#include <algorithm>
#include <cmath>
#include <functional>
#include <map>
#include <numbers>

#include "core/values/errors.hpp"
#include "fires/fire_loading_policy.hpp"
#include "fires/fire_queries.hpp"
#include "platform/async/async_deadline_coordinator.hpp"
#include "platform/errors.hpp"

namespace ombrine {

namespace {

// Above one request's time-out and its single retry, for every page of a walk together.
constexpr auto kProviderDeadline = std::chrono::seconds(300);

template <class Properties>
struct Walk {
  std::vector<FireFeature<Properties>> features;
  bool complete = false;
};

template <class Record>
struct ProviderOutcome {
  std::vector<Record> records;
  bool complete = false;
  bool asked = true;
};

std::string messageOf(const std::exception_ptr& error) {
  try {
    std::rethrow_exception(error);
  } catch (const std::exception& e) {
    return e.what();
  } catch (...) {
    return "unknown failure";
  }
}

bool inside(const FireMapEnvelope& e, const FireCoordinate& c) {
  if (c.latitude < e.south || c.latitude > e.north) return false;
  double longitude = c.longitude;
  while (longitude < e.west) longitude += 360;
  return longitude <= e.east;
}

}  // namespace

struct FireMapLoader::Shared {
  HttpClient& http;
  Clock& clock;
  ServiceEndpoints endpoints;
  FireProviderCooldownStore& cooldowns;
  FireProviderSnapshots& snapshots;
  BCWildfireEnrichmentCache& bc;
  std::chrono::milliseconds requestTimeout;

  Date now() const { return Date::fromSystem(clock.now()); }

  // Pages of one query, each asking for what remains up to the walk's limit. More pages follow
  // while the service says its transfer limit was exceeded or its count of matches is not yet
  // reached (a WFS page without a count: while pages are full); a walk stopped at the limit is
  // not complete.
  template <class Properties>
  Task<Walk<Properties>> walk(std::function<boost::urls::url(int count, int offset)> pageURL, bool arcgis,
                              std::string accept = "application/geo+json,application/json") {
    Walk<Properties> result;
    int offset = 0;
    while (offset < kFireWalkLimit) {
      const int count = std::min(kFirePageSize, kFireWalkLimit - offset);
      FireFeatureRequest request;
      request.url = pageURL(count, offset);
      request.accept = accept;
      request.timeout = requestTimeout;
      std::string body = co_await fetchFireFeatureBody(http, clock, cooldowns, std::move(request));
      auto page = decodeFireFeatureCollection<Properties>(body);
      body.clear();
      body.shrink_to_fit();
      const int received = static_cast<int>(page.features.size());
      offset += received;
      std::move(page.features.begin(), page.features.end(), std::back_inserter(result.features));
      std::optional<std::int64_t> matched;
      if (page.numberMatched) matched = page.numberMatched->integer();
      if (!matched && page.totalFeatures) matched = page.totalFeatures->integer();
      // A service whose own page limit is below the count asked for answers a short page and
      // says that more remain.
      const bool more = received > 0 && (page.exceededTransferLimit() ||
                                         (matched ? offset < *matched : (!arcgis && received == count)));
      if (!more) {
        result.complete = true;
        co_return result;
      }
    }
    co_return result;
  }

  template <class Record>
  Task<FireFetchResult<Record>> guarded(std::function<Task<ProviderOutcome<Record>>()> operation,
                                        std::optional<UnitedStatesFireProviderSnapshotKey> key,
                                        FireProviderSnapshotCache<Record>* cache) {
    FireFetchResult<Record> result;
    std::exception_ptr failure;
    try {
      AsyncDeadlineCoordinator<ProviderOutcome<Record>> coordinator(clock);
      ProviderOutcome<Record> outcome = co_await coordinator.run(operation, kProviderDeadline);
      result.records = std::move(outcome.records);
      result.isComplete = outcome.complete;
      result.asked = outcome.asked;
    } catch (...) {
      failure = std::current_exception();
    }
    rethrowIfCancellation(failure);
    const Date fetched = now();
    if (failure) {
      result.records.clear();
      result.failureReason = FireFeatureServiceResponsePolicy::classify(failure);
      result.failure = messageOf(failure);
    }
    if (key && cache) {
      if (result.isComplete) {
        cache->storeSnapshot(*key, result.records, fetched);
      } else if (auto snapshot = cache->snapshot(*key)) {
        result.records = std::move(snapshot->records);
        result.hasCompleteSnapshot = true;
        result.snapshotFetchedAt = snapshot->fetchedAt;
      }
    }
    co_return result;
  }
};

FireMapLoader::FireMapLoader(HttpClient& http, Clock& clock, const ServiceEndpoints& endpoints,
                             FireProviderCooldownStore& cooldowns, FireProviderSnapshots& snapshots,
                             BCWildfireEnrichmentCache& bcEnrichment, std::chrono::milliseconds requestTimeout)
    : shared_(std::make_shared<Shared>(
          Shared{http, clock, endpoints, cooldowns, snapshots, bcEnrichment, requestTimeout})) {}

Task<FireFetchResult<FireIncident>> FireMapLoader::nifcIncidents(FireMapEnvelope envelope) {
  auto s = shared_;
  std::function<Task<ProviderOutcome<FireIncident>>()> operation = [s,
                                                                    envelope]() -> Task<ProviderOutcome<FireIncident>> {
    const Date now = s->now();
    auto pages = [s, envelope, now](NIFCIncidentLayer layer) {
      return [s, envelope, now, layer](int count, int offset) {
        return nifcIncidentURL(s->endpoints.nifcFeatureServices, layer, now, count, offset, envelope);
      };
    };
    auto convert = [now](const Walk<NIFCFireIncidentProperties>& walk, bool current) {
      ProviderOutcome<FireIncident> outcome;
      outcome.complete = walk.complete;
      for (const auto& feature : walk.features) {
        if (auto incident = nifcFireIncident(feature, current, now)) outcome.records.push_back(std::move(*incident));
      }
      return outcome;
    };
    std::exception_ptr currentFailure;
    try {
      auto currentWalk = s->walk<NIFCFireIncidentProperties>(pages(NIFCIncidentLayer::current), true);
      const auto walk = co_await std::move(currentWalk);
      co_return convert(walk, true);
    } catch (...) {
      currentFailure = std::current_exception();
    }
    rethrowIfCancellation(currentFailure);
    // The year-to-date layer stands in, its staleness ladder replacing the "active" flag.
    auto yearWalk = s->walk<NIFCFireIncidentProperties>(pages(NIFCIncidentLayer::yearToDate), true);
    const auto walk = co_await std::move(yearWalk);
    co_return convert(walk, false);
  };
  const auto key = UnitedStatesFireProviderSnapshotKey::of(
      UnitedStatesFireProvider::nifc, UnitedStatesFireProviderQueryKind::incidents, envelope, std::nullopt);
  co_return co_await s->guarded<FireIncident>(operation, key, &s->snapshots.incidents);
}

Task<FireFetchResult<FireIncident>> FireMapLoader::calFireIncidents(FireMapEnvelope envelope) {
  auto s = shared_;
  std::function<Task<ProviderOutcome<FireIncident>>()> operation = [s,
                                                                    envelope]() -> Task<ProviderOutcome<FireIncident>> {
    FireFeatureRequest request;
    request.url = calFireIncidentsURL(s->endpoints.calFireSite);
    request.accept = "application/json";
    request.timeout = s->requestTimeout;
    const std::string body = co_await fetchFireFeatureBody(s->http, s->clock, s->cooldowns, std::move(request));
    const auto list = decodeCalFireIncidentList(body);
    const auto pacific = TimeZone::named("America/Los_Angeles").value_or(TimeZone::gmt());
    ProviderOutcome<FireIncident> outcome;
    outcome.complete = true;
    for (const auto& properties : list) {
      auto incident = calFireIncident(properties, s->endpoints.calFireSite, pacific);
      if (incident && inside(envelope, incident->coordinate)) outcome.records.push_back(std::move(*incident));
    }
    co_return outcome;
  };
  const auto key = UnitedStatesFireProviderSnapshotKey::of(
      UnitedStatesFireProvider::calFire, UnitedStatesFireProviderQueryKind::incidents, envelope, std::nullopt);
  co_return co_await s->guarded<FireIncident>(operation, key, &s->snapshots.incidents);
}

Task<FireFetchResult<FirePerimeter>> FireMapLoader::nifcPerimeters(FireMapEnvelope envelope) {
  auto s = shared_;
  const double tolerance = fireGeometryTolerance(envelope);
  std::function<Task<ProviderOutcome<FirePerimeter>>()> operation =
      [s, envelope, tolerance]() -> Task<ProviderOutcome<FirePerimeter>> {
    const Date now = s->now();
    auto pageURL = [s, envelope, tolerance, now](int count, int offset) {
      return nifcPerimeterURL(s->endpoints.nifcFeatureServices, now, count, offset, envelope, tolerance);
    };
    auto pages = s->walk<NIFCFirePerimeterProperties>(pageURL, true);
    const auto walk = co_await std::move(pages);
    ProviderOutcome<FirePerimeter> outcome;
    outcome.complete = walk.complete;
    for (const auto& feature : walk.features) {
      if (auto perimeter = nifcFirePerimeter(feature, now)) outcome.records.push_back(std::move(*perimeter));
    }
    co_return outcome;
  };
  const auto key = UnitedStatesFireProviderSnapshotKey::of(
      UnitedStatesFireProvider::nifc, UnitedStatesFireProviderQueryKind::perimeters, envelope, tolerance);
  co_return co_await s->guarded<FirePerimeter>(operation, key, &s->snapshots.perimeters);
}

Task<FireFetchResult<FirePerimeter>> FireMapLoader::calFirePerimeters(FireMapEnvelope envelope) {
  auto s = shared_;
  const double tolerance = fireGeometryTolerance(envelope);
  std::function<Task<ProviderOutcome<FirePerimeter>>()> operation =
      [s, envelope, tolerance]() -> Task<ProviderOutcome<FirePerimeter>> {
    ProviderOutcome<FirePerimeter> outcome;
    if (!fireEnvelopeMeetsCalifornia(envelope)) {
      outcome.complete = true;
      outcome.asked = false;
      co_return outcome;
    }
    const auto& base = s->endpoints.calFireFeatureServices;
    bool complete = true;
    std::vector<CalFirePerimeterProperties> members;
    auto collect = [&](Walk<CalFirePerimeterProperties>& walk) {
      complete = complete && walk.complete;
      for (auto& feature : walk.features) {
        if (feature.properties) members.push_back(std::move(*feature.properties));
      }
    };
    // 1. The members within the envelope.
    const auto area = CalFirePerimeterQueryScope::spatialDiscovery(envelope);
    auto discoveryURL = [&base, &area, tolerance](int count, int offset) {
      return calFirePerimeterURL(base, area, tolerance, count, offset);
    };
    auto discovery = s->walk<CalFirePerimeterProperties>(discoveryURL, true);
    auto found = co_await std::move(discovery);
    collect(found);
    // 2. The other members of their missions, wherever they lie.
    std::vector<CalFirePerimeterMissionKey> keys;
    for (const auto& member : members) {
      auto key = CalFirePerimeterLoadingPolicy::missionKey(member.missionIdentifier);
      if (key && std::find(keys.begin(), keys.end(), *key) == keys.end()) keys.push_back(*key);
    }
    for (const auto& batch : CalFirePerimeterLoadingPolicy::batches(keys)) {
      const auto missions =
          CalFirePerimeterQueryScope::missionSQLComparisonIdentities(batch.missionSQLComparisonIdentities);
      auto missionURL = [&base, &missions, tolerance](int count, int offset) {
        return calFirePerimeterURL(base, missions, tolerance, count, offset);
      };
      auto missionWalk = s->walk<CalFirePerimeterProperties>(missionURL, true);
      auto missionMembers = co_await std::move(missionWalk);
      collect(missionMembers);
    }
    const auto groups = CalFirePerimeterLoadingPolicy::group(members);
    // 3. The shapes of each group's current member.
    std::vector<std::int64_t> ids;
    for (const auto& group : groups) {
      if (group.currentRecord.objectID) ids.push_back(*group.currentRecord.objectID);
    }
    std::map<std::int64_t, FireGeoJSONGeometry> shapes;
    for (size_t start = 0; start < ids.size(); start += CalFirePerimeterLoadingPolicy::kObjectIDBatchSize) {
      const std::vector<std::int64_t> chunk(
          ids.begin() + static_cast<std::ptrdiff_t>(start),
          ids.begin() + static_cast<std::ptrdiff_t>(
                            std::min(ids.size(), start + CalFirePerimeterLoadingPolicy::kObjectIDBatchSize)));
      const auto members = CalFirePerimeterQueryScope::objectIDs(chunk);
      auto shapeURL = [&base, &members, tolerance](int count, int offset) {
        return calFirePerimeterURL(base, members, tolerance, count, offset);
      };
      auto shapeWalk = s->walk<CalFirePerimeterProperties>(shapeURL, true);
      auto shapePage = co_await std::move(shapeWalk);
      complete = complete && shapePage.complete;
      for (auto& feature : shapePage.features) {
        if (feature.properties && feature.properties->objectID && feature.geometry) {
          shapes[*feature.properties->objectID] = std::move(*feature.geometry);
        }
      }
    }
    for (const auto& group : groups) {
      if (!group.currentRecord.objectID) continue;
      const auto shape = shapes.find(*group.currentRecord.objectID);
      if (shape == shapes.end()) continue;
      if (auto perimeter = CalFirePerimeterLoadingPolicy::perimeter(group, shape->second)) {
        outcome.records.push_back(std::move(*perimeter));
      }
    }
    outcome.complete = complete;
    co_return outcome;
  };
  const auto key = UnitedStatesFireProviderSnapshotKey::of(
      UnitedStatesFireProvider::calFire, UnitedStatesFireProviderQueryKind::perimeters, envelope, tolerance);
  co_return co_await s->guarded<FirePerimeter>(operation, key, &s->snapshots.perimeters);
}

Task<FireFetchResult<FireIncident>> FireMapLoader::cwfisIncidents(FireMapEnvelope envelope) {
  auto s = shared_;
  std::function<Task<ProviderOutcome<FireIncident>>()> operation = [s,
                                                                    envelope]() -> Task<ProviderOutcome<FireIncident>> {
    const Date now = s->now();
    auto pageURL = [s, envelope, now](int count, int offset) {
      return cwfisActiveFiresURL(s->endpoints.cwfifGeoServer, now, count, offset, envelope);
    };
    auto pages = s->walk<CWFISActiveFireProperties>(pageURL, false, "application/json");
    const auto walk = co_await std::move(pages);
    std::vector<CanadianFireIncidentCandidate<FireIncident>> candidates;
    for (const auto& feature : walk.features) {
      if (auto candidate = CanadianFireIncidentLoadingPolicy::candidate(feature))
        candidates.push_back(std::move(*candidate));
    }
    std::vector<BCWildfireEnrichmentKey> keys;
    for (const auto& c : candidates) {
      if (c.agencyCode == "CA-BC" && c.agencyFireID) keys.push_back({c.fireYear, *c.agencyFireID});
    }
    std::map<BCWildfireEnrichmentKey, BCWildfireEnrichment> names;
    if (!keys.empty()) {
      auto lookup = s->bc.enrichments(keys, now);
      names = co_await std::move(lookup);
    }
    for (auto& c : candidates) {
      if (c.agencyCode != "CA-BC" || !c.agencyFireID) continue;
      const auto found = names.find(BCWildfireEnrichmentKey{c.fireYear, *c.agencyFireID});
      if (found == names.end()) continue;
      if (found->second.displayName) c.record.name = *found->second.displayName;
      if (found->second.detailsURL) c.record.detailsURL = found->second.detailsURL;
    }
    ProviderOutcome<FireIncident> outcome;
    outcome.complete = walk.complete;
    outcome.records = CanadianFireIncidentLoadingPolicy::deduplicate(std::move(candidates));
    co_return outcome;
  };
  co_return co_await s->guarded<FireIncident>(operation, std::nullopt, nullptr);
}

Task<FireFetchResult<FirePerimeter>> FireMapLoader::cwfisPerimeters(FireMapEnvelope envelope) {
  auto s = shared_;
  std::function<Task<ProviderOutcome<FirePerimeter>>()> operation =
      [s, envelope]() -> Task<ProviderOutcome<FirePerimeter>> {
    auto pageURL = [s, envelope](int count, int offset) {
      return cwfisPerimetersURL(s->endpoints.cwfisGeoServer, count, offset, envelope);
    };
    auto pages = s->walk<CWFISFirePerimeterProperties>(pageURL, false, "application/json");
    const auto walk = co_await std::move(pages);
    ProviderOutcome<FirePerimeter> outcome;
    outcome.complete = walk.complete;
    for (const auto& feature : walk.features) {
      if (auto perimeter = cwfisFirePerimeter(feature)) outcome.records.push_back(std::move(*perimeter));
    }
    co_return outcome;
  };
  co_return co_await s->guarded<FirePerimeter>(operation, std::nullopt, nullptr);
}

namespace {

template <class Record>
Task<FireFetchResult<Record>> notAsked() {
  FireFetchResult<Record> result;
  result.asked = false;
  co_return result;
}

template <class Record>
FireServiceReport reportOf(std::string service, FireMapSource source, const FireFetchResult<Record>& result, Date now) {
  FireServiceReport report;
  report.service = std::move(service);
  report.source = source;
  report.asked = result.asked;
  report.isComplete = result.isComplete;
  report.hasCompleteSnapshot = result.hasCompleteSnapshot;
  report.snapshotFetchedAt = result.snapshotFetchedAt;
  report.failureReason = result.failureReason;
  report.failure = result.failure;
  if (result.failureReason && result.failureReason->kind == FireFetchFailureReason::Kind::rateLimited) {
    report.cooldownUntil = now + result.failureReason->minimumDelay;
  }
  report.recordCount = result.records.size();
  return report;
}

// How a source stands when several providers feed it: complete only when all are, standing on
// snapshots when every one that failed had one, failed otherwise (with the first failure's
// reason).
template <class Record>
void settle(FireMapSource source, std::initializer_list<const FireFetchResult<Record>*> results,
            std::set<FireMapSource>& complete, std::set<FireMapSource>& snapshot,
            std::map<FireMapSource, FireFetchFailureReason>& failures) {
  bool allComplete = true;
  bool covered = true;
  bool anyAsked = false;
  for (const auto* r : results) {
    if (!r->asked && !r->isComplete && !r->failureReason) continue;  // not wanted in this load
    anyAsked = true;
    if (r->isComplete) continue;
    allComplete = false;
    if (!r->hasCompleteSnapshot) {
      covered = false;
      if (r->failureReason && !failures.count(source)) failures[source] = *r->failureReason;
    }
  }
  if (!anyAsked) return;
  if (allComplete) {
    complete.insert(source);
  } else if (covered) {
    snapshot.insert(source);
  }
}

}  // namespace

Task<FireMapLoad> FireMapLoader::load(FireMapEnvelope envelope, FireLayers layers) {
  using namespace asio::experimental::awaitable_operators;
  const bool incidents = layers != FireLayers::perimeters;
  const bool perimeters = layers != FireLayers::incidents;
  auto nifcIncidentTask = incidents ? nifcIncidents(envelope) : notAsked<FireIncident>();
  auto calFireIncidentTask = incidents ? calFireIncidents(envelope) : notAsked<FireIncident>();
  auto cwfisIncidentTask = incidents ? cwfisIncidents(envelope) : notAsked<FireIncident>();
  auto nifcPerimeterTask = perimeters ? nifcPerimeters(envelope) : notAsked<FirePerimeter>();
  auto calFirePerimeterTask = perimeters ? calFirePerimeters(envelope) : notAsked<FirePerimeter>();
  auto cwfisPerimeterTask = perimeters ? cwfisPerimeters(envelope) : notAsked<FirePerimeter>();
  auto [nifcI, calFireI, cwfisI, nifcP, calFireP, cwfisP] =
      co_await (std::move(nifcIncidentTask) && std::move(calFireIncidentTask) && std::move(cwfisIncidentTask) &&
                std::move(nifcPerimeterTask) && std::move(calFirePerimeterTask) && std::move(cwfisPerimeterTask));

  FireMapLoad load;
  auto& data = load.data;
  data.incidents = CalFireIncidentLoadingPolicy::reconcile(nifcI.records, calFireI.records);
  data.incidents.insert(data.incidents.end(), cwfisI.records.begin(), cwfisI.records.end());
  data.perimeters = UnitedStatesFirePerimeterLoadingPolicy::reconcile(nifcP.records, calFireP.records);
  data.perimeters.insert(data.perimeters.end(), cwfisP.records.begin(), cwfisP.records.end());
  settle<FireIncident>(FireMapSource::unitedStates, {&nifcI, &calFireI}, data.completeIncidentSources,
                       data.completeIncidentSnapshotSources, data.incidentFailureReasons);
  settle<FireIncident>(FireMapSource::canada, {&cwfisI}, data.completeIncidentSources,
                       data.completeIncidentSnapshotSources, data.incidentFailureReasons);
  settle<FirePerimeter>(FireMapSource::unitedStates, {&nifcP, &calFireP}, data.completePerimeterSources,
                        data.completePerimeterSnapshotSources, data.perimeterFailureReasons);
  settle<FirePerimeter>(FireMapSource::canada, {&cwfisP}, data.completePerimeterSources,
                        data.completePerimeterSnapshotSources, data.perimeterFailureReasons);
  const Date now = shared_->now();
  if (incidents) {
    load.services.push_back(reportOf("NIFC incidents", FireMapSource::unitedStates, nifcI, now));
    load.services.push_back(reportOf("CAL FIRE incidents", FireMapSource::unitedStates, calFireI, now));
    load.services.push_back(reportOf("CWFIS active fires", FireMapSource::canada, cwfisI, now));
  }
  if (perimeters) {
    load.services.push_back(reportOf("NIFC perimeters", FireMapSource::unitedStates, nifcP, now));
    load.services.push_back(reportOf("CAL FIRE perimeters", FireMapSource::unitedStates, calFireP, now));
    load.services.push_back(reportOf("CWFIS perimeters", FireMapSource::canada, cwfisP, now));
  }
  co_return load;
}

FireMapEnvelope fireEnvelopeAround(double latitude, double longitude, double radiusKilometres) {
  constexpr double kKilometresPerDegree = 6371.0 * std::numbers::pi / 180.0;
  const double dLat = radiusKilometres / kKilometresPerDegree;
  const double cosine = std::max(std::cos(std::clamp(latitude, -89.0, 89.0) * std::numbers::pi / 180.0), 0.01);
  const double dLon = std::min(180.0, radiusKilometres / (kKilometresPerDegree * cosine));
  return FireMapEnvelope{longitude - dLon, std::max(-90.0, latitude - dLat), longitude + dLon,
                         std::min(90.0, latitude + dLat)};
}

}  // namespace ombrine
