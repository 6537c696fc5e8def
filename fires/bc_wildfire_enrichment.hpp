#pragma once
// Names and pages of British Columbia's fires, which CWFIS lists by bare fire numbers, looked up
// in the province's map service and kept in memory.
//
// `BCWildfireEnrichmentCache` lives on its own serial context (strand): its map is touched only
// there. `enrichments` answers the keys it holds (fetched within the last six hours) and fetches
// the others in batches of 25 numbers through the fire fetch path; a failed batch is reported as
// such and its fires keep their CWFIS names (nothing is raised but cancellation).

#include <boost/url/url.hpp>

#include <map>
#include <optional>
#include <string>
#include <variant>
#include <vector>

#include "core/values/date.hpp"
#include "fires/fire_features.hpp"
#include "fires/fire_fetch.hpp"
#include "fires/fire_records.hpp"
#include "platform/async/task.hpp"
#include "platform/clock.hpp"
#include "platform/http_client.hpp"

namespace ombrine {

struct BCWildfireEnrichmentKey {
  std::int64_t fireYear = 0;
  std::string fireNumber;
  auto operator<=>(const BCWildfireEnrichmentKey&) const = default;
};

struct BCWildfireEnrichment {
  std::optional<std::string> displayName;
  std::optional<boost::urls::url> detailsURL;
  bool operator==(const BCWildfireEnrichment&) const = default;
};

struct BCWildfireEnrichmentRecord {
  std::optional<std::string> fireNumber;
  std::optional<std::string> incidentName;
  std::optional<std::string> geographicDescription;
  std::optional<std::string> fireURL;
};

struct BCWildfireEnrichmentBatchResult {
  std::vector<std::string> fireNumbers;
  std::vector<BCWildfireEnrichmentRecord> records;
};

struct BCWildfireEnrichmentBatchOutcome {
  struct Failure {
    std::vector<std::string> fireNumbers;
  };
  std::variant<BCWildfireEnrichmentBatchResult, Failure> value;
};

namespace BCWildfireEnrichmentPolicy {
struct DisplayNameCandidate {
  std::string value;
  int priority = 0;  // lower wins
};

inline constexpr size_t kBatchSize = 25;
inline constexpr double kEntryLifetimeSeconds = 6 * 3600.0;

// False for an empty value or a placeholder ("N/A", "NA", "NONE", "NULL", "TBA", "TBD", "UNK",
// "UNKNOWN" in any case).
bool isName(std::string_view value);
// The incident name, else the geographic description.
std::optional<std::string> displayName(const BCWildfireEnrichmentRecord& record);
// The fire's page, only with scheme https on the situation site's host and an "incidents" path
// component.
std::optional<boost::urls::url> detailsURL(const BCWildfireEnrichmentRecord& record, std::string_view situationHost);
}  // namespace BCWildfireEnrichmentPolicy

class BCWildfireEnrichmentCache {
 public:
  BCWildfireEnrichmentCache(Strand strand, HttpClient& http, const Clock& clock, FireProviderCooldownStore& cooldowns,
                            boost::urls::url mapServices, std::string situationHost);

  // The enrichments known for `keys` (a fire without one is left out). Raises only
  // CancellationError.
  Task<std::map<BCWildfireEnrichmentKey, BCWildfireEnrichment>> enrichments(std::vector<BCWildfireEnrichmentKey> keys,
                                                                            Date now);

 private:
  struct Entry {
    BCWildfireEnrichment enrichment;
    Date fetchedAt;
  };
  Task<std::map<BCWildfireEnrichmentKey, BCWildfireEnrichment>> enrichmentsOnStrand(
      std::vector<BCWildfireEnrichmentKey> keys, Date now);
  Task<BCWildfireEnrichmentBatchOutcome> fetchBatch(std::vector<std::string> fireNumbers);

  Strand strand_;
  HttpClient& http_;
  const Clock& clock_;
  FireProviderCooldownStore& cooldowns_;
  boost::urls::url mapServices_;
  std::string situationHost_;
  std::map<BCWildfireEnrichmentKey, Entry> entriesByKey_;  // on strand_
};

}  // namespace ombrine
