#pragma once
// The active storms of both agencies, reconciled, and when the answer may be trusted.
//
// The NHC feed and the JTWC feed are asked concurrently; a source that fails yields nothing and
// no coverage, and never takes the other down. JTWC storms that NHC lists are not fetched at
// all. The merged list is returned when every area is covered (an empty list then means "no
// active storms"), or when it is not empty; an empty list with partial coverage is
// `ActiveStormFetchError` (noUsableSourceData): the caller keeps what it had.
//
// Cancellation passes through unchanged; the concurrent source tasks are finished first.
//
// A fetch runs on the caller's executor, its two source tasks as children of a task group there;
// the fetcher keeps no state between fetches, so any number of tasks may use one at once.

#include <cstdint>
#include <mutex>
#include <optional>
#include <stdexcept>
#include <vector>

#include "core/fetch/service_endpoints.hpp"
#include "platform/async/task.hpp"
#include "platform/clock.hpp"
#include "platform/http_client.hpp"
#include "storms/storm.hpp"

namespace ombrine {

class ActiveStormFetchError : public std::runtime_error {
 public:
  enum Case { noUsableSourceData };
  explicit ActiveStormFetchError(Case which) : std::runtime_error("no usable storm data"), which_(which) {}
  Case which() const noexcept { return which_; }

 private:
  Case which_;
};

struct ActiveStormsResult {
  std::vector<Storm> storms;
  ActiveStormCoverageSet completeCoverage;
};

// The rule of the last step: the list when the coverage is whole or the list is not empty;
// otherwise raises ActiveStormFetchError.
std::vector<Storm> trustedActiveStorms(std::vector<Storm> merged, const ActiveStormCoverageSet& coverage);

class ActiveStormFetcher {
 public:
  // `http` and `clock` must outlive the fetcher.
  ActiveStormFetcher(HttpClient& http, ServiceEndpoints endpoints, const Clock& clock);

  // The merged list for the whole coverage. Raises ActiveStormFetchError or CancellationError.
  Task<std::vector<Storm>> fetchActiveStorms();

  // The merged list and the areas it covers completely, asking for `requested`; never raises
  // ActiveStormFetchError (the caller applies `trustedActiveStorms` or its own rule).
  Task<ActiveStormsResult> fetchWithCoverage(ActiveStormCoverageSet requested);

 private:
  HttpClient& http_;
  ServiceEndpoints endpoints_;
  const Clock& clock_;
};

// The caller's side: the last good list and when it was fetched. A failed refresh keeps it.
// Its state is guarded by a mutex that is never held across an await, so refreshes and
// snapshots may come from any thread. Of overlapping refreshes the one started last wins: an
// earlier one that finishes later does not put its older list back.
class ActiveStormList {
 public:
  struct Snapshot {
    std::vector<Storm> storms;
    std::optional<Clock::WallTime> lastSuccess;
  };

  explicit ActiveStormList(ActiveStormFetcher& fetcher, const Clock& clock) : fetcher_(fetcher), clock_(clock) {}

  // Fetches; on success replaces the list (unless a later refresh already has) and returns the
  // current snapshot; on ActiveStormFetchError or any other failure keeps it and raises.
  // CancellationError passes through.
  Task<Snapshot> refresh();
  Snapshot snapshot() const;

 private:
  ActiveStormFetcher& fetcher_;
  const Clock& clock_;
  mutable std::mutex mutex_;
  Snapshot current_;             // guarded by mutex_
  std::uint64_t started_ = 0;    // guarded by mutex_: refreshes begun
  std::uint64_t published_ = 0;  // guarded by mutex_: the refresh whose list `current_` is
};

}  // namespace ombrine
