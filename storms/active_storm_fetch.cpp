#include "storms/active_storm_fetch.hpp"

#include <memory>

#include "platform/async/coroutines.hpp"
#include "platform/errors.hpp"
#include "platform/exception_message.hpp"
#include "platform/log.hpp"
#include "storms/active_storm_merger.hpp"
#include "storms/jtwc_feed.hpp"
#include "storms/jtwc_storms.hpp"
#include "storms/nhc_feed.hpp"
#include "storms/storm_http.hpp"

namespace ombrine {

namespace {

// Source wrappers: an empty request asks nothing; a failure other than cancellation is an
// empty result without coverage.
Task<void> nhcSource(HttpClient& http, ServiceEndpoints endpoints, ActiveStormCoverageSet requested,
                     std::shared_ptr<ActiveStormSourceFetchResult<Storm>> out) {
  if (requested.empty()) co_return;
  try {
    *out = co_await fetchNHCStorms(http, endpoints, requested);
  } catch (...) {
    const auto error = std::current_exception();
    rethrowIfCancellation(error);
    logf("NHC storm feed failed: {}", exceptionMessage(error));
    *out = {};
  }
}

Task<void> jtwcSource(HttpClient& http, ServiceEndpoints endpoints, ActiveStormCoverageSet requested,
                      std::shared_ptr<JTWCDescriptorsResult> out) {
  if (requested.empty()) co_return;
  try {
    *out = co_await fetchJTWCDescriptors(http, endpoints, requested);
  } catch (...) {
    const auto error = std::current_exception();
    rethrowIfCancellation(error);
    logf("JTWC storm feed failed: {}", exceptionMessage(error));
    *out = {};
  }
}

}  // namespace

std::vector<Storm> trustedActiveStorms(std::vector<Storm> merged, const ActiveStormCoverageSet& coverage) {
  if (coverage == wholeCoverage() || !merged.empty()) return merged;
  throw ActiveStormFetchError(ActiveStormFetchError::noUsableSourceData);
}

ActiveStormFetcher::ActiveStormFetcher(HttpClient& http, ServiceEndpoints endpoints, const Clock& clock)
    : http_(http), endpoints_(std::move(endpoints)), clock_(clock) {}

Task<std::vector<Storm>> ActiveStormFetcher::fetchActiveStorms() {
  ActiveStormCoverageSet requested = wholeCoverage();
  ActiveStormsResult result = co_await fetchWithCoverage(std::move(requested));
  co_return trustedActiveStorms(std::move(result.storms), result.completeCoverage);
}

Task<ActiveStormsResult> ActiveStormFetcher::fetchWithCoverage(ActiveStormCoverageSet requested) {
  const auto nhcRequest = intersection(requested, nhcCoverage());
  const auto jtwcRequest = intersection(requested, jtwcCoverage());
  auto nhc = std::make_shared<ActiveStormSourceFetchResult<Storm>>();
  auto jtwc = std::make_shared<JTWCDescriptorsResult>();
  HttpClient& http = http_;
  const ServiceEndpoints endpoints = endpoints_;
  auto body = [&http, endpoints, nhcRequest, jtwcRequest, nhc, jtwc](TaskGroup& group) -> Task<void> {
    group.spawn(nhcSource(http, endpoints, nhcRequest, nhc));
    group.spawn(jtwcSource(http, endpoints, jtwcRequest, jtwc));
    co_return;
  };
  co_await withTaskGroup(body);
  co_await throwIfStormTaskCancelled();

  auto remaining = ActiveStormMerger::descriptorsNotIn(nhc->records, std::move(jtwc->descriptors));
  const Date now = Date::fromSystem(clock_.now());
  ActiveStormCoverageSet provenJTWC = jtwc->completeCoverage;
  auto jtwcStorms = co_await fetchJTWCStorms(http_, std::move(remaining), std::move(provenJTWC), now);
  co_await throwIfStormTaskCancelled();

  ActiveStormsResult result;
  result.storms = ActiveStormMerger::merge(std::move(nhc->records), jtwcStorms.records);
  result.completeCoverage = nhc->completeCoverage;
  result.completeCoverage.insert(jtwcStorms.completeCoverage.begin(), jtwcStorms.completeCoverage.end());
  co_return result;
}

Task<ActiveStormList::Snapshot> ActiveStormList::refresh() {
  std::uint64_t generation = 0;
  {
    std::lock_guard lock(mutex_);
    generation = ++started_;
  }
  std::vector<Storm> storms = co_await fetcher_.fetchActiveStorms();
  Snapshot latest;
  {
    std::lock_guard lock(mutex_);
    if (generation > published_) {
      current_ = Snapshot{std::move(storms), clock_.now()};
      published_ = generation;
    }
    latest = current_;
  }
  co_return latest;
}

ActiveStormList::Snapshot ActiveStormList::snapshot() const {
  std::lock_guard lock(mutex_);
  return current_;
}

}  // namespace ombrine
