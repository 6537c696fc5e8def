#pragma once
// The Joint Typhoon Warning Center's RSS feed: which storms are active and which basins the
// feed has spoken for.
//
// The Center publishes no JSON. Each feed item is one section of basins ("NWPAC-NIO-WARNINGS",
// "EPAC-CPAC-WARNINGS", "SH-WARNINGS", read from the item's guid), and its HTML description links
// a "<slug>web.txt" warning and a "<slug>.kmz" track per storm. A section proves its coverage
// only when it links a storm or says "No Current Tropical Cyclone Warnings": a section that says
// neither may be mid-update and proves nothing.

#include <optional>
#include <string>
#include <string_view>
#include <utility>
#include <vector>

#include <boost/url/url.hpp>

#include "core/fetch/service_endpoints.hpp"
#include "core/values/date.hpp"
#include "platform/async/task.hpp"
#include "platform/http_client.hpp"
#include "storms/storm.hpp"

namespace ombrine {

struct JTWCActiveStormFeedItem {
  std::optional<std::string> title;
  std::optional<std::string> description;
  std::optional<std::string> guid;
  std::optional<Date> publicationDate;

  bool operator==(const JTWCActiveStormFeedItem&) const = default;
};

enum class JTWCActiveStormFeedSection { northwestPacificAndNorthIndianOcean, eastCentralPacific, southernHemisphere };

// "NWPAC-NIO-WARNINGS", "EPAC-CPAC-WARNINGS", "SH-WARNINGS".
const char* rawValue(JTWCActiveStormFeedSection section);
ActiveStormCoverageSet coverageOf(JTWCActiveStormFeedSection section);

struct JTWCActiveStormFeedReference {
  std::string identifier;  // lower-case slug, "wp0626"
  std::optional<Date> publicationDate;
  JTWCActiveStormFeedSection section;

  bool operator==(const JTWCActiveStormFeedReference&) const = default;
};

struct JTWCActiveStormFeedSectionEvidence {
  JTWCActiveStormFeedSection section;
  bool hasRecognizedStorm = false;
  bool explicitlyReportsNoWarnings = false;

  bool operator==(const JTWCActiveStormFeedSectionEvidence&) const = default;
};

struct JTWCStormDescriptor {
  std::string slug;
  boost::urls::url kmzURL;
  boost::urls::url advisoryURL;
  std::optional<Date> pubDate;
  ActiveStormCoverageSet coverage;

  bool operator==(const JTWCStormDescriptor&) const = default;
};

// The items of an RSS (or RDF) document. Raises DecodingError for XML that is not well-formed
// or has no rss/rdf root or no channel. Pure.
std::vector<JTWCActiveStormFeedItem> parseJTWCFeed(std::string_view data);

// The lower-cased slugs that "https?://[^'\"]*/products/([a-z]{2}\d{4})(?:web\.txt|\.kmz)"
// (any case) finds in `description`, left to right, found in linear time: the expression itself
// backtracks quadratically over a description full of addresses.
std::vector<std::string> productLinkSlugs(std::string_view description);

struct JTWCReferencesAndSections {
  std::vector<JTWCActiveStormFeedReference> references;      // one per slug, from its first section
  std::vector<JTWCActiveStormFeedSectionEvidence> sections;  // one per section item
  ActiveStormCoverageSet provenCoverage;
};

JTWCReferencesAndSections referencesAndSections(const std::vector<JTWCActiveStormFeedItem>& items);

// The descriptor of a reference on the site `base`: its coverage from the slug's basin, or from
// the section where the basin says nothing. Nothing when the URLs cannot be formed.
std::optional<JTWCStormDescriptor> descriptorFor(const JTWCActiveStormFeedReference& reference,
                                                 const boost::urls::url& base);

struct JTWCDescriptorsResult {
  std::vector<JTWCStormDescriptor> descriptors;
  ActiveStormCoverageSet completeCoverage;
};

// Fetches and reads the RSS feed: the descriptors that touch `requested` and the proven
// coverage within it. Runs on the caller's executor. Raises HttpError, NetworkError (status),
// DecodingError (feed) and CancellationError.
Task<JTWCDescriptorsResult> fetchJTWCDescriptors(HttpClient& http, const ServiceEndpoints& endpoints,
                                                 ActiveStormCoverageSet requested);

}  // namespace ombrine
