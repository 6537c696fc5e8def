#pragma once
// Loads the fire layer of one map envelope from every service at once: NIFC incidents and
// perimeters, CAL FIRE incidents and FIRIS perimeters, CWFIS active fires and perimeters, with
// British Columbia's names for "CA-BC" fires.
//
// Each service's query runs as a child task under a deadline; pages within one walk are
// sequential. A failing service stays local: its result is empty, not complete, with a failure
// reason, and for the US services the last complete answer for the same envelope (a snapshot)
// stands in. The US records of the two providers are merged per fire (NIFC's record kept).
// `load` raises only CancellationError. The loader itself holds no state; the cooldown store,
// the snapshot caches and the BC cache it is given are shared and long-lived.

#include <chrono>
#include <optional>
#include <string>
#include <vector>

#include "core/fetch/service_endpoints.hpp"
#include "fires/bc_wildfire_enrichment.hpp"
#include "fires/fire_fetch.hpp"
#include "fires/fire_records.hpp"
#include "platform/async/task.hpp"
#include "platform/clock.hpp"
#include "platform/http_client.hpp"

namespace ombrine {

template <class Record>
struct FireFetchResult {
  std::vector<Record> records;
  bool isComplete = false;
  bool hasCompleteSnapshot = false;
  std::optional<FireFetchFailureReason> failureReason;
  std::optional<Date> snapshotFetchedAt;  // with hasCompleteSnapshot
  bool asked = true;                      // false: the envelope lies outside the service's area
  std::string failure;                    // the failure's message, with failureReason
};

// The snapshots of the US providers, one cache per record type.
struct FireProviderSnapshots {
  FireProviderSnapshotCache<FireIncident> incidents;
  FireProviderSnapshotCache<FirePerimeter> perimeters;
};

// What one service did in a load, for the people reading the map.
struct FireServiceReport {
  std::string service;  // "NIFC incidents", "CAL FIRE perimeters", ...
  FireMapSource source = FireMapSource::unitedStates;
  bool asked = true;  // false: not asked (outside its area)
  bool isComplete = false;
  bool hasCompleteSnapshot = false;
  std::optional<Date> snapshotFetchedAt;
  std::optional<FireFetchFailureReason> failureReason;
  std::optional<Date> cooldownUntil;
  std::string failure;  // the error's message
  size_t recordCount = 0;
};

struct FireMapLoad {
  FireMapData data;
  std::vector<FireServiceReport> services;
};

enum class FireLayers { incidents, perimeters, both };

class FireMapLoader {
 public:
  // `requestTimeout`: each request's time-out (the services' 60 seconds; tests shorten it).
  FireMapLoader(HttpClient& http, Clock& clock, const ServiceEndpoints& endpoints, FireProviderCooldownStore& cooldowns,
                FireProviderSnapshots& snapshots, BCWildfireEnrichmentCache& bcEnrichment,
                std::chrono::milliseconds requestTimeout = std::chrono::seconds(60));

  Task<FireMapLoad> load(FireMapEnvelope envelope, FireLayers layers = FireLayers::both);

  // One service each; never raise but cancellation.
  Task<FireFetchResult<FireIncident>> nifcIncidents(FireMapEnvelope envelope);
  Task<FireFetchResult<FireIncident>> calFireIncidents(FireMapEnvelope envelope);
  Task<FireFetchResult<FirePerimeter>> nifcPerimeters(FireMapEnvelope envelope);
  Task<FireFetchResult<FirePerimeter>> calFirePerimeters(FireMapEnvelope envelope);
  Task<FireFetchResult<FireIncident>> cwfisIncidents(FireMapEnvelope envelope);
  Task<FireFetchResult<FirePerimeter>> cwfisPerimeters(FireMapEnvelope envelope);

 private:
  struct Shared;
  std::shared_ptr<Shared> shared_;
};

// The envelope of a circle of `radiusKilometres` around a point (longitudes may run past ±180
// near the date line).
FireMapEnvelope fireEnvelopeAround(double latitude, double longitude, double radiusKilometres);

}  // namespace ombrine
