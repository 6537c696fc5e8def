#pragma once
// The one fetch path of every fire query: cooldowns per service, HTTP-200 error bodies, the
// single retry, the classification of failures, and the snapshots that stand in for a failed
// refresh.
//
// Cooldowns. A service that rate-limits is left alone until its delay has passed. The key of a
// URL is its lower-cased host; on a host that serves many hosted services (ArcGIS Online, each
// service with its own quota) the lower-cased path is appended. `FireProviderCooldownStore`
// holds the keys on its own serial context (strand); its operations never raise.
//
// Snapshots. `FireProviderSnapshotCache` keeps the records of the last complete answer of up to
// four queries (the oldest stored leaves first); it is reached from concurrent loader tasks and
// guards its map with a mutex held only for the lookup or store. Memory only.

#include <boost/url/url.hpp>

#include <chrono>
#include <exception>
#include <map>
#include <mutex>
#include <optional>
#include <stdexcept>
#include <string>
#include <string_view>
#include <vector>

#include "core/values/date.hpp"
#include "fires/fire_features.hpp"
#include "fires/fire_records.hpp"
#include "platform/async/task.hpp"
#include "platform/clock.hpp"
#include "platform/http_client.hpp"

namespace ombrine {

// -- Failures --------------------------------------------------------------------------------

// "Fire provider cooldown remains active for N seconds".
class FireProviderCooldownError : public std::runtime_error {
 public:
  explicit FireProviderCooldownError(double retryAfter);
  double retryAfter() const noexcept { return retryAfter_; }

 private:
  double retryAfter_;
};

// "Feature service returned <summary>": an ArcGIS error object, usually under HTTP 200.
class FireFeatureServiceResponseError : public std::runtime_error {
 public:
  explicit FireFeatureServiceResponseError(FireFeatureServiceErrorPayload payload);
  const FireFeatureServiceErrorPayload& payload() const noexcept { return payload_; }

 private:
  FireFeatureServiceErrorPayload payload_;
};

// "Fire service returned HTTP N".
class FireHTTPResponseError : public std::runtime_error {
 public:
  FireHTTPResponseError(int statusCode, std::optional<double> retryAfter);
  int statusCode() const noexcept { return statusCode_; }
  std::optional<double> retryAfter() const noexcept { return retryAfter_; }

 private:
  int statusCode_;
  std::optional<double> retryAfter_;
};

// -- Pure rules ------------------------------------------------------------------------------

namespace FireFeatureServiceResponsePolicy {

// The body form {"error": {...}} in which a feature service answers a failure with HTTP 200.
struct ErrorEnvelope {
  FireFeatureServiceErrorPayload error;
};
inline constexpr auto kErrorEnvelopeJsonMembers = std::tuple{jsonMember("error", &ErrorEnvelope::error)};
constexpr const auto& jsonMembers(const ErrorEnvelope*) { return kErrorEnvelopeJsonMembers; }

// The ArcGIS error object of a body {"error": {...}}; nothing for any other body (bodies above
// 256 KiB are feature pages and are not examined).
std::optional<FireFeatureServiceErrorPayload> errorEnvelope(std::string_view body);

// The delay named after "retry after" (any case) in the message, then in each detail.
std::optional<double> retryDelay(const FireFeatureServiceErrorPayload& payload);

// A Retry-After header: a non-negative number of seconds, or an HTTP date (the seconds until it,
// 0 when past); nothing for anything else, a negative number included.
std::optional<double> parseRetryAfter(std::string_view text, Date now);

// Whether a failed first attempt is worth one more.
bool shouldRetry(const std::exception_ptr& failure);

// What the map's retry logic makes of a failure.
FireFetchFailureReason classify(const std::exception_ptr& failure);

// The delay that counts for an error code with the delay found (429 without one: 60 s).
std::optional<double> effectiveDelay(std::optional<std::int64_t> code, std::optional<double> delay);

}  // namespace FireFeatureServiceResponsePolicy

// The cooldown key of `url`, given the domains whose hosts carry many hosted services; nothing
// for a URL without a host.
std::optional<std::string> fireCooldownKey(const boost::urls::url& url,
                                           const std::vector<std::string>& perServiceDomains);

// -- Cooldowns -------------------------------------------------------------------------------

class FireProviderCooldownStore {
 public:
  // `perServiceDomains`: "arcgis.com" for the public services; a simulator that serves every
  // service from one host adds its own host so that each service keeps its own cooldown.
  FireProviderCooldownStore(Strand strand, std::vector<std::string> perServiceDomains = {"arcgis.com"});

  // Ignored unless `delay` is finite and positive; a cooldown already ending at or after
  // now + delay is kept.
  Task<void> recordCooldown(double delay, boost::urls::url url, Date now);
  // The seconds left, if any; an expired entry is removed.
  Task<std::optional<double>> remainingCooldown(boost::urls::url url, Date now);
  // When the cooldown of `url`'s service ends, if one is recorded.
  Task<std::optional<Date>> cooldownUntil(boost::urls::url url);

 private:
  Strand strand_;
  std::vector<std::string> perServiceDomains_;
  std::map<std::string, Date> cooldownUntilByProviderKey_;  // on strand_
};

// -- Snapshots -------------------------------------------------------------------------------

enum class UnitedStatesFireProvider { nifc, calFire };
enum class UnitedStatesFireProviderQueryKind { incidents, perimeters };

struct UnitedStatesFireProviderSnapshotKey {
  UnitedStatesFireProvider provider = UnitedStatesFireProvider::nifc;
  UnitedStatesFireProviderQueryKind queryKind = UnitedStatesFireProviderQueryKind::incidents;
  std::uint64_t westBitPattern = 0;
  std::uint64_t southBitPattern = 0;
  std::uint64_t eastBitPattern = 0;
  std::uint64_t northBitPattern = 0;
  std::optional<std::uint64_t> geometryToleranceBitPattern;

  static UnitedStatesFireProviderSnapshotKey of(UnitedStatesFireProvider provider,
                                                UnitedStatesFireProviderQueryKind kind, const FireMapEnvelope& envelope,
                                                std::optional<double> tolerance);
  auto operator<=>(const UnitedStatesFireProviderSnapshotKey&) const = default;
};

template <class Record>
struct FireProviderSnapshot {
  std::vector<Record> records;
  Date fetchedAt;
};

template <class Record>
class FireProviderSnapshotCache {
 public:
  static constexpr size_t maximumEntryCount = 4;

  std::optional<FireProviderSnapshot<Record>> snapshot(const UnitedStatesFireProviderSnapshotKey& key) const {
    std::lock_guard guard(lock_);
    const auto found = entriesByKey_.find(key);
    if (found == entriesByKey_.end()) return std::nullopt;
    return FireProviderSnapshot<Record>{found->second.records, found->second.fetchedAt};
  }

  void storeSnapshot(const UnitedStatesFireProviderSnapshotKey& key, std::vector<Record> records, Date now) {
    std::lock_guard guard(lock_);
    entriesByKey_[key] = Entry{std::move(records), now, ++stored_};
    while (entriesByKey_.size() > maximumEntryCount) {
      auto oldest = entriesByKey_.begin();
      for (auto it = entriesByKey_.begin(); it != entriesByKey_.end(); ++it) {
        if (it->second.order < oldest->second.order) oldest = it;
      }
      entriesByKey_.erase(oldest);
    }
  }

 private:
  struct Entry {
    std::vector<Record> records;
    Date fetchedAt;
    std::uint64_t order = 0;
  };
  mutable std::mutex lock_;
  std::map<UnitedStatesFireProviderSnapshotKey, Entry> entriesByKey_;
  std::uint64_t stored_ = 0;
};

// -- One query -------------------------------------------------------------------------------

struct FireFeatureRequest {
  boost::urls::url url;
  std::string accept = "application/geo+json,application/json";
  std::chrono::milliseconds timeout{std::chrono::seconds(60)};
};

// Performs one query under the rules above and returns the body for the caller's decoder.
// Raises FireProviderCooldownError (without touching the network), FireFeatureServiceResponseError,
// FireHTTPResponseError, HttpError, and CancellationError (never retried). Runs on the caller's
// executor; the cooldown store is visited on its own strand.
Task<std::string> fetchFireFeatureBody(HttpClient& http, const Clock& clock, FireProviderCooldownStore& cooldowns,
                                       FireFeatureRequest request);

}  // namespace ombrine
