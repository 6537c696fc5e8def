#include "fires/bc_wildfire_enrichment.hpp"

#include <boost/asio/co_spawn.hpp>
#include <boost/url/parse.hpp>

#include <algorithm>
#include <cctype>

#include "fires/fire_queries.hpp"
#include "platform/errors.hpp"

namespace ombrine {

namespace {

std::string trimmed(std::string_view text) {
  while (!text.empty() && std::isspace(static_cast<unsigned char>(text.front()))) text.remove_prefix(1);
  while (!text.empty() && std::isspace(static_cast<unsigned char>(text.back()))) text.remove_suffix(1);
  return std::string(text);
}

std::string upper(std::string text) {
  for (char& c : text) c = static_cast<char>(std::toupper(static_cast<unsigned char>(c)));
  return text;
}

}  // namespace

namespace BCWildfireEnrichmentPolicy {

bool isName(std::string_view value) {
  const std::string text = upper(trimmed(value));
  if (text.empty()) return false;
  static constexpr std::string_view kPlaceholders[] = {"N/A", "NA", "NONE", "NULL", "TBA", "TBD", "UNK", "UNKNOWN"};
  return std::find(std::begin(kPlaceholders), std::end(kPlaceholders), text) == std::end(kPlaceholders);
}

std::optional<std::string> displayName(const BCWildfireEnrichmentRecord& record) {
  std::vector<DisplayNameCandidate> candidates;
  if (record.incidentName) candidates.push_back({trimmed(*record.incidentName), 0});
  if (record.geographicDescription) candidates.push_back({trimmed(*record.geographicDescription), 1});
  std::optional<DisplayNameCandidate> best;
  for (auto& candidate : candidates) {
    if (!isName(candidate.value)) continue;
    if (!best || candidate.priority < best->priority) best = candidate;
  }
  if (!best) return std::nullopt;
  return best->value;
}

std::optional<boost::urls::url> detailsURL(const BCWildfireEnrichmentRecord& record, std::string_view situationHost) {
  if (!record.fireURL) return std::nullopt;
  const std::string text = trimmed(*record.fireURL);
  const auto parsed = boost::urls::parse_absolute_uri(text);
  if (!parsed) return std::nullopt;
  boost::urls::url url(*parsed);
  std::string scheme(url.scheme());
  std::string host(url.host());
  for (char& c : scheme) c = static_cast<char>(std::tolower(static_cast<unsigned char>(c)));
  for (char& c : host) c = static_cast<char>(std::tolower(static_cast<unsigned char>(c)));
  if (scheme != "https" || host != situationHost) return std::nullopt;
  for (const auto& segment : url.segments()) {
    if (segment == "incidents") return url;
  }
  return std::nullopt;
}

}  // namespace BCWildfireEnrichmentPolicy

BCWildfireEnrichmentCache::BCWildfireEnrichmentCache(Strand strand, HttpClient& http, const Clock& clock,
                                                     FireProviderCooldownStore& cooldowns, boost::urls::url mapServices,
                                                     std::string situationHost)
    : strand_(std::move(strand)),
      http_(http),
      clock_(clock),
      cooldowns_(cooldowns),
      mapServices_(std::move(mapServices)),
      situationHost_(std::move(situationHost)) {}

Task<std::map<BCWildfireEnrichmentKey, BCWildfireEnrichment>> BCWildfireEnrichmentCache::enrichments(
    std::vector<BCWildfireEnrichmentKey> keys, Date now) {
  auto task = enrichmentsOnStrand(std::move(keys), now);
  co_return co_await asio::co_spawn(strand_, std::move(task), asio::use_awaitable);
}

Task<BCWildfireEnrichmentBatchOutcome> BCWildfireEnrichmentCache::fetchBatch(std::vector<std::string> fireNumbers) {
  std::exception_ptr failure;
  try {
    FireFeatureRequest request;
    request.url = bcWildfireEnrichmentURL(mapServices_, fireNumbers);
    std::string body = co_await fetchFireFeatureBody(http_, clock_, cooldowns_, std::move(request));
    const auto collection = decodeFireFeatureCollection<BCWildfireEnrichmentProperties>(body);
    BCWildfireEnrichmentBatchResult result;
    result.fireNumbers = fireNumbers;
    for (const auto& feature : collection.features) {
      if (!feature.properties) continue;
      const auto& p = *feature.properties;
      result.records.push_back({p.fireNumber, p.incidentName, p.geographicDescription, p.fireURL});
    }
    co_return BCWildfireEnrichmentBatchOutcome{std::move(result)};
  } catch (...) {
    failure = std::current_exception();
  }
  rethrowIfCancellation(failure);
  co_return BCWildfireEnrichmentBatchOutcome{BCWildfireEnrichmentBatchOutcome::Failure{std::move(fireNumbers)}};
}

Task<std::map<BCWildfireEnrichmentKey, BCWildfireEnrichment>> BCWildfireEnrichmentCache::enrichmentsOnStrand(
    std::vector<BCWildfireEnrichmentKey> keys, Date now) {
  std::map<BCWildfireEnrichmentKey, BCWildfireEnrichment> result;
  std::vector<BCWildfireEnrichmentKey> missing;
  for (const auto& key : keys) {
    const auto found = entriesByKey_.find(key);
    if (found != entriesByKey_.end() &&
        now.timeIntervalSinceReferenceDate - found->second.fetchedAt.timeIntervalSinceReferenceDate <
            BCWildfireEnrichmentPolicy::kEntryLifetimeSeconds) {
      result[key] = found->second.enrichment;
    } else if (std::find(missing.begin(), missing.end(), key) == missing.end()) {
      missing.push_back(key);
    }
  }
  for (size_t start = 0; start < missing.size(); start += BCWildfireEnrichmentPolicy::kBatchSize) {
    const size_t end = std::min(missing.size(), start + BCWildfireEnrichmentPolicy::kBatchSize);
    std::vector<std::string> numbers;
    for (size_t i = start; i < end; ++i) numbers.push_back(missing[i].fireNumber);
    auto batch = fetchBatch(numbers);
    const BCWildfireEnrichmentBatchOutcome outcome = co_await std::move(batch);
    const auto* success = std::get_if<BCWildfireEnrichmentBatchResult>(&outcome.value);
    if (success == nullptr) continue;  // those fires keep their CWFIS names
    for (size_t i = start; i < end; ++i) {
      BCWildfireEnrichment enrichment;
      for (const auto& record : success->records) {
        if (!record.fireNumber || upper(trimmed(*record.fireNumber)) != upper(trimmed(missing[i].fireNumber))) continue;
        enrichment.displayName = BCWildfireEnrichmentPolicy::displayName(record);
        enrichment.detailsURL = BCWildfireEnrichmentPolicy::detailsURL(record, situationHost_);
        break;
      }
      // A number the province does not know is remembered as such, so it is not asked again.
      entriesByKey_[missing[i]] = Entry{enrichment, now};
      if (enrichment.displayName || enrichment.detailsURL) result[missing[i]] = enrichment;
    }
  }
  co_return result;
}

}  // namespace ombrine
