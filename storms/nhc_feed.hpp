#pragma once
// The National Hurricane Center's list of active storms ("/CurrentStorms.json").
//
// One unreadable entry never loses the feed: it is dropped and withdraws the coverage of its
// basin ("AL" the Atlantic, "EP"/"CP" the East and Central Pacific, anything else or no id
// both), so that nobody concludes from the shorter list that a storm has ended.

#include <optional>
#include <string>
#include <string_view>
#include <vector>

#include "core/fetch/service_endpoints.hpp"
#include "platform/async/task.hpp"
#include "platform/http_client.hpp"
#include "storms/storm.hpp"

namespace ombrine {

struct NHCActiveStormsResponse {
  std::vector<Storm> activeStorms;
  ActiveStormCoverageSet completeCoverage;
};

struct FailableNHCStorm {
  std::optional<Storm> storm;
  std::optional<std::string> identifier;
};

// What one storm source delivered and the areas it spoke for completely.
template <class T>
struct ActiveStormSourceFetchResult {
  std::vector<T> records;
  ActiveStormCoverageSet completeCoverage;
};

// Decodes a whole reply body. Raises DecodingError when it is not JSON or "activeStorms" is not
// an array. Pure.
NHCActiveStormsResponse decodeNHCActiveStorms(std::string_view body);

// Fetches the feed and returns its storms with the complete coverage intersected with
// `requested`. Runs on the caller's executor. Raises HttpError (transport), NetworkError
// (status other than 200), DecodingError (top level) and CancellationError.
Task<ActiveStormSourceFetchResult<Storm>> fetchNHCStorms(HttpClient& http, const ServiceEndpoints& endpoints,
                                                         ActiveStormCoverageSet requested);

}  // namespace ombrine
